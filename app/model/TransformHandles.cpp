#include "app/model/TransformHandles.h"

#include <algorithm>
#include <cmath>

namespace korv {

namespace {

constexpr double kHitDistance = 9; // view points
// A handle's place in the source box, in handle order.
constexpr double kHandleFractions[8][2] = {{0, 0}, {0.5, 0}, {1, 0}, {1, 0.5},
                                           {1, 1}, {0.5, 1}, {0, 1}, {0, 0.5}};

} // namespace

std::vector<Point> transformHandlePoints(const TransformSession& session) {
    switch (session.mode) {
    case TransformMode::warp:
        return session.warp;
    case TransformMode::perspective:
        return session.shownCorners();
    case TransformMode::free:
        break;
    }
    const std::vector<Point> c = session.shownCorners();
    std::vector<Point> out;
    for (size_t i = 0; i < 4; ++i) {
        const Point next = c[(i + 1) % 4];
        out.push_back(c[i]);
        out.push_back({(c[i].x + next.x) / 2, (c[i].y + next.y) / 2});
    }
    return out;
}

std::optional<int> transformHit(const TransformSession& session, Point point, double zoom) {
    const std::vector<Point> handles = transformHandlePoints(session);
    for (size_t i = 0; i < handles.size(); ++i)
        if (std::hypot(handles[i].x - point.x, handles[i].y - point.y) * zoom <= kHitDistance) return int(i);
    return std::nullopt;
}

bool pointInQuad(Point point, const std::vector<Point>& corners) {
    int winding = 0;
    for (size_t i = 0; i < corners.size(); ++i) {
        const Point a = corners[i], b = corners[(i + 1) % corners.size()];
        const double side = (b.x - a.x) * (point.y - a.y) - (point.x - a.x) * (b.y - a.y);
        if (a.y <= point.y) {
            if (b.y > point.y && side > 0) ++winding;
        } else if (b.y <= point.y && side < 0) {
            --winding;
        }
    }
    return winding != 0;
}

std::optional<int> transformMiss(const TransformSession& session, Point point) {
    if (pointInQuad(point, session.shownCorners())) return kTransformMoveAll;
    if (session.mode == TransformMode::free) return kTransformRotate;
    return std::nullopt;
}

void dragTransform(TransformSession& session, const TransformStart& start, int handle, Point point,
                   bool shift) {
    const double dx = point.x - start.dragStart.x, dy = point.y - start.dragStart.y;
    if (session.mode == TransformMode::perspective || session.mode == TransformMode::warp) {
        std::vector<Point>& points =
            session.mode == TransformMode::perspective ? session.corners : session.warp;
        const std::vector<Point>& from =
            session.mode == TransformMode::perspective ? start.corners : start.warp;
        for (size_t i = 0; i < points.size() && i < from.size(); ++i)
            if (handle == kTransformMoveAll || handle == int(i)) points[i] = {from[i].x + dx, from[i].y + dy};
        return;
    }
    const IRect& src = session.source;
    if (handle == kTransformMoveAll) {
        session.affine = start.affine.then(AffineTransform::translation(dx, dy));
    } else if (handle == kTransformRotate) {
        const Point c =
            start.affine.apply({double(src.x) + double(src.w) / 2, double(src.y) + double(src.h) / 2});
        double angle = std::atan2(point.y - c.y, point.x - c.x) -
                       std::atan2(start.dragStart.y - c.y, start.dragStart.x - c.x);
        // Deliberately truncated toward zero: a turn snaps back until the next full step.
        if (shift) angle = std::trunc(angle / 0.2617993877991494) * 0.2617993877991494;
        session.affine = start.affine.then(AffineTransform::translation(-c.x, -c.y))
                             .then(AffineTransform::rotation(angle))
                             .then(AffineTransform::translation(c.x, c.y));
    } else if (handle >= 0 && handle < 8) {
        const auto back = start.affine.inverted();
        if (!back) return;
        const Point p = back->apply(point);
        const double fx = kHandleFractions[handle][0], fy = kHandleFractions[handle][1];
        const double w = double(src.w), h = double(src.h);
        const Point anchor{double(src.x) + w * (1 - fx), double(src.y) + h * (1 - fy)};
        const Point place{double(src.x) + w * fx, double(src.y) + h * fy};
        double sx =
            fx == 0.5 || std::fabs(place.x - anchor.x) <= 0.01 ? 1 : (p.x - anchor.x) / (place.x - anchor.x);
        double sy =
            fy == 0.5 || std::fabs(place.y - anchor.y) <= 0.01 ? 1 : (p.y - anchor.y) / (place.y - anchor.y);
        if (shift && fx != 0.5 && fy != 0.5) {
            const double m = std::max(std::fabs(sx), std::fabs(sy));
            sx = std::copysign(m, sx);
            sy = std::copysign(m, sy);
        }
        session.affine = AffineTransform::translation(-anchor.x, -anchor.y)
                             .then(AffineTransform::scale(sx, sy))
                             .then(AffineTransform::translation(anchor.x, anchor.y))
                             .then(start.affine);
    }
}

} // namespace korv
