#pragma once
// Real-valued points, rectangles and affine maps in canvas coordinates
// (origin top left, y down), the vocabulary of paths and drawing.
#include <algorithm>
#include <cmath>
#include <optional>

namespace korv {

struct Point {
    double x = 0, y = 0;

    bool operator==(const Point&) const = default;
};

struct Rect {
    double x = 0, y = 0, w = 0, h = 0;

    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + w; }
    double maxY() const { return y + h; }
    double midX() const { return x + w / 2; }
    double midY() const { return y + h / 2; }
    bool isEmpty() const { return !(w > 0) || !(h > 0); }
    // The same rectangle with a width and height that are not negative.
    Rect standardized() const { return {std::min(x, x + w), std::min(y, y + h), std::fabs(w), std::fabs(h)}; }

    bool operator==(const Rect&) const = default;
};

// x' = a x + c y + tx, y' = b x + d y + ty.
struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    static AffineTransform translation(double x, double y) { return {1, 0, 0, 1, x, y}; }
    static AffineTransform scale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
    static AffineTransform rotation(double radians) {
        const double cs = std::cos(radians), sn = std::sin(radians);
        return {cs, sn, -sn, cs, 0, 0};
    }

    Point apply(const Point& p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }
    // This map first, then the other.
    AffineTransform then(const AffineTransform& o) const {
        return {a * o.a + b * o.c, a * o.b + b * o.d,          c * o.a + d * o.c,
                c * o.b + d * o.d, tx * o.a + ty * o.c + o.tx, tx * o.b + ty * o.d + o.ty};
    }
    bool isIdentity() const { return *this == AffineTransform{}; }
    // The map back; none when this one flattens the plane.
    std::optional<AffineTransform> inverted() const {
        const double det = a * d - b * c;
        if (!(std::fabs(det) > 1e-12)) return std::nullopt;
        AffineTransform r{d / det, -b / det, -c / det, a / det, 0, 0};
        r.tx = -(r.a * tx + r.c * ty);
        r.ty = -(r.b * tx + r.d * ty);
        return r;
    }

    bool operator==(const AffineTransform&) const = default;
};

} // namespace korv
