#pragma once
// The engine's only source of randomness: a 64-bit xorshift (13, 7, 17), so
// that strokes, noise and fills repeat exactly for a seed.
#include <cstdint>

namespace korv {

struct SeededRandom {
    uint64_t state = 1;

    SeededRandom() = default;
    explicit SeededRandom(uint64_t seed) : state((seed * 0x9E3779B97F4A7C15ull) | 1) {}

    uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    // In [0, 1).
    double unit() { return double(next() >> 11) * 0x1.0p-53; }
    // In [-1, 1).
    double signedUnit() { return 2 * unit() - 1; }

    bool operator==(const SeededRandom&) const = default;
};

} // namespace korv
