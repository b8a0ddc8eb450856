#pragma once
// Plumbing shared by the picture decoders: the size guard, EXIF reading,
// orientation, colour conversion to sRGB and premultiplication. Internal to
// engine/formats.
#include "engine/formats/ImageImport.h"

#include <cstdint>
#include <optional>
#include <span>

namespace korv::decoding {

// True when a picture of this size may be allocated: checked before any pixel
// memory exists. workingCopies counts the full-size RGBA buffers the decoder
// holds at once (an orientation or a library's own output adds one).
bool sizeAllowed(int64_t width, int64_t height, const DecodeLimits& limits, int workingCopies = 2);

// A new buffer, or empty when the size is refused or memory is short.
RGBABufferPtr allocate(int64_t width, int64_t height, const DecodeLimits& limits, int workingCopies = 2);

// Whether a picture whose data ran out after `rows` rows opens with those rows
// (the rest transparent). Not when they are a sliver of a huge canvas: that is
// how a hostile header claims gigabytes with a few bytes of data.
bool keepsPartialPicture(int64_t width, int64_t height, int64_t rows);

struct ExifInfo {
    int orientation = 1;
    std::optional<double> dpi;
};

// Reads a TIFF-structured EXIF block ("II*\0" or "MM\0*", optionally after
// "Exif\0\0"). Anything it can't read stays at its default.
ExifInfo parseExif(std::span<const uint8_t> bytes);

// The picture turned upright for EXIF orientations 2 to 8; others return it as it is.
// Empty when memory for the turned copy is refused.
RGBABufferPtr applyOrientation(RGBABufferPtr image, int orientation, const DecodeLimits& limits);

// Converts premultiplied RGBA from an embedded ICC profile's RGB or grey space
// to sRGB in place. A profile that can't be read, or one that already matches
// sRGB, leaves the pixels as they are.
void convertToSRGB(RGBABuffer& image, std::span<const uint8_t> iccProfile);

// The same for pixels described by their primaries and white point (x, y of
// red, green, blue, white) with the sRGB tone curve, as HEIF's colour boxes say.
void convertPrimariesToSRGB(RGBABuffer& image, const float (&xy)[8]);

// Straight to premultiplied alpha, in place.
void premultiply(uint8_t* rgba, int64_t pixels);
void premultiplyRows(RGBABuffer& image);

// Lowers any colour byte above its alpha: files that store premultiplied
// pixels may break that rule, and the engine never does.
void clampToAlpha(RGBABuffer& image);

// A resolution from pixels per metre. Writers store round(dpi / 0.0254), so a
// value that a whole DPI gives reads back as that DPI (11811 as 300, not 299.9994).
double dpiFromPixelsPerMeter(double ppm);

// A resolution as decoders pass it on: a positive finite value, else 72.
double dpiOrDefault(std::optional<double> dpi);

// Byte-order readers; callers have checked the length.
inline uint16_t be16(const uint8_t* p) {
    return uint16_t(p[0] << 8 | p[1]);
}
inline uint32_t be32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}
inline uint16_t le16(const uint8_t* p) {
    return uint16_t(p[0] | p[1] << 8);
}
inline uint32_t le32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

} // namespace korv::decoding
