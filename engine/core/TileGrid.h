#pragma once
// The canvas as a grid of 256 x 256 tiles, indexed row by row.
#include "engine/core/Constants.h"
#include "engine/core/IRect.h"

#include <cstdint>
#include <vector>

namespace korv {

struct TileGrid {
    int64_t width = 0;
    int64_t height = 0;
    int64_t cols = 0;
    int64_t rows = 0;

    TileGrid() = default;
    TileGrid(int64_t w, int64_t h);

    int64_t count() const { return cols * rows; }
    IRect bounds() const { return {0, 0, width, height}; }
    // Tiles touching the rectangle (clipped to the canvas), row by row, left to right.
    std::vector<int64_t> tiles(const IRect& in) const;
    // The tile's rectangle clipped to the canvas.
    IRect rect(int64_t index) const;
    int64_t indexAt(int64_t x, int64_t y) const { return (y >> 8) * cols + (x >> 8); }

    bool operator==(const TileGrid&) const = default;
};

} // namespace korv
