// PNG through libpng: 8 bits a channel, straight alpha (or none when the
// picture is opaque), the resolution in pHYs. libpng reports errors by
// longjmp, so the calls run in a stage function that holds only plain data.
#include "engine/formats/encoders/Encoders.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <new>
#include <png.h>

namespace korv::encoding {

namespace {

struct Writer {
    Bytes* out;
    bool failed;
};

void onError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void onWarning(png_structp, png_const_charp) {}

void appendBytes(png_structp png, png_bytep data, png_size_t length) {
    auto* w = static_cast<Writer*>(png_get_io_ptr(png));
    try {
        w->out->insert(w->out->end(), data, data + length);
    } catch (const std::bad_alloc&) {
        w->failed = true;
    }
    // Outside the handler: the jump must not cross a live exception.
    if (w->failed) png_error(png, "out of memory");
}
void noFlush(png_structp) {}

struct Session {
    png_structp png = nullptr;
    png_infop info = nullptr;
    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (png) png_destroy_write_struct(&png, info ? &info : nullptr);
    }
};

bool write(Session* s, Writer* w, const RGBABuffer* image, bool opaque, png_uint_32 ppm, int level,
           uint8_t* row) {
    s->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, onError, onWarning);
    if (!s->png) return false;
    s->info = png_create_info_struct(s->png);
    if (!s->info) return false;
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_set_write_fn(s->png, w, appendBytes, noFlush);
    png_set_compression_level(s->png, level);
    png_set_IHDR(s->png, s->info, png_uint_32(image->width()), png_uint_32(image->height()), 8,
                 opaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_pHYs(s->png, s->info, ppm, ppm, PNG_RESOLUTION_METER);
    png_write_info(s->png, s->info);
    for (int64_t y = 0; y < image->height(); ++y) {
        unpremultiplyRow(image->row(y), row, image->width(), !opaque);
        png_write_row(s->png, row);
    }
    png_write_end(s->png, nullptr);
    return true;
}

} // namespace

std::optional<Bytes> encodePng(const RGBABuffer& image, double dpi, int compressionLevel) {
    Bytes out;
    Bytes row(size_t(image.width()) * 4);
    Writer writer{&out, false};
    const bool opaque = isOpaque(image);
    const auto ppm = png_uint_32(std::clamp(std::lround(dpi / 0.0254), 1l, long(INT32_MAX)));
    Session s;
    if (!write(&s, &writer, &image, opaque, ppm, std::clamp(compressionLevel, 0, 9), row.data()))
        return std::nullopt;
    return out;
}

} // namespace korv::encoding
