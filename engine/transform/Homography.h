#pragma once
// The maps a transform session bends its picture through: the projective map
// of the unit square onto four corners, and the bicubic Bezier patch of
// sixteen control points.
#include "engine/platform/Geometry.h"

#include <array>
#include <vector>

namespace korv {

struct Homography {
    std::array<double, 9> m{1, 0, 0, 0, 1, 0, 0, 0, 1}; // row by row, the last is 1

    // (0,0), (1,0), (1,1), (0,1) onto the corners in that order; a degenerate
    // quadrilateral falls back to the affine map of its first three corners.
    static Homography unitSquare(const std::vector<Point>& corners);
    Point map(double x, double y) const;

    bool operator==(const Homography&) const = default;
};

namespace Bezier {

// The bicubic Bernstein sum of the 16 points (row by row) at (u, v).
Point patch(const std::vector<Point>& points, double u, double v);

} // namespace Bezier

} // namespace korv
