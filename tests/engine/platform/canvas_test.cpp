#include "engine/platform/Canvas2D.h"

#include <gtest/gtest.h>
#include <vector>

using namespace korv;

namespace {

Path rectPath(double x, double y, double w, double h) {
    Path p;
    p.addRect({x, y, w, h});
    return p;
}

// A grey plane of width x height drawn by fn, with rows exactly width bytes apart.
std::vector<uint8_t> grayPlane(int64_t width, int64_t height, const std::function<void(Canvas2D&)>& fn) {
    std::vector<uint8_t> plane(size_t(width * height), 0);
    auto canvas = Canvas2D::gray(plane.data(), width, height, width);
    EXPECT_TRUE(canvas);
    if (canvas) fn(*canvas);
    return plane;
}

} // namespace

TEST(Path, BoundsFollowTheCurvesNotTheirControls) {
    Path e;
    e.addEllipse({10, 20, 30, 40});
    const Rect b = e.boundingBox();
    EXPECT_NEAR(b.x, 10, 1e-9);
    EXPECT_NEAR(b.y, 20, 1e-9);
    EXPECT_NEAR(b.w, 30, 1e-9);
    EXPECT_NEAR(b.h, 40, 1e-9);

    // The controls reach y = 10, the curve only three quarters of the way.
    Path c;
    c.moveTo({0, 0});
    c.cubicTo({0, 10}, {10, 10}, {10, 0});
    EXPECT_NEAR(c.boundingBox().h, 7.5, 1e-9);
    Path q;
    q.moveTo({0, 0});
    q.quadTo({5, 10}, {10, 0});
    EXPECT_NEAR(q.boundingBox().h, 5, 1e-9);

    // A segment after a close starts from the subpath's first point.
    Path t;
    t.moveTo({1, 1});
    t.lineTo({4, 1});
    t.close();
    t.lineTo({1, -3});
    EXPECT_EQ(t.currentPoint(), (Point{1, -3}));
    EXPECT_EQ(t.boundingBox(), (Rect{1, -3, 3, 4}));

    // A line without a current point only moves.
    Path m;
    m.lineTo({3, 3});
    EXPECT_EQ(m.verbs(), std::vector<Path::Verb>{Path::Verb::move});

    Path r;
    r.addRoundedRect({0, 0, 10, 4}, 50, 50);
    EXPECT_NEAR(r.boundingBox().w, 10, 1e-9);
    const Path moved = r.transformed(AffineTransform::scale(2, 1).then(AffineTransform::translation(5, 0)));
    EXPECT_NEAR(moved.boundingBox().x, 5, 1e-9);
    EXPECT_NEAR(moved.boundingBox().w, 20, 1e-9);
    EXPECT_EQ(Path().boundingBox(), Rect{});
}

TEST(Canvas2D, HardAndAntialiasedFills) {
    const Path square = rectPath(0.4, 0.4, 2.2, 2.2);
    // Off, a pixel is in when its centre is: columns and rows 0 to 2.
    for (int64_t width : {8, 7}) { // in place, and through a copy for Cairo's stride
        const auto hard = grayPlane(width, 4, [&](Canvas2D& c) {
            c.setAntialias(false);
            c.setGray(1);
            c.fill(square);
        });
        EXPECT_EQ(hard[0], 255);
        EXPECT_EQ(hard[size_t(2 * width + 2)], 255);
        EXPECT_EQ(hard[3], 0);
        EXPECT_EQ(hard[size_t(3 * width)], 0);
    }
    const auto soft = grayPlane(7, 4, [&](Canvas2D& c) {
        c.setGray(1);
        c.fill(square);
    });
    EXPECT_NEAR(soft[1], 153, 3); // 0.6 of the pixel
    EXPECT_NEAR(soft[0], 92, 3);  // 0.6 x 0.6
    EXPECT_EQ(soft[7 + 1], 255);
    EXPECT_EQ(soft[3], 0);

    // A grey replaces what lies under the shape in proportion to coverage,
    // and leaves the rest alone.
    std::vector<uint8_t> plane(16, 200);
    {
        auto c = Canvas2D::gray(plane.data(), 4, 4, 4);
        c->setAntialias(false);
        c->setGray(0.2);
        c->fill(rectPath(0, 0, 2, 4));
    }
    EXPECT_EQ(plane[0], 51);
    EXPECT_EQ(plane[3], 200);
}

TEST(Canvas2D, NonZeroWindingStrokesAndTransforms) {
    // Two squares turning the same way unite; turning against the outer one, the inner is a hole.
    Path same = rectPath(0, 0, 6, 6);
    same.addRect({2, 2, 2, 2});
    Path hole = rectPath(0, 0, 6, 6);
    hole.addPolygon({{2, 2}, {2, 4}, {4, 4}, {4, 2}});
    auto fillOf = [](const Path& p) {
        return grayPlane(8, 8, [&](Canvas2D& c) {
            c.setAntialias(false);
            c.setGray(1);
            c.fill(p);
        });
    };
    EXPECT_EQ(fillOf(same)[3 * 8 + 3], 255);
    EXPECT_EQ(fillOf(hole)[3 * 8 + 3], 0);
    EXPECT_EQ(fillOf(hole)[1 * 8 + 1], 255);

    // Round caps reach past the ends: (8.5, 4.5) lies 0.71 from the end at (8, 5).
    Path line;
    line.moveTo({2, 5});
    line.lineTo({8, 5});
    const auto stroked = grayPlane(12, 10, [&](Canvas2D& c) {
        c.setAntialias(false);
        c.setGray(1);
        c.stroke(line, 2);
    });
    EXPECT_EQ(stroked[5 * 12 + 5], 255);
    EXPECT_EQ(stroked[4 * 12 + 8], 255);
    EXPECT_EQ(stroked[6 * 12 + 9], 0);
    EXPECT_EQ(stroked[7 * 12 + 5], 0);

    const auto scaled = grayPlane(8, 8, [&](Canvas2D& c) {
        c.setAntialias(false);
        c.concat(AffineTransform::scale(2, 2));
        c.setGray(1);
        c.fill(rectPath(1, 1, 1, 1));
    });
    EXPECT_EQ(scaled[2 * 8 + 3], 255);
    EXPECT_EQ(scaled[4 * 8 + 4], 0);
    EXPECT_EQ(scaled[1 * 8 + 1], 0);

    std::vector<uint8_t> big(40000);
    EXPECT_FALSE(Canvas2D::gray(big.data(), 40000, 1, 40000));
}

TEST(Canvas2D, RgbaKeepsOurByteOrder) {
    RGBABuffer buffer(4, 2);
    buffer.fill(PaintColor(0, 0, 1, 1));
    buffer.setPixel(3, 1, {10, 20, 30, 40});
    {
        auto c = Canvas2D::rgba(buffer);
        ASSERT_TRUE(c);
        c->setAntialias(false);
        c->setColor(PaintColor(1, 0, 0, 0.5));
        c->fill(rectPath(0, 0, 2, 2));
    }
    const Pixel4 mixed = buffer.pixel(0, 0);
    EXPECT_NEAR(mixed[0], 128, 1);
    EXPECT_EQ(mixed[1], 0);
    EXPECT_NEAR(mixed[2], 127, 1);
    EXPECT_EQ(mixed[3], 255);
    // Pixels the drawing missed come back exactly, translucent ones too.
    EXPECT_EQ(buffer.pixel(2, 0), (Pixel4{0, 0, 255, 255}));
    EXPECT_EQ(buffer.pixel(3, 1), (Pixel4{10, 20, 30, 40}));
}
