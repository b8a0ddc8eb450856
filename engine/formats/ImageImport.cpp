#include "engine/formats/ImageImport.h"

#include "engine/formats/decoders/Decoders.h"

#include <array>
#include <cstring>
#include <exception>

namespace korv {

namespace {

constexpr std::array<std::string_view, 9> kFormatNames{"jpeg", "png", "tiff", "heic", "avif",
                                                       "gif",  "bmp", "tga",  "webp"};

bool startsWith(std::span<const uint8_t> b, std::string_view magic, size_t at = 0) {
    return b.size() >= at + magic.size() && std::memcmp(b.data() + at, magic.data(), magic.size()) == 0;
}

// HEIF files open with an 'ftyp' box whose brands say what they hold.
std::optional<PictureFormat> heifKind(std::span<const uint8_t> b) {
    if (!startsWith(b, "ftyp", 4) || b.size() < 16) return std::nullopt;
    const uint32_t boxSize = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
    const size_t end = std::min<size_t>(b.size(), boxSize);
    auto brand = [&](size_t at) { return std::string_view(reinterpret_cast<const char*>(b.data() + at), 4); };
    auto classify = [](std::string_view br) -> std::optional<PictureFormat> {
        if (br == "avif" || br == "avis") return PictureFormat::avif;
        if (br == "heic" || br == "heix" || br == "hevc" || br == "hevx" || br == "heim" || br == "heis" ||
            br == "hevm" || br == "hevs")
            return PictureFormat::heic;
        return std::nullopt;
    };
    if (auto f = classify(brand(8))) return f;
    // A general major brand ('mif1', 'msf1'): the compatible brands decide.
    bool general = brand(8) == "mif1" || brand(8) == "msf1";
    std::optional<PictureFormat> found;
    for (size_t at = 16; at + 4 <= end; at += 4) {
        if (auto f = classify(brand(at))) {
            if (*f == PictureFormat::avif) return f;
            found = f;
        }
        general = general || brand(at) == "mif1";
    }
    if (found) return found;
    return general ? std::optional(PictureFormat::heic) : std::nullopt;
}

} // namespace

std::string_view toString(PictureFormat format) {
    return kFormatNames[size_t(format)];
}

namespace ImageImport {

std::optional<PictureFormat> formatOf(std::span<const uint8_t> b) {
    if (startsWith(b, "\xFF\xD8\xFF")) return PictureFormat::jpeg;
    if (startsWith(b, "\x89PNG\r\n\x1A\n")) return PictureFormat::png;
    if (startsWith(b, {"II*\0", 4}) || startsWith(b, {"MM\0*", 4}) || startsWith(b, {"II+\0", 4}) ||
        startsWith(b, {"MM\0+", 4}))
        return PictureFormat::tiff;
    if (startsWith(b, "GIF87a") || startsWith(b, "GIF89a")) return PictureFormat::gif;
    if (startsWith(b, "RIFF") && startsWith(b, "WEBP", 8)) return PictureFormat::webp;
    if (startsWith(b, "BM") && b.size() >= 26) return PictureFormat::bmp;
    if (auto heif = heifKind(b)) return heif;
    if (decoding::looksLikeTga(b)) return PictureFormat::tga;
    return std::nullopt;
}

std::optional<DecodedImage> decode(std::span<const uint8_t> bytes, const DecodeLimits& limits) {
    const std::optional<PictureFormat> format = formatOf(bytes);
    if (!format) return std::nullopt;
    try {
        std::optional<DecodedImage> result;
        switch (*format) {
        case PictureFormat::jpeg:
            result = decoding::decodeJpeg(bytes, limits);
            break;
        case PictureFormat::png:
            result = decoding::decodePng(bytes, limits);
            break;
        case PictureFormat::tiff:
            result = decoding::decodeTiff(bytes, limits);
            break;
        case PictureFormat::heic:
        case PictureFormat::avif:
            result = decoding::decodeHeif(bytes, limits);
            break;
        case PictureFormat::gif:
            result = decoding::decodeGif(bytes, limits);
            break;
        case PictureFormat::bmp:
            result = decoding::decodeBmp(bytes, limits);
            break;
        case PictureFormat::tga:
            result = decoding::decodeTga(bytes, limits);
            break;
        case PictureFormat::webp:
            result = decoding::decodeWebp(bytes, limits);
            break;
        }
        if (!result || !result->image || result->image->width() > limits.maxSide ||
            result->image->height() > limits.maxSide)
            return std::nullopt;
        return result;
    } catch (const std::exception&) {
        // Memory refused by a library or by us: the picture can't be opened, nothing more.
        return std::nullopt;
    }
}

} // namespace ImageImport
} // namespace korv
