#pragma once
// A contiguous picture of premultiplied RGBA bytes, rows top to bottom,
// stride width x 4. Never zero sized.
#include "engine/core/IRect.h"

#include <array>
#include <cstdint>
#include <memory>

namespace korv {

struct PaintColor;
using Pixel4 = std::array<uint8_t, 4>;

class RGBABuffer {
public:
    // Each side is raised to at least 1; the bytes start zero.
    RGBABuffer(int64_t width, int64_t height);
    // For writers that fill every byte themselves (a flatten, a decoder): skips the zero fill.
    struct Uninitialized {};
    RGBABuffer(int64_t width, int64_t height, Uninitialized);
    RGBABuffer(const RGBABuffer&) = delete;
    RGBABuffer& operator=(const RGBABuffer&) = delete;
    ~RGBABuffer();

    int64_t width() const { return width_; }
    int64_t height() const { return height_; }
    int64_t byteCount() const { return width_ * height_ * 4; }
    uint8_t* data() { return data_; }
    const uint8_t* data() const { return data_; }
    uint8_t* row(int64_t y) { return data_ + y * width_ * 4; }
    const uint8_t* row(int64_t y) const { return data_ + y * width_ * 4; }

    Pixel4 pixel(int64_t x, int64_t y) const;
    void setPixel(int64_t x, int64_t y, Pixel4 p);
    void fill(const PaintColor& c);
    std::shared_ptr<RGBABuffer> copy() const;
    // A buffer of max(w,1) x max(h,1); what lies outside this buffer stays transparent.
    std::shared_ptr<RGBABuffer> cropped(const IRect& r) const;
    uint64_t fingerprint() const;

private:
    int64_t width_;
    int64_t height_;
    uint8_t* data_;
};

using RGBABufferPtr = std::shared_ptr<RGBABuffer>;

} // namespace korv
