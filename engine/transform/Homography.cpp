#include "engine/transform/Homography.h"

#include "engine/core/Require.h"

#include <algorithm>
#include <cmath>

namespace korv {

Homography Homography::unitSquare(const std::vector<Point>& corners) {
    KORV_REQUIRE(corners.size() >= 4);
    const double x0 = corners[0].x, y0 = corners[0].y, x1 = corners[1].x, y1 = corners[1].y;
    const double x2 = corners[2].x, y2 = corners[2].y, x3 = corners[3].x, y3 = corners[3].y;
    const double sx = x0 - x1 + x2 - x3, sy = y0 - y1 + y2 - y3;
    double g = 0, h = 0;
    if (std::max(std::fabs(sx), std::fabs(sy)) > 1e-9) {
        const double den = (x1 - x2) * (y3 - y2) - (y1 - y2) * (x3 - x2);
        if (std::fabs(den) > 1e-12) {
            g = (sx * (y3 - y2) - (x3 - x2) * sy) / den;
            h = ((x1 - x2) * sy - (y1 - y2) * sx) / den;
        }
    }
    return {{x1 - x0 + g * x1, x3 - x0 + h * x3, x0, y1 - y0 + g * y1, y3 - y0 + h * y3, y0, g, h, 1}};
}

Point Homography::map(double x, double y) const {
    const double w = m[8] + m[6] * x + m[7] * y;
    return {(m[2] + m[0] * x + m[1] * y) / w, (m[5] + m[3] * x + m[4] * y) / w};
}

namespace Bezier {

Point patch(const std::vector<Point>& points, double u, double v) {
    KORV_REQUIRE(points.size() >= 16);
    auto bernstein = [](double t) {
        const double s = 1 - t;
        return std::array<double, 4>{s * s * s, 3 * t * s * s, 3 * t * t * s, t * t * t};
    };
    const auto bu = bernstein(u), bv = bernstein(v);
    Point p{0, 0};
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i) {
            const double w = bu[size_t(i)] * bv[size_t(j)];
            p.x += w * points[size_t(4 * j + i)].x;
            p.y += w * points[size_t(4 * j + i)].y;
        }
    return p;
}

} // namespace Bezier

} // namespace korv
