#pragma once
// The Photoshop file format at 8-bit RGB: PackBits, the split of premultiplied
// pixels into straight planes, the parse and assembly of the file's sections
// that StudioPSD shares, and a paint document as a flat or plain layered PSD.
#include "engine/core/IRect.h"
#include "engine/core/RGBABuffer.h"
#include "engine/formats/BEReader.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace korv {

class PaintDocument;

class PSDError : public std::runtime_error {
public:
    enum class Kind { unsupported, damaged };
    // what: "16-bit color", "color mode 4; only RGB", "ZIP-compressed layers", ...
    static PSDError unsupported(const std::string& what);
    // A count or size no real file has: "layer record" or "channels".
    static PSDError damaged(const std::string& detail);

    Kind kind() const { return kind_; }
    const std::string& detail() const { return detail_; }

private:
    PSDError(Kind k, std::string detail, const std::string& message)
        : std::runtime_error(message), kind_(k), detail_(std::move(detail)) {}
    Kind kind_;
    std::string detail_;
};

namespace PSDFile {

// Channel ids of the layer records.
inline constexpr int16_t kAlpha = -1;
inline constexpr int16_t kUserMask = -2;

// Appends the PackBits coding of count bytes; at most count + count / 128 + 1
// bytes, so a buffer reserved for that never grows.
void packBits(const uint8_t* bytes, int64_t count, std::vector<uint8_t>& into);
// Decodes until `expected` bytes are out or the input ends; a short result is
// padded with zeros. Throws BEReader::Short when the input ends inside a run.
std::vector<uint8_t> unpackBits(std::span<const uint8_t> slice, int64_t expected);
// The same into memory the caller owns, of `expected` bytes.
void unpackBits(std::span<const uint8_t> slice, uint8_t* out, int64_t expected);

struct Packed {
    std::vector<uint16_t> rowCounts;
    std::vector<uint8_t> data;
};
// Each row packed by itself.
Packed rle(const uint8_t* plane, int64_t w, int64_t h);

// R, G, B and A planes of the rectangle (in the buffer's coordinates),
// colours made straight; a fully transparent pixel gives zeros.
std::array<std::vector<uint8_t>, 4> planes(const RGBABuffer& buffer, const IRect& rect);
// Straight colour and alpha back to a premultiplied byte.
inline uint8_t premultiply(unsigned c, unsigned a) {
    return uint8_t((c * a + 127) / 255);
}

// What the reader keeps of one layer record, with its decoded channels.
struct Rec {
    int64_t top = 0, left = 0, bottom = 0, right = 0;
    std::vector<std::pair<int16_t, int64_t>> chans;
    std::string key = "norm";
    uint8_t opacity = 255;
    uint8_t clip = 0;
    uint8_t flags = 0;
    std::string name;
    bool isSection = false;
    uint32_t lsct = 0;
    std::optional<uint8_t> fill;
    IRect maskRect;
    uint8_t maskDefault = 0;
    uint8_t maskFlags = 0;
    bool hasMaskData = false;
    // The private "KOrv" block as stored, decoded by StudioPSD.
    std::optional<std::string> privateData;
    std::map<int16_t, std::vector<uint8_t>> planes;

    IRect rect() const { return {left, top, right - left, bottom - top}; }
};

// A whole file as read: canvas, resolution, records from the bottom, and the
// merged picture when asked for (premultiplied; absent when the file has none).
struct Layout {
    int64_t width = 0, height = 0;
    double dpi = 72;
    std::vector<Rec> records;
    RGBABufferPtr merged;
};
// Throws StudioFileError (not a PSD, too large), PSDError or BEReader::Short.
Layout parse(std::span<const uint8_t> bytes, bool withMerged);
// The record's pixels clipped to the canvas as a premultiplied buffer, and
// where it lies; absent when nothing of it is on the canvas or it has no colour.
std::optional<std::pair<RGBABufferPtr, IRect>> pixels(const Rec& rec, int64_t width, int64_t height);

// One record as the writer lays it out. Channel payloads include their
// two-byte compression code.
struct OutRec {
    IRect rect;
    std::vector<std::pair<int16_t, std::vector<uint8_t>>> channels;
    std::string key = "norm";
    uint8_t opacity = 255;
    uint8_t clip = 0;
    uint8_t flags = 0;
    std::string name;
    bool mask = false;
    bool maskEnabled = true;
    std::optional<uint32_t> lsct;
    std::optional<uint8_t> fill;
    std::optional<std::string> privateData;
};
// Channels -1, 0, 1, 2 of a premultiplied buffer, packed on all cores.
std::vector<std::pair<int16_t, std::vector<uint8_t>>> channels(const RGBABuffer& buffer);
// Four channels of code 0 and no data: a layer without pixels.
std::vector<std::pair<int16_t, std::vector<uint8_t>>> emptyChannels();
// One channel payload of code 1 for a plane.
std::vector<uint8_t> packedChannel(const uint8_t* plane, int64_t w, int64_t h);
// The whole file: header, resolution, records, their channels, the merged picture.
std::vector<uint8_t> assemble(int64_t width, int64_t height, double dpi, const std::vector<OutRec>& records,
                              const RGBABuffer& merged);

std::vector<uint8_t> write(const PaintDocument& document, bool layered);
// Group records are flattened away; history starts with one item "Open".
std::unique_ptr<PaintDocument> read(std::span<const uint8_t> bytes);

} // namespace PSDFile
} // namespace korv
