// JPEG and TIFF reading: files whose data runs out, headers that claim more
// than the file holds, and CMYK through a press profile.
#include "engine/formats/ImageImport.h"
#include "engine/formats/decoders/CmykProfile.h"
#include "formats/PictureFiles.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace korv {
namespace {

using testing::decodePicture;
using testing::openPicture;
using testing::readPicture;

std::vector<uint8_t> readRegress(const std::string& name) {
    // Regression files sit beside the corpus folder.
    return readPicture("../../regress/" + name);
}

int64_t peakRssKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

bool rowEquals(const RGBABuffer& a, const RGBABuffer& b, int64_t y) {
    return std::equal(a.row(y), a.row(y) + a.width() * 4, b.row(y));
}
bool rowTransparent(const RGBABuffer& a, int64_t y) {
    return std::all_of(a.row(y), a.row(y) + a.width() * 4, [](uint8_t v) { return v == 0; });
}

// Headers that claim 30,000 × 30,000 pixels over a few kilobytes holding 16
// real rows, baseline and progressive: refused as soon as the data runs out,
// without taking the gigabytes the header asks for.
TEST(JpegImport, HeadersClaimingMoreThanTheDataGiveNothingCheaply) {
    for (const char* name : {"jpegcmyk-bomb-baseline.jpg", "jpegcmyk-bomb-progressive.jpg"}) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> bytes = readRegress(name);
        const int64_t before = peakRssKiB();
        EXPECT_FALSE(ImageImport::decode(bytes).has_value());
        EXPECT_LT(peakRssKiB() - before, 256 * 1024);
    }
}

TEST(JpegImport, CutFilesKeepTheRowsThatArrived) {
    for (const char* name : {"jpeg/Landscape_0.jpg", "jpeg/arithmetic-coded.jpg", "jpeg/grayscale.jpg"}) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> bytes = readPicture(name);
        const DecodedImage whole = openPicture(name);
        const RGBABuffer& full = *whole.image;
        // Only the end marker missing, as a camera may leave it: the whole picture.
        const auto noEnd = ImageImport::decode(std::span(bytes).first(bytes.size() - 2));
        ASSERT_TRUE(noEnd);
        for (int64_t y = 0; y < full.height(); ++y)
            ASSERT_TRUE(rowEquals(*noEnd->image, full, y)) << "row " << y;

        // Cut in the middle: the rows that arrived as they are, the rest transparent.
        const auto half = ImageImport::decode(std::span(bytes).first(bytes.size() / 2));
        ASSERT_TRUE(half);
        const RGBABuffer& cut = *half->image;
        ASSERT_EQ(cut.width(), full.width());
        ASSERT_EQ(cut.height(), full.height());
        int64_t arrived = 0;
        while (arrived < cut.height() && !rowTransparent(cut, arrived))
            ++arrived;
        EXPECT_GT(arrived, full.height() / 10);
        EXPECT_LT(arrived, full.height() * 9 / 10);
        for (int64_t y = 0; y < arrived; ++y)
            ASSERT_TRUE(rowEquals(cut, full, y)) << "row " << y;
        for (int64_t y = arrived; y < cut.height(); ++y)
            ASSERT_TRUE(rowTransparent(cut, y)) << "row " << y;
    }
}

TEST(JpegImport, CutBeforeAnyRowGivesNothing) {
    const std::vector<uint8_t> bytes = readPicture("jpeg/Landscape_0.jpg");
    // The scan header is the last marker before the data.
    size_t sos = 0;
    for (size_t i = 2; i + 1 < bytes.size() && !sos; ++i)
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xDA) sos = i;
    ASSERT_GT(sos, 0u);
    for (size_t keep : {size_t(100), sos, sos + 40}) {
        SCOPED_TRACE(keep);
        EXPECT_FALSE(ImageImport::decode(std::span(bytes).first(keep)).has_value());
    }
}

// The corpus's progressive file cut short: every scan that arrived is shown.
TEST(JpegImport, CutProgressiveFileOpensAtItsSize) {
    const auto cut = decodePicture("jpeg/truncated.jpg");
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->image->width(), 100);
    EXPECT_EQ(cut->image->height(), 100);
    EXPECT_EQ(cut->image->pixel(50, 10)[3], 255);
}

// A TIFF whose directory comes first, cut inside its strips: the rows of the
// whole strips, the rest transparent.
TEST(TiffImport, CutFileKeepsItsWholeStrips) {
    const std::vector<uint8_t> bytes = readRegress("jpegcmyk-strips-directory-first.tif");
    const auto whole = ImageImport::decode(bytes);
    ASSERT_TRUE(whole);
    // Four strips of 8 rows; the cut falls inside the third.
    const auto half = ImageImport::decode(std::span(bytes).first(bytes.size() * 5 / 8));
    ASSERT_TRUE(half);
    const RGBABuffer& cut = *half->image;
    int64_t arrived = 0;
    while (arrived < cut.height() && !rowTransparent(cut, arrived))
        ++arrived;
    EXPECT_EQ(arrived, 16);
    for (int64_t y = 0; y < arrived; ++y)
        ASSERT_TRUE(rowEquals(cut, *whole->image, y)) << "row " << y;
    for (int64_t y = arrived; y < cut.height(); ++y)
        ASSERT_TRUE(rowTransparent(cut, y)) << "row " << y;
}

void expectNear(const Pixel4& p, int r, int g, int b, int tolerance = 3) {
    EXPECT_NEAR(p[0], r, tolerance);
    EXPECT_NEAR(p[1], g, tolerance);
    EXPECT_NEAR(p[2], b, tolerance);
    EXPECT_EQ(p[3], 255);
}

// Patches of ink, 16 pixels wide: none, K only, rich black (60/40/40/100),
// cyan, magenta, yellow, half K, all four at 100.
Pixel4 patch(const RGBABuffer& image, int i) {
    return image.pixel(i * 16 + 8, 8);
}

// Values as a colour-managed reader gives them through the same SWOP coated
// profile (relative colorimetric, black point compensation).
TEST(CmykImport, WithoutAProfileThroughThePressProfile) {
    ASSERT_TRUE(decoding::pressProfileAvailable())
        << decoding::kPressProfilePath << " is missing: scripts/setup installs it (libgs-common)";
    // JPEG stored inverted with Adobe's marker, TIFF with the ink as it is.
    for (const char* name : {"jpegcmyk-patches-adobe.jpg", "jpegcmyk-patches.tif"}) {
        SCOPED_TRACE(name);
        const auto decoded = ImageImport::decode(readRegress(name));
        ASSERT_TRUE(decoded);
        const RGBABuffer& img = *decoded->image;
        expectNear(patch(img, 0), 255, 255, 255);
        expectNear(patch(img, 1), 35, 31, 32); // black ink alone is not the deepest black
        expectNear(patch(img, 2), 0, 0, 0);
        expectNear(patch(img, 3), 0, 174, 239);
        expectNear(patch(img, 4), 236, 0, 140);
        expectNear(patch(img, 5), 255, 242, 0);
        expectNear(patch(img, 6), 147, 149, 152);
    }

    // Photoshop's picture (inverted, Adobe marker) as JPEG and as JPEG-in-TIFF:
    // the red of the corner and the black around the letters.
    for (const char* name : {"jpeg/cmyk.jpg", "tiff/cmyk-jpeg.tif"}) {
        SCOPED_TRACE(name);
        const DecodedImage cmyk = openPicture(name);
        expectNear(cmyk.image->pixel(0, 0), 238, 49, 47);
        expectNear(cmyk.image->pixel(50, 50), 0, 0, 0);
        expectNear(cmyk.image->pixel(95, 5), 0, 0, 0);
    }
}

// A file's own CMYK profile wins over the press profile: this one ignores the
// black ink, so black ink alone stays paper white.
TEST(CmykImport, EmbeddedProfileIsUsed) {
    for (const char* name : {"jpegcmyk-patches-own-profile.jpg", "jpegcmyk-patches-own-profile.tif"}) {
        SCOPED_TRACE(name);
        const auto decoded = ImageImport::decode(readRegress(name));
        ASSERT_TRUE(decoded);
        const RGBABuffer& img = *decoded->image;
        expectNear(patch(img, 0), 255, 255, 255);
        expectNear(patch(img, 1), 255, 255, 255);
        expectNear(patch(img, 3), 23, 255, 255, 10);
    }
}

} // namespace
} // namespace korv
