#pragma once
// Small builders for layer trees in tests.
#include "engine/document/StudioDocument.h"

namespace korv::test {

// A pixel layer filled with one premultiplied colour inside a rectangle.
inline StudioLayer solidLayer(const TileGrid& grid, Pixel4 colour, IRect where = {0, 0, 1 << 20, 1 << 20},
                              std::string name = "Layer") {
    StudioLayer l = StudioLayer::pixelLayer(std::move(name), grid);
    IRect r = where.intersection(grid.bounds());
    for (int64_t y = r.y; y < r.maxY(); ++y)
        for (int64_t x = r.x; x < r.maxX(); ++x) l.pixels->setPixel(x, y, colour);
    return l;
}

// A mask that hides h (0 shows everything) inside the rectangle.
inline TileSet maskHiding(const TileGrid& grid, uint8_t h, IRect where) {
    TileSet m(grid);
    IRect r = where.intersection(grid.bounds());
    for (int64_t y = r.y; y < r.maxY(); ++y)
        for (int64_t x = r.x; x < r.maxX(); ++x) m.setPixel(x, y, {h, h, h, h});
    return m;
}

} // namespace korv::test
