#include "engine/formats/PngCodec.h"

#include <cmath>
#include <png.h>
#include <stdexcept>

namespace korv {

namespace {
void appendBytes(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}
void noFlush(png_structp) {}
void ignoreWarning(png_structp, png_const_charp) {}
} // namespace

std::vector<uint8_t> encodePNG(const RGBABuffer& image, double dpi, int compressionLevel) {
    std::vector<uint8_t> out;
    std::vector<uint8_t> row(size_t(image.width()) * 4);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, ignoreWarning);
    if (!png) throw std::runtime_error("The picture couldn't be encoded as PNG.");
    png_infop info = png_create_info_struct(png);
    // libpng reports errors by longjmp; nothing with a destructor is created below this point.
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("The picture couldn't be encoded as PNG.");
    }
    {
        png_set_write_fn(png, &out, appendBytes, noFlush);
        png_set_compression_level(png, compressionLevel);
        png_set_IHDR(png, info, png_uint_32(image.width()), png_uint_32(image.height()), 8,
                     PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        const auto ppm = png_uint_32(std::lround(dpi / 0.0254));
        png_set_pHYs(png, info, ppm, ppm, PNG_RESOLUTION_METER);
        png_write_info(png, info);
        for (int64_t y = 0; y < image.height(); ++y) {
            const uint8_t* src = image.row(y);
            for (int64_t x = 0; x < image.width(); ++x) {
                const uint8_t* p = src + x * 4;
                uint8_t* q = row.data() + x * 4;
                const unsigned a = p[3];
                // Straight colour from premultiplied, rounded to nearest.
                for (int c = 0; c < 3; ++c)
                    q[c] = a == 0 ? 0 : uint8_t(std::min(255u, (p[c] * 255u + a / 2) / a));
                q[3] = uint8_t(a);
            }
            png_write_row(png, row.data());
        }
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, &info);
    return out;
}

} // namespace korv
