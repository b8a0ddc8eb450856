#pragma once
// Byte-mask operations behind the selection commands: the magic wand, the
// refinements (grow, feather, smooth, border), the combination with an
// existing selection and the traced outline. A mask is width x height bytes,
// row by row from the top, 0 outside and 255 inside. Stateless; any thread.
#include "engine/core/RGBABuffer.h"
#include "engine/core/Selection.h"
#include "engine/core/TileSet.h"
#include "engine/platform/Path.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace korv::SelectionTools {

using Mask = std::vector<uint8_t>;

// Pixels within `tolerance` (per-channel maximum, alpha included, on straight
// colour) of the clicked one; none for a click off the buffer.
std::optional<Mask> magicWand(const RGBABuffer& buffer, int64_t x, int64_t y, int64_t tolerance, bool contiguous,
                              bool antialias);
// The mask combined with `existing` under `op`, with its outline; none for a
// wrong mask length or a result that covers nothing.
SelectionRef selection(const Mask& mask, int64_t width, int64_t height, SelectionOp op,
                       const SelectionRef& existing);
// Widened by `pixels`, or narrowed for a negative amount.
Mask grow(const Mask& mask, int64_t width, int64_t height, double pixels);
Mask feather(const Mask& mask, int64_t width, int64_t height, double radius);
Mask smooth(const Mask& mask, int64_t width, int64_t height, double radius);
Mask border(const Mask& mask, int64_t width, int64_t height, double pixels);
// The alpha of every pixel of the set's grid; 0 where a tile is absent.
Mask fromAlpha(const TileSet& tiles);
// A copy of the selection's coverage; empty for zero area.
Mask maskArray(const Selection& selection);
// The edge at threshold 128 as axis-aligned unit-grid segments, horizontal ones first.
Path outline(const uint8_t* mask, int64_t width, int64_t height);

} // namespace korv::SelectionTools
