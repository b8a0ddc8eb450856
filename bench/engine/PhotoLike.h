#pragma once
// A generated stand-in for a photograph: sky over hills with a warm patch
// and fine grain, so that neighbouring pixels differ as in a photo, regions
// have ragged edges and no table entry is favoured.
#include "engine/core/RGBABuffer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace korv::bench {

inline Pixel4 photoLikePixel(int64_t x, int64_t y, int64_t width, int64_t height) {
    auto unit8 = [](double v) { return uint8_t(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); };
    const double u = double(x) / double(width), v = double(y) / double(height);
    uint64_t n = uint64_t(x) * 0x9E3779B97F4A7C15ull ^ uint64_t(y) * 0xC2B2AE3D27D4EB4Full;
    n ^= n >> 29;
    const double grain = double(n % 1024) / 1024.0 * 0.08 - 0.04;
    const double ridge = 0.55 + 0.08 * std::sin(u * 11.0) + 0.03 * std::sin(u * 37.0);
    double r, g, b;
    if (v < ridge) {
        r = 0.35 + 0.4 * v;
        g = 0.5 + 0.3 * v;
        b = 0.85 - 0.2 * v;
    } else {
        const double t = (v - ridge) / (1.0 - ridge);
        r = 0.25 + 0.45 * t * u;
        g = 0.4 - 0.15 * t + 0.1 * std::sin(u * 5.0);
        b = 0.15 + 0.1 * t;
    }
    const double warm = std::exp(-((u - 0.7) * (u - 0.7) + (v - 0.3) * (v - 0.3)) * 40.0);
    return Pixel4{unit8(r + 0.5 * warm + grain), unit8(g + 0.2 * warm + grain), unit8(b + grain), 255};
}

} // namespace korv::bench
