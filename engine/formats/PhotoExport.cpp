#include "engine/formats/PhotoExport.h"

#include "engine/document/StudioDocument.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageExport.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace korv {

namespace {
struct FormatRow {
    std::string_view id, display, extension, uti;
    bool hasQuality, keepsTransparency;
};
constexpr std::array<FormatRow, 4> kFormats{{
    {"jpeg", "JPEG", "jpg", "public.jpeg", true, false},
    {"png", "PNG", "png", "public.png", false, true},
    {"tiff", "TIFF", "tiff", "public.tiff", false, true},
    {"heic", "HEIC", "heic", "public.heic", true, true},
}};
const FormatRow& row(PhotoExportFormat f) {
    return kFormats[size_t(f)];
}

constexpr int kTiffLZW = 5;
} // namespace

std::string_view toString(PhotoExportFormat f) {
    return row(f).id;
}
std::string_view displayName(PhotoExportFormat f) {
    return row(f).display;
}
std::string_view fileExtension(PhotoExportFormat f) {
    return row(f).extension;
}
std::string_view uti(PhotoExportFormat f) {
    return row(f).uti;
}
bool hasQuality(PhotoExportFormat f) {
    return row(f).hasQuality;
}
bool keepsTransparency(PhotoExportFormat f) {
    return row(f).keepsTransparency;
}

std::optional<PhotoExportFormat> photoExportFormatFromString(std::string_view text) {
    for (size_t i = 0; i < kFormats.size(); ++i)
        if (kFormats[i].id == text) return PhotoExportFormat(i);
    return std::nullopt;
}

void to_json(nlohmann::json& j, PhotoExportFormat f) {
    j = std::string(toString(f));
}
void from_json(const nlohmann::json& j, PhotoExportFormat& f) {
    auto v = photoExportFormatFromString(j.get<std::string>());
    if (!v) throw std::invalid_argument("unknown photo export format");
    f = *v;
}

void to_json(nlohmann::json& j, const PhotoExportOptions& o) {
    j = nlohmann::json{
        {"format", o.format}, {"quality", o.quality}, {"scale", o.scale}, {"background", o.background}};
}
void from_json(const nlohmann::json& j, PhotoExportOptions& o) {
    o.format = j.at("format").get<PhotoExportFormat>();
    o.quality = j.at("quality").get<double>();
    o.scale = j.at("scale").get<double>();
    o.background = j.at("background").get<RGBA>();
}

namespace PhotoExport {

double clampedQuality(double quality) {
    return std::isnan(quality) ? 1.0 : std::clamp(quality, 0.05, 1.0);
}
double clampedScale(double scale) {
    return std::isnan(scale) ? 1.0 : std::clamp(scale, 0.01, 4.0);
}

PixelSize outputSize(int64_t canvasWidth, int64_t canvasHeight, const PhotoExportOptions& options) {
    const double s = clampedScale(options.scale);
    // std::round takes halves away from zero: 16.5 gives 17.
    return {std::max<int64_t>(1, int64_t(std::round(s * double(canvasWidth)))),
            std::max<int64_t>(1, int64_t(std::round(s * double(canvasHeight))))};
}

PixelSize outputSize(const StudioDocument& document, const PhotoExportOptions& options) {
    return outputSize(document.width(), document.height(), options);
}

uint64_t memoryNeeded(const StudioDocument& document, const PhotoExportOptions& options) {
    const PixelSize size = outputSize(document, options);
    const uint64_t canvas = uint64_t(document.width()) * uint64_t(document.height()) * 4;
    const uint64_t output = uint64_t(size.width) * uint64_t(size.height) * 4;
    return canvas + (size.width == document.width() && size.height == document.height() ? output : 2 * output);
}

std::vector<uint8_t> data(const StudioDocument& document, const PhotoExportOptions& options) {
    const PhotoExportFormat format = options.format;
    const std::string name(displayName(format));
    // Refused before anything is made: an export larger than this computer's
    // memory would otherwise be killed halfway instead of failing.
    const long pages = ::sysconf(_SC_PHYS_PAGES), pageSize = ::sysconf(_SC_PAGESIZE);
    const uint64_t memory = pages > 0 && pageSize > 0 ? uint64_t(pages) * uint64_t(pageSize) : uint64_t(8) << 30;
    if (memoryNeeded(document, options) > memory - memory / 4) throw ExportError::cannotEncode(name);
    try {
        RGBABufferPtr image = StudioRenderer::flatten(document);
        if (!image) throw ExportError::cannotEncode(name);
        const PixelSize size = outputSize(document, options);
        // The flattened buffer is ours alone, so the background goes on in place.
        if (!keepsTransparency(format)) ImageExport::flattenOnto(*image, options.background);
        if (size.width != image->width() || size.height != image->height()) {
            image = ImageExport::resized(*image, size.width, size.height);
            if (!image) throw ExportError::cannotEncode(name);
        }
        EncodeProperties properties{.dpiWidth = document.dpi, .dpiHeight = document.dpi};
        if (hasQuality(format)) properties.lossyCompressionQuality = clampedQuality(options.quality);
        if (format == PhotoExportFormat::tiff) properties.tiffCompression = kTiffLZW;
        std::optional<std::vector<uint8_t>> bytes = ImageExport::encode(*image, uti(format), properties);
        if (!bytes || bytes->empty()) throw ExportError::cannotEncode(name);
        return std::move(*bytes);
    } catch (const std::bad_alloc&) {
        throw ExportError::cannotEncode(name);
    }
}

} // namespace PhotoExport
} // namespace korv
