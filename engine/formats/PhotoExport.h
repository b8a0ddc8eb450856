#pragma once
// Writes a flattened document as JPEG, PNG, TIFF or HEIC at any scale, and the
// options the export sheet keeps for it.
#include "engine/core/PaintColor.h"

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>
#include <vector>

namespace korv {

class StudioDocument;

enum class PhotoExportFormat : uint8_t { jpeg, png, tiff, heic };

inline constexpr std::array<PhotoExportFormat, 4> kAllPhotoExportFormats{
    PhotoExportFormat::jpeg, PhotoExportFormat::png, PhotoExportFormat::tiff, PhotoExportFormat::heic};

// The coded form, also the format's id ("jpeg").
std::string_view toString(PhotoExportFormat f);
std::optional<PhotoExportFormat> photoExportFormatFromString(std::string_view text);
std::string_view displayName(PhotoExportFormat f);
std::string_view fileExtension(PhotoExportFormat f);
std::string_view uti(PhotoExportFormat f);
bool hasQuality(PhotoExportFormat f);
bool keepsTransparency(PhotoExportFormat f);

void to_json(nlohmann::json& j, PhotoExportFormat f);
void from_json(const nlohmann::json& j, PhotoExportFormat& f);

struct PhotoExportOptions {
    PhotoExportFormat format = PhotoExportFormat::jpeg;
    double quality = 0.9; // clamped to 0.05...1 when used
    double scale = 1.0;   // clamped to 0.01...4 when used
    RGBA background = RGBA::white();

    PhotoExportOptions() = default;
    explicit PhotoExportOptions(PhotoExportFormat f) : format(f) {}
    bool operator==(const PhotoExportOptions&) const = default;
};

// All four keys are required when decoding.
void to_json(nlohmann::json& j, const PhotoExportOptions& o);
void from_json(const nlohmann::json& j, PhotoExportOptions& o);

struct PixelSize {
    int64_t width = 0, height = 0;
    bool operator==(const PixelSize&) const = default;
};

namespace PhotoExport {

double clampedQuality(double quality);
double clampedScale(double scale);
// The canvas times the clamped scale, each side rounded half away from zero and at least 1.
PixelSize outputSize(int64_t canvasWidth, int64_t canvasHeight, const PhotoExportOptions& options);
PixelSize outputSize(const StudioDocument& document, const PhotoExportOptions& options);
// Bytes of pixels an export holds at once: the flattened canvas, the picture
// at its output size and the encoder's copy of it.
uint64_t memoryNeeded(const StudioDocument& document, const PhotoExportOptions& options);
// The file's bytes; throws ExportError. The document is only read.
std::vector<uint8_t> data(const StudioDocument& document, const PhotoExportOptions& options);

} // namespace PhotoExport
} // namespace korv
