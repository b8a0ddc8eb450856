#pragma once
// What the canvas does with a live transform's handles: which handle a click
// takes, and how a drag of it changes the session's geometry. Kept apart
// from the widgets so that the rules can be tested without a window.
#include "engine/platform/Geometry.h"
#include "engine/transform/TransformSession.h"

#include <optional>
#include <vector>

namespace korv {

// Handles beyond the points: inside the outline moves everything, outside
// it in free mode rotates.
inline constexpr int kTransformMoveAll = -1;
inline constexpr int kTransformRotate = 100;

// The geometry when a drag began.
struct TransformStart {
    AffineTransform affine;
    std::vector<Point> corners;
    std::vector<Point> warp;
    Point dragStart;

    static TransformStart of(const TransformSession& session, Point dragStart) {
        return {session.affine, session.corners, session.warp, dragStart};
    }
};

// Warp: the 16 mesh points; perspective: the 4 shown corners; free: the
// corners and the middles of the sides, clockwise from the top left.
std::vector<Point> transformHandlePoints(const TransformSession& session);
// The first handle within 9 view points of the canvas point at this zoom.
std::optional<int> transformHit(const TransformSession& session, Point point, double zoom);
// Non-zero winding containment in the closed quadrilateral.
bool pointInQuad(Point point, const std::vector<Point>& corners);
// What a click that hits no handle starts: moving all, rotating (free mode
// only), or nothing.
std::optional<int> transformMiss(const TransformSession& session, Point point);
// The geometry for a drag of `handle` to `point`, from where it started;
// shift keeps proportions on corners and turns in 15-degree steps.
void dragTransform(TransformSession& session, const TransformStart& start, int handle, Point point,
                   bool shift);

} // namespace korv
