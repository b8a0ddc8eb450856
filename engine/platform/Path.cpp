#include "engine/platform/Path.h"

#include <cmath>
#include <limits>

namespace korv {

namespace {

// Control distance of a cubic quarter circle of radius 1.
constexpr double kKappa = 0.5522847498307936;

struct Box {
    double x0 = std::numeric_limits<double>::infinity(), y0 = x0;
    double x1 = -std::numeric_limits<double>::infinity(), y1 = x1;
    void add(Point p) {
        x0 = std::min(x0, p.x);
        y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x);
        y1 = std::max(y1, p.y);
    }
};

Point quadAt(Point a, Point c, Point b, double t) {
    const double u = 1 - t;
    return {u * u * a.x + 2 * u * t * c.x + t * t * b.x, u * u * a.y + 2 * u * t * c.y + t * t * b.y};
}

Point cubicAt(Point a, Point c1, Point c2, Point b, double t) {
    const double u = 1 - t;
    const double k0 = u * u * u, k1 = 3 * u * u * t, k2 = 3 * u * t * t, k3 = t * t * t;
    return {k0 * a.x + k1 * c1.x + k2 * c2.x + k3 * b.x, k0 * a.y + k1 * c1.y + k2 * c2.y + k3 * b.y};
}

// Parameters in (0, 1) where one coordinate of a cubic turns: the roots of
// its derivative, a quadratic in t.
template <class Fn>
void cubicTurns(double p0, double p1, double p2, double p3, Fn&& at) {
    const double a = -p0 + 3 * p1 - 3 * p2 + p3, b = 2 * (p0 - 2 * p1 + p2), c = p1 - p0;
    auto inside = [&](double t) {
        if (t > 0 && t < 1) at(t);
    };
    if (std::fabs(a) < 1e-12) {
        if (std::fabs(b) > 1e-12) inside(-c / b);
        return;
    }
    const double disc = b * b - 4 * a * c;
    if (disc < 0) return;
    const double root = std::sqrt(disc);
    inside((-b + root) / (2 * a));
    inside((-b - root) / (2 * a));
}

} // namespace

void Path::ensureStart(Point p) {
    if (!current_) moveTo(p);
}

void Path::moveTo(Point p) {
    verbs_.push_back(Verb::move);
    points_.push_back(p);
    start_ = current_ = p;
}

void Path::lineTo(Point p) {
    if (!current_) {
        moveTo(p);
        return;
    }
    verbs_.push_back(Verb::line);
    points_.push_back(p);
    current_ = p;
}

void Path::quadTo(Point control, Point end) {
    ensureStart(control);
    verbs_.push_back(Verb::quad);
    points_.push_back(control);
    points_.push_back(end);
    current_ = end;
}

void Path::cubicTo(Point control1, Point control2, Point end) {
    ensureStart(control1);
    verbs_.push_back(Verb::cubic);
    points_.push_back(control1);
    points_.push_back(control2);
    points_.push_back(end);
    current_ = end;
}

void Path::close() {
    if (!current_ || verbs_.back() == Verb::close) return;
    verbs_.push_back(Verb::close);
    current_ = start_;
}

void Path::addRect(const Rect& rect) {
    const Rect r = rect.standardized();
    moveTo({r.minX(), r.minY()});
    lineTo({r.maxX(), r.minY()});
    lineTo({r.maxX(), r.maxY()});
    lineTo({r.minX(), r.maxY()});
    close();
}

void Path::addEllipse(const Rect& in) {
    const Rect r = in.standardized();
    const double cx = r.midX(), cy = r.midY(), rx = r.w / 2, ry = r.h / 2;
    const double kx = rx * kKappa, ky = ry * kKappa;
    moveTo({cx + rx, cy});
    cubicTo({cx + rx, cy + ky}, {cx + kx, cy + ry}, {cx, cy + ry});
    cubicTo({cx - kx, cy + ry}, {cx - rx, cy + ky}, {cx - rx, cy});
    cubicTo({cx - rx, cy - ky}, {cx - kx, cy - ry}, {cx, cy - ry});
    cubicTo({cx + kx, cy - ry}, {cx + rx, cy - ky}, {cx + rx, cy});
    close();
}

void Path::addRoundedRect(const Rect& rect, double rx, double ry) {
    const Rect r = rect.standardized();
    rx = std::clamp(rx, 0.0, r.w / 2);
    ry = std::clamp(ry, 0.0, r.h / 2);
    if (rx <= 0 || ry <= 0) {
        addRect(r);
        return;
    }
    const double kx = rx * kKappa, ky = ry * kKappa;
    const double x0 = r.minX(), y0 = r.minY(), x1 = r.maxX(), y1 = r.maxY();
    moveTo({x0 + rx, y0});
    lineTo({x1 - rx, y0});
    cubicTo({x1 - rx + kx, y0}, {x1, y0 + ry - ky}, {x1, y0 + ry});
    lineTo({x1, y1 - ry});
    cubicTo({x1, y1 - ry + ky}, {x1 - rx + kx, y1}, {x1 - rx, y1});
    lineTo({x0 + rx, y1});
    cubicTo({x0 + rx - kx, y1}, {x0, y1 - ry + ky}, {x0, y1 - ry});
    lineTo({x0, y0 + ry});
    cubicTo({x0, y0 + ry - ky}, {x0 + rx - kx, y0}, {x0 + rx, y0});
    close();
}

void Path::addPolygon(const std::vector<Point>& points) {
    if (points.size() < 2) return;
    moveTo(points[0]);
    for (size_t i = 1; i < points.size(); ++i)
        lineTo(points[i]);
    close();
}

void Path::addPath(const Path& other) {
    verbs_.insert(verbs_.end(), other.verbs_.begin(), other.verbs_.end());
    points_.insert(points_.end(), other.points_.begin(), other.points_.end());
    if (other.current_) {
        start_ = other.start_;
        current_ = other.current_;
    }
}

Path Path::transformed(const AffineTransform& t) const {
    Path out = *this;
    for (Point& p : out.points_)
        p = t.apply(p);
    if (out.start_) out.start_ = t.apply(*out.start_);
    if (out.current_) out.current_ = t.apply(*out.current_);
    return out;
}

Rect Path::boundingBox() const {
    Box box;
    size_t k = 0;
    Point last, subpathStart;
    for (Verb v : verbs_) {
        switch (v) {
        case Verb::move:
            subpathStart = last = points_[k++];
            box.add(last);
            break;
        case Verb::line:
            last = points_[k++];
            box.add(last);
            break;
        case Verb::quad: {
            const Point c = points_[k], b = points_[k + 1];
            k += 2;
            box.add(b);
            for (int axis = 0; axis < 2; ++axis) {
                const double p0 = axis ? last.y : last.x, p1 = axis ? c.y : c.x, p2 = axis ? b.y : b.x;
                const double den = p0 - 2 * p1 + p2;
                if (std::fabs(den) > 1e-12) {
                    const double t = (p0 - p1) / den;
                    if (t > 0 && t < 1) box.add(quadAt(last, c, b, t));
                }
            }
            last = b;
            break;
        }
        case Verb::cubic: {
            const Point c1 = points_[k], c2 = points_[k + 1], b = points_[k + 2];
            k += 3;
            box.add(b);
            auto add = [&](double t) { box.add(cubicAt(last, c1, c2, b, t)); };
            cubicTurns(last.x, c1.x, c2.x, b.x, add);
            cubicTurns(last.y, c1.y, c2.y, b.y, add);
            last = b;
            break;
        }
        case Verb::close:
            last = subpathStart;
            break;
        }
    }
    if (box.x1 < box.x0) return {};
    return {box.x0, box.y0, box.x1 - box.x0, box.y1 - box.y0};
}

} // namespace korv
