// Transforms as a live state of the model: one step on apply, none on cancel.
#include "FakeHost.h"
#include "app/model/StudioModel.h"

#include <gtest/gtest.h>

namespace korv {
namespace {

using test::FakeHost;

struct TransformTest : ::testing::Test {
    FakeHost host;
    StudioModel model{host, false};

    void SetUp() override {
        model.newDocument(100, 80, 72, std::nullopt);
        doc().update(*doc().activeID, false, [](StudioLayer& l) {
            for (int y = 20; y < 40; ++y)
                for (int x = 30; x < 50; ++x)
                    l.pixels->setPixel(x, y, {0, 0, 255, 255});
        });
        doc().commit("Paint");
    }
    StudioDocument& doc() { return *model.doc(); }
    int64_t steps() { return int64_t(doc().history().size()); }
};

TEST_F(TransformTest, ApplyIsOneStepAndCancelOrUndoLeaveNoTrace) {
    const uint64_t before = doc().fingerprint();
    const int64_t count = steps();
    model.beginTransform(TransformMode::free);
    ASSERT_TRUE(model.transform);
    EXPECT_NE(model.status.find("Return applies"), std::string::npos);
    model.transform->affine = AffineTransform::translation(10, 5);
    model.updateTransform();
    EXPECT_EQ(doc().find(*doc().activeID)->pixels->pixel(45, 27)[3], 255);
    EXPECT_EQ(steps(), count); // a preview is no step
    model.cancelTransform();
    EXPECT_FALSE(model.transform);
    EXPECT_EQ(doc().fingerprint(), before);
    EXPECT_EQ(steps(), count);

    // Undo while dragging drops the transform and undoes the step before it.
    model.beginTransform(TransformMode::free);
    model.transform->affine = AffineTransform::translation(10, 5);
    model.updateTransform();
    model.undo();
    EXPECT_FALSE(model.transform);
    EXPECT_FALSE(doc().canUndo()); // "Paint" was undone
    model.redo();

    model.beginTransform(TransformMode::free);
    model.transform->affine = AffineTransform::translation(-30, 0);
    model.updateTransform();
    model.applyTransform();
    EXPECT_EQ(steps(), count + 1);
    EXPECT_EQ(doc().undoName().value_or(""), "Transform");
    EXPECT_EQ(doc().find(*doc().activeID)->pixels->pixel(5, 25)[3], 255);
    EXPECT_EQ(doc().find(*doc().activeID)->pixels->pixel(45, 25)[3], 0);
}

TEST_F(TransformTest, ModeChangesKeepTheShapeAndRefusalsSaySo) {
    model.beginTransform(TransformMode::free);
    model.transform->affine = AffineTransform::scale(1.5, 1.0);
    const auto shown = model.transform->shownCorners();
    model.setTransformMode(TransformMode::perspective);
    EXPECT_EQ(model.transform->corners, shown);
    model.setTransformMode(TransformMode::warp);
    EXPECT_NEAR(model.transform->warp[15].x, shown[2].x, 1e-9);
    EXPECT_NEAR(model.transform->warp[12].y, shown[3].y, 1e-9);
    model.setTransformMode(TransformMode::free);
    EXPECT_EQ(model.transform->affine, AffineTransform::scale(1.5, 1.0));
    model.cancelTransform();

    model.addLayer(); // empty
    model.beginTransform(TransformMode::free);
    EXPECT_FALSE(model.transform);
    EXPECT_EQ(model.status, "Nothing to transform on this layer.");

    model.toggleLock(*doc().activeID);
    model.beginTransform(TransformMode::warp);
    EXPECT_FALSE(model.transform);
    EXPECT_NE(model.status.find("is locked"), std::string::npos);
}

} // namespace
} // namespace korv
