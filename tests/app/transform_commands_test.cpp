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

#include "app/model/TransformHandles.h"

namespace korv {
namespace {

TEST_F(TransformTest, HandlesHitAndDragAsTheCanvasUsesThem) {
    model.beginTransform(TransformMode::free);
    TransformSession& s = *model.transform; // the square (30, 20)-(50, 40)
    const auto handles = transformHandlePoints(s);
    ASSERT_EQ(handles.size(), 8u);
    EXPECT_EQ(handles[1], (Point{40, 20}));
    EXPECT_EQ(handles[7], (Point{30, 30}));
    // 9 view points at 2x zoom are 4.5 canvas pixels.
    EXPECT_EQ(transformHit(s, {50 + 4, 40}, 2.0), 4);
    EXPECT_FALSE(transformHit(s, {50 + 5, 40}, 2.0));
    EXPECT_EQ(transformMiss(s, {35, 35}), kTransformMoveAll);
    EXPECT_EQ(transformMiss(s, {90, 70}), kTransformRotate);

    // The bottom right corner dragged out by 10, 20: the top left stays.
    TransformStart start = TransformStart::of(s, {50, 40});
    dragTransform(s, start, 4, {60, 60}, false);
    auto c = s.shownCorners();
    EXPECT_NEAR(c[0].x, 30, 1e-9);
    EXPECT_NEAR(c[2].x, 60, 1e-9);
    EXPECT_NEAR(c[2].y, 60, 1e-9);
    // With shift a corner keeps proportions; a side handle scales one way only.
    dragTransform(s, start, 4, {60, 45}, true);
    c = s.shownCorners();
    EXPECT_NEAR(c[2].x - c[0].x, c[2].y - c[0].y, 1e-9);
    dragTransform(s, start, 3, {70, 90}, false);
    c = s.shownCorners();
    EXPECT_NEAR(c[2].x, 70, 1e-9);
    EXPECT_NEAR(c[2].y, 40, 1e-9);

    // Rotation with shift snaps down to whole 15-degree steps.
    s.reset();
    start = TransformStart::of(s, {60, 30}); // right of the centre (40, 30)
    const double twentyDegrees = 20 * M_PI / 180;
    dragTransform(s, start, kTransformRotate,
                  {40 + 20 * std::cos(twentyDegrees), 30 + 20 * std::sin(twentyDegrees)}, true);
    EXPECT_NEAR(std::atan2(s.affine.b, s.affine.a), 15 * M_PI / 180, 1e-9);

    // Perspective and warp points follow the drag; inside moves them all.
    model.setTransformMode(TransformMode::perspective);
    start = TransformStart::of(s, {35, 35});
    dragTransform(s, start, kTransformMoveAll, {40, 35}, false);
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(s.corners[i].x, start.corners[i].x + 5, 1e-9);
    EXPECT_FALSE(transformMiss(s, {90, 70})); // outside does nothing here
    model.cancelTransform();
}

} // namespace
} // namespace korv
