#include "engine/formats/BEReader.h"
#include "engine/formats/BEWriter.h"
#include "engine/formats/PSDFile.h"
#include "engine/formats/StudioFile.h"
#include "engine/paint/PaintDocument.h"
#include "formats/PictureFiles.h"

#include <gtest/gtest.h>

using namespace korv;
using korv::testing::readFile;

namespace {

std::vector<uint8_t> pack(const std::vector<uint8_t>& row) {
    std::vector<uint8_t> out;
    PSDFile::packBits(row.data(), int64_t(row.size()), out);
    return out;
}

std::string messageOf(std::span<const uint8_t> bytes) {
    try {
        PSDFile::read(bytes);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "opened";
}

} // namespace

TEST(BigEndian, ReadsHighByteFirstAndNeverPastTheEnd) {
    BEWriter w;
    w.u16(0x1234);
    w.u32(0xA1B2C3D4);
    w.u8(7);
    w.patchU32(2, 0x01020304);
    EXPECT_EQ(w.bytes, (std::vector<uint8_t>{0x12, 0x34, 1, 2, 3, 4, 7}));

    BEReader r(w.bytes);
    EXPECT_EQ(r.u16(), 0x1234);
    EXPECT_EQ(r.i32(), 0x01020304);
    EXPECT_THROW(r.u16(), BEReader::Short);
    EXPECT_EQ(r.u8(), 7); // a failed read moves nothing
    EXPECT_THROW(r.u8(), BEReader::Short);
    BEReader s(w.bytes);
    EXPECT_THROW(s.slice(8), BEReader::Short);
    EXPECT_THROW(s.slice(-1), BEReader::Short);
    EXPECT_EQ(s.slice(7).size(), 7u);
}

TEST(PackBits, EncodesRunsAndLiteralsAtTheirLimits) {
    // 128 equal bytes are one run; 129 a run and a literal of one.
    EXPECT_EQ(pack(std::vector<uint8_t>(128, 9)), (std::vector<uint8_t>{0x81, 9}));
    EXPECT_EQ(pack(std::vector<uint8_t>(129, 9)), (std::vector<uint8_t>{0x81, 9, 0, 9}));

    // 200 bytes without repeats: literals of 128 and 72.
    std::vector<uint8_t> ramp(200);
    for (size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = uint8_t(i);
    const auto packed = pack(ramp);
    ASSERT_EQ(packed.size(), 202u);
    EXPECT_EQ(packed[0], 127);
    EXPECT_EQ(packed[129], 71);

    // Two equal bytes start a run only where a literal would begin.
    EXPECT_EQ(pack({5, 5, 1}), (std::vector<uint8_t>{0xFF, 5, 0, 1}));
    EXPECT_EQ(pack({1, 5, 5, 2}), (std::vector<uint8_t>{3, 1, 5, 5, 2}));
    // A third equal byte ends the literal before the run.
    EXPECT_EQ(pack({1, 5, 5, 5}), (std::vector<uint8_t>{0, 1, 0xFE, 5}));
    EXPECT_TRUE(pack({}).empty());
}

TEST(PackBits, DecodesWhatItEncodesAndRefusesCutRows) {
    std::vector<uint8_t> row;
    for (int i = 0; i < 1000; ++i)
        row.push_back(uint8_t(i % 7 < 3 ? 0 : (i * 37) >> 3));
    EXPECT_EQ(PSDFile::unpackBits(pack(row), int64_t(row.size())), row);

    // A literal or a run cut short throws; -128 is skipped.
    EXPECT_THROW(PSDFile::unpackBits(std::vector<uint8_t>{3, 1, 2}, 4), BEReader::Short);
    EXPECT_THROW(PSDFile::unpackBits(std::vector<uint8_t>{0xFE}, 3), BEReader::Short);
    EXPECT_EQ(PSDFile::unpackBits(std::vector<uint8_t>{0x80, 0xFE, 4}, 3), (std::vector<uint8_t>{4, 4, 4}));
    // Short output is padded, long output cut, and nothing is expected of expected 0.
    EXPECT_EQ(PSDFile::unpackBits(std::vector<uint8_t>{0xFF, 8}, 4), (std::vector<uint8_t>{8, 8, 0, 0}));
    EXPECT_EQ(PSDFile::unpackBits(std::vector<uint8_t>{0x81, 8}, 3), (std::vector<uint8_t>{8, 8, 8}));
    EXPECT_TRUE(PSDFile::unpackBits(std::vector<uint8_t>{0x81, 8}, 0).empty());
}

TEST(PSDPlanes, UnpremultiplyAndBackStayWithinRounding) {
    RGBABuffer b(4, 2);
    b.setPixel(0, 0, {0, 0, 0, 0});
    b.setPixel(1, 0, {100, 50, 0, 200});
    b.setPixel(2, 0, {1, 1, 1, 1});
    b.setPixel(3, 0, {255, 128, 7, 255});
    b.setPixel(0, 1, {200, 10, 20, 201}); // a colour above alpha is clamped to 255
    const auto p = PSDFile::planes(b, {0, 0, 4, 2});
    // A fully transparent pixel is zeros in all four planes.
    EXPECT_EQ((std::array<uint8_t, 4>{p[0][0], p[1][0], p[2][0], p[3][0]}),
              (std::array<uint8_t, 4>{0, 0, 0, 0}));
    // (100 * 255 + 100) / 200 = 128.
    EXPECT_EQ(p[0][1], 128);
    EXPECT_EQ(p[1][1], 64);
    EXPECT_EQ(p[3][1], 200);
    EXPECT_EQ(p[0][2], 255);
    EXPECT_EQ(p[1][3], 128);
    EXPECT_EQ(p[2][3], 7);
    EXPECT_EQ(p[0][4], 254);
    for (int i = 0; i < 4; ++i) {
        const Pixel4 px = b.pixel(i, 0);
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(PSDFile::premultiply(p[size_t(c)][size_t(i)], px[3]), px[size_t(c)], 1) << i;
    }
    // A sub-rectangle reads its own pixels.
    const auto q = PSDFile::planes(b, {1, 0, 1, 1});
    EXPECT_EQ(q[0], std::vector<uint8_t>{128});
}

TEST(PSDFile, PaintDocumentsRoundTripFlatAndLayered) {
    PaintDocument doc(300, 40, 150);
    auto& bottom = *doc.layers[0];
    bottom.name = "Ground";
    for (int64_t y = 0; y < 40; ++y)
        for (int64_t x = 0; x < 300; ++x) {
            auto& t = bottom.writableTile(bottom.grid.indexAt(x, y));
            uint8_t* px = t.row(y & 255) + (x & 255) * 4;
            px[0] = uint8_t(x * 255 / 300), px[1] = 80, px[2] = uint8_t(y * 6), px[3] = 255;
        }
    auto top = std::make_shared<Layer>("Ink \u00E9", doc.grid);
    top->opacity = 0.5;
    top->blendMode = BlendMode::multiply;
    top->isVisible = false;
    top->isClipping = true;
    uint8_t* px = top->writableTile(1).row(3) + 4 * 4;
    px[0] = 30, px[1] = 60, px[2] = 90, px[3] = 120;
    doc.layers.push_back(top);
    doc.layers.push_back(std::make_shared<Layer>("Empty", doc.grid));

    const auto layered = PSDFile::write(doc, true);
    ASSERT_EQ(std::string(layered.begin(), layered.begin() + 4), "8BPS");
    const auto back = PSDFile::read(layered);
    ASSERT_EQ(back->layers.size(), 3u);
    EXPECT_NEAR(back->dpi, 150, 1e-3);
    EXPECT_EQ(back->history().size(), 1u);
    EXPECT_EQ(back->history()[0].name, "Open");
    EXPECT_EQ(back->activeIndex(), 2);
    const Layer& ink = *back->layers[1];
    EXPECT_EQ(ink.name, "Ink \u00E9");
    EXPECT_NEAR(ink.opacity, 128 / 255.0, 1e-9);
    EXPECT_EQ(ink.blendMode, BlendMode::multiply);
    EXPECT_FALSE(ink.isVisible);
    EXPECT_TRUE(ink.isClipping);
    const Pixel4 got = ink.pixel(256 + 4, 3);
    EXPECT_EQ(got[3], 120);
    EXPECT_NEAR(got[0], 30, 1);
    EXPECT_NEAR(got[2], 90, 1);
    EXPECT_EQ(ink.pixel(256 + 5, 3)[3], 0);
    EXPECT_EQ(back->layers[0]->pixel(150, 20), doc.layers[0]->pixel(150, 20));
    EXPECT_EQ(back->layers[2]->toBuffer()->fingerprint(), doc.layers[2]->toBuffer()->fingerprint());

    // Flat: the merged picture alone comes back as one layer, Background.
    const auto flat = PSDFile::read(PSDFile::write(doc, false));
    ASSERT_EQ(flat->layers.size(), 1u);
    EXPECT_EQ(flat->layers[0]->name, "Background");
    EXPECT_EQ(flat->layers[0]->pixel(299, 39), doc.layers[0]->pixel(299, 39));
}

TEST(PSDFile, RefusesWhatItCannotReadWithItsSentence) {
    auto rgb = readFile("psd/4x4_8bit_rgb.psd");
    EXPECT_EQ(messageOf(readFile("psd/4x4_16bit_rgb.psd")),
              "This Photoshop file uses a feature KORV Paint can't read (16-bit color).");
    auto cmyk = rgb;
    cmyk[25] = 4;
    EXPECT_EQ(messageOf(cmyk),
              "This Photoshop file uses a feature KORV Paint can't read (color mode 4; only RGB).");
    EXPECT_EQ(messageOf(readFile("psd/4x4_8bit_grayscale.psd")),
              "This Photoshop file uses a feature KORV Paint can't read (color mode 1; only RGB).");
    EXPECT_EQ(messageOf(readFile("psd/zip-compressed-layers.psd")),
              "This Photoshop file uses a feature KORV Paint can't read (ZIP-compressed layers).");
    EXPECT_THROW(PSDFile::read(std::vector<uint8_t>{'8', 'B', 'P', 'S'}), BEReader::Short);
    try {
        PSDFile::read(std::vector<uint8_t>{'8', 'B', 'P', 'X', 0, 1});
        FAIL();
    } catch (const StudioFileError& e) {
        EXPECT_EQ(e.kind(), StudioFileError::Kind::notStudioFile);
    }
}
