#pragma once
// One encoder per output format, from premultiplied RGBA. Each gives the whole
// file or nothing; none writes to stderr. Internal to engine/formats;
// ImageExport::encode picks the encoder by type.
#include "engine/core/RGBABuffer.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace korv::encoding {

using Bytes = std::vector<uint8_t>;

// quality 0...1 maps to libjpeg's 1...100. Transparent pixels come out as on black.
std::optional<Bytes> encodeJpeg(const RGBABuffer& image, double dpi, double quality);
// zlib level 3: half the time of the usual 6 on photographs for files about
// 6% larger, the better trade for an editor that exports often.
std::optional<Bytes> encodePng(const RGBABuffer& image, double dpi, int compressionLevel = 3);
// compression is TIFF's own code: 1 none, 5 LZW, 8 Deflate, 32773 PackBits.
std::optional<Bytes> encodeTiff(const RGBABuffer& image, double dpi, int compression);
std::optional<Bytes> encodeHeic(const RGBABuffer& image, double dpi, double quality);

// True when every alpha byte is 255: such pictures are written without an alpha channel.
bool isOpaque(const RGBABuffer& image);
// Straight colour from premultiplied pixels; alpha kept when keepAlpha, else dropped (3 bytes a pixel).
void unpremultiplyRow(const uint8_t* src, uint8_t* dst, int64_t pixels, bool keepAlpha);

} // namespace korv::encoding
