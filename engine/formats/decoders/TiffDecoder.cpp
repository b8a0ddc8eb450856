// TIFF through libtiff's RGBA interface: 1 to 16 bits, grey, palette, RGB,
// YCbCr and CMYK, strips or tiles, every compression libtiff was built with,
// associated and unassociated alpha. First page only.
#include "engine/formats/TiffIO.h"
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <bit>

namespace korv::decoding {

namespace {

struct Handle {
    TIFF* tif = nullptr;
    ~Handle() {
        if (tif) TIFFClose(tif);
    }
};

struct RGBAImage {
    TIFFRGBAImage img{};
    bool begun = false;
    ~RGBAImage() {
        if (begun) TIFFRGBAImageEnd(&img);
    }
};

} // namespace

std::optional<DecodedImage> decodeTiff(Bytes bytes, const DecodeLimits& limits) {
    // libtiff's packed ABGR words are R, G, B, A in memory on a little-endian machine.
    static_assert(std::endian::native == std::endian::little);
    tiffio::MemoryReader reader{bytes.data(), bytes.size(), 0};
    Handle h;
    h.tif = tiffio::openReader(reader, std::min<int64_t>(limits.maxBytes / 2, int64_t(1) << 31));
    if (!h.tif) return std::nullopt;

    uint32_t w = 0, hgt = 0;
    if (!TIFFGetField(h.tif, TIFFTAG_IMAGEWIDTH, &w) || !TIFFGetField(h.tif, TIFFTAG_IMAGELENGTH, &hgt))
        return std::nullopt;
    uint16_t orientation = ORIENTATION_TOPLEFT;
    TIFFGetFieldDefaulted(h.tif, TIFFTAG_ORIENTATION, &orientation);
    const int copies = orientation >= 2 && orientation <= 8 ? 2 : 1;
    if (!sizeAllowed(w, hgt, limits, copies)) return std::nullopt;

    // Every strip or tile must lie inside the file: libtiff decodes a cut one
    // as far as it goes, without an error.
    const uint32_t striles = TIFFNumberOfStrips(h.tif);
    for (uint32_t i = 0; i < striles; ++i) {
        const uint64_t offset = TIFFGetStrileOffset(h.tif, i), count = TIFFGetStrileByteCount(h.tif, i);
        if (offset > bytes.size() || count > bytes.size() - offset) return std::nullopt;
    }

    RGBAImage rgba;
    char message[1024];
    if (!TIFFRGBAImageOK(h.tif, message) || !TIFFRGBAImageBegin(&rgba.img, h.tif, 1, message))
        return std::nullopt;
    rgba.begun = true;
    // Rows come in stored order, top first; the orientation is applied afterwards,
    // with the transposing ones that libtiff leaves out.
    rgba.img.req_orientation = ORIENTATION_TOPLEFT;
    rgba.img.orientation = ORIENTATION_TOPLEFT;

    RGBABufferPtr image = allocate(w, hgt, limits, copies);
    if (!image) return std::nullopt;
    auto* raster = reinterpret_cast<uint32_t*>(image->data());
    if (!TIFFRGBAImageGet(&rgba.img, raster, w, hgt) || reader.sawError) return std::nullopt;
    // Associated alpha arrives as stored; libtiff premultiplies only the unassociated kind.
    if (rgba.img.alpha == EXTRASAMPLE_ASSOCALPHA) clampToAlpha(*image);

    uint32_t iccSize = 0;
    void* icc = nullptr;
    uint16_t photometric = PHOTOMETRIC_RGB;
    TIFFGetFieldDefaulted(h.tif, TIFFTAG_PHOTOMETRIC, &photometric);
    // CMYK was turned to RGB by libtiff already; its profile no longer applies.
    if (photometric != PHOTOMETRIC_SEPARATED && TIFFGetField(h.tif, TIFFTAG_ICCPROFILE, &iccSize, &icc))
        convertToSRGB(*image, {static_cast<const uint8_t*>(icc), iccSize});

    std::optional<double> dpi;
    float xres = 0;
    uint16_t unit = RESUNIT_INCH;
    TIFFGetFieldDefaulted(h.tif, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (TIFFGetField(h.tif, TIFFTAG_XRESOLUTION, &xres) && xres > 0) {
        if (unit == RESUNIT_INCH)
            dpi = xres;
        else if (unit == RESUNIT_CENTIMETER)
            dpi = xres * 2.54;
    }
    image = applyOrientation(std::move(image), orientation, limits);
    if (!image) return std::nullopt;
    return DecodedImage{std::move(image), dpiOrDefault(dpi)};
}

} // namespace korv::decoding
