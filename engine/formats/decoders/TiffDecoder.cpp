// TIFF through libtiff's RGBA interface: 1 to 16 bits, grey, palette, RGB,
// YCbCr and CMYK, strips or tiles, every compression libtiff was built with,
// associated and unassociated alpha. First page only.
#include "engine/formats/TiffIO.h"
#include "engine/formats/decoders/CmykProfile.h"
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <vector>

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

// 8-bit CMYK in strips, ink per sample, read as stored so that it goes through
// a colour profile; libtiff's RGBA interface would convert it by the plain
// formula.
enum class CmykRead { done, otherKind, failed };
CmykRead readCmyk(TIFF* tif, RGBABuffer& image, uint32_t rowCount, std::span<const uint8_t> icc) {
    uint16_t photometric = 0, bits = 0, samples = 0, planar = PLANARCONFIG_CONTIG, inks = INKSET_CMYK;
    TIFFGetFieldDefaulted(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inks);
    if (photometric != PHOTOMETRIC_SEPARATED || bits != 8 || samples != 4 || planar != PLANARCONFIG_CONTIG ||
        inks != INKSET_CMYK || TIFFIsTiled(tif) || TIFFScanlineSize64(tif) != uint64_t(image.width()) * 4)
        return CmykRead::otherKind;
    std::vector<uint8_t> rows;
    try {
        rows.resize(size_t(image.width()) * 4 * rowCount);
    } catch (const std::bad_alloc&) {
        return CmykRead::failed;
    }
    const size_t stride = size_t(image.width()) * 4;
    for (uint32_t y = 0; y < rowCount; ++y)
        if (TIFFReadScanline(tif, rows.data() + size_t(y) * stride, y, 0) < 0) return CmykRead::failed;
    cmykRowsToRGBA(image, rows.data(), int64_t(stride), rowCount, false, icc);
    return CmykRead::done;
}

// Any other kind through libtiff's RGBA interface, then from its embedded profile to sRGB.
RGBABufferPtr readRGBA(TIFF* tif, uint32_t w, uint32_t h, uint32_t rows, const DecodeLimits& limits,
                       int copies, const tiffio::MemoryReader& reader, uint16_t photometric,
                       std::span<const uint8_t> icc) {
    RGBAImage rgba;
    char message[1024];
    if (!TIFFRGBAImageOK(tif, message) || !TIFFRGBAImageBegin(&rgba.img, tif, 1, message)) return nullptr;
    rgba.begun = true;
    // Rows come in stored order, top first; the orientation is applied afterwards,
    // with the transposing ones that libtiff leaves out.
    rgba.img.req_orientation = ORIENTATION_TOPLEFT;
    rgba.img.orientation = ORIENTATION_TOPLEFT;

    RGBABufferPtr image = allocate(w, h, limits, copies);
    if (!image) return nullptr;
    auto* raster = reinterpret_cast<uint32_t*>(image->data());
    if (!TIFFRGBAImageGet(&rgba.img, raster, w, rows) || reader.sawError) return nullptr;
    // Associated alpha arrives as stored; libtiff premultiplies only the unassociated kind.
    if (rgba.img.alpha == EXTRASAMPLE_ASSOCALPHA) clampToAlpha(*image);
    // libtiff turned CMYK of a kind readCmyk doesn't take into RGB by the formula; its profile no longer
    // applies.
    if (photometric != PHOTOMETRIC_SEPARATED) convertToSRGB(*image, icc);
    return image;
}

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
    // as far as it goes, without an error. A file of strips cut short opens
    // with the rows of its whole strips, the rest transparent.
    uint32_t rows = hgt;
    uint16_t planar = PLANARCONFIG_CONTIG;
    TIFFGetFieldDefaulted(h.tif, TIFFTAG_PLANARCONFIG, &planar);
    uint32_t rowsPerStrip = hgt;
    TIFFGetFieldDefaulted(h.tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    const uint32_t striles = TIFFNumberOfStrips(h.tif);
    for (uint32_t i = 0; i < striles; ++i) {
        const uint64_t offset = TIFFGetStrileOffset(h.tif, i), count = TIFFGetStrileByteCount(h.tif, i);
        if (offset > bytes.size() || count > bytes.size() - offset) {
            if (TIFFIsTiled(h.tif) || planar != PLANARCONFIG_CONTIG) return std::nullopt;
            rows = uint32_t(std::min<uint64_t>(hgt, uint64_t(i) * rowsPerStrip));
            break;
        }
    }
    if (rows < hgt && !keepsPartialPicture(w, hgt, rows)) return std::nullopt;

    uint32_t iccSize = 0;
    void* icc = nullptr;
    const bool hasIcc = TIFFGetField(h.tif, TIFFTAG_ICCPROFILE, &iccSize, &icc) && icc;
    const std::span<const uint8_t> profile =
        hasIcc ? std::span<const uint8_t>(static_cast<const uint8_t*>(icc), iccSize)
               : std::span<const uint8_t>();
    uint16_t photometric = PHOTOMETRIC_RGB;
    TIFFGetFieldDefaulted(h.tif, TIFFTAG_PHOTOMETRIC, &photometric);

    RGBABufferPtr image;
    if (photometric == PHOTOMETRIC_SEPARATED) {
        // The CMYK rows need a buffer of their own beside the picture.
        image = allocate(w, hgt, limits, copies + 1);
        if (!image) return std::nullopt;
        const CmykRead read = readCmyk(h.tif, *image, rows, profile);
        if (read == CmykRead::failed || reader.sawError) return std::nullopt;
        if (read == CmykRead::otherKind) image.reset();
    }
    if (!image) image = readRGBA(h.tif, w, hgt, rows, limits, copies, reader, photometric, profile);
    if (!image) return std::nullopt;
    if (rows < hgt) std::memset(image->row(rows), 0, size_t(hgt - rows) * size_t(w) * 4);

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
