#pragma once
// Decodes a flat picture (JPEG, PNG, TIFF, HEIC, AVIF, GIF, BMP, TGA, WebP) into
// the engine's format: premultiplied sRGB RGBA, upright, with its resolution.
// The bytes are treated as hostile; sizes are checked before any pixel memory
// is taken, and a damaged file gives nothing.
#include "engine/core/Constants.h"
#include "engine/core/RGBABuffer.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace korv {

struct DecodedImage {
    RGBABufferPtr image;
    double dpi = 72.0;
};

enum class PictureFormat { jpeg, png, tiff, heic, avif, gif, bmp, tga, webp };

// The coded form, also the name `korv info` prints ("jpeg", "heic").
std::string_view toString(PictureFormat format);

// How much a decoder may take. A canvas side of more than maxSide, more than
// maxPixels in all, or a picture whose working memory would pass maxBytes
// gives nothing.
struct DecodeLimits {
    int64_t maxSide = kMaxCanvasSide;
    int64_t maxPixels = kMaxCanvasSide * kMaxCanvasSide;
    // Half of this machine's memory, so that a hostile header can't push it into swap.
    int64_t maxBytes = defaultMaxBytes();

    static int64_t defaultMaxBytes();
};

namespace ImageImport {

// The format the first bytes announce; the file's name plays no part.
std::optional<PictureFormat> formatOf(std::span<const uint8_t> bytes);
// The first image of the file, upright and in sRGB, and its DPI (72 when the
// file has none). Nothing when the bytes are no picture, are damaged or too large.
std::optional<DecodedImage> decode(std::span<const uint8_t> bytes, const DecodeLimits& limits = {});

} // namespace ImageImport
} // namespace korv
