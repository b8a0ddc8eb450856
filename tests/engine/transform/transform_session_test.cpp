#include "TestLayers.h"
#include "engine/core/Selection.h"
#include "engine/transform/Homography.h"
#include "engine/transform/TransformSession.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace korv;

namespace {

constexpr Pixel4 kOpaque{200, 40, 20, 255};

// 100 x 100 with an opaque 20 x 20 square from (40, 40) to (60, 60).
struct Square {
    std::unique_ptr<StudioDocument> doc;
    Uuid id;
    explicit Square(Pixel4 colour = kOpaque) {
        const TileGrid grid(100, 100);
        StudioLayer l = test::solidLayer(grid, colour, {40, 40, 20, 20}, "Square");
        id = l.id;
        doc = std::make_unique<StudioDocument>(100, 100, 72.0, std::vector<StudioLayer>{l});
    }
    const TileSet& pixels() const { return *doc->find(id)->pixels; }
};

IRect boundsOf(const TileSet& t) {
    return t.contentBounds().value_or(IRect{});
}

} // namespace

TEST(Homography, UnitSquareMapsCornersAndSurvivesDegenerateQuads) {
    const std::vector<Point> quad{{10, 10}, {90, 20}, {80, 70}, {5, 60}};
    const Homography h = Homography::unitSquare(quad);
    const Point at[4] = {h.map(0, 0), h.map(1, 0), h.map(1, 1), h.map(0, 1)};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(at[i].x, quad[size_t(i)].x, 1e-9);
        EXPECT_NEAR(at[i].y, quad[size_t(i)].y, 1e-9);
    }
    // All four on one line: no crash, and nothing but finite or infinite numbers.
    const Homography flat = Homography::unitSquare({{0, 0}, {10, 0}, {20, 0}, {30, 0}});
    (void)flat.map(0.5, 0.5);

    // Sixteen evenly spaced points are the identity patch.
    std::vector<Point> even(16);
    for (size_t i = 0; i < 16; ++i)
        even[i] = {double(i & 3) / 3 * 30, double(i >> 2) / 3 * 60};
    const Point p = Bezier::patch(even, 0.25, 0.8);
    EXPECT_NEAR(p.x, 7.5, 1e-12);
    EXPECT_NEAR(p.y, 48, 1e-12);
}

TEST(TransformSession, FreeScaleAndRotationReshapeTheSquare) {
    Square s;
    auto session = beginTransform(*s.doc, s.id, false);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->source, (IRect{40, 40, 20, 20}));
    // The lifted square leaves nothing behind in the base.
    EXPECT_TRUE(session->base.isEmpty());

    // Twice the size about the centre (50, 50).
    session->affine = AffineTransform::translation(-50, -50)
                          .then(AffineTransform::scale(2, 2))
                          .then(AffineTransform::translation(50, 50));
    previewTransform(*s.doc, *session);
    EXPECT_EQ(boundsOf(s.pixels()), (IRect{30, 30, 40, 40}));
    EXPECT_EQ(s.pixels().pixel(31, 31), kOpaque);
    EXPECT_EQ(s.pixels().pixel(68, 68), kOpaque);

    // 45 degrees: the outline widens to about 28 pixels.
    session->affine = AffineTransform::translation(-50, -50)
                          .then(AffineTransform::rotation(M_PI / 4))
                          .then(AffineTransform::translation(50, 50));
    previewTransform(*s.doc, *session);
    const IRect b = boundsOf(s.pixels());
    EXPECT_NEAR(double(b.w), 29, 1.5); // 28.3 and its antialiased edge pixels
    EXPECT_NEAR(double(b.h), 29, 1.5);
    EXPECT_EQ(s.pixels().pixel(50, 50), kOpaque);

    // Apply commits it for good and drops the selection.
    s.doc->selectAll();
    applyTransform(*s.doc, *session);
    EXPECT_FALSE(s.doc->selection);
    s.doc->commit("Transform");
    s.doc->undo();
    EXPECT_EQ(boundsOf(s.pixels()), (IRect{40, 40, 20, 20}));
}

TEST(TransformSession, PerspectiveAndWarpKeepThePictureUntilTheirPointsMove) {
    // A half-transparent square too: a pixel drawn twice where two mesh
    // triangles meet would show there as a darker seam.
    for (Pixel4 colour : {kOpaque, Pixel4{60, 20, 10, 128}}) {
        Square soft(colour);
        auto untouched = beginTransform(*soft.doc, soft.id, false);
        ASSERT_TRUE(untouched);
        for (TransformMode mode : {TransformMode::perspective, TransformMode::warp}) {
            untouched->mode = mode;
            previewTransform(*soft.doc, *untouched);
            for (int y = 40; y < 60; ++y)
                for (int x = 40; x < 60; ++x)
                    ASSERT_EQ(soft.pixels().pixel(x, y), colour) << toString(mode) << " at " << x << "," << y;
            EXPECT_EQ(boundsOf(soft.pixels()), (IRect{40, 40, 20, 20})) << toString(mode);
        }
    }
    Square s;
    auto session = beginTransform(*s.doc, s.id, false);
    ASSERT_TRUE(session);

    // Perspective with the bottom corners pulled apart: a trapezoid.
    session->reset();
    session->mode = TransformMode::perspective;
    session->corners[2] = {80, 80};
    session->corners[3] = {20, 80};
    previewTransform(*s.doc, *session);
    EXPECT_EQ(s.pixels().pixel(25, 78), kOpaque);
    EXPECT_EQ(s.pixels().pixel(25, 42)[3], 0);
    EXPECT_EQ(s.pixels().pixel(50, 42), kOpaque);

    // Warp: pulling the bottom-right point stretches that corner only.
    session->reset();
    session->mode = TransformMode::warp;
    session->warp[15] = {90, 90};
    previewTransform(*s.doc, *session);
    EXPECT_EQ(s.pixels().pixel(41, 41), kOpaque);
    EXPECT_EQ(s.pixels().pixel(39, 39)[3], 0);
    EXPECT_GT(s.pixels().pixel(86, 86)[3], 0);
}

TEST(TransformSession, SoftSelectionsMasksAndEmptyLayersLiftExactly) {
    Square s;
    // Nothing to transform: an empty layer, or a selection that covers no pixel.
    StudioDocument empty(50, 50);
    EXPECT_FALSE(beginTransform(empty, empty.layers[0].id, false));
    EXPECT_FALSE(beginTransform(*s.doc, Uuid::random(), false));

    // A selection of value 128 over the square lifts about half of each pixel;
    // the two halves add up to the pixel, and a cancel leaves it untouched.
    std::vector<uint8_t> half(100 * 100, 0);
    for (int y = 45; y < 55; ++y)
        for (int x = 45; x < 55; ++x)
            half[size_t(y * 100 + x)] = 128;
    s.doc->setSelection(Selection::fromMask(half, 100, 100));
    const uint64_t before = s.doc->fingerprint();
    auto session = beginTransform(*s.doc, s.id, false);
    ASSERT_TRUE(session);
    EXPECT_EQ(session->source, (IRect{45, 45, 10, 10}));
    const Pixel4 lifted = session->floating->pixel(3, 3), kept = session->base.pixel(48, 48);
    EXPECT_NEAR(lifted[3], 128, 1);
    for (int ch = 0; ch < 4; ++ch)
        EXPECT_NEAR(int(lifted[size_t(ch)]) + int(kept[size_t(ch)]), int(kOpaque[size_t(ch)]), 1);
    EXPECT_EQ(s.doc->fingerprint(), before); // lifting alone changes nothing

    // A mask transforms its grey values the same way.
    s.doc->setSelection(nullptr);
    s.doc->addMask(s.id, NewMask::revealAll);
    s.doc->update(s.id, false, [](StudioLayer& l) { l.mask->setPixel(10, 10, {255, 255, 255, 255}); });
    auto masked = beginTransform(*s.doc, s.id, true);
    ASSERT_TRUE(masked);
    EXPECT_TRUE(masked->editingMask);
    EXPECT_EQ(masked->source, (IRect{10, 10, 1, 1}));
    masked->affine = AffineTransform::translation(5, 0);
    previewTransform(*s.doc, *masked);
    EXPECT_EQ(s.doc->find(s.id)->mask->alpha(15, 10), 255);
    EXPECT_EQ(s.doc->find(s.id)->mask->alpha(10, 10), 0);
    EXPECT_EQ(s.pixels().pixel(50, 50), kOpaque); // the pixels didn't move
}

TEST(TransformSession, ShrinkingAveragesFineDetailInsteadOfAliasing) {
    // One-pixel black and white columns, made a quarter of their size: what
    // a photographer expects is an even grey, not a few surviving stripes.
    const TileGrid grid(400, 400);
    StudioLayer l = StudioLayer::pixelLayer("Stripes", grid);
    for (int y = 100; y < 300; ++y)
        for (int x = 100; x < 300; ++x) {
            const uint8_t v = (x & 1) ? 255 : 0;
            l.pixels->setPixel(x, y, {v, v, v, 255});
        }
    const Uuid id = l.id;
    StudioDocument doc(400, 400, 72.0, std::vector<StudioLayer>{l});
    auto session = beginTransform(doc, id, false);
    ASSERT_TRUE(session);
    session->affine = AffineTransform::translation(-200, -200)
                          .then(AffineTransform::scale(0.25, 0.25))
                          .then(AffineTransform::translation(200, 200));
    previewTransform(doc, *session);
    const TileSet& out = *doc.find(id)->pixels;
    for (int y = 180; y < 220; y += 7)
        for (int x = 180; x < 220; x += 3)
            EXPECT_NEAR(out.pixel(x, y)[0], 128, 12) << x << "," << y;
}
