// JPEG through libjpeg-turbo, straight from the picture's rows (the fourth
// byte skipped). Errors longjmp out of libjpeg, so the calls run in a stage
// function whose frame holds only plain data.
#include "engine/formats/JpegErrors.h"
#include "engine/formats/encoders/Encoders.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <jpeglib.h>

namespace korv::encoding {

namespace {

struct Session {
    jpeg_compress_struct cinfo;
    jpeg::ErrorManager err;
    bool created = false;
    unsigned char* out = nullptr; // malloc'd by libjpeg's memory destination
    unsigned long outSize = 0;

    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (created) jpeg_destroy_compress(&cinfo);
        std::free(out);
    }
};

bool compress(Session* s, const RGBABuffer* image, int quality, unsigned density) {
    s->cinfo.err = jpeg::install(s->err);
    if (setjmp(s->err.jump)) return false;
    jpeg_create_compress(&s->cinfo);
    s->created = true;
    jpeg_mem_dest(&s->cinfo, &s->out, &s->outSize);
    s->cinfo.image_width = JDIMENSION(image->width());
    s->cinfo.image_height = JDIMENSION(image->height());
    s->cinfo.input_components = 4;
    s->cinfo.in_color_space = JCS_EXT_RGBX;
    jpeg_set_defaults(&s->cinfo);
    jpeg_set_quality(&s->cinfo, quality, TRUE);
    s->cinfo.write_JFIF_header = TRUE;
    s->cinfo.density_unit = 1; // dots per inch
    s->cinfo.X_density = UINT16(density);
    s->cinfo.Y_density = UINT16(density);
    jpeg_start_compress(&s->cinfo, TRUE);
    JSAMPROW rows[16];
    while (s->cinfo.next_scanline < s->cinfo.image_height) {
        const JDIMENSION first = s->cinfo.next_scanline;
        const JDIMENSION n = std::min<JDIMENSION>(16, s->cinfo.image_height - first);
        for (JDIMENSION i = 0; i < n; ++i)
            rows[i] = const_cast<JSAMPROW>(image->row(first + i));
        jpeg_write_scanlines(&s->cinfo, rows, n);
    }
    jpeg_finish_compress(&s->cinfo);
    return true;
}

} // namespace

std::optional<Bytes> encodeJpeg(const RGBABuffer& image, double dpi, double quality) {
    if (image.width() > JPEG_MAX_DIMENSION || image.height() > JPEG_MAX_DIMENSION) return std::nullopt;
    const int q = int(std::lround(std::clamp(quality, 0.0, 1.0) * 100.0));
    const auto density = unsigned(std::clamp<long>(std::lround(dpi), 1, 65535));
    Session s;
    if (!compress(&s, &image, std::max(q, 1), density) || !s.out) return std::nullopt;
    return Bytes(s.out, s.out + s.outSize);
}

} // namespace korv::encoding
