#pragma once
// A raster on a canvas: one optional shared tile per grid cell. An absent
// tile is transparent. Copying a TileSet copies references only; writers go
// through writable(), which copies a frozen tile before handing it out.
#include "engine/core/RGBABuffer.h"
#include "engine/core/Tile.h"
#include "engine/core/TileGrid.h"

#include <cstring>
#include <optional>
#include <vector>

namespace korv {

struct TileSet {
    TileGrid grid;
    // One entry per grid cell, or none at all while every cell is absent: an
    // empty raster costs nothing until something is written to it.
    std::vector<TilePtr> tiles;

    TileSet() = default;
    explicit TileSet(const TileGrid& g) : grid(g) {}
    TileSet(const TileGrid& g, std::vector<TilePtr> t);
    static TileSet from(const RGBABuffer& buffer);

    const Tile* tile(int64_t i) const {
        checked(i);
        return tiles.empty() ? nullptr : tiles[size_t(i)].get();
    }
    // Gives every cell its entry, so that `tiles` can be written by index.
    void ensureCells() {
        if (tiles.empty()) tiles.resize(size_t(grid.count()));
    }
    // The tile at i, ready to be written: made if absent, copied if frozen.
    Tile& writable(int64_t i);
    void setTile(int64_t i, TilePtr t) {
        checked(i);
        ensureCells();
        tiles[size_t(i)] = std::move(t);
    }
    void freeze();

    bool isEmpty() const;
    uint8_t alpha(int64_t x, int64_t y) const;
    Pixel4 pixel(int64_t x, int64_t y) const;
    void setPixel(int64_t x, int64_t y, Pixel4 p);
    // Every tile of the grid made writable and filled, padding included.
    void fillAll(uint8_t r, uint8_t g, uint8_t b, uint8_t a);

    RGBABufferPtr toBuffer() const;
    // Pixels of any rectangle; whatever lies outside the canvas is transparent.
    RGBABufferPtr region(const IRect& r) const;
    // Replaces the whole content; the buffer must have the grid's size.
    void load(const RGBABuffer& buffer);
    // Buffer pixel (0,0) lands on (at.x, at.y); the buffer's width is its stride.
    void write(const RGBABuffer& buffer, const IRect& at);
    // As write(), blended by coverage(x, y) in canvas coordinates (0 keeps, 255 replaces).
    template <class Coverage>
    void write(const RGBABuffer& buffer, const IRect& at, Coverage&& coverage);

    std::optional<IRect> contentBounds() const;
    uint64_t fingerprint() const;

    // Same grid and the very same tiles (not a comparison of bytes); a set
    // without entries equals one whose entries are all absent.
    bool operator==(const TileSet& other) const;

private:
    int64_t checked(int64_t i) const;
    template <class RowFn>
    void writeRows(const RGBABuffer& buffer, const IRect& at, RowFn&& rowFn);
};

template <class RowFn>
void TileSet::writeRows(const RGBABuffer& buffer, const IRect& at, RowFn&& rowFn) {
    IRect clip = at.intersection(grid.bounds());
    if (clip.isEmpty()) return;
    for (int64_t index : grid.tiles(clip)) {
        Tile& t = writable(index);
        IRect part = grid.rect(index).intersection(clip);
        int64_t tx = part.x & (kTileSize - 1), ty0 = part.y & (kTileSize - 1);
        for (int64_t y = part.y; y < part.maxY(); ++y) {
            uint8_t* dst = t.row(ty0 + (y - part.y)) + tx * 4;
            const uint8_t* src = buffer.data() + ((y - at.y) * buffer.width() + (part.x - at.x)) * 4;
            rowFn(dst, src, part.x, y, part.w);
        }
    }
}

template <class Coverage>
void TileSet::write(const RGBABuffer& buffer, const IRect& at, Coverage&& coverage) {
    writeRows(buffer, at, [&](uint8_t* dst, const uint8_t* src, int64_t x0, int64_t y, int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
            unsigned c = coverage(x0 + i, y);
            if (c == 0) continue;
            if (c >= 255) {
                std::memcpy(dst + i * 4, src + i * 4, 4);
                continue;
            }
            for (int k = 0; k < 4; ++k)
                dst[i * 4 + k] = uint8_t((dst[i * 4 + k] * (255 - c) + src[i * 4 + k] * c + 127) / 255);
        }
    });
}

} // namespace korv
