// PNG through libpng: every colour type and bit depth comes out as 8-bit RGBA
// (16 bits scaled, palettes and tRNS expanded), Adam7 included. Gamma stays
// as stored; an iCCP profile is converted to sRGB. libpng reports errors by
// longjmp, so the calls into it run in stage functions that hold only plain data.
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <png.h>
#include <vector>

namespace korv::decoding {

namespace {

struct Reader {
    const uint8_t* data;
    size_t size;
    size_t at;
};

void onError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void onWarning(png_structp, png_const_charp) {}

void readBytes(png_structp png, png_bytep out, png_size_t length) {
    auto* r = static_cast<Reader*>(png_get_io_ptr(png));
    if (length > r->size - r->at) png_error(png, "read past the end");
    std::memcpy(out, r->data + r->at, length);
    r->at += length;
}

struct Session {
    png_structp png = nullptr;
    png_infop info = nullptr;
    Reader reader{};
    png_uint_32 width = 0, height = 0;
    int colorType = 0, interlace = 0;
    bool hasAlpha = false;
    png_bytep icc = nullptr; // owned by libpng's info struct
    png_uint_32 iccSize = 0;
    png_uint_32 ppmX = 0;
    int ppmUnit = PNG_RESOLUTION_UNKNOWN;
    int storedBits = 8;
    // Rows read so far; volatile, since libpng leaves readRows by longjmp.
    volatile png_uint_32 rowsDone = 0;

    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (png) png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
    }
};

bool readHeader(Session* s, int64_t maxSide) {
    s->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
    if (!s->png) return false;
    s->info = png_create_info_struct(s->png);
    if (!s->info) return false;
    // Compressed rows are read in small pieces, so that a cut file loses only
    // the piece it ends in, not a whole 8 KB read.
    png_set_compression_buffer_size(s->png, 512);
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_set_read_fn(s->png, &s->reader, readBytes);
    png_set_user_limits(s->png, png_uint_32(maxSide), png_uint_32(maxSide));
    png_read_info(s->png, s->info);
    int depth = 0;
    png_get_IHDR(s->png, s->info, &s->width, &s->height, &depth, &s->colorType, &s->interlace, nullptr,
                 nullptr);
    // Stored bits a pixel: what the compressed rows must hold, filter bytes aside.
    s->storedBits = depth * png_get_channels(s->png, s->info);
    const bool trns = png_get_valid(s->png, s->info, PNG_INFO_tRNS) != 0;
    s->hasAlpha = (s->colorType & PNG_COLOR_MASK_ALPHA) != 0 || trns;

    png_charp name = nullptr;
    int compression = 0;
    if (!png_get_iCCP(s->png, s->info, &name, &compression, &s->icc, &s->iccSize)) {
        s->icc = nullptr;
        s->iccSize = 0;
    }
    png_uint_32 ppmY = 0;
    if (!png_get_pHYs(s->png, s->info, &s->ppmX, &ppmY, &s->ppmUnit)) s->ppmUnit = PNG_RESOLUTION_UNKNOWN;

    // Everything becomes 8-bit RGBA.
    png_set_expand(s->png);
    if (depth == 16) png_set_scale_16(s->png);
    if ((s->colorType & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(s->png);
    if (!s->hasAlpha) png_set_filler(s->png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(s->png);
    png_read_update_info(s->png, s->info);
    return png_get_rowbytes(s->png, s->info) == size_t(s->width) * 4;
}

// Row by row, premultiplied while the row is still in cache.
bool readRows(Session* s, uint8_t* out, size_t stride) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    for (png_uint_32 y = 0; y < s->height; ++y) {
        uint8_t* row = out + size_t(y) * stride;
        png_read_row(s->png, row, nullptr);
        if (s->hasAlpha) premultiply(row, s->width);
        s->rowsDone = y + 1;
    }
    // A fault after the pixel rows (a damaged or missing chunk at the end)
    // loses nothing of the picture.
    png_read_end(s->png, nullptr);
    return true;
}

// Adam7 needs every row at hand; rows holds one pointer per row.
bool readInterlaced(Session* s, png_bytepp rows) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_read_image(s->png, rows);
    png_read_end(s->png, nullptr);
    return true;
}

} // namespace

std::optional<DecodedImage> decodePng(Bytes bytes, const DecodeLimits& limits) {
    Session s;
    s.reader = {bytes.data(), bytes.size(), 0};
    if (!readHeader(&s, limits.maxSide)) return std::nullopt;
    // zlib inflates a byte into at most 1032, so the file bounds how many rows
    // it can hold. When that is a sliver of a huge canvas, the picture could
    // never open, and nothing is allocated for it.
    const uint64_t rowBytes = (uint64_t(s.width) * uint64_t(s.storedBits) + 7) / 8 + 1;
    const uint64_t reachable = std::min<uint64_t>(s.height, 1032 * uint64_t(bytes.size()) / rowBytes);
    if (reachable < s.height && !keepsPartialPicture(s.width, s.height, int64_t(reachable))) return std::nullopt;
    RGBABufferPtr image = allocate(s.width, s.height, limits, 1);
    if (!image) return std::nullopt;
    const size_t stride = size_t(image->width()) * 4;
    if (s.interlace == PNG_INTERLACE_NONE) {
        // A cut file opens with the rows that arrived, the rest transparent.
        if (!readRows(&s, image->data(), stride) && s.rowsDone < s.height) {
            const int64_t rows = s.rowsDone;
            if (rows == 0 || !keepsPartialPicture(s.width, s.height, rows)) return std::nullopt;
            std::memset(image->row(rows), 0, size_t(s.height - rows) * stride);
        }
    } else {
        std::vector<png_bytep> rows(s.height);
        for (png_uint_32 y = 0; y < s.height; ++y)
            rows[y] = image->row(y);
        if (!readInterlaced(&s, rows.data())) return std::nullopt;
        if (s.hasAlpha) premultiplyRows(*image);
    }
    convertToSRGB(*image, {s.icc, s.iccSize});
    std::optional<double> dpi;
    if (s.ppmUnit == PNG_RESOLUTION_METER && s.ppmX > 0) dpi = dpiFromPixelsPerMeter(s.ppmX);
    return DecodedImage{std::move(image), dpiOrDefault(dpi)};
}

} // namespace korv::decoding
