#include "engine/core/RGBABuffer.h"

#include "engine/core/Fnv.h"
#include "engine/core/PaintColor.h"
#include "engine/core/Require.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace korv {

RGBABuffer::RGBABuffer(int64_t width, int64_t height, Uninitialized)
    : width_(std::max<int64_t>(width, 1)), height_(std::max<int64_t>(height, 1)) {
    // 2^31 pixels on a side is far past any canvas; it keeps the byte count from overflowing.
    KORV_REQUIRE(width_ < (int64_t(1) << 31) && height_ < (int64_t(1) << 31));
    size_t bytes = size_t(width_) * size_t(height_) * 4;
    // Large pictures go on huge pages: a fresh 48 MB canvas otherwise costs
    // some 12,000 page faults, more than rendering into it.
    constexpr size_t kHuge = size_t(2) << 20;
    const size_t align = bytes >= 4 * kHuge ? kHuge : 64;
    const size_t rounded = (bytes + align - 1) & ~(align - 1);
    data_ = static_cast<uint8_t*>(std::aligned_alloc(align, rounded));
    if (!data_) throw std::bad_alloc();
    if (align == kHuge) ::madvise(data_, rounded, MADV_HUGEPAGE);
}

RGBABuffer::RGBABuffer(int64_t width, int64_t height) : RGBABuffer(width, height, Uninitialized{}) {
    std::memset(data_, 0, size_t(byteCount()));
}

RGBABuffer::~RGBABuffer() { std::free(data_); }

Pixel4 RGBABuffer::pixel(int64_t x, int64_t y) const {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) return {0, 0, 0, 0};
    const uint8_t* p = data_ + (y * width_ + x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

void RGBABuffer::setPixel(int64_t x, int64_t y, Pixel4 px) {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
    std::memcpy(data_ + (y * width_ + x) * 4, px.data(), 4);
}

void RGBABuffer::fill(const PaintColor& c) {
    auto byte = [](double v) { return uint8_t(std::round(std::clamp(v, 0.0, 1.0) * 255.0)); };
    const uint8_t px[4] = {byte(c.r * c.a), byte(c.g * c.a), byte(c.b * c.a), byte(c.a)};
    uint32_t word;
    std::memcpy(&word, px, 4);
    auto* out = reinterpret_cast<uint32_t*>(data_);
    std::fill(out, out + width_ * height_, word);
}

std::shared_ptr<RGBABuffer> RGBABuffer::copy() const {
    auto out = std::make_shared<RGBABuffer>(width_, height_);
    std::memcpy(out->data_, data_, size_t(byteCount()));
    return out;
}

std::shared_ptr<RGBABuffer> RGBABuffer::cropped(const IRect& r) const {
    auto out = std::make_shared<RGBABuffer>(r.w, r.h);
    IRect src = r.intersection({0, 0, width_, height_});
    if (src.isEmpty()) return out;
    for (int64_t y = src.y; y < src.maxY(); ++y)
        std::memcpy(out->row(y - r.y) + (src.x - r.x) * 4, row(y) + src.x * 4, size_t(src.w * 4));
    return out;
}

uint64_t RGBABuffer::fingerprint() const { return fnv(data_, size_t(byteCount())); }

} // namespace korv
