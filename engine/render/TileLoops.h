#pragma once
// The two ways a tile renderer becomes pictures: the whole canvas at once, or
// one picture per listed tile. Tiles render in parallel, each into its own
// buffer; renderTile(index, out) writes the 262144 bytes of one tile.
#include "engine/core/RGBABuffer.h"
#include "engine/core/TileGrid.h"

#include <functional>
#include <map>
#include <vector>

namespace korv {

using TileRenderer = std::function<void(int64_t index, uint8_t* out)>;

RGBABufferPtr renderCanvas(const TileGrid& grid, const TileRenderer& renderTile);
// Indices outside the grid are left out of the result.
std::map<int64_t, RGBABufferPtr> renderTilePictures(const TileGrid& grid, const std::vector<int64_t>& tiles,
                                                    const TileRenderer& renderTile);

} // namespace korv
