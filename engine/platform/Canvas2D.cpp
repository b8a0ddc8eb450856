#include "engine/platform/Canvas2D.h"

#include "engine/core/Require.h"

#include <cairo.h>
#include <cstring>

namespace korv {

namespace {

// Cairo's ARGB32 is one native-endian word per pixel, premultiplied like ours.
uint32_t toCairo(const uint8_t* p) {
    return uint32_t(p[3]) << 24 | uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | uint32_t(p[2]);
}

void fromCairo(uint32_t v, uint8_t* p) {
    p[0] = uint8_t(v >> 16);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v);
    p[3] = uint8_t(v >> 24);
}

cairo_matrix_t matrixOf(const AffineTransform& t) {
    cairo_matrix_t m;
    cairo_matrix_init(&m, t.a, t.b, t.c, t.d, t.tx, t.ty);
    return m;
}

} // namespace

std::unique_ptr<Canvas2D> Canvas2D::gray(uint8_t* bytes, int64_t width, int64_t height, int64_t stride) {
    return make(true, bytes, width, height, stride);
}

std::unique_ptr<Canvas2D> Canvas2D::rgba(uint8_t* pixels, int64_t width, int64_t height, int64_t stride) {
    return make(false, pixels, width, height, stride);
}

std::unique_ptr<Canvas2D> Canvas2D::rgba(RGBABuffer& buffer) {
    return make(false, buffer.data(), buffer.width(), buffer.height(), buffer.width() * 4);
}

std::unique_ptr<Canvas2D> Canvas2D::make(bool gray, uint8_t* target, int64_t width, int64_t height,
                                         int64_t stride) {
    KORV_REQUIRE(target && width >= 0 && height >= 0 && stride >= width * (gray ? 1 : 4));
    // Cairo's sizes are ints, and its image surfaces stop at 32767 a side.
    if (width < 1 || height < 1 || width > 32767 || height > 32767) return nullptr;
    std::unique_ptr<Canvas2D> canvas(new Canvas2D(gray, target, width, height, stride));
    if (!canvas->cr_) return nullptr;
    return canvas;
}

Canvas2D::Canvas2D(bool gray, uint8_t* target, int64_t width, int64_t height, int64_t stride)
    : gray_(gray), target_(target), width_(width), height_(height), stride_(stride) {
    const cairo_format_t format = gray ? CAIRO_FORMAT_A8 : CAIRO_FORMAT_ARGB32;
    const int w = int(width), h = int(height);
    const int cairoStride = cairo_format_stride_for_width(format, w);
    // A grey plane laid out as Cairo wants it is drawn in place.
    direct_ = gray && cairoStride == stride && reinterpret_cast<uintptr_t>(target) % 4 == 0;
    surface_ = direct_ ? cairo_image_surface_create_for_data(target, format, w, h, cairoStride)
                       : cairo_image_surface_create(format, w, h);
    if (cairo_surface_status(surface_) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface_);
        surface_ = nullptr;
        return;
    }
    if (!direct_) {
        cairo_surface_flush(surface_);
        uint8_t* data = cairo_image_surface_get_data(surface_);
        const int64_t ds = cairo_image_surface_get_stride(surface_);
        for (int64_t y = 0; y < height; ++y) {
            const uint8_t* from = target + y * stride;
            uint8_t* to = data + y * ds;
            if (gray) {
                std::memcpy(to, from, size_t(width));
            } else {
                auto* words = reinterpret_cast<uint32_t*>(to);
                for (int64_t x = 0; x < width; ++x)
                    words[x] = toCairo(from + x * 4);
            }
        }
        cairo_surface_mark_dirty(surface_);
    }
    cr_ = cairo_create(surface_);
    if (cairo_status(cr_) != CAIRO_STATUS_SUCCESS) {
        cairo_destroy(cr_);
        cr_ = nullptr;
        return;
    }
    cairo_set_fill_rule(cr_, CAIRO_FILL_RULE_WINDING);
    cairo_set_line_join(cr_, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(cr_, CAIRO_LINE_CAP_ROUND);
    setColor(PaintColor::black());
}

Canvas2D::~Canvas2D() {
    if (cr_) flush();
    if (cr_) cairo_destroy(cr_);
    if (surface_) cairo_surface_destroy(surface_);
}

void Canvas2D::setAntialias(bool on) {
    cairo_set_antialias(cr_, on ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
}

void Canvas2D::setColor(const PaintColor& c) {
    if (gray_) {
        // An A8 surface holds only alpha: the grey is drawn as an alpha that
        // replaces the old one in proportion to coverage, like an opaque grey.
        cairo_set_operator(cr_, CAIRO_OPERATOR_SOURCE);
        cairo_set_source_rgba(cr_, 0, 0, 0, 0.3 * c.r + 0.59 * c.g + 0.11 * c.b);
    } else {
        cairo_set_operator(cr_, CAIRO_OPERATOR_OVER);
        cairo_set_source_rgba(cr_, c.r, c.g, c.b, c.a);
    }
}

void Canvas2D::setTransform(const AffineTransform& t) {
    const cairo_matrix_t m = matrixOf(t);
    cairo_set_matrix(cr_, &m);
}

void Canvas2D::concat(const AffineTransform& t) {
    const cairo_matrix_t m = matrixOf(t);
    cairo_transform(cr_, &m);
}

void Canvas2D::trace(const Path& path) {
    cairo_new_path(cr_);
    const std::vector<Point>& pts = path.points();
    size_t k = 0;
    Point last, start;
    for (Path::Verb v : path.verbs()) {
        switch (v) {
        case Path::Verb::move:
            start = last = pts[k++];
            cairo_move_to(cr_, last.x, last.y);
            break;
        case Path::Verb::line:
            last = pts[k++];
            cairo_line_to(cr_, last.x, last.y);
            break;
        case Path::Verb::quad: {
            // Cairo has cubics only; a quadratic is the cubic with controls
            // two thirds of the way from each end to its control point.
            const Point c = pts[k], b = pts[k + 1];
            k += 2;
            cairo_curve_to(cr_, last.x + 2.0 / 3.0 * (c.x - last.x), last.y + 2.0 / 3.0 * (c.y - last.y),
                           b.x + 2.0 / 3.0 * (c.x - b.x), b.y + 2.0 / 3.0 * (c.y - b.y), b.x, b.y);
            last = b;
            break;
        }
        case Path::Verb::cubic: {
            const Point c1 = pts[k], c2 = pts[k + 1];
            last = pts[k + 2];
            k += 3;
            cairo_curve_to(cr_, c1.x, c1.y, c2.x, c2.y, last.x, last.y);
            break;
        }
        case Path::Verb::close:
            cairo_close_path(cr_);
            last = start;
            break;
        }
    }
}

void Canvas2D::fill(const Path& path) {
    trace(path);
    cairo_fill(cr_);
}

void Canvas2D::stroke(const Path& path, double width) {
    if (!(width > 0)) return;
    trace(path);
    cairo_set_line_width(cr_, width);
    cairo_stroke(cr_);
}

void Canvas2D::clear() {
    cairo_save(cr_);
    cairo_set_operator(cr_, CAIRO_OPERATOR_CLEAR);
    cairo_paint(cr_);
    cairo_restore(cr_);
}

void Canvas2D::flush() {
    cairo_surface_flush(surface_);
    if (direct_) return;
    const uint8_t* data = cairo_image_surface_get_data(surface_);
    const int64_t ds = cairo_image_surface_get_stride(surface_);
    for (int64_t y = 0; y < height_; ++y) {
        const uint8_t* from = data + y * ds;
        uint8_t* to = target_ + y * stride_;
        if (gray_) {
            std::memcpy(to, from, size_t(width_));
        } else {
            const auto* words = reinterpret_cast<const uint32_t*>(from);
            for (int64_t x = 0; x < width_; ++x)
                fromCairo(words[x], to + x * 4);
        }
    }
}

} // namespace korv
