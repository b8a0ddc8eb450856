#include "PictureFiles.h"
#include "engine/document/StudioDocument.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/PhotoExport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

// x265 3.5 (Debian 12) keeps about 1 KB from each x265_encoder_open that
// x265_encoder_close never frees; libheif opens one encoder per HEIC written.
// The leak is the library's, so the sanitizer is told to pass over it there only.
// Fontconfig keeps what it parses from configuration files (the system's, which
// Pango loads on a thread of its own) behind offset-coded pointers that the leak
// checker can't follow, so that memory looks lost at exit. Its frames carry no
// frame pointers, so the stack names only the library; it is passed over too.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\nleak:libfontconfig.so\n";
}

namespace korv {
namespace {

// A picture whose left half is clear and whose right half is half-covered red.
RGBABufferPtr halfClear(int64_t w, int64_t h) {
    auto img = std::make_shared<RGBABuffer>(w, h);
    for (int64_t y = 0; y < h; ++y)
        for (int64_t x = w / 2; x < w; ++x)
            img->setPixel(x, y, {128, 0, 0, 128});
    return img;
}

TEST(PhotoExport, OutputSizeRoundsAndClampsTheScale) {
    auto size = [](int64_t w, int64_t h, double scale) {
        PhotoExportOptions o(PhotoExportFormat::png);
        o.scale = scale;
        return PhotoExport::outputSize(w, h, o);
    };
    EXPECT_EQ(size(101, 33, 0.5), (PixelSize{51, 17})); // 50.5 and 16.5 round up
    EXPECT_EQ(size(1000, 500, 0.0001), (PixelSize{10, 5}));
    EXPECT_EQ(size(10, 5, 9), (PixelSize{40, 20}));
    EXPECT_EQ(size(1, 1, 0.01), (PixelSize{1, 1}));
    StudioDocument doc(101, 33);
    PhotoExportOptions half(PhotoExportFormat::jpeg);
    half.scale = 0.5;
    EXPECT_EQ(PhotoExport::outputSize(doc, half), (PixelSize{51, 17}));
    EXPECT_DOUBLE_EQ(PhotoExport::clampedQuality(0), 0.05);
}

TEST(PhotoExport, EveryFormatWritesItsTypeAtTheOutputSizeAndResolution) {
    const auto decoded = testing::decodePicture("jpeg/rgb-300dpi.jpg");
    ASSERT_TRUE(decoded);
    StudioDocument doc(*decoded->image, decoded->dpi, "Background");
    const std::pair<PhotoExportFormat, PictureFormat> kinds[] = {
        {PhotoExportFormat::jpeg, PictureFormat::jpeg},
        {PhotoExportFormat::png, PictureFormat::png},
        {PhotoExportFormat::tiff, PictureFormat::tiff},
        {PhotoExportFormat::heic, PictureFormat::heic}};
    for (const auto& [format, picture] : kinds) {
        for (double scale : {1.0, 0.5}) {
            SCOPED_TRACE(std::string(toString(format)) + " at " + std::to_string(scale));
            PhotoExportOptions options(format);
            options.scale = scale;
            const std::vector<uint8_t> bytes = PhotoExport::data(doc, options);
            EXPECT_EQ(ImageImport::formatOf(bytes), picture);
            const auto back = ImageImport::decode(bytes);
            ASSERT_TRUE(back);
            const PixelSize size = PhotoExport::outputSize(doc, options);
            EXPECT_EQ(back->image->width(), size.width);
            EXPECT_EQ(back->image->height(), size.height);
            // The resolution stays the document's at any scale.
            EXPECT_NEAR(back->dpi, 300.0, 0.01);
        }
    }
}

TEST(PhotoExport, JpegFlattensOnTheBackgroundAndPngKeepsTransparency) {
    RGBABufferPtr img = halfClear(64, 16);
    StudioDocument doc(*img, 72, "Background");
    const auto jpeg =
        ImageImport::decode(PhotoExport::data(doc, PhotoExportOptions(PhotoExportFormat::jpeg)));
    ASSERT_TRUE(jpeg);
    const Pixel4 clear = jpeg->image->pixel(4, 8), red = jpeg->image->pixel(60, 8);
    for (int c = 0; c < 3; ++c)
        EXPECT_GE(clear[size_t(c)], 250); // white where nothing was
    EXPECT_EQ(clear[3], 255);
    EXPECT_NEAR(red[0], 255, 4); // half red over white
    EXPECT_NEAR(red[1], 127, 4);

    PhotoExportOptions blue(PhotoExportFormat::jpeg);
    blue.background = RGBA(0, 0, 2.0, 0.0); // clamped, and its alpha is not used
    const auto onBlue = ImageImport::decode(PhotoExport::data(doc, blue));
    EXPECT_GE(onBlue->image->pixel(4, 8)[2], 250);
    EXPECT_LE(onBlue->image->pixel(4, 8)[0], 5);

    for (PhotoExportFormat f : {PhotoExportFormat::png, PhotoExportFormat::tiff}) {
        SCOPED_TRACE(toString(f));
        const auto kept = ImageImport::decode(PhotoExport::data(doc, PhotoExportOptions(f)));
        ASSERT_TRUE(kept);
        EXPECT_EQ(kept->image->pixel(4, 8), (Pixel4{0, 0, 0, 0}));
        EXPECT_EQ(kept->image->pixel(60, 8), (Pixel4{128, 0, 0, 128})); // lossless through straight alpha
    }
}

// Four times the largest canvas is 57.6 GB of pixels: refused with the
// format's sentence before anything is flattened or allocated.
TEST(PhotoExport, AnExportBeyondMemoryIsRefusedBeforeItStarts) {
    StudioDocument huge(30000, 30000, 72);
    PhotoExportOptions options(PhotoExportFormat::png);
    options.scale = 4;
    EXPECT_GT(PhotoExport::memoryNeeded(huge, options), uint64_t(57) << 30);
    try {
        PhotoExport::data(huge, options);
        FAIL() << "an export of 120,000 x 120,000 pixels was attempted";
    } catch (const ExportError& e) {
        EXPECT_EQ(std::string(e.what()), "The picture could not be saved as PNG.");
    }
}

TEST(PhotoExport, QualityIsClampedWhenUsed) {
    StudioDocument doc(*halfClear(96, 64), 72, "Background");
    PhotoExportOptions zero(PhotoExportFormat::jpeg), least(PhotoExportFormat::jpeg),
        best(PhotoExportFormat::jpeg);
    zero.quality = 0;
    least.quality = 0.05;
    best.quality = 1.0;
    EXPECT_EQ(PhotoExport::data(doc, zero), PhotoExport::data(doc, least));
    EXPECT_LT(PhotoExport::data(doc, least).size(), PhotoExport::data(doc, best).size());
}

TEST(PhotoExport, OptionsCodeAllFourKeysAndRequireThem) {
    PhotoExportOptions o(PhotoExportFormat::heic);
    o.quality = 0.7;
    o.scale = 0.25;
    o.background = RGBA(0.1, 0.2, 0.3, 1);
    const nlohmann::json j = o;
    EXPECT_EQ(j.at("format"), "heic");
    EXPECT_EQ(j.get<PhotoExportOptions>(), o);
    for (const char* key : {"format", "quality", "scale", "background"}) {
        nlohmann::json missing = j;
        missing.erase(key);
        EXPECT_THROW(missing.get<PhotoExportOptions>(), nlohmann::json::exception) << key;
    }
    nlohmann::json unknown = j;
    unknown["format"] = "gif";
    EXPECT_ANY_THROW(unknown.get<PhotoExportOptions>());
    const PhotoExportOptions defaults(PhotoExportFormat::png);
    EXPECT_EQ(defaults.quality, 0.9);
    EXPECT_EQ(defaults.scale, 1.0);
    EXPECT_EQ(defaults.background, RGBA::white());
}

TEST(ExportError, MessagesForTheUser) {
    EXPECT_STREQ(ExportError::cannotEncode("HEIC").what(), "The picture could not be saved as HEIC.");
    EXPECT_EQ(ExportError::cannotEncode("HEIC").kind, ExportError::Kind::cannotEncode);
    EXPECT_STREQ(
        ExportError::cannotRead().what(),
        "This picture could not be opened. It may be damaged or in a format this computer cannot read.");
    EXPECT_EQ(ExportFormat(exportFormatFromString("psdFlat").value()), ExportFormat::psdFlat);
    EXPECT_EQ(displayName(ExportFormat::tiff), "TIFF (print, lossless)");
}

TEST(ImageExport, ScaledNeverEnlargesAndShrinksWithoutAliasing) {
    // A one-pixel checkerboard: a good reduction gives even grey, a point sample black or white.
    auto board = std::make_shared<RGBABuffer>(400, 300);
    for (int64_t y = 0; y < 300; ++y)
        for (int64_t x = 0; x < 400; ++x)
            board->setPixel(x, y, (x + y) % 2 ? Pixel4{255, 255, 255, 255} : Pixel4{0, 0, 0, 255});
    EXPECT_EQ(ImageExport::scaled(board, 400), board);
    EXPECT_EQ(ImageExport::scaled(board, 1000), board);
    const RGBABufferPtr small = ImageExport::scaled(board, 130);
    ASSERT_NE(small, board);
    EXPECT_EQ(small->width(), 130);
    EXPECT_EQ(small->height(), 97); // 300 x 130 / 400 = 97.5, truncated
    for (int64_t y = 2; y < 95; y += 7)
        for (int64_t x = 2; x < 128; x += 7)
            EXPECT_NEAR(small->pixel(x, y)[0], 128, 12) << x << "," << y;

    // Flat colour stays exactly flat at any size, also with transparency.
    RGBABuffer flat(37, 23);
    for (int64_t y = 0; y < 23; ++y)
        for (int64_t x = 0; x < 37; ++x)
            flat.setPixel(x, y, {40, 80, 20, 120});
    for (auto [w, h] : {std::pair{11, 7}, {100, 61}, {37, 23}}) {
        const RGBABufferPtr r = ImageExport::resized(flat, w, h);
        for (int64_t y = 0; y < h; ++y)
            for (int64_t x = 0; x < w; ++x)
                ASSERT_EQ(r->pixel(x, y), (Pixel4{40, 80, 20, 120}));
    }
    // Enlarging a hard edge rings; premultiplied colour must still stay within alpha.
    RGBABuffer edge(8, 1);
    for (int64_t x = 4; x < 8; ++x)
        edge.setPixel(x, 0, {255, 255, 255, 255});
    const RGBABufferPtr big = ImageExport::resized(edge, 64, 3);
    for (int64_t x = 0; x < 64; ++x) {
        const Pixel4 p = big->pixel(x, 1);
        EXPECT_LE(p[0], p[3]);
    }
}

TEST(ImageExport, OnBackgroundAndPngData) {
    const RGBABufferPtr img = halfClear(8, 2);
    const RGBABufferPtr flat = ImageExport::onBackground(*img, RGBA(0, 0, 1, 0.2));
    EXPECT_EQ(flat->pixel(0, 0), (Pixel4{0, 0, 255, 255}));
    EXPECT_EQ(flat->pixel(7, 0), (Pixel4{128, 0, 127, 255}));
    EXPECT_EQ(img->pixel(0, 0), (Pixel4{0, 0, 0, 0})); // the source is untouched

    EXPECT_FALSE(ImageExport::pngData(nullptr, 72).has_value());
    const auto png = ImageExport::pngData(img, 150);
    ASSERT_TRUE(png);
    EXPECT_DOUBLE_EQ(ImageImport::decode(*png)->dpi, 150.0);
    EXPECT_FALSE(ImageExport::encode(*img, "public.gif", {}).has_value());
}

} // namespace
} // namespace korv
