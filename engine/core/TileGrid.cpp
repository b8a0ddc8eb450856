#include "engine/core/TileGrid.h"

#include "engine/core/Require.h"

#include <algorithm>

namespace korv {

TileGrid::TileGrid(int64_t w, int64_t h) : width(w), height(h) {
    KORV_REQUIRE(w >= 0 && h >= 0 && w <= (int64_t(1) << 40) && h <= (int64_t(1) << 40));
    cols = (w + kTileSize - 1) / kTileSize;
    rows = (h + kTileSize - 1) / kTileSize;
}

std::vector<int64_t> TileGrid::tiles(const IRect& in) const {
    IRect r = in.intersection(bounds());
    std::vector<int64_t> out;
    if (r.isEmpty()) return out;
    int64_t c0 = r.x / kTileSize, c1 = (r.maxX() - 1) / kTileSize;
    int64_t r0 = r.y / kTileSize, r1 = (r.maxY() - 1) / kTileSize;
    out.reserve(size_t((c1 - c0 + 1) * (r1 - r0 + 1)));
    for (int64_t row = r0; row <= r1; ++row)
        for (int64_t col = c0; col <= c1; ++col) out.push_back(row * cols + col);
    return out;
}

IRect TileGrid::rect(int64_t index) const {
    KORV_REQUIRE(index >= 0 && index < count());
    int64_t x = (index % cols) * kTileSize, y = (index / cols) * kTileSize;
    return {x, y, std::min(width - x, kTileSize), std::min(height - y, kTileSize)};
}

} // namespace korv
