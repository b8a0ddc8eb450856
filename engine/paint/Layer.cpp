#include "engine/paint/Layer.h"

#include "engine/core/Require.h"
#include "engine/core/TileSet.h"

namespace korv {

Layer::Layer(std::string name_, const TileGrid& grid_, Uuid id_)
    : id(id_), name(std::move(name_)), tiles(size_t(grid_.count())), grid(grid_) {}

Tile& Layer::writableTile(int64_t i) {
    KORV_REQUIRE(i >= 0 && i < int64_t(tiles.size()));
    TilePtr& slot = tiles[size_t(i)];
    if (!slot)
        slot = std::make_shared<Tile>();
    else if (slot->frozen())
        slot = Tile::copying(*slot);
    return *slot;
}

void Layer::setTile(int64_t i, TilePtr tile) {
    KORV_REQUIRE(i >= 0 && i < int64_t(tiles.size()));
    tiles[size_t(i)] = std::move(tile);
}

void Layer::load(const RGBABuffer& buffer) {
    TileSet set(grid);
    set.load(buffer);
    set.ensureCells();
    tiles = std::move(set.tiles);
}

RGBABufferPtr Layer::toBuffer() const {
    return TileSet(grid, tiles).toBuffer();
}

Pixel4 Layer::pixel(int64_t x, int64_t y) const {
    if (x < 0 || y < 0 || x >= grid.width || y >= grid.height) return {0, 0, 0, 0};
    const Tile* t = tiles[size_t(grid.indexAt(x, y))].get();
    if (!t) return {0, 0, 0, 0};
    const uint8_t* p = t->row(y & (kTileSize - 1)) + (x & (kTileSize - 1)) * 4;
    return {p[0], p[1], p[2], p[3]};
}

void Layer::freeze() {
    for (const TilePtr& t : tiles)
        if (t) t->freeze();
}

} // namespace korv
