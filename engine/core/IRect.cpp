#include "engine/core/IRect.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace korv {

IRect IRect::covering(double rx, double ry, double rw, double rh) {
    if (!std::isfinite(rx) || !std::isfinite(ry) || !std::isfinite(rw) || !std::isfinite(rh)) return zero();
    // Normalise a rectangle given with a negative size, as a geometric rectangle would.
    double x0 = std::min(rx, rx + rw), x1 = std::max(rx, rx + rw);
    double y0 = std::min(ry, ry + rh), y1 = std::max(ry, ry + rh);
    auto fx = int64_t(std::floor(x0)), fy = int64_t(std::floor(y0));
    return {fx, fy, int64_t(std::ceil(x1)) - fx, int64_t(std::ceil(y1)) - fy};
}

IRect IRect::intersection(const IRect& o) const {
    int64_t x0 = std::max(x, o.x), y0 = std::max(y, o.y);
    int64_t x1 = std::min(maxX(), o.maxX()), y1 = std::min(maxY(), o.maxY());
    if (x1 <= x0 || y1 <= y0) return zero();
    return {x0, y0, x1 - x0, y1 - y0};
}

IRect IRect::unionWith(const IRect& o) const {
    if (o.isEmpty()) return *this;
    if (isEmpty()) return o;
    int64_t x0 = std::min(x, o.x), y0 = std::min(y, o.y);
    return {x0, y0, std::max(maxX(), o.maxX()) - x0, std::max(maxY(), o.maxY()) - y0};
}

std::string IRect::description() const {
    return "(" + std::to_string(x) + "," + std::to_string(y) + " " + std::to_string(w) + "x" + std::to_string(h) +
           ")";
}

void to_json(nlohmann::json& j, const IRect& r) { j = {{"x", r.x}, {"y", r.y}, {"w", r.w}, {"h", r.h}}; }
void from_json(const nlohmann::json& j, IRect& r) {
    r = {j.at("x").get<int64_t>(), j.at("y").get<int64_t>(), j.at("w").get<int64_t>(), j.at("h").get<int64_t>()};
}

} // namespace korv
