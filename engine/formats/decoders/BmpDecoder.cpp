// BMP, read by hand: OS/2 and Windows headers (12 to 124 bytes), 1, 4 and 8-bit
// palettes, RLE4 and RLE8, 16 and 32-bit bit fields, 24 and 32-bit RGB,
// bottom-up and top-down rows. 32-bit BI_RGB's fourth byte is padding, so only
// bit fields with an alpha mask give transparency.
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace korv::decoding {

namespace {

enum : uint32_t { kRGB = 0, kRLE8 = 1, kRLE4 = 2, kBitFields = 3, kAlphaBitFields = 6 };

// One channel of a bit-field pixel: where its bits sit and how to widen them to 8.
struct Field {
    uint32_t mask = 0;
    int shift = 0;
    uint32_t max = 0;
    explicit Field(uint32_t m) : mask(m) {
        if (!m) return;
        shift = std::countr_zero(m);
        max = m >> shift;
    }
    uint8_t operator()(uint32_t px) const {
        if (!mask) return 0;
        return uint8_t((uint64_t((px & mask) >> shift) * 255 + max / 2) / max);
    }
};

struct Header {
    int64_t width = 0, height = 0;
    bool topDown = false;
    int bpp = 0;
    uint32_t compression = kRGB;
    uint32_t masks[4] = {};
    size_t paletteAt = 0, paletteEntrySize = 4, paletteCount = 0;
    uint32_t ppm = 0;
};

std::optional<Header> readHeader(Bytes b) {
    if (b.size() < 26 || b[0] != 'B' || b[1] != 'M') return std::nullopt;
    Header hd;
    const uint32_t infoSize = le32(&b[14]);
    if (infoSize == 12) {
        hd.width = le16(&b[18]);
        hd.height = int16_t(le16(&b[20]));
        hd.bpp = le16(&b[24]);
        hd.paletteEntrySize = 3;
    } else if ((infoSize == 40 || infoSize == 52 || infoSize == 56 || infoSize == 64 || infoSize == 108 ||
                infoSize == 124) &&
               b.size() >= 14 + size_t(infoSize)) {
        hd.width = int32_t(le32(&b[18]));
        hd.height = int32_t(le32(&b[22]));
        hd.bpp = le16(&b[28]);
        hd.compression = le32(&b[30]);
        hd.ppm = le32(&b[38]);
        hd.paletteCount = le32(&b[46]);
        size_t masksAt = 54;
        if (infoSize == 40 && (hd.compression == kBitFields || hd.compression == kAlphaBitFields)) {
            // The masks follow a 40-byte header.
            const size_t n = hd.compression == kAlphaBitFields ? 4 : 3;
            if (b.size() < 54 + n * 4) return std::nullopt;
            for (size_t i = 0; i < n; ++i)
                hd.masks[i] = le32(&b[masksAt + i * 4]);
            hd.paletteAt = 54 + n * 4;
        } else {
            if (infoSize >= 52)
                for (size_t i = 0; i < 3; ++i)
                    hd.masks[i] = le32(&b[masksAt + i * 4]);
            if (infoSize >= 56) hd.masks[3] = le32(&b[masksAt + 12]);
        }
        // OS/2 2.x's 64-byte header puts other fields where the masks are, and
        // its compressions 3 and 4 are Huffman and RLE24, which nobody writes.
        if (infoSize == 64) {
            if (hd.compression != kRGB && hd.compression != kRLE8 && hd.compression != kRLE4)
                return std::nullopt;
            std::fill(std::begin(hd.masks), std::end(hd.masks), 0u);
        }
    } else {
        return std::nullopt;
    }
    if (hd.paletteAt == 0) hd.paletteAt = 14 + infoSize;
    if (hd.height < 0) {
        if (hd.height == INT32_MIN) return std::nullopt;
        hd.topDown = true;
        hd.height = -hd.height;
    }
    if (hd.bpp <= 8) {
        if (hd.bpp != 1 && hd.bpp != 4 && hd.bpp != 8) return std::nullopt;
        const size_t full = size_t(1) << hd.bpp;
        if (hd.paletteCount == 0 || hd.paletteCount > full) hd.paletteCount = full;
    } else if (hd.bpp != 16 && hd.bpp != 24 && hd.bpp != 32) {
        return std::nullopt;
    } else {
        hd.paletteCount = 0;
    }
    const bool rle = hd.compression == kRLE8 || hd.compression == kRLE4;
    if (rle && (hd.topDown || hd.bpp != (hd.compression == kRLE8 ? 8 : 4))) return std::nullopt;
    if (hd.compression != kRGB && !rle && hd.compression != kBitFields && hd.compression != kAlphaBitFields)
        return std::nullopt;
    if ((hd.compression == kBitFields || hd.compression == kAlphaBitFields) && hd.bpp != 16 && hd.bpp != 32)
        return std::nullopt;
    if (hd.compression == kRGB || rle) {
        // Plain 16-bit is 5-5-5; plain 32-bit is B, G, R and a padding byte.
        if (hd.bpp == 16) hd.masks[0] = 0x7C00, hd.masks[1] = 0x03E0, hd.masks[2] = 0x001F, hd.masks[3] = 0;
        if (hd.bpp == 32) hd.masks[0] = 0xFF0000, hd.masks[1] = 0xFF00, hd.masks[2] = 0xFF, hd.masks[3] = 0;
    }
    return hd;
}

// Decodes RLE8 or RLE4 into the picture, bottom row first. Pixels the codes
// skip stay transparent. Data that ends before its end-of-picture code, or
// that writes above the top row, makes the file unreadable. Without a picture
// it only checks the codes, so that nothing is allocated for a stream that
// fails.
bool decodeRLE(Bytes data, const Header& hd, const uint32_t* palette, RGBABuffer* image) {
    const bool four = hd.compression == kRLE4;
    const int64_t w = hd.width, h = hd.height;
    int64_t x = 0, y = 0; // y counts from the bottom
    size_t at = 0;
    auto put = [&](unsigned index) {
        if (image && x < w && y < h)
            reinterpret_cast<uint32_t*>(image->row(h - 1 - y))[x] =
                palette[index < hd.paletteCount ? index : 0];
        ++x;
    };
    while (at + 2 <= data.size()) {
        const unsigned count = data[at], value = data[at + 1];
        at += 2;
        if (count > 0) {
            if (y >= h) return false;
            for (unsigned i = 0; i < count; ++i)
                put(four ? (i % 2 ? value & 15 : value >> 4) : value);
            continue;
        }
        if (value == 0) { // end of line
            x = 0;
            ++y;
        } else if (value == 1) { // end of picture
            return true;
        } else if (value == 2) { // move right and up
            if (at + 2 > data.size()) return false;
            x += data[at];
            y += data[at + 1];
            at += 2;
        } else { // a literal run of value indices, padded to 16 bits
            const size_t bytes = four ? (value + 1) / 2 : value;
            if (at + bytes > data.size() || y >= h) return false;
            for (unsigned i = 0; i < value; ++i) {
                const uint8_t v = data[at + (four ? i / 2 : i)];
                put(four ? (i % 2 ? v & 15 : v >> 4) : v);
            }
            at += (bytes + 1) & ~size_t(1);
        }
        if (y > h) return false;
    }
    return false;
}

} // namespace

std::optional<DecodedImage> decodeBmp(Bytes bytes, const DecodeLimits& limits) {
    const std::optional<Header> parsed = readHeader(bytes);
    if (!parsed) return std::nullopt;
    const Header& hd = *parsed;
    if (!sizeAllowed(hd.width, hd.height, limits, 1)) return std::nullopt;
    const size_t pixelsAt = le32(&bytes[10]);
    if (pixelsAt >= bytes.size()) return std::nullopt;
    const Bytes data = bytes.subspan(pixelsAt);
    const bool rle = hd.compression == kRLE8 || hd.compression == kRLE4;
    const size_t stride = ((size_t(hd.width) * size_t(hd.bpp) + 31) / 32) * 4;
    if (!rle && data.size() / stride < size_t(hd.height)) return std::nullopt;

    uint32_t palette[256] = {};
    if (hd.paletteCount > 0) {
        if (hd.paletteAt + hd.paletteCount * hd.paletteEntrySize > pixelsAt) return std::nullopt;
        for (size_t i = 0; i < hd.paletteCount; ++i) {
            const uint8_t* e = &bytes[hd.paletteAt + i * hd.paletteEntrySize];
            const uint8_t px[4] = {e[2], e[1], e[0], 255};
            std::memcpy(&palette[i], px, 4);
        }
    }
    if (rle && !decodeRLE(data, hd, palette, nullptr)) return std::nullopt;
    RGBABufferPtr image = allocate(hd.width, hd.height, limits, 1);
    if (!image) return std::nullopt;
    bool hasAlpha = false;
    if (rle) {
        std::memset(image->data(), 0, size_t(image->byteCount()));
        if (!decodeRLE(data, hd, palette, image.get())) return std::nullopt;
    } else {
        const Field red(hd.masks[0]), green(hd.masks[1]), blue(hd.masks[2]), alpha(hd.masks[3]);
        hasAlpha = hd.masks[3] != 0;
        const int64_t w = hd.width;
        for (int64_t row = 0; row < hd.height; ++row) {
            const uint8_t* s = data.data() + size_t(row) * stride;
            uint8_t* d = image->row(hd.topDown ? row : hd.height - 1 - row);
            auto* d32 = reinterpret_cast<uint32_t*>(d);
            switch (hd.bpp) {
            case 1:
            case 4:
            case 8: {
                const int perByte = 8 / hd.bpp;
                const unsigned mask = (1u << hd.bpp) - 1;
                for (int64_t x = 0; x < w; ++x) {
                    const int shift = 8 - hd.bpp * int(x % perByte + 1);
                    const unsigned index = (s[x / perByte] >> shift) & mask;
                    d32[x] = palette[index < hd.paletteCount ? index : 0];
                }
                break;
            }
            case 24:
                for (int64_t x = 0; x < w; ++x, s += 3, d += 4)
                    d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = 255;
                break;
            default: // 16 and 32 bits through the masks
                for (int64_t x = 0; x < w; ++x, d += 4) {
                    const uint32_t px = hd.bpp == 16 ? le16(s + x * 2) : le32(s + x * 4);
                    d[0] = red(px), d[1] = green(px), d[2] = blue(px), d[3] = hasAlpha ? alpha(px) : 255;
                }
            }
        }
    }
    if (hasAlpha) premultiplyRows(*image);
    std::optional<double> dpi;
    if (hd.ppm > 0) dpi = dpiFromPixelsPerMeter(hd.ppm);
    return DecodedImage{std::move(image), dpiOrDefault(dpi)};
}

} // namespace korv::decoding
