#include "engine/formats/BEReader.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioImport.h"
#include "engine/formats/StudioPSD.h"

#include <gtest/gtest.h>

using namespace korv;

TEST(StudioImport, TheFirstBytesDecideTheReader) {
    // A native document opens with its layers.
    StudioDocument doc(20, 10, 150, PaintColor::white());
    auto native = StudioImport::document(StudioFile::encode(doc));
    EXPECT_EQ(native->fingerprint(), doc.fingerprint());
    EXPECT_EQ(native->dpi, 150);

    // A picture becomes one layer named Background at its DPI.
    auto image = std::make_shared<RGBABuffer>(7, 5);
    image->fill(PaintColor(1, 0, 0, 1));
    auto png = ImageExport::pngData(image, 300);
    ASSERT_TRUE(png);
    auto picture = StudioImport::document(*png);
    ASSERT_EQ(picture->layers.size(), 1u);
    EXPECT_EQ(picture->layers[0].name, "Background");
    EXPECT_EQ(picture->width(), 7);
    EXPECT_NEAR(picture->dpi, 300, 0.01);

    // A damaged native file keeps its own message; it never falls back to the picture decoder.
    std::vector<uint8_t> damaged = StudioFile::encode(doc);
    damaged.resize(14);
    EXPECT_THROW(StudioImport::document(damaged), StudioFileError);
    // "8BPS" is a PSD whatever follows, even 4 bytes alone.
    const std::vector<uint8_t> psd{'8', 'B', 'P', 'S'};
    EXPECT_THROW(StudioImport::document(psd), BEReader::Short);
    // A whole one opens with its layers.
    auto layered = StudioImport::document(StudioPSD::write(*picture));
    ASSERT_EQ(layered->layers.size(), 1u);
    EXPECT_EQ(layered->layers[0].name, "Background");
    EXPECT_NEAR(layered->dpi, 300, 0.01);
    try {
        StudioImport::document(std::vector<uint8_t>{});
        FAIL();
    } catch (const ExportError& e) {
        EXPECT_EQ(e.kind, ExportError::Kind::cannotRead);
    }
}
