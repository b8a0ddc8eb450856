#pragma once
// The native document: a 12-byte prefix (magic, manifest length), a JSON
// manifest of the layer tree, and a byte area of LZFSE-compressed tiles and
// a small PNG preview at the end. Lossless: a reopened document is the saved
// one, pixel for pixel. History is not kept.
#include "engine/core/RGBABuffer.h"
#include "engine/document/StudioLayer.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace korv {

class StudioDocument;

class StudioFileError : public std::runtime_error {
public:
    enum class Kind { damaged, notStudioFile, tooLarge, outOfMemory };
    static StudioFileError damaged(std::string detail);
    static StudioFileError notStudioFile();
    static StudioFileError tooLarge();
    // The document's tiles need more memory than this computer has; `gigabytes` is what they need.
    static StudioFileError outOfMemory(double gigabytes);

    Kind kind() const { return kind_; }
    // For damaged files: which part ("manifest", "tile 12 data", ...).
    const std::string& detail() const { return detail_; }

private:
    StudioFileError(Kind k, std::string detail, const std::string& message)
        : std::runtime_error(message), kind_(k), detail_(std::move(detail)) {}
    Kind kind_;
    std::string detail_;
};

namespace StudioFile {

inline constexpr std::string_view fileExtension = "korvstudio";
inline constexpr std::string_view typeIdentifier = "com.quillmere.korvstudio";
inline constexpr std::array<uint8_t, 8> magic{'K', 'O', 'R', 'V', 'S', 'T', 'D', 0x01};
inline constexpr std::string_view formatName = "KORV Lumenary document";

// One stored payload: tile index (-1 for the preview), offset into the tile
// area, length, and coding (0 raw, 1 LZFSE, 2 PNG).
struct TileEntry {
    int64_t i = 0, o = 0, n = 0, c = 0;
    bool operator==(const TileEntry&) const = default;
};

struct Manifest {
    std::string format;
    int64_t formatVersion = 1;
    std::string app;
    int64_t width = 0;
    int64_t height = 0;
    double dpi = 72;
    std::optional<Uuid> active;
    std::vector<StudioLayer> layers; // the tree as stored; tiles are not loaded
    std::optional<TileEntry> thumbnail;
    std::optional<std::string> saved;
};

// The frozen input of the encoder; safe to encode on any thread.
struct Snapshot {
    int64_t width = 0;
    int64_t height = 0;
    double dpi = 72;
    std::vector<StudioLayer> layers;
    std::optional<Uuid> active;
    RGBABufferPtr preview;
};

// Freezes every tile of the document and copies what the encoder needs; with
// preview, also renders the picture scaled to at most 320 pixels.
Snapshot snapshot(const StudioDocument& doc, bool preview);
std::vector<uint8_t> encode(const StudioDocument& doc);
std::vector<uint8_t> encode(const Snapshot& snap);
// Throws StudioFileError; on failure nothing of the document survives.
std::unique_ptr<StudioDocument> decode(std::span<const uint8_t> bytes);
// The manifest (with the layers' records but no tiles) and where the tile area starts.
std::pair<Manifest, size_t> manifest(std::span<const uint8_t> bytes);
// The preview's PNG bytes, when the file has an intact one; never throws.
std::optional<std::vector<uint8_t>> thumbnailData(std::span<const uint8_t> bytes) noexcept;
// The preview as a picture, when the file has an intact one; never throws.
RGBABufferPtr thumbnail(std::span<const uint8_t> bytes) noexcept;
bool isStudioFile(std::span<const uint8_t> bytes) noexcept;

} // namespace StudioFile
} // namespace korv
