#pragma once
// The shared toolbox of picture export: scaling, encoding by type, PNG with a
// resolution, flattening on a colour; and the formats a paint document writes.
#include "engine/core/PaintColor.h"
#include "engine/core/RGBABuffer.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace korv {

// What a paint document writes, in the order the export menu lists them.
enum class ExportFormat : uint8_t { png, jpeg, tiff, psdLayered, psdFlat };

inline constexpr std::array<ExportFormat, 5> kAllExportFormats{ExportFormat::png, ExportFormat::jpeg,
                                                               ExportFormat::tiff, ExportFormat::psdLayered,
                                                               ExportFormat::psdFlat};

// The coded form, also the id ("psdLayered").
std::string_view toString(ExportFormat f);
std::optional<ExportFormat> exportFormatFromString(std::string_view text);
std::string_view displayName(ExportFormat f);
std::string_view fileExtension(ExportFormat f);

// The settings an encoder takes, by the property they stand for. What a format
// has no use for is ignored.
struct EncodeProperties {
    std::optional<double> dpiWidth;
    std::optional<double> dpiHeight;
    std::optional<double> lossyCompressionQuality; // 0...1
    std::optional<int> tiffCompression;            // TIFF's code: 1 none, 5 LZW, 8 Deflate, 32773 PackBits
};

namespace ImageExport {

// The type texts encode understands.
inline constexpr std::string_view kJpegType = "public.jpeg";
inline constexpr std::string_view kPngType = "public.png";
inline constexpr std::string_view kTiffType = "public.tiff";
inline constexpr std::string_view kHeicType = "public.heic";

// Shrinks the picture so that its longer side is at most maxSide; never enlarges.
// The same picture comes back when it already fits or when memory is refused.
RGBABufferPtr scaled(const RGBABufferPtr& image, int64_t maxSide);
// The picture drawn at a new size with high interpolation quality; empty on failure.
RGBABufferPtr resized(const RGBABuffer& image, int64_t width, int64_t height);
// One picture as a file of that type; nothing for an unknown type or a failing encoder.
std::optional<std::vector<uint8_t>> encode(const RGBABuffer& image, std::string_view type,
                                           const EncodeProperties& properties);
// PNG with both resolutions at dpi; nothing for an absent picture.
std::optional<std::vector<uint8_t>> pngData(const RGBABufferPtr& image, double dpi);
// The picture over colour (its alpha ignored, channels clamped to 0...1): a
// picture with no transparency left. Empty when memory is refused.
RGBABufferPtr onBackground(const RGBABuffer& buffer, const RGBA& colour);
// The same, in place.
void flattenOnto(RGBABuffer& buffer, const RGBA& colour);

} // namespace ImageExport
} // namespace korv
