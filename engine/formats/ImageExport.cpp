#include "engine/formats/ImageExport.h"

#include "engine/core/ParallelFor.h"
#include "engine/platform/Resampling.h"
#include "engine/formats/encoders/Encoders.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace korv {

namespace {
struct FormatRow {
    std::string_view name, display, extension;
};
constexpr std::array<FormatRow, 5> kExportFormats{{
    {"png", "PNG (keeps transparency)", "png"},
    {"jpeg", "JPEG (photos, smallest)", "jpg"},
    {"tiff", "TIFF (print, lossless)", "tiff"},
    {"psdLayered", "Photoshop PSD (layers kept)", "psd"},
    {"psdFlat", "Photoshop PSD (flattened)", "psd"},
}};
} // namespace

std::string_view toString(ExportFormat f) {
    return kExportFormats[size_t(f)].name;
}
std::string_view displayName(ExportFormat f) {
    return kExportFormats[size_t(f)].display;
}
std::string_view fileExtension(ExportFormat f) {
    return kExportFormats[size_t(f)].extension;
}
std::optional<ExportFormat> exportFormatFromString(std::string_view text) {
    for (size_t i = 0; i < kExportFormats.size(); ++i)
        if (kExportFormats[i].name == text) return ExportFormat(i);
    return std::nullopt;
}

namespace ImageExport {

RGBABufferPtr scaled(const RGBABufferPtr& image, int64_t maxSide) {
    if (!image) return image;
    const int64_t longer = std::max(image->width(), image->height());
    const double f = double(maxSide) / double(longer);
    if (f >= 1.0) return image;
    const auto w = std::max<int64_t>(1, int64_t(f * double(image->width())));
    const auto h = std::max<int64_t>(1, int64_t(f * double(image->height())));
    RGBABufferPtr out = resampled(*image, w, h);
    return out ? out : image;
}

RGBABufferPtr resized(const RGBABuffer& image, int64_t width, int64_t height) {
    return resampled(image, width, height);
}

std::optional<std::vector<uint8_t>> encode(const RGBABuffer& image, std::string_view type,
                                           const EncodeProperties& properties) {
    const double dpi = properties.dpiWidth.value_or(properties.dpiHeight.value_or(72.0));
    const double safeDpi = std::isfinite(dpi) && dpi > 0 ? dpi : 72.0;
    const double quality = properties.lossyCompressionQuality.value_or(0.9);
    try {
        if (type == kJpegType) return encoding::encodeJpeg(image, safeDpi, quality);
        if (type == kPngType) return encoding::encodePng(image, safeDpi);
        if (type == kTiffType)
            return encoding::encodeTiff(image, safeDpi, properties.tiffCompression.value_or(1));
        if (type == kHeicType) return encoding::encodeHeic(image, safeDpi, quality);
    } catch (const std::bad_alloc&) {
    }
    return std::nullopt;
}

std::optional<std::vector<uint8_t>> pngData(const RGBABufferPtr& image, double dpi) {
    if (!image) return std::nullopt;
    return encode(*image, kPngType, {.dpiWidth = dpi, .dpiHeight = dpi});
}

void flattenOnto(RGBABuffer& buffer, const RGBA& colour) {
    auto byte = [](double v) {
        return unsigned(std::lround(std::clamp(std::isnan(v) ? 0.0 : v, 0.0, 1.0) * 255.0));
    };
    const unsigned bg[3] = {byte(colour.r), byte(colour.g), byte(colour.b)};
    const int64_t w = buffer.width();
    constexpr int64_t kBand = 32;
    parallelFor((buffer.height() + kBand - 1) / kBand, [&](int64_t band) {
        const int64_t end = std::min(buffer.height(), (band + 1) * kBand);
        for (int64_t y = band * kBand; y < end; ++y) {
            uint8_t* p = buffer.row(y);
            for (int64_t x = 0; x < w; ++x, p += 4) {
                const unsigned rest = 255u - p[3];
                p[0] = uint8_t(std::min(255u, p[0] + (bg[0] * rest + 127) / 255));
                p[1] = uint8_t(std::min(255u, p[1] + (bg[1] * rest + 127) / 255));
                p[2] = uint8_t(std::min(255u, p[2] + (bg[2] * rest + 127) / 255));
                p[3] = 255;
            }
        }
    });
}

RGBABufferPtr onBackground(const RGBABuffer& buffer, const RGBA& colour) {
    try {
        RGBABufferPtr out = buffer.copy();
        flattenOnto(*out, colour);
        return out;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

} // namespace ImageExport
} // namespace korv
