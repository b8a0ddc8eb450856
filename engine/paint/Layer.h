#pragma once
// One raster of a PaintDocument with its display attributes. Tiles are shared
// by reference with history states; a frozen tile is copied before a write.
#include "engine/core/RGBABuffer.h"
#include "engine/core/Tile.h"
#include "engine/core/TileGrid.h"
#include "engine/core/Uuid.h"
#include "engine/render/BlendMode.h"

#include <memory>
#include <string>
#include <vector>

namespace korv {

class Layer {
public:
    Layer(std::string name, const TileGrid& grid, Uuid id = Uuid::random());
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    const Uuid id;
    std::string name;
    double opacity = 1.0;
    BlendMode blendMode = BlendMode::normal;
    bool isVisible = true;
    bool isLocked = false;
    bool alphaLocked = false;
    bool isClipping = false;
    // One entry per grid cell; an absent entry is transparent.
    std::vector<TilePtr> tiles;
    const TileGrid grid;

    // The tile at i, ready to be written: made if absent, copied if frozen.
    Tile& writableTile(int64_t i);
    void setTile(int64_t i, TilePtr tile);
    // The buffer must have the grid's size.
    void load(const RGBABuffer& buffer);
    RGBABufferPtr toBuffer() const;
    // Zeros outside the canvas and for absent tiles.
    Pixel4 pixel(int64_t x, int64_t y) const;
    void freeze();
};

using LayerPtr = std::shared_ptr<Layer>;

} // namespace korv
