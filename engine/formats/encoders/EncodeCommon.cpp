#include "engine/core/ParallelFor.h"
#include "engine/formats/encoders/Encoders.h"

#include <algorithm>
#include <array>
#include <atomic>

namespace korv::encoding {

namespace {

// straight[a][c] = round(c * 255 / a): a table instead of three divisions a pixel.
const std::array<uint8_t, 256 * 256>& straightTable() {
    static const auto table = [] {
        std::array<uint8_t, 256 * 256> t{};
        for (unsigned a = 1; a < 256; ++a)
            for (unsigned c = 0; c < 256; ++c)
                t[a * 256 + c] = uint8_t(std::min(255u, (c * 255 + a / 2) / a));
        return t;
    }();
    return table;
}

} // namespace

bool isOpaque(const RGBABuffer& image) {
    std::atomic<bool> opaque{true};
    constexpr int64_t kBand = 64;
    parallelFor((image.height() + kBand - 1) / kBand, [&](int64_t band) {
        const int64_t end = std::min(image.height(), (band + 1) * kBand);
        for (int64_t y = band * kBand; y < end && opaque.load(std::memory_order_relaxed); ++y) {
            const uint8_t* p = image.row(y);
            uint8_t all = 255;
            for (int64_t x = 0; x < image.width(); ++x)
                all &= p[x * 4 + 3];
            if (all != 255) opaque.store(false, std::memory_order_relaxed);
        }
    });
    return opaque.load();
}

void unpremultiplyRow(const uint8_t* src, uint8_t* dst, int64_t pixels, bool keepAlpha) {
    const uint8_t* table = straightTable().data();
    const int step = keepAlpha ? 4 : 3;
    for (int64_t i = 0; i < pixels; ++i, src += 4, dst += step) {
        const unsigned a = src[3];
        const uint8_t* t = table + a * 256;
        if (a == 255)
            dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
        else
            dst[0] = t[src[0]], dst[1] = t[src[1]], dst[2] = t[src[2]];
        if (keepAlpha) dst[3] = uint8_t(a);
    }
}

} // namespace korv::encoding
