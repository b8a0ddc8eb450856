#pragma once
// The engine's one door to the filter engine (OpenCV underneath): blurs,
// morphology, colour matrices and simple geometry on premultiplied sRGB RGBA
// buffers and on byte masks, with the bytes taken as they stand. Stateless
// apart from a setup made once; safe from any thread.
#include "engine/core/IRect.h"
#include "engine/core/RGBABuffer.h"
#include "engine/platform/Geometry.h"

#include <array>
#include <cstdint>
#include <vector>

namespace korv::StudioCI {

// width x height bytes, row by row from the top.
using Mask = std::vector<uint8_t>;

// What a filter sees beyond the picture's edge.
enum class Edges : uint8_t {
    transparent, // zero bytes
    clamp,       // the edge pixel continued outward, so the edge shows no dark margin
};

// out[i] = m[i*4+0] R + m[i*4+1] G + m[i*4+2] B + m[i*4+3] A + bias[i] on
// values 0...1, channels R, G, B, A in that order.
struct ColorMatrix {
    std::array<float, 16> m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::array<float, 4> bias{0, 0, 0, 0};

    bool operator==(const ColorMatrix&) const = default;
};

// The threads the filter engine runs big operations on; its pool is set up on the first call.
int threadCount();

// A copy of the buffer, so the source can be released at once.
RGBABufferPtr image(const RGBABuffer& buffer);
// The rectangle (0, 0, width, height) of the image (transparent beyond it)
// with no colour byte left above its alpha.
RGBABufferPtr render(const RGBABuffer& image, int64_t width, int64_t height);
// Each of R, G, B above A lowered to A, in place.
void render(RGBABuffer& image);

// A true Gaussian of this sigma (no radius conversion); sigma <= 0 copies.
RGBABufferPtr gaussianBlur(const RGBABuffer& image, double sigma, Edges edges);
Mask gaussianBlur(const Mask& mask, int64_t width, int64_t height, double sigma, Edges edges);

// The largest (smallest) value over the disc of points within `radius` of
// each pixel; a radius below 1 copies. A larger radius never gives less
// (more), whether it is whole or not.
RGBABufferPtr morphologyMaximum(const RGBABuffer& image, double radius, Edges edges);
RGBABufferPtr morphologyMinimum(const RGBABuffer& image, double radius, Edges edges);
Mask morphologyMaximum(const Mask& mask, int64_t width, int64_t height, double radius, Edges edges);
Mask morphologyMinimum(const Mask& mask, int64_t width, int64_t height, double radius, Edges edges);

// The matrix applied to every pixel's bytes as they stand; results clamped to 0...1.
RGBABufferPtr colorMatrix(const RGBABuffer& image, const ColorMatrix& matrix);

// The rectangle's pixels; what lies outside the image is transparent.
RGBABufferPtr crop(const RGBABuffer& image, const IRect& rect);
// Moved by (dx, dy) on a canvas of the same size; fractional offsets are
// resampled bilinearly, and what enters from outside is transparent.
RGBABufferPtr translate(const RGBABuffer& image, double dx, double dy);
// Every pixel (x, y) of `out` sampled bilinearly from the image at
// inverse(x, y), pixel centres at whole numbers on both sides; points past
// the image's edge read its edge pixels. On all cores.
void warpAffine(const RGBABuffer& image, RGBABuffer& out, const AffineTransform& inverse);
// Source-over of premultiplied pixels; both have the same size.
RGBABufferPtr compositeOver(const RGBABuffer& top, const RGBABuffer& bottom);

} // namespace korv::StudioCI
