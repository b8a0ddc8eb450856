#include "app/model/CurveEdit.h"

#include "engine/render/AdjustmentProgram.h"

#include <algorithm>
#include <cmath>

namespace korv::CurveEdit {

std::optional<size_t> hit(const std::vector<CurvePoint>& points, double x, double y, double radius) {
    std::optional<size_t> best;
    double bestDistance = radius;
    for (size_t i = 0; i < points.size(); ++i) {
        const double d = std::hypot(points[i].x - x, points[i].y - y);
        if (d <= bestDistance) {
            bestDistance = d;
            best = i;
        }
    }
    return best;
}

size_t add(std::vector<CurvePoint>& points, double x, double y) {
    x = std::clamp(x, 0.0, 1.0);
    y = std::clamp(y, 0.0, 1.0);
    for (size_t i = 0; i < points.size(); ++i)
        if (std::abs(points[i].x - x) < kMinGap) {
            points[i].y = y;
            return i;
        }
    const auto at = std::find_if(points.begin(), points.end(), [x](const CurvePoint& p) { return p.x > x; });
    const auto index = size_t(at - points.begin());
    points.insert(at, CurvePoint{x, y});
    return index;
}

void move(std::vector<CurvePoint>& points, size_t index, double x, double y) {
    if (index >= points.size()) return;
    const double low = index == 0 ? 0.0 : points[index - 1].x + kMinGap;
    const double high = index + 1 == points.size() ? 1.0 : points[index + 1].x - kMinGap;
    points[index].x = low <= high ? std::clamp(x, low, high) : points[index].x;
    points[index].y = std::clamp(y, 0.0, 1.0);
}

bool dropsOff(const std::vector<CurvePoint>& points, size_t index, double x, double y) {
    if (index == 0 || index + 1 >= points.size()) return false;
    return x < -kRemoveMargin || x > 1 + kRemoveMargin || y < -kRemoveMargin || y > 1 + kRemoveMargin;
}

double value(const std::vector<CurvePoint>& points, double x) {
    constexpr int64_t n = 256;
    const auto table = AdjustmentProgram::curveTable(points, n);
    const double at = std::clamp(x, 0.0, 1.0) * double(n - 1);
    const auto i = std::min<int64_t>(int64_t(at), n - 2);
    return table[size_t(i)] + (at - double(i)) * (table[size_t(i + 1)] - table[size_t(i)]);
}

} // namespace korv::CurveEdit
