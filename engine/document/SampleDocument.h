#pragma once
// Generated documents for the demo, the benchmarks and tests: real layer
// trees (group, mask, clipping) with soft edges and gradients, made without
// any file.
#include "engine/document/StudioDocument.h"

#include <functional>
#include <memory>

namespace korv {

// A raster painted from a function of canvas coordinates; tiles that come out
// fully transparent stay absent. Runs on all cores.
TileSet paintTiles(const TileGrid& grid, const std::function<Pixel4(int64_t x, int64_t y)>& shade);

// Five pixel layers: an opaque sky, hills, a group holding a sun (with a
// mask) and a pattern clipped to it, and a half-transparent haze on top.
std::unique_ptr<StudioDocument> makeSampleDocument(int64_t width, int64_t height);

} // namespace korv
