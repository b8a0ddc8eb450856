#include "TestLayers.h"
#include "engine/formats/BEReader.h"
#include "engine/formats/PSDFile.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioPSD.h"
#include "engine/paint/PaintDocument.h"
#include "engine/render/StudioRenderer.h"
#include "formats/PictureFiles.h"

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>

using namespace korv;
using korv::test::maskHiding;
using korv::test::solidLayer;
using korv::testing::readFile;

namespace {

int largestDifference(const RGBABuffer& a, const RGBABuffer& b) {
    int worst = 0;
    for (int64_t i = 0; i < a.byteCount(); ++i)
        worst = std::max(worst, std::abs(int(a.data()[i]) - int(b.data()[i])));
    return worst;
}

// The share of pixels within 2 of the file's merged picture; both are laid
// on white, as that picture is, and its colours are already matted there.
double shareWithinTwo(const StudioDocument& doc, std::span<const uint8_t> bytes) {
    const auto merged = PSDFile::parse(bytes, true).merged;
    const auto ours = StudioRenderer::flatten(doc);
    int64_t good = 0;
    const int64_t n = ours->width() * ours->height();
    for (int64_t i = 0; i < n; ++i) {
        const uint8_t* o = ours->data() + i * 4;
        const uint8_t* m = merged->data() + i * 4;
        bool ok = true;
        for (int c = 0; c < 3; ++c) {
            const int straight = m[3] ? (m[c] * 255 + m[3] / 2) / m[3] : 255;
            ok = ok && std::abs(o[c] + 255 - o[3] - straight) <= 2;
        }
        good += ok;
    }
    return double(good) / double(n);
}

std::vector<std::string> corpusFiles() {
    std::vector<std::string> out;
    for (const auto& e :
         std::filesystem::directory_iterator(std::string(KORV_TEST_SOURCE_DIR) + "/../data/psd"))
        if (e.path().extension() == ".psd" || e.path().extension() == ".psb")
            out.push_back("psd/" + e.path().filename().string());
    std::sort(out.begin(), out.end());
    return out;
}

StudioDocument& richDocument(std::unique_ptr<StudioDocument>& holder) {
    const TileGrid grid(300, 200);
    StudioLayer ground = solidLayer(grid, {40, 90, 160, 255}, {0, 0, 300, 200}, "Ground");
    StudioLayer glass = solidLayer(grid, {60, 30, 10, 128}, {20, 30, 270, 120}, "Glass");
    glass.blendMode = BlendMode::screen;
    glass.opacity = 0.6;
    glass.fillOpacity = 0.5;
    glass.mask = maskHiding(grid, 200, {0, 0, 150, 200});
    StudioLayer clipped = solidLayer(grid, {200, 0, 0, 255}, {100, 50, 60, 60}, "Clipped");
    clipped.isClipping = true;
    clipped.blendMode = BlendMode::multiply;
    StudioLayer hidden = solidLayer(grid, {0, 255, 0, 255}, {0, 0, 10, 10}, "Hidden \u2603");
    hidden.isVisible = false;
    hidden.isLocked = true;
    StudioLayer inner = solidLayer(grid, {10, 200, 10, 255}, {250, 150, 40, 40}, "Inner");
    inner.mask = maskHiding(grid, 255, {260, 160, 10, 10});
    inner.maskEnabled = false;
    StudioLayer folder = StudioLayer::group("Folder", {inner, hidden});
    folder.blendMode = BlendMode::overlay;
    folder.opacity = 0.75;
    folder.isExpanded = false;
    folder.mask = maskHiding(grid, 128, {280, 0, 20, 200});
    StudioLayer emptyGroup = StudioLayer::group("Nothing here", {});
    holder = std::make_unique<StudioDocument>(
        300, 200, 240.0, std::vector<StudioLayer>{ground, glass, clipped, folder, emptyGroup});
    return *holder;
}

} // namespace

TEST(StudioPSD, RoundTripKeepsTheTreeTheSettingsAndTheLook) {
    std::unique_ptr<StudioDocument> holder;
    StudioDocument& doc = richDocument(holder);
    const auto bytes = StudioPSD::write(doc);
    ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "8BPS");
    const auto back = StudioPSD::read(bytes);
    EXPECT_NEAR(back->dpi, 240, 1e-3);
    ASSERT_EQ(back->layers.size(), 5u);
    EXPECT_EQ(back->history().size(), 1u);
    EXPECT_EQ(back->activeID, back->layers.back().id);
    for (size_t i = 0; i < doc.layers.size(); ++i) {
        const StudioLayer& a = doc.layers[i];
        const StudioLayer& b = back->layers[i];
        EXPECT_EQ(b.id, a.id);
        EXPECT_EQ(b.name, a.name);
        EXPECT_EQ(b.kind, a.kind);
        EXPECT_EQ(b.blendMode, a.blendMode);
        EXPECT_EQ(b.opacity, a.opacity);
        EXPECT_EQ(b.fillOpacity, a.fillOpacity);
        EXPECT_EQ(b.isClipping, a.isClipping);
        EXPECT_EQ(b.isExpanded, a.isExpanded);
        EXPECT_EQ(b.hasMask(), a.hasMask());
        EXPECT_EQ(b.children.size(), a.children.size());
    }
    const StudioLayer& folder = back->layers[3];
    EXPECT_FALSE(folder.isExpanded);
    EXPECT_EQ(folder.children[1].name, "Hidden \u2603");
    EXPECT_FALSE(folder.children[1].isVisible);
    EXPECT_TRUE(folder.children[1].isLocked);
    EXPECT_FALSE(folder.children[0].maskEnabled);
    EXPECT_EQ(folder.children[0].mask->alpha(262, 162), 255);
    EXPECT_EQ(back->layers[1].mask->alpha(10, 10), 200);
    EXPECT_EQ(back->layers[1].mask->alpha(200, 10), 0);
    EXPECT_TRUE(back->layers[4].isGroup());
    EXPECT_TRUE(back->layers[4].children.empty());

    // The look survives within premultiplication rounding.
    EXPECT_LE(largestDifference(*StudioRenderer::flatten(doc), *StudioRenderer::flatten(*back)), 2);
}

TEST(StudioPSD, OtherProgramsSeeTheRecordsWithoutThePrivateBlock) {
    std::unique_ptr<StudioDocument> holder;
    StudioDocument& doc = richDocument(holder);
    const auto bytes = StudioPSD::write(doc);
    const auto layout = PSDFile::parse(bytes, true);
    // Ground, Glass, Clipped, divider, Inner, Hidden, Folder, divider, Nothing here.
    ASSERT_EQ(layout.records.size(), 9u);
    EXPECT_EQ(layout.records[3].name, "</Layer group>");
    EXPECT_EQ(layout.records[3].lsct, 3u);
    EXPECT_EQ(layout.records[6].lsct, 2u);
    EXPECT_EQ(layout.records[6].key, "over");
    EXPECT_EQ(layout.records[6].opacity, 191);
    EXPECT_EQ(layout.records[8].lsct, 1u);
    const auto& glass = layout.records[1];
    EXPECT_EQ(glass.key, "scrn");
    EXPECT_EQ(glass.opacity, 153);
    EXPECT_EQ(glass.fill, std::optional<uint8_t>(128));
    EXPECT_EQ(glass.rect(), (IRect{20, 30, 270, 120}));
    EXPECT_EQ(glass.maskRect, (IRect{0, 0, 300, 200}));
    EXPECT_EQ(glass.planes.at(PSDFile::kUserMask)[10], 55);
    EXPECT_EQ(layout.records[2].clip, 1);
    EXPECT_EQ(layout.records[5].flags & 2, 2);
    // The merged picture is the document's look.
    EXPECT_LE(largestDifference(*layout.merged, *StudioRenderer::flatten(doc)), 1);
}

TEST(StudioPSD, AdjustmentAndTextLayersComeBackEditable) {
    StudioDocument doc(64, 48, 72.0, PaintColor::white());
    const Uuid curves = doc.addAdjustment(AdjustmentType::curves);
    doc.update(curves, true, [](StudioLayer& l) { l.adjustment->curves[0] = {{0, 0}, {0.5, 0.7}, {1, 1}}; });
    TextSpec spec;
    spec.text = "Hello\nthere";
    spec.size = 31;
    const Uuid text = doc.addText(spec);
    const auto back = StudioPSD::read(StudioPSD::write(doc));
    const StudioLayer* c = back->find(curves);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->kind, StudioLayerKind::adjustment);
    EXPECT_EQ(c->adjustment, doc.find(curves)->adjustment);
    EXPECT_FALSE(c->pixels);
    const StudioLayer* t = back->find(text);
    ASSERT_TRUE(t);
    EXPECT_EQ(t->kind, StudioLayerKind::text);
    EXPECT_EQ(t->text, doc.find(text)->text);
    // The adjustment's own record is empty; the merged picture carries its effect.
    const auto layout = PSDFile::parse(StudioPSD::write(doc), false);
    EXPECT_TRUE(layout.records[1].rect().isEmpty());
}

TEST(StudioPSD, ALayerWithoutPixelsIsFourEmptyChannels) {
    StudioDocument doc(30, 20);
    const auto bytes = StudioPSD::write(doc);
    const auto layout = PSDFile::parse(bytes, false);
    ASSERT_EQ(layout.records.size(), 1u);
    const auto& rec = layout.records[0];
    EXPECT_TRUE(rec.rect().isEmpty());
    ASSERT_EQ(rec.chans.size(), 4u);
    for (const auto& [id, length] : rec.chans)
        EXPECT_EQ(length, 2) << id;
    const auto back = StudioPSD::read(bytes);
    ASSERT_EQ(back->layers.size(), 1u);
    EXPECT_EQ(back->layers[0].kind, StudioLayerKind::pixel);
    EXPECT_TRUE(back->layers[0].pixels->isEmpty());
}

TEST(StudioPSD, FilesOfOtherProgramsOpenWithTheirTreeAndLook) {
    // Two plain layers from another program look as the program drew them.
    const auto rgb = readFile("psd/4x4_8bit_rgb.psd");
    const auto small = StudioPSD::read(rgb);
    EXPECT_EQ(small->layers.size(), 2u);
    EXPECT_EQ(shareWithinTwo(*small, rgb), 1.0);

    const auto groupBytes = readFile("psd/group.psd");
    const auto group = StudioPSD::read(groupBytes);
    ASSERT_EQ(group->layers.size(), 2u);
    EXPECT_TRUE(group->layers[1].isGroup());
    EXPECT_EQ(shareWithinTwo(*group, groupBytes), 1.0);
    // The large-document variant of the same file reads alike.
    const auto big = StudioPSD::read(readFile("psd/group.psb"));
    ASSERT_EQ(big->layers.size(), 2u);
    EXPECT_EQ(big->layers[1].children.size(), group->layers[1].children.size());

    const auto maskBytes = readFile("psd/mask.psd");
    const auto masked = StudioPSD::read(maskBytes);
    EXPECT_TRUE(
        std::any_of(masked->layers.begin(), masked->layers.end(), [](auto& l) { return l.hasMask(); }));
    EXPECT_EQ(shareWithinTwo(*masked, maskBytes), 1.0);

    // A group's own mask: grey inside its rectangle, the default colour (white) around it.
    const auto groupMaskBytes = readFile("psd/group-with-mask.psd");
    const auto groupMask = StudioPSD::read(groupMaskBytes);
    const StudioLayer& maskedGroup = groupMask->layers.back();
    ASSERT_TRUE(maskedGroup.isGroup() && maskedGroup.hasMask());
    EXPECT_EQ(maskedGroup.mask->alpha(0, 0), 0);
    EXPECT_EQ(shareWithinTwo(*groupMask, groupMaskBytes), 1.0);

    // Another program's adjustment layer arrives as an empty layer that keeps its mask.
    const auto curves = StudioPSD::read(readFile("psd/curves-adjustment.psd"));
    ASSERT_EQ(curves->layers.size(), 1u);
    EXPECT_EQ(curves->layers[0].kind, StudioLayerKind::pixel);
    EXPECT_TRUE(curves->layers[0].pixels->isEmpty());
    EXPECT_TRUE(curves->layers[0].hasMask());

    const auto emptyLayer = StudioPSD::read(readFile("psd/empty-layer.psd"));
    ASSERT_EQ(emptyLayer->layers.size(), 2u);
    ASSERT_EQ(emptyLayer->layers[1].children.size(), 2u);
    EXPECT_EQ(emptyLayer->layers[1].children[0].name, "empty");
    EXPECT_TRUE(emptyLayer->layers[1].children[0].pixels->isEmpty());

    const auto empty = StudioPSD::read(readFile("psd/empty-group.psd"));
    ASSERT_EQ(empty->layers.size(), 2u);
    EXPECT_TRUE(empty->layers[1].isGroup());
    EXPECT_TRUE(empty->layers[1].children.empty());

    const auto nested = StudioPSD::read(readFile("psd/nested-groups-10-levels.psd"));
    int depth = 0;
    for (const StudioLayer* l = &nested->layers.back(); l->isGroup() && !l->children.empty();
         l = &l->children.back())
        ++depth;
    EXPECT_EQ(depth, 10);

    const auto fill = StudioPSD::read(readFile("psd/opacity-fill.psd"));
    EXPECT_NEAR(fill->layers[0].fillOpacity, 171 / 255.0, 1e-9);
    EXPECT_NEAR(StudioPSD::read(readFile("psd/semi-transparent-layers-300dpi.psd"))->dpi, 300, 1e-3);
    EXPECT_EQ(StudioPSD::read(readFile("psd/layer-name-emoji.psd"))->layers[0].name, "\U0001F47D");
    EXPECT_EQ(StudioPSD::read(readFile("psd/gimp-transparent-bg.psd"))->layers.size(), 1u);
}

TEST(StudioPSD, HostileFilesFailFastAndNeverCrash) {
    // A header claiming the largest canvas with almost no data behind it.
    auto rgb = readFile("psd/4x4_8bit_rgb.psd");
    std::vector<uint8_t> bomb(rgb.begin(), rgb.begin() + 26);
    for (int k : {14, 18}) {
        bomb[size_t(k)] = 0, bomb[size_t(k) + 1] = 0, bomb[size_t(k) + 2] = 0x75, bomb[size_t(k) + 3] = 0x30;
    }
    for (int i = 0; i < 12; ++i)
        bomb.push_back(0);
    bomb.insert(bomb.end(), {0, 1, 0xFF, 0xFF}); // merged picture: RLE, then a count and nothing else
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(StudioPSD::read(bomb), BEReader::Short);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    // Row counts present but all zero: a plane of padding is refused before it is made.
    std::vector<uint8_t> padded = bomb;
    padded.resize(bomb.size() - 2);
    padded.resize(padded.size() + 30000 * 4 * 2, 0);
    try {
        StudioPSD::read(padded);
        FAIL();
    } catch (const PSDError& e) {
        EXPECT_EQ(e.detail(), "channels");
    }
    auto wide = rgb;
    wide[18] = 0x01;
    EXPECT_THROW(StudioPSD::read(wide), StudioFileError);

    // Every cut and a spread of flipped bits of every file: an answer or an error, never a crash.
    for (const auto& name : corpusFiles()) {
        const auto bytes = readFile(name);
        const size_t step = std::max<size_t>(1, bytes.size() / 300);
        for (size_t cut = 0; cut < bytes.size(); cut += step) {
            try {
                StudioPSD::read(std::span(bytes).first(cut));
            } catch (const std::exception&) {
            }
        }
        auto flipped = bytes;
        for (size_t at = 0; at < bytes.size(); at += std::max<size_t>(1, bytes.size() / 200)) {
            flipped[at] ^= uint8_t(1 << (at % 8));
            try {
                StudioPSD::read(flipped);
                PSDFile::read(flipped);
            } catch (const std::exception&) {
            }
            flipped[at] = bytes[at];
        }
    }
}

TEST(StudioPSD, EveryBlendModeTravelsByItsKey) {
    const TileGrid grid(8, 8);
    std::vector<StudioLayer> layers;
    for (int m = 0; m < kBlendModeCount; ++m) {
        StudioLayer l = solidLayer(grid, {90, 60, 30, 255}, {0, 0, 8, 8}, "Mode");
        l.blendMode = BlendMode(m);
        layers.push_back(std::move(l));
    }
    StudioDocument doc(8, 8, 72.0, std::move(layers));
    auto bytes = StudioPSD::write(doc);
    const auto layout = PSDFile::parse(bytes, false);
    ASSERT_EQ(layout.records.size(), size_t(kBlendModeCount));
    for (int m = 0; m < kBlendModeCount; ++m)
        EXPECT_EQ(layout.records[size_t(m)].key, psdKey(BlendMode(m)));
    const auto back = StudioPSD::read(bytes);
    for (int m = 0; m < kBlendModeCount; ++m)
        EXPECT_EQ(back->layers[size_t(m)].blendMode, BlendMode(m));

    // A key of another program's mode, here dissolve, reads as normal.
    const std::string signature = "8BIMscrn";
    const auto at = std::search(bytes.begin(), bytes.end(), signature.begin(), signature.end());
    ASSERT_NE(at, bytes.end());
    std::copy_n("diss", 4, at + 4);
    EXPECT_EQ(StudioPSD::read(bytes)->layers[2].blendMode, BlendMode::normal);
}
