#pragma once
// Where a source colour meets a backdrop: the blend modes and the compositing
// of alpha, in the forms the rest of the engine calls (one colour, one float
// pixel, one byte pixel, runs of pixels, whole tiles and flat layer stacks).
// Every form runs the same float arithmetic, so they agree to a byte step.
#include "engine/core/RGBABuffer.h"
#include "engine/core/Tile.h"
#include "engine/core/TileGrid.h"
#include "engine/render/BlendMode.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace korv {

// One layer of a flat stack (the paint document's layers, onion skins).
struct CompositeInput {
    std::vector<TilePtr> tiles; // one entry per grid cell; absent is transparent
    float opacity = 1;
    BlendMode mode = BlendMode::normal;
    bool clipping = false; // clipped to the nearest unclipped layer below
    bool visible = true;
    std::optional<std::array<float, 4>> tint; // r, g, b and strength

    bool operator==(const CompositeInput&) const = default;
};

namespace Compositor {

using Color3 = std::array<float, 3>;
using Tint = std::optional<std::array<float, 4>>;

// The mode's formula on straight colours; normal gives the source.
Color3 blend(BlendMode mode, const Color3& backdrop, const Color3& source);
// The colour with its saturation replaced by s, keeping the order of its channels.
Color3 setSat(float r, float g, float b, float s);

// One premultiplied source (r, g, b, a) onto the premultiplied float pixel dst.
// With atop the source stays inside dst's alpha and that alpha is kept.
void blendPixel(float* dst, float r, float g, float b, float a, BlendMode mode, bool atop);
// The same on byte pixels; the source is faded by opacity first.
Pixel4 blendBytes(const Pixel4& backdrop, const Pixel4& source, BlendMode mode, float opacity);

// A run of float pixels of src, faded by opacity, onto dst. With accEmpty
// (and without atop) dst holds nothing yet and simply takes the source.
void blendSpan(float* dst, const float* src, int64_t pixels, float opacity, BlendMode mode, bool atop,
               bool accEmpty);
// A run of byte pixels (premultiplied RGBA) onto float pixels, likewise.
void blendByteSpan(float* dst, const uint8_t* src, int64_t pixels, float opacity, BlendMode mode, bool atop,
                   const Tint& tint, bool accEmpty);
// The whole tile onto a working buffer of 65536 float pixels.
void blendTile(float* dst, const Tile& tile, float opacity, BlendMode mode, bool atop, const Tint& tint,
               bool accEmpty);

// Renders the stack at one tile index into 262144 bytes of premultiplied RGBA.
void compositeTile(int64_t tile, const std::vector<CompositeInput>& layers, uint8_t* out);
// One picture per valid tile index, of the tile's rectangle clipped to the canvas.
std::map<int64_t, RGBABufferPtr> compositeImages(const std::vector<int64_t>& tiles,
                                                 const std::vector<CompositeInput>& layers,
                                                 const TileGrid& grid);
RGBABufferPtr flatten(const std::vector<CompositeInput>& layers, const TileGrid& grid);

} // namespace Compositor
} // namespace korv
