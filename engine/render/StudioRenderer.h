#pragma once
// Renders a layer tree tile by tile: the tree is compiled into a plan, then
// each tile is composited in premultiplied 32-bit floats and converted back to
// bytes at the end. Tiles are independent and render on all cores.
#include "engine/core/RGBABuffer.h"
#include "engine/render/PlanNode.h"
#include "engine/render/RenderCache.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>

namespace korv {

class StudioDocument;

namespace StudioRenderer {

// Floats of one working buffer: 65536 pixels of R, G, B, A.
inline constexpr int64_t kWorkFloats = kTilePixels * 4;

RenderPlan plan(const std::vector<StudioLayer>& layers, const TileGrid& grid, RenderCache& cache);
std::optional<TileSet> contentRaster(const StudioLayer& layer, const TileGrid& grid, RenderCache& cache);

// Hash of a record's canonical JSON (sorted keys), as lower-case hex; "?" if it can't be coded.
std::string specKeyOfJSON(const nlohmann::json& j);
template <class T>
std::string specKey(const T& value) {
    try {
        return specKeyOfJSON(nlohmann::json(value));
    } catch (const std::exception&) {
        return "?";
    }
}

// Composites the nodes into acc (expected all zero); true if anything was drawn.
bool renderNodes(const RenderPlan& nodes, int64_t tile, float* acc);
// One node's own content into out (cleared first); true if it has content here.
bool content(const PlanNode& node, int64_t tile, float* out);
// Blends a working buffer onto another with an opacity and a mode; atop keeps
// the source inside the destination's alpha (clipping).
void blend(float* dst, const float* src, float opacity, BlendMode mode, bool atop, bool accEmpty);
// Runs an adjustment node on a working buffer of one tile: opacity, mask and
// blend mode act on the mix between each colour and its adjusted colour, and
// alpha never changes.
void adjust(const PlanNode& node, int64_t tile, float* buffer);
// Renders one tile to 262144 bytes of premultiplied RGBA.
void renderTile(int64_t tile, const RenderPlan& plan, uint8_t* out);

RGBABufferPtr flatten(const StudioDocument& doc);
RGBABufferPtr flatten(const std::vector<StudioLayer>& layers, const StudioDocument& doc);
RGBABufferPtr flatten(const RenderPlan& plan, const TileGrid& grid);
// One picture per tile index, of the tile's size clipped to the canvas.
std::map<int64_t, RGBABufferPtr> tileImages(const StudioDocument& doc, const std::vector<int64_t>& tiles);
Pixel4 pixel(const StudioDocument& doc, int64_t x, int64_t y);
RGBABufferPtr thumbnail(const StudioLayer& layer, const StudioDocument& doc, int64_t maxSide);
RGBABufferPtr maskThumbnail(const StudioLayer& layer, const StudioDocument& doc, int64_t maxSide);

} // namespace StudioRenderer
} // namespace korv
