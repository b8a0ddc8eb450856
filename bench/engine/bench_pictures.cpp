// Import and export of a 24-megapixel JPEG and PNG (6000 x 4000), each beside
// the bare library call on the same bytes in the same run: libjpeg-turbo and
// libpng with the same settings, decoding into a fresh buffer of the same kind
// as ours, so that the difference is our code alone. The
// files are made in setup by our own encoders from a synthetic photo-like
// picture (smooth light, texture and fine noise).
#include "engine/core/SeededRandom.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/ImageImport.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <jpeglib.h>
#include <png.h>
#include <vector>

namespace {

using namespace korv;

constexpr int64_t kWidth = 6000, kHeight = 4000;
constexpr double kQuality = 0.9;

const RGBABuffer& photo() {
    static const RGBABufferPtr image = [] {
        auto img = std::make_shared<RGBABuffer>(kWidth, kHeight, RGBABuffer::Uninitialized{});
        SeededRandom random(24);
        for (int64_t y = 0; y < kHeight; ++y) {
            uint8_t* p = img->row(y);
            for (int64_t x = 0; x < kWidth; ++x, p += 4) {
                const double u = double(x) / kWidth, v = double(y) / kHeight;
                const double light = 0.5 + 0.35 * std::sin(u * 5.0 + v * 3.0) * std::cos(v * 4.0 - u);
                const double texture = 0.08 * std::sin(x * 0.07) * std::sin(y * 0.05 + x * 0.01);
                const double noise = random.signedUnit() * 0.02;
                auto ch = [&](double tint) {
                    return uint8_t(std::lround(std::clamp(light * tint + texture + noise, 0.0, 1.0) * 255));
                };
                p[0] = ch(1.05), p[1] = ch(0.9 - 0.2 * v), p[2] = ch(0.7 + 0.3 * u), p[3] = 255;
            }
        }
        return img;
    }();
    return *image;
}

const std::vector<uint8_t>& jpegFile() {
    static const auto bytes = *ImageExport::encode(photo(), ImageExport::kJpegType,
                                                   {.dpiWidth = 300, .lossyCompressionQuality = kQuality});
    return bytes;
}
const std::vector<uint8_t>& pngFile() {
    static const auto bytes = *ImageExport::encode(photo(), ImageExport::kPngType, {.dpiWidth = 300});
    return bytes;
}

// --- bare libjpeg-turbo -----------------------------------------------------

struct JpegError {
    jpeg_error_mgr mgr;
    jmp_buf jump;
};
void jpegFail(j_common_ptr c) {
    std::longjmp(reinterpret_cast<JpegError*>(c->err)->jump, 1);
}

bool bareJpegDecode(const std::vector<uint8_t>& file, uint8_t* out) {
    jpeg_decompress_struct cinfo;
    JpegError err;
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = jpegFail;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, file.data(), file.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_EXT_RGBA;
    jpeg_start_decompress(&cinfo);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out + size_t(cinfo.output_scanline) * cinfo.output_width * 4;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

size_t bareJpegEncode(const RGBABuffer& image) {
    jpeg_compress_struct cinfo;
    JpegError err;
    unsigned char* out = nullptr;
    unsigned long size = 0;
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = jpegFail;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&cinfo);
        return 0;
    }
    jpeg_create_compress(&cinfo);
    jpeg_mem_dest(&cinfo, &out, &size);
    cinfo.image_width = JDIMENSION(image.width());
    cinfo.image_height = JDIMENSION(image.height());
    cinfo.input_components = 4;
    cinfo.in_color_space = JCS_EXT_RGBX;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, int(kQuality * 100), TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(image.row(cinfo.next_scanline));
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    std::free(out);
    return size;
}

// --- bare libpng ------------------------------------------------------------

struct PngReader {
    const uint8_t* data;
    size_t at;
};

bool barePngDecode(const std::vector<uint8_t>& file, uint8_t* out) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    PngReader reader{file.data(), 0};
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_set_read_fn(png, &reader, [](png_structp p, png_bytep d, png_size_t n) {
        auto* r = static_cast<PngReader*>(png_get_io_ptr(p));
        std::memcpy(d, r->data + r->at, n);
        r->at += n;
    });
    png_read_info(png, info);
    png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    png_read_update_info(png, info);
    const png_uint_32 w = png_get_image_width(png, info), h = png_get_image_height(png, info);
    for (png_uint_32 y = 0; y < h; ++y)
        png_read_row(png, out + size_t(y) * w * 4, nullptr);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

size_t barePngEncode(const RGBABuffer& image) {
    std::vector<uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return 0;
    }
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep d, png_size_t n) {
            auto* v = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(p));
            v->insert(v->end(), d, d + n);
        },
        nullptr);
    png_set_compression_level(png, 6);
    png_set_IHDR(png, info, png_uint_32(image.width()), png_uint_32(image.height()), 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_filler(png, 0, PNG_FILLER_AFTER); // RGBX rows in, RGB out
    for (int64_t y = 0; y < image.height(); ++y)
        png_write_row(png, image.row(y));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out.size();
}

// --- the benchmarks ---------------------------------------------------------

void setCounters(benchmark::State& state, size_t fileBytes) {
    state.counters["MP"] = double(kWidth * kHeight) / 1e6;
    state.counters["fileMB"] = double(fileBytes) / 1e6;
}

void BM_ImportJpeg(benchmark::State& state) {
    const auto& file = jpegFile();
    for (auto _ : state) {
        auto decoded = ImageImport::decode(file);
        if (!decoded) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(decoded);
    }
    setCounters(state, file.size());
}
void BM_Bare_JpegDecode(benchmark::State& state) {
    const auto& file = jpegFile();
    for (auto _ : state) {
        auto out = std::make_shared<RGBABuffer>(kWidth, kHeight, RGBABuffer::Uninitialized{});
        if (!bareJpegDecode(file, out->data())) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(out->data());
    }
    setCounters(state, file.size());
}
void BM_ImportPng(benchmark::State& state) {
    const auto& file = pngFile();
    for (auto _ : state) {
        auto decoded = ImageImport::decode(file);
        if (!decoded) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(decoded);
    }
    setCounters(state, file.size());
}
void BM_Bare_PngDecode(benchmark::State& state) {
    const auto& file = pngFile();
    for (auto _ : state) {
        auto out = std::make_shared<RGBABuffer>(kWidth, kHeight, RGBABuffer::Uninitialized{});
        if (!barePngDecode(file, out->data())) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(out->data());
    }
    setCounters(state, file.size());
}
void BM_ExportJpeg(benchmark::State& state) {
    size_t size = 0;
    for (auto _ : state) {
        auto bytes = ImageExport::encode(photo(), ImageExport::kJpegType,
                                         {.dpiWidth = 300, .lossyCompressionQuality = kQuality});
        size = bytes ? bytes->size() : 0;
        benchmark::DoNotOptimize(bytes);
    }
    setCounters(state, size);
}
void BM_Bare_JpegEncode(benchmark::State& state) {
    size_t size = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(size = bareJpegEncode(photo()));
    setCounters(state, size);
}
void BM_ExportPng(benchmark::State& state) {
    size_t size = 0;
    for (auto _ : state) {
        auto bytes = ImageExport::encode(photo(), ImageExport::kPngType, {.dpiWidth = 300});
        size = bytes ? bytes->size() : 0;
        benchmark::DoNotOptimize(bytes);
    }
    setCounters(state, size);
}
void BM_Bare_PngEncode(benchmark::State& state) {
    size_t size = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(size = barePngEncode(photo()));
    setCounters(state, size);
}

// Setup outside the timings: the picture and both files exist before the first run.
const bool kPrepared = [] {
    jpegFile();
    pngFile();
    return true;
}();

#define KORV_PICTURE_BENCH(fn, n) BENCHMARK(fn)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(n)
KORV_PICTURE_BENCH(BM_ImportJpeg, 10);
KORV_PICTURE_BENCH(BM_Bare_JpegDecode, 10);
KORV_PICTURE_BENCH(BM_ImportPng, 5);
KORV_PICTURE_BENCH(BM_Bare_PngDecode, 5);
KORV_PICTURE_BENCH(BM_ExportJpeg, 10);
KORV_PICTURE_BENCH(BM_Bare_JpegEncode, 10);
KORV_PICTURE_BENCH(BM_ExportPng, 2);
KORV_PICTURE_BENCH(BM_Bare_PngEncode, 2);

} // namespace
