// TGA, read by hand: colour-mapped, true-colour and grey pictures, raw or
// run-length encoded, 8 to 32 bits, any of the four row orders. A 32-bit
// picture whose fourth bytes are all zero is taken as opaque: many writers
// leave the attribute bits unset.
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace korv::decoding {

namespace {

struct Header {
    size_t idLength = 0;
    bool hasMap = false;
    int type = 0;
    size_t mapFirst = 0, mapLength = 0;
    int mapEntryBits = 0;
    int64_t width = 0, height = 0;
    int depth = 0;
    bool rightToLeft = false, topDown = false;

    bool rle() const { return type >= 9; }
    int kind() const { return type & 7; } // 1 colour-mapped, 2 true colour, 3 grey
};

std::optional<Header> readHeader(Bytes b) {
    if (b.size() < 18) return std::nullopt;
    Header hd;
    hd.idLength = b[0];
    hd.hasMap = b[1] == 1;
    hd.type = b[2];
    hd.mapFirst = le16(&b[3]);
    hd.mapLength = le16(&b[5]);
    hd.mapEntryBits = b[7];
    hd.width = le16(&b[12]);
    hd.height = le16(&b[14]);
    hd.depth = b[16];
    hd.rightToLeft = (b[17] & 0x10) != 0;
    hd.topDown = (b[17] & 0x20) != 0;
    if (b[1] > 1 || (b[17] & 0xC0) != 0) return std::nullopt;
    if (hd.type != 1 && hd.type != 2 && hd.type != 3 && hd.type != 9 && hd.type != 10 && hd.type != 11)
        return std::nullopt;
    if (hd.width < 1 || hd.height < 1) return std::nullopt;
    // A map is skipped even where it isn't used, so its entries must have a size.
    if (hd.hasMap && hd.mapEntryBits != 15 && hd.mapEntryBits != 16 && hd.mapEntryBits != 24 &&
        hd.mapEntryBits != 32)
        return std::nullopt;
    switch (hd.kind()) {
    case 1:
        if (!hd.hasMap || hd.depth != 8 || hd.mapLength == 0) return std::nullopt;
        break;
    case 2:
        if (hd.depth != 15 && hd.depth != 16 && hd.depth != 24 && hd.depth != 32) return std::nullopt;
        break;
    default:
        if (hd.depth != 8 && hd.depth != 16) return std::nullopt;
    }
    return hd;
}

// One stored pixel of bits size to straight RGBA.
void unpack(const uint8_t* s, int bits, bool grey, uint8_t* d) {
    if (grey) {
        d[0] = d[1] = d[2] = s[0];
        d[3] = bits == 16 ? s[1] : 255;
    } else if (bits == 15 || bits == 16) {
        const unsigned v = le16(s);
        d[0] = uint8_t(((v >> 10) & 31) * 255 / 31);
        d[1] = uint8_t(((v >> 5) & 31) * 255 / 31);
        d[2] = uint8_t((v & 31) * 255 / 31);
        d[3] = 255;
    } else {
        d[0] = s[2], d[1] = s[1], d[2] = s[0];
        d[3] = bits == 32 ? s[3] : 255;
    }
}

} // namespace

bool looksLikeTga(Bytes bytes) {
    return readHeader(bytes).has_value();
}

std::optional<DecodedImage> decodeTga(Bytes bytes, const DecodeLimits& limits) {
    const std::optional<Header> parsed = readHeader(bytes);
    if (!parsed) return std::nullopt;
    const Header& hd = *parsed;
    if (!sizeAllowed(hd.width, hd.height, limits, 1)) return std::nullopt;
    size_t at = 18 + hd.idLength;
    const bool mapped = hd.kind() == 1, grey = hd.kind() == 3;

    std::vector<uint32_t> palette;
    if (hd.hasMap) {
        const size_t entryBytes = size_t(hd.mapEntryBits + 7) / 8;
        if (at > bytes.size() || (bytes.size() - at) / entryBytes < hd.mapLength) return std::nullopt;
        if (mapped) {
            palette.resize(256, 0);
            for (size_t i = 0; i < hd.mapLength; ++i) {
                const size_t index = hd.mapFirst + i;
                if (index >= 256) break;
                uint8_t px[4];
                unpack(&bytes[at + i * entryBytes], hd.mapEntryBits, false, px);
                std::memcpy(&palette[index], px, 4);
            }
        }
        at += hd.mapLength * entryBytes;
    }
    const size_t pixelBytes = size_t(hd.depth + 7) / 8;
    const int64_t count = hd.width * hd.height;
    if (at > bytes.size()) return std::nullopt;
    const Bytes data = bytes.subspan(at);
    if (!hd.rle() && data.size() / pixelBytes < size_t(count)) return std::nullopt;
    // A run packet is at least two bytes long and covers at most 128 pixels.
    if (hd.rle() && (data.size() / 2 + 1) * 128 < size_t(count)) return std::nullopt;

    RGBABufferPtr image = allocate(hd.width, hd.height, limits, 1);
    if (!image) return std::nullopt;
    // Pixels in stored order first; the row order is settled after.
    uint8_t* out = image->data();
    auto store = [&](const uint8_t* s, int64_t i) {
        if (mapped)
            std::memcpy(out + i * 4, &palette[s[0]], 4);
        else
            unpack(s, hd.depth, grey, out + i * 4);
    };
    if (!hd.rle()) {
        for (int64_t i = 0; i < count; ++i)
            store(data.data() + size_t(i) * pixelBytes, i);
    } else {
        size_t p = 0;
        int64_t i = 0;
        while (i < count) {
            if (p >= data.size()) return std::nullopt;
            const unsigned packet = data[p++];
            const int64_t n = std::min<int64_t>((packet & 0x7F) + 1, count - i);
            if (packet & 0x80) {
                if (data.size() - p < pixelBytes) return std::nullopt;
                store(data.data() + p, i);
                for (int64_t k = 1; k < n; ++k)
                    std::memcpy(out + (i + k) * 4, out + i * 4, 4);
                p += pixelBytes;
            } else {
                if ((data.size() - p) / pixelBytes < size_t(n)) return std::nullopt;
                for (int64_t k = 0; k < n; ++k)
                    store(data.data() + p + size_t(k) * pixelBytes, i + k);
                p += size_t(n) * pixelBytes;
            }
            i += n;
        }
    }

    bool alphaSeen = !(hd.depth == 32 || (grey && hd.depth == 16) || mapped);
    for (int64_t i = 0; i < count && !alphaSeen; ++i)
        alphaSeen = out[i * 4 + 3] != 0;
    if (!alphaSeen)
        for (int64_t i = 0; i < count; ++i)
            out[i * 4 + 3] = 255;
    const int64_t w = hd.width, h = hd.height;
    if (!hd.topDown)
        for (int64_t y = 0; y < h / 2; ++y)
            std::swap_ranges(image->row(y), image->row(y) + w * 4, image->row(h - 1 - y));
    if (hd.rightToLeft)
        for (int64_t y = 0; y < h; ++y) {
            auto* r = reinterpret_cast<uint32_t*>(image->row(y));
            std::reverse(r, r + w);
        }
    premultiplyRows(*image);
    return DecodedImage{std::move(image), 72.0};
}

} // namespace korv::decoding
