#pragma once
// Draws paths onto pixel memory the caller owns: an 8-bit grey plane (masks,
// selections) or premultiplied RGBA (layers). Cairo does the rasterising;
// its pixel order differs from ours, so a canvas converts on the way in and
// on flush, and nowhere else. The target belongs to the canvas until it is
// destroyed, and must outlive it.
#include "engine/core/PaintColor.h"
#include "engine/core/RGBABuffer.h"
#include "engine/platform/Path.h"

#include <cstdint>
#include <memory>

struct _cairo;
struct _cairo_surface;

namespace korv {

class Canvas2D {
public:
    // height rows of width bytes, stride bytes apart. Absent when no surface of
    // that size can be made (Cairo stops at 32767 pixels a side).
    static std::unique_ptr<Canvas2D> gray(uint8_t* bytes, int64_t width, int64_t height, int64_t stride);
    static std::unique_ptr<Canvas2D> rgba(uint8_t* pixels, int64_t width, int64_t height, int64_t stride);
    static std::unique_ptr<Canvas2D> rgba(RGBABuffer& buffer);

    Canvas2D(const Canvas2D&) = delete;
    Canvas2D& operator=(const Canvas2D&) = delete;
    // Flushes.
    ~Canvas2D();

    int64_t width() const { return width_; }
    int64_t height() const { return height_; }
    bool isGray() const { return gray_; }

    // On by default; off, a pixel is wholly in or out by its centre.
    void setAntialias(bool on);
    // An RGBA target draws a straight colour source-over. A grey target draws
    // an opaque grey of the colour's luminosity, which replaces what lies under
    // the shape by the shape's coverage.
    void setColor(const PaintColor& color);
    void setGray(double value) { setColor({value, value, value, 1}); }
    // Maps path coordinates (and stroke widths) to pixels; set, or applied
    // before the current one.
    void setTransform(const AffineTransform& t);
    void concat(const AffineTransform& t);

    // Non-zero winding.
    void fill(const Path& path);
    // Centred on the path, round joins and caps.
    void stroke(const Path& path, double width);
    // Every pixel transparent (zero).
    void clear();
    // Brings what is drawn so far into the target memory.
    void flush();
    // The Cairo context, for the other drawers of the platform layer (text).
    _cairo* context() const { return cr_; }

private:
    Canvas2D(bool gray, uint8_t* target, int64_t width, int64_t height, int64_t stride);
    static std::unique_ptr<Canvas2D> make(bool gray, uint8_t* target, int64_t width, int64_t height,
                                          int64_t stride);
    void trace(const Path& path);

    bool gray_;
    uint8_t* target_;
    int64_t width_, height_, stride_;
    bool direct_ = false; // drawing straight into the target, no copy
    _cairo_surface* surface_ = nullptr;
    _cairo* cr_ = nullptr;
};

} // namespace korv
