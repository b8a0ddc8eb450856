#include "PictureFiles.h"
#include "engine/formats/ImageExport.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <lcms2.h>
#include <png.h>

namespace korv {
namespace {

using testing::decodePicture;
using testing::openPicture;
using testing::readPicture;

struct Expected {
    const char* name;
    int64_t width, height;
};

// Every good picture of the corpus with the size it must open at.
constexpr Expected kGood[] = {
    {"avif/abc_color_irot_alpha_irot.avif", 256, 512}, // stored 512 x 256, turned by 'irot'
    {"avif/hopper.avif", 128, 128},
    {"avif/transparency.avif", 64, 64},
    {"bmp/g_pal1.bmp", 127, 64},
    {"bmp/g_pal4.bmp", 127, 64},
    {"bmp/g_pal4rle.bmp", 127, 64},
    {"bmp/g_pal8.bmp", 127, 64},
    {"bmp/g_pal8os2.bmp", 127, 64},
    {"bmp/g_pal8rle.bmp", 127, 64},
    {"bmp/g_pal8topdown.bmp", 127, 64},
    {"bmp/g_pal8v4.bmp", 127, 64},
    {"bmp/g_pal8v5.bmp", 127, 64},
    {"bmp/g_rgb16-565.bmp", 127, 64},
    {"bmp/g_rgb24.bmp", 127, 64},
    {"bmp/g_rgb32.bmp", 127, 64},
    {"bmp/q_rgba32.bmp", 127, 64},
    {"gif/animated-5-frames.gif", 100, 100},
    {"gif/animated-transparent.gif", 32, 32},
    {"gif/hopper.gif", 128, 128},
    {"gif/transparent-interlaced.gif", 75, 50},
    {"gif/transparent.gif", 256, 256},
    {"heic/RGBA_8__29x100.heif", 29, 100},
    {"heic/RGB_10__29x100.heif", 29, 100},
    {"heic/RGB_8__29x100.heif", 29, 100},
    {"heic/pug-iphone.heic", 4032, 3024},
    {"heic/zPug_3.heic", 64, 64},
    {"jpeg/Landscape_0.jpg", 1800, 1200},
    {"jpeg/P3-sRGB-blue.jpg", 1000, 1000},
    {"jpeg/arithmetic-coded.jpg", 227, 149},
    {"jpeg/cmyk.jpg", 100, 100},
    {"jpeg/grayscale.jpg", 128, 128},
    {"jpeg/photoshop-200dpi.jpg", 200, 200},
    {"jpeg/progressive.jpg", 32, 23},
    {"jpeg/rgb-300dpi.jpg", 100, 100},
    {"jpeg/rgb-to-gbr-test.jpg", 1000, 1000},
    {"png/basi0g16.png", 32, 32},
    {"png/basi3p08.png", 32, 32},
    {"png/basi6a08.png", 32, 32},
    {"png/basn0g01.png", 32, 32},
    {"png/basn0g16.png", 32, 32},
    {"png/basn2c16.png", 32, 32},
    {"png/basn3p01.png", 32, 32},
    {"png/basn4a16.png", 32, 32},
    {"png/basn6a16.png", 32, 32},
    {"png/ccwn2c08.png", 32, 32},
    {"png/exif2c08.png", 32, 32},
    {"png/g03n2c08.png", 32, 32},
    {"png/s01n3p01.png", 1, 1},
    {"png/s39i3p04.png", 39, 39},
    {"png/tbgn2c16.png", 32, 32},
    {"png/tp1n3p08.png", 32, 32},
    {"tiff/cmyk-jpeg.tif", 100, 100},
    {"tiff/gray16-lzw.tiff", 16, 16},
    {"tiff/multipage-3.tiff", 10, 10},
    {"tiff/rgb16-bigtiff.tiff", 16, 16},
    {"tiff/rgb8-lzw.tif", 128, 128},
    {"tiff/rgba16-uncompressed.tiff", 16, 16},
    {"tiff/rgba8-lzw.tif", 300, 300},
    {"webp/animated.webp", 200, 200},
    {"webp/lossless.webp", 300, 300},
    {"webp/lossy-alpha.webp", 100, 100},
    {"webp/lossy.webp", 100, 100},
};

// Files whose first image ends well before the file does (later frames or
// pages, or metadata after the pixels): a cut may leave the picture whole.
bool endsEarly(const std::string& name) {
    return name.find("animated") != std::string::npos || name.find("multipage") != std::string::npos ||
           name.find("zPug_3") != std::string::npos || name.find("cmyk-jpeg.tif") != std::string::npos;
}

TEST(ImageImport, EveryFormatOpensAtItsSizePremultiplied) {
    for (const Expected& e : kGood) {
        SCOPED_TRACE(e.name);
        const auto decoded = decodePicture(e.name);
        ASSERT_TRUE(decoded.has_value());
        EXPECT_EQ(decoded->image->width(), e.width);
        EXPECT_EQ(decoded->image->height(), e.height);
        const RGBABuffer& img = *decoded->image;
        bool colourAboveAlpha = false;
        for (int64_t i = 0; i < img.width() * img.height() && !colourAboveAlpha; ++i) {
            const uint8_t* p = img.data() + i * 4;
            colourAboveAlpha = p[0] > p[3] || p[1] > p[3] || p[2] > p[3];
        }
        EXPECT_FALSE(colourAboveAlpha);
    }
}

TEST(ImageImport, DamagedTruncatedAndOversizedFilesGiveNothing) {
    for (const char* name :
         {"bmp/b_badrle.bmp", "bmp/b_reallybig.bmp", "bmp/b_shortfile.bmp", "heic/truncated.heic",
          "jpeg/12bit.jpg", "png/xc1n0g08.png", "png/xcrn0g04.png", "png/xd0n2c08.png",
          "png/xdtn0g01.png", "png/xhdn0g08.png", "png/xs1n0g01.png"}) {
        SCOPED_TRACE(name);
        EXPECT_FALSE(decodePicture(name).has_value());
    }
    EXPECT_FALSE(ImageImport::decode({}).has_value());
    const std::vector<uint8_t> noise(4096, 0x5A);
    EXPECT_FALSE(ImageImport::decode(noise).has_value());

    // Every good picture cut short: nothing (a file of several images may keep
    // its first one whole), and never a crash at any length.
    for (const Expected& e : kGood) {
        SCOPED_TRACE(e.name);
        const std::vector<uint8_t> bytes = readPicture(e.name);
        if (bytes.empty()) {
            ADD_FAILURE() << "missing test picture";
            continue;
        }
        for (double cut : {0.02, 0.3, 0.5, 0.9}) {
            const auto part = std::span(bytes).first(size_t(double(bytes.size()) * cut));
            const auto decoded = ImageImport::decode(part);
            // A cut JPEG or GIF keeps the rows that arrived (tested on their own).
            const std::string name = e.name;
            const bool keepsRows = name.starts_with("jpeg") || name.starts_with("gif") || name.starts_with("png");
            if (!endsEarly(e.name) && !keepsRows && cut <= 0.5) {
                EXPECT_FALSE(decoded.has_value()) << "cut at " << cut;
            }
        }

    }
}

// A GIF whose data runs out opens with the rows that arrived, and a screen of
// 30,000 x 30,000 announced by 30 bytes costs nothing before the data is there.
TEST(ImageImport, CutGifKeepsItsRowsAndClaimsWithoutDataCostNothing) {
    const std::vector<uint8_t> bytes = readPicture("gif/hopper.gif");
    const auto cut = ImageImport::decode(std::span(bytes).first(bytes.size() / 2));
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->image->width(), 128);
    ASSERT_EQ(cut->image->height(), 128);
    EXPECT_EQ(cut->image->pixel(64, 2)[3], 255);
    EXPECT_EQ(cut->image->pixel(64, 125)[3], 0);
    const RGBABufferPtr whole = openPicture("gif/hopper.gif").image;
    EXPECT_EQ(cut->image->pixel(64, 2), whole->pixel(64, 2));
    // Interlaced rows cut short would be scattered stripes: nothing opens.
    const std::vector<uint8_t> interlaced = readPicture("gif/transparent-interlaced.gif");
    EXPECT_FALSE(ImageImport::decode(std::span(interlaced).first(interlaced.size() * 2 / 3)));

    // So does a run-length BMP of the same size whose codes stop without an end.
    for (const char* name : {"regress/gif-screen-30000-no-data.gif", "regress/bmp-rle8-30000-cut.bmp",
                             "regress/png-30000-two-rows.png"}) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> bomb = testing::readFile(name);
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const int64_t before = usage.ru_maxrss;
        EXPECT_FALSE(ImageImport::decode(bomb));
        getrusage(RUSAGE_SELF, &usage);
        EXPECT_LT(usage.ru_maxrss - before, 256 * 1024) << "KiB of peak memory";
    }
}

// A PNG damaged after its pixel rows opens whole; one cut in its rows opens
// with the rows that arrived; an interlaced one cut short gives nothing.
TEST(ImageImport, CutPngKeepsWhatArrived) {
    auto picture = std::make_shared<RGBABuffer>(300, 200);
    for (int64_t y = 0; y < 200; ++y)
        for (int64_t x = 0; x < 300; ++x)
            picture->setPixel(x, y, {uint8_t(x * 7 % 251), uint8_t(y * 13 % 251), uint8_t((x ^ y) & 255), 255});
    const std::vector<uint8_t> bytes = *ImageExport::pngData(picture, 72);
    const RGBABufferPtr whole = ImageImport::decode(bytes)->image;
    const auto noEnd = ImageImport::decode(std::span(bytes).first(bytes.size() - 1));
    ASSERT_TRUE(noEnd);
    EXPECT_EQ(std::memcmp(noEnd->image->data(), whole->data(), size_t(whole->byteCount())), 0);

    const auto cut = ImageImport::decode(std::span(bytes).first(bytes.size() * 2 / 3));
    ASSERT_TRUE(cut);
    const RGBABuffer& part = *cut->image;
    int64_t arrived = 0;
    while (arrived < part.height() && part.pixel(0, arrived)[3] == 255)
        ++arrived;
    EXPECT_GT(arrived, 0);
    EXPECT_LT(arrived, part.height());
    for (int64_t y = 0; y < part.height(); ++y)
        for (int64_t x = 0; x < part.width(); ++x)
            ASSERT_EQ(part.pixel(x, y), (y < arrived ? whole->pixel(x, y) : Pixel4{0, 0, 0, 0})) << x << "," << y;

    // A wrong checksum on data that decoded whole loses nothing either.
    EXPECT_EQ(openPicture("png/xcsn0g01.png").image->width(), 32);

    const std::vector<uint8_t> interlaced = readPicture("png/basi6a08.png");
    EXPECT_FALSE(ImageImport::decode(std::span(interlaced).first(interlaced.size() * 2 / 3)));
}

TEST(ImageImport, LimitsRefuseBeforeDecoding) {
    const std::vector<uint8_t> bytes = readPicture("tiff/rgba8-lzw.tif");
    EXPECT_TRUE(ImageImport::decode(bytes, {.maxSide = 300}).has_value());
    EXPECT_FALSE(ImageImport::decode(bytes, {.maxSide = 299}).has_value());
    EXPECT_FALSE(ImageImport::decode(bytes, {.maxPixels = 300 * 299}).has_value());
    EXPECT_FALSE(ImageImport::decode(bytes, {.maxBytes = 300 * 300 * 4 - 1}).has_value());
}

// Mean absolute difference over a grid of every 4th pixel.
double meanDifference(const RGBABuffer& a, const RGBABuffer& b) {
    double sum = 0;
    int64_t n = 0;
    for (int64_t y = 0; y < a.height(); y += 4)
        for (int64_t x = 0; x < a.width(); x += 4) {
            const Pixel4 p = a.pixel(x, y), q = b.pixel(x, y);
            for (int c = 0; c < 3; ++c)
                sum += std::abs(int(p[size_t(c)]) - int(q[size_t(c)]));
            n += 3;
        }
    return sum / double(n);
}

TEST(ImageImport, EveryExifOrientationOpensUpright) {
    const auto upright = decodePicture("jpeg/Landscape_1.jpg");
    ASSERT_TRUE(upright);
    for (int o = 2; o <= 8; ++o) {
        SCOPED_TRACE(o);
        const std::string name = "jpeg/Landscape_" + std::to_string(o) + ".jpg";
        const auto turned = decodePicture(name);
        ASSERT_TRUE(turned);
        // 5 to 8 are stored on their side: upright they swap width and height back.
        ASSERT_EQ(turned->image->width(), 1800);
        ASSERT_EQ(turned->image->height(), 1200);
        // Only the digit in the middle and the JPEG noise differ.
        EXPECT_LT(meanDifference(*upright->image, *turned->image), 8.0);
    }
    // The measure tells a mirrored picture apart.
    const RGBABuffer& up = *upright->image;
    RGBABuffer mirrored(up.width(), up.height());
    for (int64_t y = 0; y < up.height(); ++y)
        for (int64_t x = 0; x < up.width(); ++x)
            mirrored.setPixel(x, y, up.pixel(up.width() - 1 - x, y));
    EXPECT_GT(meanDifference(up, mirrored), 20.0);
}

TEST(ImageImport, ResolutionFromEachFormatsOwnField) {
    EXPECT_DOUBLE_EQ(openPicture("png/basn2c08.png").dpi, 72.0);           // no pHYs
    EXPECT_DOUBLE_EQ(openPicture("jpeg/rgb-300dpi.jpg").dpi, 300.0);       // JFIF
    EXPECT_DOUBLE_EQ(openPicture("jpeg/photoshop-200dpi.jpg").dpi, 200.0); // EXIF only
    EXPECT_NEAR(openPicture("png/cdun2c08.png").dpi, 25.4, 1e-9);          // pixels per metre
    EXPECT_DOUBLE_EQ(openPicture("tiff/rgb8-uncompressed.tif").dpi, 96.0);
    EXPECT_DOUBLE_EQ(openPicture("gif/hopper.gif").dpi, 72.0);
}

TEST(ImageImport, TransparencyIsKeptAndPremultiplied) {
    EXPECT_EQ(openPicture("png/tbrn2c08.png").image->pixel(0, 0), (Pixel4{0, 0, 0, 0})); // tRNS colour key
    EXPECT_EQ(openPicture("gif/transparent-interlaced.gif").image->pixel(0, 0), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(openPicture("tiff/rgba8-lzw.tif").image->pixel(0, 0)[3], 0);
    EXPECT_EQ(openPicture("webp/lossy-alpha.webp").image->pixel(0, 0)[3], 0);
    // 32-bit BI_RGB's fourth byte is padding; bit fields with an alpha mask are real alpha.
    const auto padded = openPicture("bmp/g_rgb32.bmp"), alpha = openPicture("bmp/q_rgba32.bmp");
    bool allOpaque = true, someClear = false;
    for (int64_t i = 0; i < 127 * 64; ++i) {
        allOpaque = allOpaque && padded.image->data()[i * 4 + 3] == 255;
        someClear = someClear || alpha.image->data()[i * 4 + 3] < 255;
    }
    EXPECT_TRUE(allOpaque);
    EXPECT_TRUE(someClear);
    // The HEIF alpha plane is premultiplied on the way in: half-covered pixels are darker than their colour.
    const auto heif = openPicture("heic/RGBA_8__29x100.heif");
    const Pixel4 mid = heif.image->pixel(14, 50);
    EXPECT_LT(mid[3], 255);
    EXPECT_LE(mid[0], mid[3]);
}

// TGA has no signature and no file in the corpus: two are made here.
TEST(ImageImport, TgaRawAndRunLengthInEitherRowOrder) {
    auto header = [](uint8_t type, uint8_t depth, uint8_t descriptor) {
        std::vector<uint8_t> h(18, 0);
        h[2] = type;
        h[12] = 3, h[14] = 2; // 3 x 2
        h[16] = depth;
        h[17] = descriptor;
        return h;
    };
    // Raw BGR, top row first: blue, green, red / white, black, grey.
    std::vector<uint8_t> raw = header(2, 24, 0x20);
    for (uint8_t v : {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255, 0, 0, 0, 128, 128, 128})
        raw.push_back(v);
    const auto a = ImageImport::decode(raw);
    ASSERT_TRUE(a);
    EXPECT_EQ(ImageImport::formatOf(raw), PictureFormat::tga);
    EXPECT_EQ(a->image->pixel(0, 0), (Pixel4{0, 0, 255, 255}));
    EXPECT_EQ(a->image->pixel(2, 0), (Pixel4{255, 0, 0, 255}));
    EXPECT_EQ(a->image->pixel(2, 1), (Pixel4{128, 128, 128, 255}));
    // Run-length BGRA, bottom row first: a run of three half-covered reds, then three clear pixels.
    std::vector<uint8_t> rle = header(10, 32, 0x08);
    for (uint8_t v : {0x82, 0, 0, 255, 128, 0x82, 0, 0, 0, 0})
        rle.push_back(v);
    const auto b = ImageImport::decode(rle);
    ASSERT_TRUE(b);
    EXPECT_EQ(b->image->pixel(1, 1), (Pixel4{128, 0, 0, 128}));
    EXPECT_EQ(b->image->pixel(1, 0), (Pixel4{0, 0, 0, 0}));
    rle.pop_back(); // the last run's pixel cut short
    EXPECT_FALSE(ImageImport::decode(rle).has_value());
}

// A PNG of one colour with the given ICC profile embedded.
std::vector<uint8_t> pngWithProfile(const uint8_t rgb[3], const std::vector<uint8_t>& icc) {
    std::vector<uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep d, png_size_t n) {
            auto* v = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(p));
            v->insert(v->end(), d, d + n);
        },
        nullptr);
    png_set_IHDR(png, info, 4, 4, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, 0, 0);
    png_set_iCCP(png, info, "wide", 0, icc.data(), png_uint_32(icc.size()));
    png_write_info(png, info);
    uint8_t row[12];
    for (int i = 0; i < 4; ++i)
        std::copy(rgb, rgb + 3, row + i * 3);
    for (int y = 0; y < 4; ++y)
        png_write_row(png, row);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

std::vector<uint8_t> displayP3Profile() {
    const cmsCIExyY d65{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE p3{{0.680, 0.320, 1.0}, {0.265, 0.690, 1.0}, {0.150, 0.060, 1.0}};
    const cmsFloat64Number srgbCurve[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, srgbCurve);
    cmsToneCurve* curves[3] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&d65, &p3, curves);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<uint8_t> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    return bytes;
}

TEST(ImageImport, EmbeddedProfilesComeOutInSRGB) {
    // A muted Display P3 red is a stronger red in sRGB: more red, less green and blue, not clipped.
    const uint8_t p3Red[3] = {200, 60, 60};
    const auto p3 = ImageImport::decode(pngWithProfile(p3Red, displayP3Profile()));
    ASSERT_TRUE(p3);
    const Pixel4 red = p3->image->pixel(1, 1);
    EXPECT_GT(red[0], 205);
    EXPECT_LT(red[0], 255);
    EXPECT_LT(red[1], 55);
    EXPECT_LT(red[2], 60);
    // This file's profile swaps the primaries round: the word RED only reads red through it.
    const auto swapped = openPicture("jpeg/rgb-to-gbr-test.jpg");
    const Pixel4 underRed = swapped.image->pixel(500, 60);
    EXPECT_GT(underRed[0], 200);
    EXPECT_LT(underRed[1], 80);
    EXPECT_LT(underRed[2], 80);
    // CMYK from Photoshop, stored inverted: red letters on black.
    for (const char* name : {"jpeg/cmyk.jpg", "tiff/cmyk-jpeg.tif"}) {
        SCOPED_TRACE(name);
        const auto cmyk = openPicture(name);
        const Pixel4 corner = cmyk.image->pixel(0, 0);
        EXPECT_GT(corner[0], 200);
        EXPECT_LT(corner[1], 60);
        EXPECT_LT(corner[2], 60);
    }
}

} // namespace
} // namespace korv
