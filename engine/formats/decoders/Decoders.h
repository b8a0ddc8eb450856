#pragma once
// One decoder per format family. Each takes the whole file and gives the
// finished picture (premultiplied sRGB, upright) or nothing. Internal to
// engine/formats; ImageImport picks the decoder from the first bytes.
#include "engine/formats/ImageImport.h"

#include <optional>
#include <span>

namespace korv::decoding {

using Bytes = std::span<const uint8_t>;

std::optional<DecodedImage> decodeJpeg(Bytes bytes, const DecodeLimits& limits);
std::optional<DecodedImage> decodePng(Bytes bytes, const DecodeLimits& limits);
std::optional<DecodedImage> decodeTiff(Bytes bytes, const DecodeLimits& limits);
// HEIC and AVIF alike.
std::optional<DecodedImage> decodeHeif(Bytes bytes, const DecodeLimits& limits);
std::optional<DecodedImage> decodeGif(Bytes bytes, const DecodeLimits& limits);
std::optional<DecodedImage> decodeWebp(Bytes bytes, const DecodeLimits& limits);
std::optional<DecodedImage> decodeBmp(Bytes bytes, const DecodeLimits& limits);
std::optional<DecodedImage> decodeTga(Bytes bytes, const DecodeLimits& limits);
// True when the first bytes form a plausible TGA header: TGA has no signature,
// so it is tried last.
bool looksLikeTga(Bytes bytes);

} // namespace korv::decoding
