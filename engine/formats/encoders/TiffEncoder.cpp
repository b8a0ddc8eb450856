// TIFF through libtiff: 8-bit RGB, with unassociated alpha when the picture
// has transparency, the resolution in inches, horizontal differencing before
// LZW or Deflate (it roughly halves photos).
#include "engine/formats/TiffIO.h"
#include "engine/formats/encoders/Encoders.h"

#include <algorithm>

namespace korv::encoding {

std::optional<Bytes> encodeTiff(const RGBABuffer& image, double dpi, int compression) {
    if (compression != COMPRESSION_NONE && compression != COMPRESSION_LZW &&
        compression != COMPRESSION_ADOBE_DEFLATE && compression != COMPRESSION_PACKBITS)
        return std::nullopt;
    tiffio::MemoryWriter writer;
    TIFF* tif = tiffio::openWriter(writer);
    if (!tif) return std::nullopt;
    const bool opaque = isOpaque(image);
    const uint16_t samples = opaque ? 3 : 4;
    const auto w = uint32_t(image.width()), h = uint32_t(image.height());
    bool ok = TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, w) && TIFFSetField(tif, TIFFTAG_IMAGELENGTH, h) &&
              TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8) &&
              TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples) &&
              TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB) &&
              TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
              TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
              TIFFSetField(tif, TIFFTAG_COMPRESSION, compression) &&
              TIFFSetField(tif, TIFFTAG_XRESOLUTION, float(dpi)) &&
              TIFFSetField(tif, TIFFTAG_YRESOLUTION, float(dpi)) &&
              TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    if (ok && !opaque) {
        const uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
        ok = TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (ok && (compression == COMPRESSION_LZW || compression == COMPRESSION_ADOBE_DEFLATE))
        ok = TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (ok) ok = TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    if (ok) {
        Bytes row(size_t(w) * samples);
        for (uint32_t y = 0; y < h && ok; ++y) {
            unpremultiplyRow(image.row(y), row.data(), w, !opaque);
            ok = TIFFWriteScanline(tif, row.data(), y, 0) == 1;
        }
    }
    if (ok) ok = TIFFWriteDirectory(tif) == 1;
    TIFFClose(tif);
    if (!ok) return std::nullopt;
    return std::move(writer.bytes);
}

} // namespace korv::encoding
