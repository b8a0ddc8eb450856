// The edit wrapper, the panel bindings, pixel targets and the layer and
// selection commands as history steps.
#include "FakeHost.h"
#include "app/model/StudioModel.h"

#include <gtest/gtest.h>

namespace korv {
namespace {

using test::FakeHost;
using test::TempFolder;

struct EditTest : ::testing::Test {
    TempFolder temp;
    FakeHost host;
    StudioModel model{host, false};

    void SetUp() override {
        model.newDocument(64, 48, 72, PaintColor::white());
        // A fixed clock keeps every commit inside the coalescing window.
        doc().clock = [] { return Clock::time_point{}; };
    }
    StudioDocument& doc() { return *model.doc(); }
    int64_t steps() { return int64_t(doc().history().size()); }
    std::string lastStep() { return doc().undoName().value_or(""); }
    Uuid active() { return *doc().activeID; }
};

TEST_F(EditTest, ASliderDragIsOneStepAndOneUndoPutsItBack) {
    const Uuid id = active();
    auto opacity = model.bindLayer<double>(
        id, "Opacity", [](const StudioLayer& l) { return l.opacity; },
        [](StudioLayer& l, const double& v) { l.opacity = v; }, 1.0);
    const int64_t before = steps();
    for (double v : {0.9, 0.8, 0.7, 0.6, 0.5, 0.4})
        opacity.set(v);
    EXPECT_EQ(steps(), before + 1);
    EXPECT_EQ(lastStep(), "Opacity");
    EXPECT_DOUBLE_EQ(opacity.get(), 0.4);
    model.undo();
    EXPECT_DOUBLE_EQ(opacity.get(), 1.0);

    // A drag on another layer is a step of its own, and a gone layer reads the fallback.
    model.addLayer();
    const Uuid other = active();
    auto otherOpacity = model.bindLayer<double>(
        other, "Opacity", [](const StudioLayer& l) { return l.opacity; },
        [](StudioLayer& l, const double& v) { l.opacity = v; }, -1.0);
    opacity.set(0.3);
    otherOpacity.set(0.2);
    EXPECT_EQ(steps(), before + 3);
    model.deleteLayer(other);
    EXPECT_DOUBLE_EQ(otherOpacity.get(), -1.0);
    otherOpacity.set(0.1); // nothing to set: no step
    EXPECT_EQ(lastStep(), "Delete Layer");

    // An adjustment field is bound the same way, as "Adjust".
    model.addAdjustment(AdjustmentType::exposure);
    EXPECT_EQ(lastStep(), "New Exposure");
    auto exposure = model.bindAdj(active(), &AdjustmentSpec::exposure, 0.0);
    exposure.set(0.5);
    exposure.set(1.5);
    EXPECT_EQ(lastStep(), "Adjust");
    EXPECT_DOUBLE_EQ(doc().activeLayer()->adjustment->exposure, 1.5);
    model.undo();
    EXPECT_DOUBLE_EQ(exposure.get(), 0.0);
}

TEST_F(EditTest, UndoDuringALivePreviewRevertsItAndUndoesOneMore) {
    model.addLayer();
    const uint64_t committed = doc().fingerprint();
    const int64_t count = doc().changeCount();

    // A live filter writes uncommitted pixels; cancelling puts them back unchanged.
    model.preview = LivePreview{"gaussianBlur", {}, true};
    doc().update(active(), true, [&](StudioLayer& l) { l.pixels->setPixel(3, 3, {9, 9, 9, 9}); });
    model.cancelLive();
    EXPECT_FALSE(model.preview);
    EXPECT_EQ(doc().fingerprint(), committed);
    EXPECT_EQ(doc().changeCount(), count);

    model.preview = LivePreview{"gaussianBlur", {}, true};
    doc().update(active(), true, [&](StudioLayer& l) { l.pixels->setPixel(3, 3, {9, 9, 9, 9}); });
    model.undo();
    EXPECT_FALSE(model.preview);
    EXPECT_EQ(doc().layers.size(), 1u) << "the preview went, and so did New Layer";
    EXPECT_EQ(steps(), 2);
    EXPECT_TRUE(doc().canRedo());
}

TEST_F(EditTest, RedoWithNothingToRedoLeavesALivePreviewAndCrop) {
    model.addLayer();
    model.preview = LivePreview{"gaussianBlur", {}, true};
    model.cropRect = CanvasRect{1, 2, 30, 20};
    ASSERT_FALSE(doc().canRedo());
    model.redo();
    EXPECT_TRUE(model.preview);
    EXPECT_TRUE(model.cropRect);
}

TEST_F(EditTest, MergeDownOfAHiddenPairIsRefusedWithAStatus) {
    model.addLayer();
    const Uuid upper = active();
    doc().update(upper, true, [](StudioLayer& l) { l.isVisible = false; });
    const int64_t before = steps();
    model.mergeDown();
    EXPECT_EQ(steps(), before);
    EXPECT_EQ(doc().layers.size(), 2u);
    EXPECT_NE(model.status.find("Layer 1"), std::string::npos) << model.status;
}

TEST_F(EditTest, PixelTargetTellsWhyNothingCanBeWritten) {
    const Uuid base = active();
    EXPECT_EQ(model.pixelTarget(false), (PixelTarget{base, false}));

    model.addMask(NewMask::revealAll);
    EXPECT_EQ(lastStep(), "Add Layer Mask");
    EXPECT_TRUE(model.editMask);
    EXPECT_EQ(model.pixelTarget(false), (PixelTarget{base, true}));

    model.toggleLock(base);
    EXPECT_EQ(model.pixelTarget(false), std::nullopt);
    EXPECT_EQ(model.status, "\u201CBackground\u201D is locked. Unlock it in the Layers panel to change it.")
        << "a lock is reported before the mask is chosen";
    model.status.clear();
    EXPECT_EQ(model.pixelTarget(true), std::nullopt);
    EXPECT_EQ(model.status, "");

    model.addAdjustment(AdjustmentType::invert);
    EXPECT_EQ(model.pixelTarget(false), std::nullopt);
    EXPECT_EQ(model.status,
              "\u201CInvert 1\u201D is a adjustment layer. Choose a pixel layer, edit its mask, "
              "or use Layer \u2192 Rasterize.");

    // Choosing a layer without a mask leaves mask editing, and is no step.
    const int64_t before = steps();
    model.select(base);
    EXPECT_TRUE(model.editMask) << "the chosen layer has a mask";
    model.addLayer();
    model.setEditMask(true);
    const Uuid plain = active();
    model.select(base);
    model.select(plain);
    EXPECT_FALSE(model.editMask);
    EXPECT_EQ(steps(), before + 1);
}

TEST_F(EditTest, CommandsThatFindNothingToDoLeaveNoStep) {
    const int64_t start = steps();
    model.deselect();        // no selection
    model.invertSelection(); // no selection
    model.rasterize();       // a pixel layer
    model.mergeDown();       // the bottom layer
    model.moveLayer(true);   // already on top
    model.ungroup();         // not a group
    model.deleteMask();      // no mask
    model.applyMask();       // no mask
    model.invertMask();      // no mask
    model.rename(active(), "Background");
    model.toggleMaskEnabled();
    EXPECT_EQ(steps(), start);
    EXPECT_EQ(doc().layers.size(), 1u);

    model.selectAll();
    model.invertSelection();
    EXPECT_EQ(lastStep(), "Invert Selection");
    EXPECT_FALSE(doc().selection) << "the inverse of everything is nothing";
    model.deselect();
    EXPECT_EQ(steps(), start + 2);
}

TEST_F(EditTest, LayerCommandsAreNamedStepsThatUndoWhole) {
    struct Case {
        std::function<void()> run;
        const char* step;
    };
    const std::vector<Case> cases = {
        {[&] { model.addLayer(); }, "New Layer"},
        {[&] { model.duplicateLayer(); }, "Duplicate Layer"},
        {[&] { model.moveLayer(false); }, "Move Layer Down"},
        {[&] { model.moveLayer(true); }, "Move Layer Up"},
        {[&] { model.addGroup(); }, "New Group"},
        {[&] { model.ungroup(); }, "Ungroup"},
        {[&] { model.addFill(FillKind::linearGradient); }, "New Fill Layer"},
        {[&] { model.rasterize(); }, "Rasterize Layer"},
        {[&] { model.mergeDown(); }, "Merge Down"},
        {[&] { model.toggleClip(); }, "Clipping Mask"},
        {[&] { model.toggleVisible(active()); }, "Show / Hide"},
        {[&] { model.rename(active(), "Sky"); }, "Rename Layer"},
        {[&] { model.addMask(NewMask::hideAll); }, "Add Layer Mask"},
        {[&] { model.invertMask(); }, "Invert Mask"},
        {[&] { model.toggleMaskEnabled(); }, "Mask On / Off"},
        {[&] { model.applyMask(); }, "Apply Mask"},
        {[&] { model.stampVisible(); }, "Stamp Visible"},
        {[&] { model.deleteLayer(); }, "Delete Layer"},
        {[&] { model.selectAll(); }, "Select All"},
        {[&] { model.selectLayerShape(); }, "Select Layer Shape"},
        {[&] { model.flatten(); }, "Flatten Image"},
    };
    for (const auto& c : cases) {
        const uint64_t before = doc().fingerprint();
        const auto selection = doc().selection;
        const int64_t count = steps();
        c.run();
        ASSERT_EQ(steps(), count + 1) << c.step;
        EXPECT_EQ(lastStep(), c.step);
        const bool changed = doc().fingerprint() != before || doc().selection != selection;
        EXPECT_TRUE(changed) << c.step;
    }
    EXPECT_EQ(doc().layers.size(), 1u);
    EXPECT_EQ(doc().layers[0].name, "Background");

    // Jumping back to the start keeps every later step reachable.
    const int64_t last = doc().cursor();
    model.jumpHistory(0);
    EXPECT_EQ(doc().layers.size(), 1u);
    EXPECT_EQ(doc().layers[0].children.size(), 0u);
    model.jumpHistory(last);
    EXPECT_EQ(lastStep(), "Flatten Image");
}

TEST_F(EditTest, WandClicksAndRefinementsAreSelectionSteps) {
    // Left half red on the white background layer, sampled from the active layer.
    model.sampleAllLayers = false;
    doc().update(active(), true, [](StudioLayer& l) {
        for (int64_t y = 0; y < 48; ++y)
            for (int64_t x = 0; x < 32; ++x)
                l.pixels->setPixel(x, y, {200, 0, 0, 255});
    });
    doc().commit("Paint");
    model.wandTolerance = 10;
    model.magicWandClick(64, 0); // off the picture
    EXPECT_EQ(lastStep(), "Paint");
    model.magicWandClick(5, 5);
    EXPECT_EQ(lastStep(), "Magic Wand");
    ASSERT_TRUE(doc().selection);
    EXPECT_EQ(doc().selection->bounds(), (IRect{0, 0, 32, 48}));

    // Shift adds the white half; Alt then takes the red half away again.
    model.magicWandClick(40, 5, SelectionOp::add);
    EXPECT_EQ(doc().selection->bounds(), (IRect{0, 0, 64, 48}));
    model.magicWandClick(5, 5, SelectionOp::subtract);
    EXPECT_EQ(doc().selection->bounds(), (IRect{32, 0, 32, 48}));

    model.refineSelection("grow", 4);
    EXPECT_EQ(lastStep(), "Selection: Grow");
    EXPECT_EQ(doc().selection->bounds(), (IRect{28, 0, 36, 48}));
    model.refineSelection("shrink", 4);
    EXPECT_EQ(lastStep(), "Selection: Shrink");
    EXPECT_EQ(doc().selection->bounds(), (IRect{32, 0, 32, 48}));
    // The border slider starts at 1: one pixel outside the edge.
    model.refineSelection("border", 1);
    EXPECT_EQ(lastStep(), "Selection: Border");
    EXPECT_EQ(doc().selection->bounds(), (IRect{31, 0, 1, 48}));
    model.undo();
    // Around the whole canvas there is no edge: nothing would be selected, so no step.
    model.selectAll();
    const int64_t before = steps();
    model.refineSelection("border", 4);
    EXPECT_EQ(steps(), before);
    EXPECT_TRUE(doc().selection);
    model.undo();
    model.refineSelection("feather", 3);
    EXPECT_EQ(lastStep(), "Selection: Feather");
    EXPECT_GT(doc().selection->value(31, 20), 0);
    EXPECT_LT(doc().selection->value(32, 20), 255);

    // A mask from the selection hides what is not selected.
    model.refineSelection("smooth", 0);
    model.addMask(NewMask::revealSelection);
    const StudioLayer layer = *doc().activeLayer();
    EXPECT_EQ(layer.maskValue(10, 10), 0);
    EXPECT_EQ(layer.maskValue(50, 10), 255);
    model.deselect();
    model.selectMaskArea();
    EXPECT_EQ(lastStep(), "Select Mask");
    EXPECT_EQ(doc().selection->bounds(), (IRect{32, 0, 32, 48}));
}

TEST_F(EditTest, SnapshotsAreNamedInOrderAndRestoreAsAStep) {
    model.addLayer();
    model.takeSnapshot();
    model.takeSnapshot();
    ASSERT_EQ(doc().snapshots().size(), 2u);
    EXPECT_EQ(doc().snapshots()[1].name.rfind("Snapshot 2 \u2014 ", 0), 0u);
    const Uuid first = doc().snapshots()[0].id;
    model.deleteLayer();
    model.restoreSnapshot(first);
    EXPECT_EQ(doc().layers.size(), 2u);
    EXPECT_EQ(lastStep().rfind("Snapshot: Snapshot 1", 0), 0u);
}

} // namespace
} // namespace korv
