#include "TestLayers.h"

#include "engine/core/SeededRandom.h"
#include "engine/document/SampleDocument.h"
#include "engine/formats/StudioFile.h"
#include "engine/render/StudioRenderer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <nlohmann/json.hpp>

using namespace korv;
using nlohmann::json;
using korv::test::maskHiding;
using korv::test::solidLayer;

namespace {

// Splits a file into its manifest and tile area, lets the test change the
// manifest, and puts the file together again.
std::vector<uint8_t> rewrite(const std::vector<uint8_t>& file, const std::function<void(json&)>& change) {
    auto [man, start] = StudioFile::manifest(file);
    (void)man;
    json j = json::parse(file.begin() + 12, file.begin() + std::ptrdiff_t(start));
    change(j);
    const std::string text = j.dump();
    std::vector<uint8_t> out(StudioFile::magic.begin(), StudioFile::magic.end());
    for (int k = 0; k < 4; ++k) out.push_back(uint8_t(text.size() >> (8 * k)));
    out.insert(out.end(), text.begin(), text.end());
    out.insert(out.end(), file.begin() + std::ptrdiff_t(start), file.end());
    return out;
}

std::string damagedDetail(const std::vector<uint8_t>& file) {
    try {
        StudioFile::decode(file);
    } catch (const StudioFileError& e) {
        return e.kind() == StudioFileError::Kind::damaged ? e.detail() : std::string("kind ") + e.what();
    }
    return "opened";
}

std::unique_ptr<StudioDocument> richDocument() {
    TileGrid g(600, 400);
    StudioLayer base = solidLayer(g, {20, 40, 60, 255}, {0, 0, 600, 400}, "Base");
    StudioLayer masked = solidLayer(g, {200, 0, 0, 200}, {50, 50, 300, 300}, "Masked");
    masked.mask = maskHiding(g, 128, {0, 0, 300, 400});
    masked.maskEnabled = false;
    masked.blendMode = BlendMode::multiply;
    masked.opacity = 0.7;
    StudioLayer clipped = solidLayer(g, {0, 90, 0, 90}, {100, 100, 50, 50}, "Clipped");
    clipped.isClipping = true;
    clipped.fillOpacity = 0.4;

    StudioLayer adj(Uuid::random(), "Curves", StudioLayerKind::adjustment);
    adj.adjustment = AdjustmentSpec(AdjustmentType::curves);
    StudioLayer fill(Uuid::random(), "Fill", StudioLayerKind::fill);
    fill.fill = FillSpec(FillKind::linearGradient);
    StudioLayer text(Uuid::random(), "Text", StudioLayerKind::text);
    text.text = TextSpec("Hello\nthere");
    text.effects.shadowOn = true;
    StudioLayer shape(Uuid::random(), "Shape", StudioLayerKind::shape);
    shape.shape = ShapeSpec(ShapeKind::ellipse);
    shape.isLocked = true;
    StudioLayer group = StudioLayer::group("Group", {masked, clipped, adj});
    group.isExpanded = false;
    group.isVisible = true;
    auto doc = std::make_unique<StudioDocument>(600, 400, 300.0,
                                                std::vector<StudioLayer>{base, group, fill, text, shape}, clipped.id);
    return doc;
}

} // namespace

TEST(StudioFile, SavesAndReopensLosslessly) {
    auto doc = richDocument();
    const auto file = StudioFile::encode(*doc);
    EXPECT_TRUE(StudioFile::isStudioFile(file));
    auto back = StudioFile::decode(file);
    EXPECT_EQ(back->fingerprint(), doc->fingerprint());
    EXPECT_EQ(back->flattened()->fingerprint(), doc->flattened()->fingerprint());
    EXPECT_EQ(back->activeID, doc->activeID);
    EXPECT_EQ(back->dpi, 300.0);
    auto rows = back->rows(), rowsBefore = doc->rows();
    ASSERT_EQ(rows.size(), rowsBefore.size());
    for (size_t k = 0; k < rows.size(); ++k) {
        EXPECT_EQ(rows[k].id, rowsBefore[k].id);
        EXPECT_EQ(rows[k].depth, rowsBefore[k].depth);
        EXPECT_EQ(rows[k].layer.isExpanded, rowsBefore[k].layer.isExpanded);
    }
    const StudioLayer* group = back->find(doc->layers[1].id);
    ASSERT_TRUE(group);
    EXPECT_EQ(group->children[0].blendMode, BlendMode::multiply);
    EXPECT_FALSE(group->children[0].maskEnabled);
    EXPECT_EQ(group->children[2].adjustment, doc->layers[1].children[2].adjustment);
    EXPECT_EQ(back->layers[3].text, doc->layers[3].text);
    EXPECT_EQ(back->layers[3].effects, doc->layers[3].effects);
    EXPECT_EQ(back->layers[4].shape, doc->layers[4].shape);
    EXPECT_TRUE(back->layers[4].isLocked);

    auto png = StudioFile::thumbnailData(file);
    ASSERT_TRUE(png);
    EXPECT_EQ((*png)[1], 'P');
    auto thumb = StudioFile::thumbnail(file);
    ASSERT_TRUE(thumb);
    EXPECT_EQ(thumb->width(), 320);
    EXPECT_EQ(thumb->height(), 213);

    // The same document encodes to the same tile area every time, whatever the threads did.
    const auto again = StudioFile::encode(StudioFile::snapshot(*doc, false));
    const auto once = StudioFile::encode(StudioFile::snapshot(*doc, false));
    EXPECT_EQ(StudioFile::manifest(again).second - again.size(), StudioFile::manifest(once).second - once.size());
    EXPECT_FALSE(StudioFile::thumbnailData(again));
}

TEST(StudioFile, TilesAreStoredByContent) {
    TileGrid g(512, 256);
    StudioLayer l = StudioLayer::pixelLayer("Noise", g);
    // Tile 0: colour under zero alpha only; tile 1: noise that doesn't compress.
    l.pixels->setPixel(3, 3, {9, 9, 9, 0});
    SeededRandom r(7);
    Tile& noise = l.pixels->writable(1);
    for (int64_t k = 0; k < kTileBytes; k += 8) {
        const uint64_t v = r.next();
        std::memcpy(noise.pixels() + k, &v, 8);
    }
    StudioDocument doc(512, 256, 72, {l});
    const auto file = StudioFile::encode(doc);
    const json j = json::parse(file.begin() + 12, file.begin() + std::ptrdiff_t(StudioFile::manifest(file).second));
    const json& tiles = j["layers"][0]["pixels"];
    ASSERT_EQ(tiles.size(), 1u);
    EXPECT_EQ(tiles[0]["i"], 1);
    EXPECT_EQ(tiles[0]["c"], 0);
    EXPECT_EQ(tiles[0]["n"], kTileBytes);
    auto back = StudioFile::decode(file);
    EXPECT_EQ(back->layers[0].pixels->tile(0), nullptr);
    EXPECT_EQ(back->layers[0].pixels->pixel(100, 100), l.pixels->pixel(100, 100));
    EXPECT_EQ(std::memcmp(back->layers[0].pixels->tile(1)->pixels(), noise.pixels(), size_t(kTileBytes)), 0);
}

TEST(StudioFile, DamagedFilesSayWhichPart) {
    StudioDocument doc(300, 300, 72, {solidLayer(TileGrid(300, 300), {1, 2, 3, 255})});
    const auto file = StudioFile::encode(StudioFile::snapshot(doc, false));
    const size_t start = StudioFile::manifest(file).second;

    auto kindOf = [](const std::vector<uint8_t>& bytes) {
        try {
            StudioFile::decode(bytes);
        } catch (const StudioFileError& e) {
            return e.kind();
        }
        return StudioFileError::Kind(-1);
    };
    EXPECT_EQ(kindOf({}), StudioFileError::Kind::notStudioFile);
    std::vector<uint8_t> shortMagic(file.begin(), file.begin() + 10);
    EXPECT_EQ(kindOf(shortMagic), StudioFileError::Kind::notStudioFile);
    EXPECT_FALSE(StudioFile::isStudioFile(std::vector<uint8_t>(file.begin(), file.begin() + 7)));
    EXPECT_FALSE(StudioFile::isStudioFile(std::vector<uint8_t>{0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0}));

    std::vector<uint8_t> zeroLength = file;
    zeroLength[8] = zeroLength[9] = zeroLength[10] = zeroLength[11] = 0;
    EXPECT_EQ(damagedDetail(zeroLength), "manifest size");
    EXPECT_EQ(damagedDetail(std::vector<uint8_t>(file.begin(), file.begin() + std::ptrdiff_t(start) - 1)),
              "manifest size");
    std::vector<uint8_t> flipped(file.begin(), file.end() - 500);
    flipped[30] = uint8_t(~flipped[30]);
    EXPECT_NE(damagedDetail(flipped), "opened");

    auto edited = [&](const std::function<void(json&)>& change) { return damagedDetail(rewrite(file, change)); };
    EXPECT_EQ(edited([](json& j) { j["layers"][0].erase("effects"); }), "manifest");
    EXPECT_EQ(edited([](json& j) { j["layers"][0].erase("children"); }), "manifest");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["id"] = "nope"; }), "manifest");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["i"] = 1.5; }), "manifest");
    EXPECT_EQ(edited([](json& j) { j["saved"] = "yesterday"; }), "manifest");
    EXPECT_EQ(edited([](json& j) { j.erase("formatVersion"); }), "manifest");
    EXPECT_EQ(edited([](json& j) { j["width"] = 0; }), "canvas size");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["i"] = 4; }), "tile 4");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["o"] = -1; }), "tile 0");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["n"] = 100000000; }), "tile 0");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["n"] = 10; }), "tile 0 data");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["c"] = 0; }), "tile 0 length");
    EXPECT_EQ(edited([](json& j) { j["layers"][0]["pixels"][0]["c"] = 7; }), "tile 0 length");
    // The first bad tile in file order is the one named.
    EXPECT_EQ(edited([](json& j) {
                  json& tiles = j["layers"][0]["pixels"];
                  json later = tiles[0];
                  tiles[0]["n"] = 10;
                  later["i"] = 99;
                  tiles.push_back(later);
              }),
              "tile 0 data");

    std::string message;
    try {
        StudioFile::decode(rewrite(file, [](json& j) { j["layers"][0].erase("effects"); }));
    } catch (const StudioFileError& e) {
        message = e.what();
    }
    EXPECT_EQ(message, "The KORV Lumenary document is damaged (manifest). Try File \u2192 Recover Autosaved Work.");
}

TEST(StudioFile, LimitsAndLenientFields) {
    StudioDocument doc(10, 10, 72, PaintColor::white());
    const auto file = StudioFile::encode(StudioFile::snapshot(doc, false));
    auto open = [&](const std::function<void(json&)>& change) { return StudioFile::decode(rewrite(file, change)); };

    try {
        open([](json& j) { j["height"] = 30001; });
        FAIL() << "opened a canvas over the limit";
    } catch (const StudioFileError& e) {
        EXPECT_EQ(e.kind(), StudioFileError::Kind::tooLarge);
        EXPECT_EQ(std::string(e.what()),
                  "This picture is larger than KORV Lumenary can open (30,000 \u00D7 30,000 pixels).");
    }
    // At the limit the size passes (no tiles are stored, so nothing big is made).
    auto big = open([](json& j) {
        j["width"] = 30000;
        j["height"] = 30000;
        j["layers"][0]["pixels"] = json::array();
    });
    EXPECT_EQ(big->width(), 30000);

    auto lenient = open([](json& j) {
        j["layers"][0]["opacity"] = 1.7;
        j["layers"][0]["fill"] = -2;
        j["layers"][0]["blend"] = "someFutureMode";
        j["layers"][0]["kind"] = "hologram";
        j["layers"][0].erase("pixels");
        j["dpi"] = -5;
        j.erase("active");
    });
    const StudioLayer& l = lenient->layers[0];
    EXPECT_EQ(l.opacity, 1.0);
    EXPECT_EQ(l.fillOpacity, 0.0);
    EXPECT_EQ(l.blendMode, BlendMode::normal);
    EXPECT_EQ(l.kind, StudioLayerKind::pixel);
    ASSERT_TRUE(l.pixels);
    EXPECT_EQ(lenient->dpi, 72.0);
    EXPECT_EQ(lenient->activeID, l.id);

    auto empty = open([](json& j) { j["layers"] = json::array(); });
    ASSERT_EQ(empty->layers.size(), 1u);
    EXPECT_EQ(empty->layers[0].name, "Layer 1");
}

namespace {

int64_t peakKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

// Files that claim much and hold little: thousands of empty layers with masks
// on the largest canvas, and one tile stored fifty thousand times. Each opens,
// and costs what its content needs, not what its claims would.
TEST(StudioFile, ClaimsWithoutContentCostNothing) {
    StudioDocument doc(256, 256, 72, PaintColor::white());
    const auto file = StudioFile::encode(StudioFile::snapshot(doc, false));

    const auto layers = rewrite(file, [](json& j) {
        j["width"] = 30000;
        j["height"] = 30000;
        json layer = j["layers"][0];
        layer["pixels"] = json::array();
        layer["mask"] = json::array();
        j["layers"] = json::array();
        for (int k = 0; k < 2000; ++k) {
            layer["id"] = Uuid::random().toString();
            j["layers"].push_back(layer);
        }
    });
    int64_t before = peakKiB();
    const auto many = StudioFile::decode(layers);
    EXPECT_EQ(many->layers.size(), 2000u);
    EXPECT_LT(peakKiB() - before, 200 * 1024) << "KiB for " << layers.size() << " bytes of layers";

    const auto repeated = rewrite(file, [](json& j) {
        const json entry = j["layers"][0]["pixels"][0];
        json& pixels = j["layers"][0]["pixels"];
        for (int k = 0; k < 50000; ++k)
            pixels.push_back(entry);
    });
    before = peakKiB();
    const auto once = StudioFile::decode(repeated);
    EXPECT_LT(peakKiB() - before, 200 * 1024) << "KiB for 50,001 entries of one tile";
    EXPECT_EQ(once->layers[0].pixels->pixel(100, 100), (Pixel4{255, 255, 255, 255}));
}
