// The Image menu's commands and Move as history steps, and what they tell
// the canvas.
#include "FakeHost.h"
#include "app/model/StudioModel.h"
#include "engine/core/Selection.h"

#include <gtest/gtest.h>

namespace korv {
namespace {

using test::FakeHost;

// Counts what the model asks of the canvas.
struct CountingCanvas : CanvasLink {
    int shown = 0, refreshed = 0;
    void showSession(DocSession&) override { ++shown; }
    void clear() override {}
    void refresh() override { ++refreshed; }
    bool isBusy() const override { return false; }
};

struct ImageCommandsTest : ::testing::Test {
    FakeHost host;
    StudioModel model{host, false};
    CountingCanvas canvas;

    void SetUp() override {
        model.newDocument(300, 200, 72, PaintColor::white());
        model.canvas = &canvas;
        model.current()->needsFit = false;
    }
    StudioDocument& doc() { return *model.doc(); }
    int64_t steps() { return int64_t(doc().history().size()); }
    std::string lastStep() { return doc().undoName().value_or(""); }
};

TEST_F(ImageCommandsTest, EachIsOneNamedStepThatRefitsTheCanvasAndUndoesWhole) {
    const int64_t before = steps();
    model.resizeImage(600, 400);
    EXPECT_EQ(lastStep(), "Image Size");
    EXPECT_EQ(doc().width(), 600);
    EXPECT_TRUE(model.current()->needsFit);
    EXPECT_EQ(canvas.shown, 1);

    model.resizeCanvas(700, 400, 0, 0);
    EXPECT_EQ(lastStep(), "Canvas Size");
    model.rotate(1);
    EXPECT_EQ(lastStep(), "Rotate");
    EXPECT_EQ(doc().width(), 400);
    model.flip(true);
    EXPECT_EQ(lastStep(), "Flip Horizontal");
    model.flip(false);
    EXPECT_EQ(lastStep(), "Flip Vertical");
    doc().setSelection(Selection::make(
        [] {
            Path p;
            p.addRect({10, 20, 50, 40});
            return p;
        }(),
        SelectionOp::replace, nullptr, doc().width(), doc().height(), false));
    model.cropToSelection();
    EXPECT_EQ(lastStep(), "Crop");
    EXPECT_EQ(doc().width(), 50);
    EXPECT_EQ(doc().height(), 40);
    EXPECT_EQ(steps(), before + 6);

    // Undo brings the size back, and the canvas is given the new grid; a
    // step that keeps the size only refreshes it.
    const int shown = canvas.shown;
    model.undo();
    EXPECT_EQ(doc().width(), 400);
    EXPECT_EQ(doc().height(), 700);
    EXPECT_EQ(canvas.shown, shown + 1);
    model.undo();
    EXPECT_EQ(canvas.shown, shown + 1);
    model.redo();
    EXPECT_EQ(canvas.shown, shown + 1);
    model.redo();
    EXPECT_EQ(doc().width(), 50);
    EXPECT_EQ(canvas.shown, shown + 2);
}

TEST_F(ImageCommandsTest, RefusalsLeaveNoStep) {
    const int64_t before = steps();
    model.resizeImage(30001, 10);
    model.resizeImage(0, 10);
    model.resizeImage(300, 200); // the size it has
    model.resizeCanvas(10, 10, std::nan(""), 0);
    model.rotate(4);
    model.cropToSelection(); // no selection
    EXPECT_EQ(steps(), before);
    EXPECT_EQ(canvas.shown, 0);
    EXPECT_EQ(doc().width(), 300);

    model.resizeImage(30000, 1);
    EXPECT_EQ(doc().width(), 30000);

    // Move: a locked layer says so and stays.
    model.undo();
    const Uuid id = *doc().activeID;
    model.toggleLock(id);
    const int64_t locked = steps();
    model.moveLayerBy(5, 5);
    EXPECT_EQ(steps(), locked);
    EXPECT_NE(model.status.find("is locked"), std::string::npos);
    model.toggleLock(id);
    model.moveLayerBy(5, -3);
    EXPECT_EQ(lastStep(), "Move");
    EXPECT_EQ(doc().find(id)->pixels->pixel(2, 2)[3], 0); // uncovered at the left
}

} // namespace
} // namespace korv
