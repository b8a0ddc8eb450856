#pragma once
// FNV-1a, 64 bit: the one hash of the engine (tile and document fingerprints,
// cache keys).
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace korv {

inline constexpr uint64_t kFnvBasis = 0xCBF29CE484222325ull;
inline constexpr uint64_t kFnvPrime = 0x100000001B3ull;

// FNV-1a over a run of bytes; a run of 0 bytes gives the basis.
uint64_t fnv(const void* data, size_t count, uint64_t h = kFnvBasis);

// Accumulates a hash by mixing whole numbers and texts one step at a time.
struct FnvMixer {
    uint64_t h = kFnvBasis;
    void mix(uint64_t v) { h = (h ^ v) * kFnvPrime; }
    void mix(std::string_view text) {
        for (unsigned char c : text) mix(uint64_t(c));
    }
};

} // namespace korv
