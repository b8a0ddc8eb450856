// What the window's panels rest on: several open pictures, adjustment edits
// as single steps, the histogram and Auto Levels, the curve graph's rules,
// failed opens and where file panels start.
#include "FakeHost.h"
#include "app/model/CurveEdit.h"
#include "app/model/FileNames.h"
#include "app/model/HistogramCounts.h"
#include "app/model/StudioModel.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/PhotoExport.h"

#include <gtest/gtest.h>

namespace korv {
namespace {

using test::FakeHost;
using test::TempFolder;

struct WindowModelTest : ::testing::Test {
    TempFolder temp;
    FakeHost host;
    StudioModel model{host, false};

    // A grey ramp from `low` to `high` across the width.
    void newRamp(int low, int high, int64_t w = 64, int64_t h = 16) {
        model.newDocument(w, h, 72, PaintColor::white());
        RGBABuffer ramp(w, h);
        for (int64_t y = 0; y < h; ++y)
            for (int64_t x = 0; x < w; ++x) {
                const auto v = uint8_t(low + (high - low) * x / (w - 1));
                ramp.setPixel(x, y, {v, v, v, 255});
            }
        model.placeBuffer(ramp, "Ramp", std::pair{0, 0}, *model.doc());
        model.doc()->clock = [] { return Clock::time_point{}; };
    }
    std::filesystem::path writePNG(const std::string& name) {
        StudioDocument d(8, 8, 72, PaintColor::white());
        const auto path = temp / name;
        writeFileAtomically(path.string(), PhotoExport::data(d, PhotoExportOptions(PhotoExportFormat::png)));
        return path;
    }
};

TEST_F(WindowModelTest, EachOpenPictureKeepsItsDocumentHistoryAndView) {
    model.newDocument(40, 30, 72, PaintColor::white(), "First");
    const Uuid first = *model.currentID;
    model.addLayer();
    model.current()->zoom = 2.5;
    model.newDocument(20, 10, 72, PaintColor::black(), "Second");
    const Uuid second = *model.currentID;
    model.addAdjustment(AdjustmentType::invert);
    model.addAdjustment(AdjustmentType::levels);
    EXPECT_EQ(model.doc()->width(), 20);

    model.setCurrentID(first);
    EXPECT_EQ(model.doc()->width(), 40);
    EXPECT_EQ(model.doc()->undoName(), std::optional<std::string>("New Layer"));
    EXPECT_DOUBLE_EQ(model.current()->zoom, 2.5);
    model.undo();
    EXPECT_EQ(model.doc()->layers.size(), 1u);

    // The undo in the first picture left the second one's history alone.
    model.setCurrentID(second);
    EXPECT_EQ(model.doc()->undoName(), std::optional<std::string>("New Levels"));
    EXPECT_EQ(model.doc()->layers.size(), 3u);
    EXPECT_TRUE(model.status.empty()) << "the first picture's undo is not this one's news";
}

TEST_F(WindowModelTest, SwitchingPicturesEndsTheLivePreviewAndKeepsTheCropOfTheOneLeft) {
    model.newDocument(40, 30, 72, PaintColor::white(), "First");
    const Uuid first = *model.currentID;
    const uint64_t committed = model.doc()->fingerprint();
    model.newDocument(20, 10, 72, PaintColor::white(), "Second");
    model.setCurrentID(first);
    model.preview = LivePreview{"gaussianBlur", {}, true};
    model.cropRect = CanvasRect{1, 2, 3, 4};
    model.doc()->update(*model.doc()->activeID, true, [](StudioLayer& l) {
        l.pixels->setPixel(3, 3, {9, 9, 9, 255});
    });
    model.setCurrentID(model.sessions[1]->id);
    EXPECT_FALSE(model.preview);
    EXPECT_FALSE(model.cropRect) << "the first picture's crop is not drawn on the second";
    // The uncommitted pixels were taken out of the first picture, not the second.
    EXPECT_EQ(model.sessions[0]->doc->fingerprint(), committed);
    EXPECT_EQ(model.sessions[0]->doc->layers[0].pixels->pixel(3, 3)[0], 255);
    // Back on the first picture, its crop is where it was left.
    model.setCurrentID(first);
    EXPECT_EQ(model.cropRect, (CanvasRect{1, 2, 3, 4}));
    model.cancelLive();
    model.setCurrentID(model.sessions[1]->id);
    model.setCurrentID(first);
    EXPECT_FALSE(model.cropRect) << "a cancelled crop stays cancelled";
}

TEST(ToolGroups, EveryToolIsInExactlyOneGroupInPaletteOrder) {
    std::vector<Tool> seen;
    for (const auto& group : toolGroups())
        seen.insert(seen.end(), group.begin(), group.end());
    ASSERT_EQ(seen.size(), size_t(kToolCount));
    std::vector<Tool> sorted = seen;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
    EXPECT_EQ(toolGroups().size(), 5u);
    EXPECT_EQ(toolGroups()[0].back(), Tool::crop);
    EXPECT_EQ(toolGroups()[3].front(), Tool::dodge);
    EXPECT_EQ(toolGroups()[3].back(), Tool::sharpen);

    // Each letter calls one tool.
    std::vector<char> letters;
    for (int t = 0; t < kToolCount; ++t)
        if (key(Tool(t))) letters.push_back(key(Tool(t)));
    EXPECT_EQ(letters.size(), size_t(kToolCount - 1));
    std::sort(letters.begin(), letters.end());
    EXPECT_EQ(std::adjacent_find(letters.begin(), letters.end()), letters.end());
    EXPECT_EQ(key(Tool::magicWand), 'w');
    EXPECT_EQ(key(Tool::hand), '\0');
}

TEST_F(WindowModelTest, ALevelsDragIsOneStepThatChangesThePicture) {
    newRamp(0, 255);
    const auto before = model.doc()->flattened()->pixel(32, 8);
    model.addAdjustment(AdjustmentType::levels);
    const Uuid id = *model.doc()->activeID;
    const auto steps = model.doc()->history().size();
    auto inBlack = model.bindAdj<double>(
        id, [](const AdjustmentSpec& a) { return a.levels[0].inBlack; },
        [](AdjustmentSpec& a, const double& v) { a.levels[0].inBlack = v; }, 0.0);
    for (double v : {0.05, 0.1, 0.2, 0.3, 0.4})
        inBlack.set(v);
    EXPECT_EQ(model.doc()->history().size(), steps + 1);
    EXPECT_EQ(model.doc()->undoName(), std::optional<std::string>("Adjust"));
    const auto after = model.doc()->flattened()->pixel(32, 8);
    EXPECT_LT(after[0] + 20, before[0]) << "a raised black point darkens the middle";
    model.undo();
    EXPECT_DOUBLE_EQ(inBlack.get(), 0.0);
    EXPECT_EQ(model.doc()->flattened()->pixel(32, 8), before);
}

TEST_F(WindowModelTest, AutoLevelsStretchesTheLevelsThePictureUses) {
    newRamp(60, 200);
    model.addAdjustment(AdjustmentType::levels);
    const Uuid id = *model.doc()->activeID;
    // Counted without the layer itself: a second press finds the same points.
    for (int press = 0; press < 2; ++press) {
        model.autoLevels(id, 0);
        const auto& master = model.doc()->find(id)->adjustment->levels[0];
        EXPECT_NEAR(master.inBlack, 60 / 255.0, 1.5 / 255);
        EXPECT_NEAR(master.inWhite, 200 / 255.0, 1.5 / 255);
    }
    EXPECT_EQ(model.doc()->undoName(), std::optional<std::string>("Auto Levels"));
    const auto flat = model.doc()->flattened();
    EXPECT_LE(flat->pixel(0, 0)[0], 2);
    EXPECT_GE(flat->pixel(63, 0)[0], 253);

    // A sliver of outliers is clipped; a flat picture and an empty one stretch nothing.
    RGBABuffer mostlyGrey(100, 100);
    mostlyGrey.fill(PaintColor(0.5, 0.5, 0.5, 1));
    mostlyGrey.setPixel(0, 0, {255, 255, 255, 255});
    EXPECT_EQ(HistogramCounts::of(mostlyGrey).autoPoints(1), std::make_pair(0.0, 1.0));
    mostlyGrey.setPixel(1, 0, {0, 0, 0, 255});
    for (int x = 0; x < 40; ++x)
        mostlyGrey.setPixel(x, 1, {200, 40, 40, 255});
    const auto counts = HistogramCounts::of(mostlyGrey);
    EXPECT_EQ(counts.autoPoints(1, 0.001), std::make_pair(128 / 255.0, 200 / 255.0));
    EXPECT_EQ(counts.counts[3][40], 40) << "blue counts its own channel";
    EXPECT_EQ(HistogramCounts{}.autoPoints(0), std::make_pair(0.0, 1.0));

    // A half-transparent pixel counts at its own colour, not darkened by its alpha.
    RGBABuffer faint(1, 1);
    faint.setPixel(0, 0, {100, 50, 0, 128});
    const auto one = HistogramCounts::of(faint);
    EXPECT_EQ(one.counts[1][199], 1);
    EXPECT_EQ(one.counts[2][100], 1);

    // Transparent pixels are not part of the picture; a large one is sampled evenly.
    RGBABuffer clear(2000, 1000);
    EXPECT_EQ(HistogramCounts::of(clear).total, 0);
    clear.fill(PaintColor(0.2, 0.2, 0.2, 1));
    const auto sampled = HistogramCounts::of(clear, 20000);
    EXPECT_GT(sampled.total, 15000);
    EXPECT_LE(sampled.total, 20000);
}

TEST(CurveEdit, PointsStayOrderedApartAndTheEndsStay) {
    std::vector<CurvePoint> curve{{0, 0}, {1, 1}};
    EXPECT_EQ(CurveEdit::add(curve, 0.5, 0.7), 1u);
    EXPECT_EQ(CurveEdit::add(curve, 0.25, 0.2), 1u);
    ASSERT_EQ(curve.size(), 4u);
    // A click on a column with a point moves that point rather than stacking another.
    EXPECT_EQ(CurveEdit::add(curve, 0.505, 0.9), 2u);
    EXPECT_EQ(curve.size(), 4u);
    EXPECT_DOUBLE_EQ(curve[2].y, 0.9);
    EXPECT_DOUBLE_EQ(curve[2].x, 0.5);

    // A dragged point stops short of its neighbours and of the square's edges.
    CurveEdit::move(curve, 2, 0.1, 1.4);
    EXPECT_DOUBLE_EQ(curve[2].x, 0.25 + CurveEdit::kMinGap);
    EXPECT_DOUBLE_EQ(curve[2].y, 1.0);
    CurveEdit::move(curve, 0, 0.6, -0.3);
    EXPECT_DOUBLE_EQ(curve[0].x, 0.25 - CurveEdit::kMinGap);
    EXPECT_DOUBLE_EQ(curve[0].y, 0.0);

    EXPECT_EQ(CurveEdit::hit(curve, 0.27, 0.22, 0.05), std::optional<size_t>(1));
    EXPECT_EQ(CurveEdit::hit(curve, 0.6, 0.2, 0.05), std::nullopt);

    // Only an inner point leaves, and only once it is clearly off the graph.
    EXPECT_FALSE(CurveEdit::dropsOff(curve, 1, 0.5, 1.05));
    EXPECT_TRUE(CurveEdit::dropsOff(curve, 1, 0.5, 1.2));
    EXPECT_TRUE(CurveEdit::dropsOff(curve, 2, -0.2, 0.5));
    EXPECT_FALSE(CurveEdit::dropsOff(curve, 0, -0.5, 0.5));
    EXPECT_FALSE(CurveEdit::dropsOff(curve, 3, 1.5, 0.5));

    // The graph draws what the renderer computes.
    std::vector<CurvePoint> lift{{0, 0}, {0.5, 0.75}, {1, 1}};
    EXPECT_NEAR(CurveEdit::value(lift, 0.5), 0.75, 0.002);
    EXPECT_NEAR(CurveEdit::value({{0, 0}, {1, 1}}, 0.3), 0.3, 0.002);
}

TEST_F(WindowModelTest, ANewAdjustmentOverASelectionIsMaskedToIt) {
    newRamp(0, 255);
    model.addAdjustment(AdjustmentType::invert);
    EXPECT_FALSE(model.doc()->activeLayer()->hasMask());

    SelectionTools::Mask left(size_t(64 * 16), 0);
    for (int64_t y = 0; y < 16; ++y)
        for (int64_t x = 0; x < 32; ++x)
            left[size_t(y * 64 + x)] = 255;
    model.setSelection(left, "Marquee");
    model.addAdjustment(AdjustmentType::invert);
    EXPECT_EQ(model.doc()->undoName(), std::optional<std::string>("New Invert"));
    EXPECT_TRUE(model.doc()->activeLayer()->hasMask());
    EXPECT_FALSE(model.editMask) << "the new layer's settings, not its mask, are what the user edits next";
    // Two inverts cancel inside the selection; outside, only the first applies.
    const auto flat = model.doc()->flattened();
    EXPECT_EQ(flat->pixel(10, 5)[0], uint8_t(10 * 255 / 63));
    EXPECT_EQ(flat->pixel(50, 5)[0], uint8_t(255 - 50 * 255 / 63));
    model.undo();
    EXPECT_EQ(model.doc()->layers.size(), 3u) << "layer and mask were one step";
}

TEST_F(WindowModelTest, FailedOpensAreToldTogetherAndAFolderIsCalledOne) {
    const auto good = writePNG("Good.png");
    const auto folder = temp / "Holiday";
    std::filesystem::create_directories(folder);
    const auto junk = temp / "junk.jpg";
    writeFileAtomically(junk.string(), std::vector<uint8_t>(100, 7));

    model.openAll({folder, good, junk, temp / "gone.png"});
    EXPECT_EQ(model.sessions.size(), 1u);
    ASSERT_TRUE(model.alert);
    EXPECT_EQ(model.alert->title, "Can't open 3 pictures");
    const std::string& m = model.alert->message;
    EXPECT_NE(m.find("\u201CHoliday\u201D is a folder, not a picture."), std::string::npos) << m;
    EXPECT_NE(m.find("\u201Cjunk.jpg\u201D: "), std::string::npos) << m;
    EXPECT_NE(m.find("\u201Cgone.png\u201D: "), std::string::npos) << m;
    EXPECT_EQ(std::count(m.begin(), m.end(), '\n'), 2);

    model.dismissAlert();
    host.openAnswers.push_back({folder});
    model.openPanel();
    ASSERT_TRUE(model.alert);
    EXPECT_EQ(model.alert->title, "Can't open \u201CHoliday\u201D");
    EXPECT_EQ(model.alert->message,
              "\u201CHoliday\u201D is a folder, not a picture. Open the pictures inside it instead.");
}

TEST_F(WindowModelTest, FilePanelsStartInThePicturesFolderOrTheLastOneUsed) {
    const auto home = temp / "home";
    const auto shoots = temp / "shoots";
    const auto exports = temp / "exports";
    for (const auto& f : {home, shoots, exports})
        std::filesystem::create_directories(f);
    EXPECT_EQ(dialogFolder(std::nullopt, std::nullopt, home), home);
    EXPECT_EQ(dialogFolder(shoots / "a.jpg", exports, home), shoots);
    EXPECT_EQ(dialogFolder(temp / "deleted" / "a.jpg", exports, home), exports);
    EXPECT_EQ(dialogFolder(std::nullopt, temp / "deleted", home), home);

    // An opened photo has no document file yet, but Save As proposes its name in its folder.
    std::filesystem::copy_file(writePNG("Beach.png"), shoots / "Beach.png");
    model.open(shoots / "Beach.png");
    model.save(false);
    ASSERT_EQ(host.savePanels.size(), 1u);
    EXPECT_EQ(host.savePanels[0].folder, shoots);
    EXPECT_EQ(host.savePanels[0].suggestedName, "Beach.korvstudio");
    EXPECT_EQ(host.savePanels[0].message.find("PSD"), std::string::npos);

    // A new picture has no folder: the one used last for an export serves.
    host.saveAnswers.push_back(exports / "Beach.png");
    model.exportPicture(PhotoExportOptions(PhotoExportFormat::png));
    model.newDocument(10, 10, 72, PaintColor::white(), "Card");
    model.save(true);
    EXPECT_EQ(host.savePanels.back().folder, exports);
}

TEST_F(WindowModelTest, TheStatusLineForgetsWhatIsGone) {
    newRamp(0, 255);
    model.addLayer();
    model.undo();
    EXPECT_EQ(model.status, "Undo New Layer");
    model.addAdjustment(AdjustmentType::invert);
    EXPECT_TRUE(model.status.empty()) << "a new step makes the undo's news stale";
    model.setStatus("Ramp \u2014 64 \u00D7 16 px");
    host.alertAnswers.push_back(2); // Don't Save
    model.close();
    EXPECT_TRUE(model.sessions.empty());
    EXPECT_TRUE(model.status.empty());
}

} // namespace
} // namespace korv
