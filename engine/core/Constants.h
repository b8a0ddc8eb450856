#pragma once
#include <cstdint>

namespace korv {

// Edge of a tile in pixels, and the bytes of one RGBA tile.
inline constexpr int64_t kTileSize = 256;
inline constexpr int64_t kTileBytes = kTileSize * kTileSize * 4;
inline constexpr int64_t kTilePixels = kTileSize * kTileSize;
// Bytes between two rows of a tile, also for edge tiles.
inline constexpr int64_t kTileStride = kTileSize * 4;
// The largest canvas side any reader or command accepts.
inline constexpr int64_t kMaxCanvasSide = 30000;

} // namespace korv
