#include "engine/platform/Resampling.h"

#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <numbers>
#include <vector>

namespace korv {

namespace {

constexpr int kWeightBits = 14;
constexpr int32_t kOne = 1 << kWeightBits;

double lanczos3(double x) {
    x = std::abs(x);
    if (x < 1e-9) return 1.0;
    if (x >= 3.0) return 0.0;
    const double px = std::numbers::pi * x;
    return 3.0 * std::sin(px) * std::sin(px / 3.0) / (px * px);
}

double catmullRom(double x) {
    x = std::abs(x);
    if (x < 1.0) return (1.5 * x - 2.5) * x * x + 1.0;
    if (x < 2.0) return ((-0.5 * x + 2.5) * x - 4.0) * x + 2.0;
    return 0.0;
}

// For each output position along one axis: the first source index and its
// fixed-point weights, which add up to exactly kOne so that flat areas stay flat.
struct Taps {
    int64_t stride = 0; // weights per output position
    std::vector<int64_t> first;
    std::vector<int32_t> count;
    std::vector<int32_t> weights;
};

Taps makeTaps(int64_t in, int64_t out) {
    const double scale = double(in) / double(out);
    const bool shrinking = scale > 1.0;
    const double widen = shrinking ? scale : 1.0;
    const double support = (shrinking ? 3.0 : 2.0) * widen;
    Taps t;
    t.stride = int64_t(std::ceil(support)) * 2 + 2;
    t.first.resize(size_t(out));
    t.count.resize(size_t(out));
    t.weights.assign(size_t(out * t.stride), 0);
    std::vector<double> w(size_t(t.stride));
    for (int64_t i = 0; i < out; ++i) {
        const double center = (double(i) + 0.5) * scale;
        const int64_t lo = std::max<int64_t>(0, int64_t(std::floor(center - support)));
        const int64_t hi = std::min<int64_t>(in, std::max(lo + 1, int64_t(std::ceil(center + support))));
        const int64_t n = std::min(hi - lo, t.stride);
        double sum = 0;
        for (int64_t j = 0; j < n; ++j) {
            const double x = (double(lo + j) + 0.5 - center) / widen;
            w[size_t(j)] = shrinking ? lanczos3(x) : catmullRom(x);
            sum += w[size_t(j)];
        }
        int32_t* fixed = &t.weights[size_t(i * t.stride)];
        int32_t total = 0;
        int64_t largest = 0;
        for (int64_t j = 0; j < n; ++j) {
            fixed[j] = sum != 0 ? int32_t(std::lround(w[size_t(j)] / sum * kOne)) : (j == 0 ? kOne : 0);
            total += fixed[j];
            if (fixed[j] > fixed[largest]) largest = j;
        }
        fixed[largest] += kOne - total;
        t.first[size_t(i)] = lo;
        t.count[size_t(i)] = int32_t(n);
    }
    return t;
}

inline uint8_t toByte(int32_t acc) {
    const int32_t v = (acc + (kOne >> 1)) >> kWeightBits;
    return uint8_t(std::clamp(v, 0, 255));
}

} // namespace

RGBABufferPtr resampled(const RGBABuffer& image, int64_t width, int64_t height) {
    width = std::max<int64_t>(width, 1);
    height = std::max<int64_t>(height, 1);
    try {
        const int64_t inW = image.width(), inH = image.height();
        const Taps tx = makeTaps(inW, width), ty = makeTaps(inH, height);
        // Rows first into an intermediate of the new width and the old height.
        std::unique_ptr<uint8_t[]> mid(new uint8_t[size_t(width * inH * 4)]);
        auto out = std::make_shared<RGBABuffer>(width, height, RGBABuffer::Uninitialized{});
        constexpr int64_t kBand = 16;
        parallelFor((inH + kBand - 1) / kBand, [&](int64_t band) {
            const int64_t end = std::min(inH, (band + 1) * kBand);
            for (int64_t y = band * kBand; y < end; ++y) {
                const uint8_t* src = image.row(y);
                uint8_t* dst = mid.get() + y * width * 4;
                for (int64_t x = 0; x < width; ++x) {
                    const int32_t* w = &tx.weights[size_t(x * tx.stride)];
                    const uint8_t* s = src + tx.first[size_t(x)] * 4;
                    int32_t r = 0, g = 0, b = 0, a = 0;
                    for (int32_t k = 0; k < tx.count[size_t(x)]; ++k, s += 4) {
                        r += w[k] * s[0];
                        g += w[k] * s[1];
                        b += w[k] * s[2];
                        a += w[k] * s[3];
                    }
                    dst[x * 4] = toByte(r), dst[x * 4 + 1] = toByte(g), dst[x * 4 + 2] = toByte(b);
                    dst[x * 4 + 3] = toByte(a);
                }
            }
        });
        parallelFor((height + kBand - 1) / kBand, [&](int64_t band) {
            // One accumulator row per band, reused for every row in it.
            std::vector<int32_t> acc(size_t(width * 4));
            const int64_t end = std::min(height, (band + 1) * kBand);
            for (int64_t y = band * kBand; y < end; ++y) {
                std::fill(acc.begin(), acc.end(), 0);
                const int32_t* w = &ty.weights[size_t(y * ty.stride)];
                for (int32_t k = 0; k < ty.count[size_t(y)]; ++k) {
                    const uint8_t* s = mid.get() + (ty.first[size_t(y)] + k) * width * 4;
                    const int32_t wk = w[k];
                    for (int64_t i = 0; i < width * 4; ++i)
                        acc[size_t(i)] += wk * s[i];
                }
                uint8_t* d = out->row(y);
                for (int64_t x = 0; x < width; ++x, d += 4) {
                    const uint8_t a = toByte(acc[size_t(x * 4 + 3)]);
                    // Ringing may push a colour past its alpha; premultiplied pixels never allow that.
                    d[0] = std::min(toByte(acc[size_t(x * 4)]), a);
                    d[1] = std::min(toByte(acc[size_t(x * 4 + 1)]), a);
                    d[2] = std::min(toByte(acc[size_t(x * 4 + 2)]), a);
                    d[3] = a;
                }
            }
        });
        return out;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace korv
