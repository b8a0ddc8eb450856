#pragma once
// An integer rectangle in canvas pixels.
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace korv {

struct IRect {
    int64_t x = 0, y = 0, w = 0, h = 0;

    static constexpr IRect zero() { return {}; }
    // The smallest integer rectangle that covers a real one; non-finite input gives zero.
    static IRect covering(double x, double y, double w, double h);

    bool isEmpty() const { return w < 1 || h < 1; }
    int64_t maxX() const { return x + w; }
    int64_t maxY() const { return y + h; }
    IRect intersection(const IRect& o) const;
    IRect unionWith(const IRect& o) const;
    IRect insetBy(int64_t n) const { return {x + n, y + n, w - 2 * n, h - 2 * n}; }
    bool contains(int64_t px, int64_t py) const { return px >= x && py >= y && px < x + w && py < y + h; }
    std::string description() const;

    bool operator==(const IRect&) const = default;
};

void to_json(nlohmann::json& j, const IRect& r);
void from_json(const nlohmann::json& j, IRect& r);

} // namespace korv
