// Shape layers: outlines of the seven kinds, fill and stroke, and the tiles
// that a drawing touches.
#include "TestLayers.h"
#include "engine/render/StudioRenderer.h"
#include "engine/render/VectorRender.h"

#include <gtest/gtest.h>

namespace korv {
namespace {

const RGBA kRed(1, 0, 0, 1);
const RGBA kGreen(0, 1, 0, 1);

ShapeSpec box(ShapeKind kind, double x, double y, double w, double h) {
    ShapeSpec s(kind);
    s.x = x, s.y = y, s.w = w, s.h = h;
    s.fillColor = kRed;
    s.strokeColor = kGreen;
    return s;
}

int64_t presentTiles(const TileSet& set) {
    int64_t n = 0;
    for (const TilePtr& t : set.tiles)
        n += t != nullptr;
    return n;
}

TEST(VectorShape, ARectangleFillsExactlyItsBoxOverABackground) {
    StudioLayer bg = test::solidLayer(TileGrid(400, 100), {255, 255, 255, 255});
    StudioLayer shape(Uuid::random(), "Rectangle", StudioLayerKind::shape);
    shape.shape = box(ShapeKind::rectangle, 300, 20, 50, 40);
    const StudioDocument doc(400, 100, 72, {bg, shape});
    EXPECT_EQ(StudioRenderer::pixel(doc, 325, 40), (Pixel4{255, 0, 0, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc, 300, 40), (Pixel4{255, 0, 0, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc, 349, 59), (Pixel4{255, 0, 0, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc, 299, 40), (Pixel4{255, 255, 255, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc, 350, 40), (Pixel4{255, 255, 255, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc, 360, 40), (Pixel4{255, 255, 255, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc, 325, 60), (Pixel4{255, 255, 255, 255}));
}

TEST(VectorShape, AStarHasPointsAndEmptyCorners) {
    const TileGrid grid(100, 100);
    const TileSet star = VectorRender::shape(box(ShapeKind::star, 20, 20, 60, 60), grid);
    EXPECT_EQ(star.alpha(50, 50), 255);
    EXPECT_GT(star.alpha(50, 21), 0); // the first point, straight up
    EXPECT_EQ(star.alpha(50, 25), 255);
    EXPECT_EQ(star.alpha(50, 28), 255);
    for (auto [x, y] : {std::pair{21, 21}, {78, 21}, {21, 78}, {78, 78}})
        EXPECT_EQ(star.alpha(x, y), 0) << x << ", " << y;
    // Between two points the outline is pulled in to 0.45 of the radius.
    EXPECT_EQ(star.alpha(68, 30), 0);

    // The same box as a polygon reaches the outer vertices only.
    EXPECT_EQ(VectorRender::path(box(ShapeKind::polygon, 20, 20, 60, 60)).points().size(), 6u);
    EXPECT_EQ(VectorRender::path(box(ShapeKind::star, 20, 20, 60, 60)).points().size(), 12u);
}

TEST(VectorShape, SidesAreClampedToThreeAndSixtyFour) {
    ShapeSpec s = box(ShapeKind::polygon, 0, 0, 90, 90);
    s.sides = 1;
    EXPECT_EQ(VectorRender::path(s).points().size(), 3u);
    s.sides = -7;
    EXPECT_EQ(VectorRender::path(s).points().size(), 3u);
    s.sides = 1000;
    EXPECT_EQ(VectorRender::path(s).points().size(), 64u);
    s.kind = ShapeKind::star;
    EXPECT_EQ(VectorRender::path(s).points().size(), 128u);
    // A triangle stands on its base with its tip straight up.
    s.kind = ShapeKind::polygon;
    s.sides = 1;
    const Path p = VectorRender::path(s);
    EXPECT_NEAR(p.points()[0].x, 45, 1e-9);
    EXPECT_NEAR(p.points()[0].y, 0, 1e-9);
    EXPECT_NEAR(p.boundingBox().maxY(), 45 + 45 * 0.5, 1e-9);
}

TEST(VectorShape, BoxesAreStandardisedAndTurnedAboutTheirCentre) {
    // A box drawn from its far corner is the same box.
    EXPECT_EQ(VectorRender::path(box(ShapeKind::rectangle, 110, 70, -100, -50)).boundingBox(),
              (Rect{10, 20, 100, 50}));
    ShapeSpec s = box(ShapeKind::rectangle, 10, 45, 100, 10);
    s.rotation = 90;
    const Rect turned = VectorRender::path(s).boundingBox();
    EXPECT_NEAR(turned.x, 55, 1e-9);
    EXPECT_NEAR(turned.y, 0, 1e-9);
    EXPECT_NEAR(turned.w, 10, 1e-9);
    EXPECT_NEAR(turned.h, 100, 1e-9);

    // Clockwise on screen: the arrow's tip, on the right, turns to the bottom.
    ShapeSpec arrow = box(ShapeKind::arrow, 0, 40, 100, 20);
    arrow.rotation = 90;
    const TileSet set = VectorRender::shape(arrow, TileGrid(100, 100));
    EXPECT_EQ(set.alpha(50, 90), 255);
    EXPECT_GT(set.alpha(50, 98), 0);
    EXPECT_EQ(set.alpha(50, 2), 255);
    EXPECT_EQ(set.alpha(45, 10), 0); // the shaft is 0.36 x 20 = 7.2 wide
    EXPECT_EQ(set.alpha(47, 10), 255);
    EXPECT_EQ(set.alpha(42, 70), 255); // the head is the box's full width
}

TEST(VectorShape, CornerRadiusIsLimitedToHalfTheShorterSide) {
    const TileGrid grid(200, 100);
    ShapeSpec s = box(ShapeKind::roundedRectangle, 50, 30, 100, 40);
    s.cornerRadius = 500;
    const TileSet set = VectorRender::shape(s, grid);
    // A radius of 20 leaves the top edge straight from x = 70 on; a corner
    // of half the width instead (50 by 20) would still curve there.
    EXPECT_EQ(set.alpha(75, 31), 255);
    EXPECT_EQ(set.alpha(51, 31), 0);
    EXPECT_EQ(set.alpha(100, 50), 255);
    // The ends are half circles: their middle reaches the box's edge.
    EXPECT_EQ(set.alpha(51, 50), 255);
    s.cornerRadius = -4;
    EXPECT_EQ(VectorRender::shape(s, grid).alpha(50, 30), 255);
}

TEST(VectorShape, StrokesAreCentredOnTheOutlineOverTheFill) {
    const TileGrid grid(200, 200);
    ShapeSpec s = box(ShapeKind::rectangle, 50, 50, 100, 100);
    s.strokeEnabled = true;
    s.strokeWidth = 10;
    const TileSet set = VectorRender::shape(s, grid);
    EXPECT_EQ(set.pixel(46, 100), (Pixel4{0, 255, 0, 255}));
    EXPECT_EQ(set.pixel(53, 100), (Pixel4{0, 255, 0, 255}));
    EXPECT_EQ(set.pixel(56, 100), (Pixel4{255, 0, 0, 255}));
    EXPECT_EQ(set.alpha(44, 100), 0);
    // Round joins: the corner's outside is a quarter circle.
    EXPECT_EQ(set.alpha(45, 45), 0);
    EXPECT_EQ(set.alpha(47, 48), 255);

    s.fillEnabled = false;
    const TileSet ring = VectorRender::shape(s, grid);
    EXPECT_EQ(ring.alpha(100, 100), 0);
    EXPECT_EQ(ring.pixel(50, 100), (Pixel4{0, 255, 0, 255}));
    s.strokeEnabled = false;
    EXPECT_TRUE(VectorRender::shape(s, grid).tiles.empty());
}

TEST(VectorShape, ALineIsNeverFilledAndShowsWithItsStrokeOff) {
    const TileGrid grid(200, 100);
    ShapeSpec s = box(ShapeKind::line, 150, 50, -100, 0);
    s.strokeWidth = 6;
    const TileSet left = VectorRender::shape(s, grid);
    EXPECT_EQ(left.pixel(100, 50), (Pixel4{255, 0, 0, 255})); // the fill colour
    EXPECT_EQ(left.pixel(60, 50), (Pixel4{255, 0, 0, 255}));
    EXPECT_EQ(left.alpha(160, 50), 0);
    EXPECT_EQ(left.alpha(100, 55), 0);
    EXPECT_GT(left.alpha(48, 50), 0); // a round cap beyond the end

    s.strokeEnabled = true;
    EXPECT_EQ(VectorRender::shape(s, grid).pixel(100, 50), (Pixel4{0, 255, 0, 255}));
    s.strokeWidth = 0;
    EXPECT_TRUE(VectorRender::shape(s, grid).tiles.empty());
    s.strokeWidth = -3;
    EXPECT_TRUE(VectorRender::shape(s, grid).tiles.empty());
}

TEST(VectorShape, DrawingTouchesOnlyTheTilesUnderIt) {
    const TileGrid grid(1000, 1000); // 4 x 4 tiles
    const TileSet small = VectorRender::shape(box(ShapeKind::ellipse, 300, 300, 100, 100), grid);
    EXPECT_EQ(presentTiles(small), 1);
    EXPECT_NE(small.tile(grid.indexAt(350, 350)), nullptr);
    EXPECT_TRUE(small.tile(grid.indexAt(350, 350))->frozen());

    // Across four tiles; the fifth that its margin reaches but its pixels
    // don't is dropped as empty.
    const TileSet across = VectorRender::shape(box(ShapeKind::rectangle, 200, 200, 100, 54), grid);
    EXPECT_EQ(presentTiles(across), 2);
    // Wholly off the canvas: nothing at all.
    EXPECT_TRUE(VectorRender::shape(box(ShapeKind::rectangle, -500, 10, 100, 100), grid).tiles.empty());
}

} // namespace
} // namespace korv
