#include "engine/core/Selection.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

using namespace korv;

namespace {

Path rectPath(double x, double y, double w, double h) {
    Path p;
    p.addRect({x, y, w, h});
    return p;
}

Path circle(double cx, double cy, double r) {
    Path p;
    p.addEllipse({cx - r, cy - r, 2 * r, 2 * r});
    return p;
}

std::vector<uint8_t> bytesOf(const Selection& s) {
    return {s.data(), s.data() + s.width() * s.height()};
}

// A selection whose every byte is different along x: a ramp of 0...255.
SelectionRef ramp(int64_t w, int64_t h) {
    std::vector<uint8_t> m(size_t(w * h));
    for (int64_t i = 0; i < w * h; ++i)
        m[size_t(i)] = uint8_t((i % w) * 255 / (w - 1));
    return Selection::fromMask(m, w, h);
}

} // namespace

TEST(Selection, ByteProductIsExactForEveryPair) {
    for (unsigned a = 0; a < 256; ++a)
        for (unsigned b = 0; b < 256; ++b)
            ASSERT_EQ(mulBytes(uint8_t(a), uint8_t(b)), (a * b + 127) / 255) << a << " x " << b;
    EXPECT_EQ(mulBytes(128, 128), 64);
    EXPECT_EQ(mulBytes(255, 77), 77);
    EXPECT_EQ(mulBytes(255, 255 - 128), 127);
}

TEST(Selection, CombiningShapes) {
    const int64_t w = 40, h = 30;
    const Path left = rectPath(0, 0, 20, 30), disc = circle(20, 15, 9);
    // Nothing to subtract from or intersect with: no selection.
    EXPECT_FALSE(Selection::make(disc, SelectionOp::subtract, nullptr, w, h, true));
    EXPECT_FALSE(Selection::make(disc, SelectionOp::intersect, nullptr, w, h, true));

    const SelectionRef base = ramp(w, h);
    const std::vector<uint8_t> n = Selection::rasterize(disc, w, h, true);
    const SelectionRef added = Selection::make(disc, SelectionOp::add, base, w, h, true);
    const SelectionRef cut = Selection::make(disc, SelectionOp::subtract, base, w, h, true);
    const SelectionRef kept = Selection::make(disc, SelectionOp::intersect, base, w, h, true);
    ASSERT_TRUE(added && cut && kept);
    bool partial = false;
    for (int64_t i = 0; i < w * h; ++i) {
        const uint8_t e = base->data()[i], v = n[size_t(i)];
        partial |= v > 0 && v < 255;
        ASSERT_EQ(added->data()[i], std::max(e, v));
        ASSERT_EQ(cut->data()[i], mulBytes(e, uint8_t(255 - v)));
        ASSERT_EQ(kept->data()[i], mulBytes(e, v));
    }
    EXPECT_TRUE(partial); // the antialiased edge was part of the check

    // A shape taken from itself leaves nothing; replace ignores what was there.
    const SelectionRef square = Selection::make(left, SelectionOp::replace, nullptr, w, h, false);
    ASSERT_TRUE(square);
    EXPECT_EQ(square->bounds(), (IRect{0, 0, 20, 30}));
    EXPECT_FALSE(Selection::make(left, SelectionOp::subtract, square, w, h, false));
    const SelectionRef other = Selection::make(disc, SelectionOp::replace, square, w, h, true);
    EXPECT_EQ(bytesOf(*other), n);
    EXPECT_EQ(other->outline(), disc);

    // The outline shows both shapes, the old one first.
    Path both = left;
    both.addPath(disc);
    EXPECT_EQ(Selection::make(disc, SelectionOp::add, square, w, h, true)->outline(), both);
}

TEST(Selection, AntialiasedAndHardEdges) {
    const Path disc = circle(16.3, 16.7, 10.2);
    const auto soft = Selection::rasterize(disc, 33, 33, true);
    const auto hard = Selection::rasterize(disc, 33, 33, false);
    int softEdge = 0;
    for (size_t i = 0; i < hard.size(); ++i) {
        ASSERT_TRUE(hard[i] == 0 || hard[i] == 255);
        softEdge += soft[i] > 0 && soft[i] < 255;
        // Inside and well outside, both agree.
        if (soft[i] == 255) {
            ASSERT_EQ(hard[i], 255);
        }
        if (soft[i] == 0) {
            ASSERT_EQ(hard[i], 0);
        }
    }
    EXPECT_GT(softEdge, 40);
    EXPECT_EQ(soft[16 * 33 + 16], 255);
    // Cairo can't draw this wide; the plane stays blank rather than failing.
    const auto wide = Selection::rasterize(rectPath(0, 0, 5, 1), 40000, 1, false);
    EXPECT_EQ(wide.size(), 40000u);
    EXPECT_EQ(wide[0], 0);
}

TEST(Selection, ValueBoundsAndMasks) {
    std::vector<uint8_t> m(size_t(10 * 8), 0);
    m[5 * 10 + 3] = 1;
    const SelectionRef dot = Selection::fromMask(m, 10, 8);
    ASSERT_TRUE(dot);
    EXPECT_EQ(dot->bounds(), (IRect{3, 5, 1, 1}));
    EXPECT_EQ(dot->outline(), rectPath(3, 5, 1, 1));
    EXPECT_EQ(dot->value(3, 5), 1);
    for (auto [x, y] : {std::pair{-1, 0}, {10, 0}, {0, -1}, {0, 8}})
        EXPECT_EQ(dot->value(x, y), 0);

    m[7 * 10 + 9] = 200;
    m[0 * 10 + 6] = 9;
    EXPECT_EQ(Selection::fromMask(m, 10, 8)->bounds(), (IRect{3, 0, 7, 8}));
    EXPECT_FALSE(Selection::fromMask(std::vector<uint8_t>(79, 255), 10, 8));
    EXPECT_FALSE(Selection::fromMask(std::vector<uint8_t>(80, 0), 10, 8));

    const SelectionRef zero = Selection::all(0, 5);
    ASSERT_TRUE(zero);
    EXPECT_TRUE(zero->isEmpty());
    EXPECT_EQ(zero->bounds(), IRect{});
}

TEST(Selection, OffsetAndInvert) {
    const SelectionRef r = ramp(16, 6);
    const SelectionRef same = r->offsetBy(0, 0);
    ASSERT_TRUE(same);
    EXPECT_EQ(bytesOf(*same), bytesOf(*r));
    EXPECT_EQ(same->bounds(), r->bounds());

    const SelectionRef moved = r->offsetBy(3, -2);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->value(3, 0), r->value(0, 2));
    EXPECT_EQ(moved->value(15, 3), r->value(12, 5));
    EXPECT_EQ(moved->value(2, 1), 0);                 // came in from the left
    EXPECT_EQ(moved->value(10, 4), 0);                // came in from below
    EXPECT_EQ(moved->bounds(), (IRect{4, 0, 12, 4})); // the ramp's first column is 0
    EXPECT_EQ(moved->outline().boundingBox(), (Rect{4, -2, 15, 6}));

    EXPECT_FALSE(r->offsetBy(16, 0));
    EXPECT_FALSE(r->offsetBy(0, -6));
    EXPECT_FALSE(r->offsetBy(std::numeric_limits<int64_t>::max(), 0));
    EXPECT_TRUE(r->offsetBy(-15, 5));

    EXPECT_FALSE(Selection::all(7, 3)->inverted());
    const SelectionRef inv = r->inverted();
    ASSERT_TRUE(inv);
    EXPECT_EQ(inv->value(0, 0), 255);
    EXPECT_EQ(inv->bounds(), (IRect{0, 0, 15, 6})); // the last column was 255
    EXPECT_EQ(inv->outline().verbs().size(), r->outline().verbs().size() + 5);
    EXPECT_EQ(bytesOf(*inv->inverted()), bytesOf(*r));
}

TEST(Selection, OpNames) {
    for (SelectionOp op : kAllSelectionOps)
        EXPECT_EQ(selectionOpFromString(toString(op)), op);
    EXPECT_EQ(toString(SelectionOp::intersect), "intersect");
    EXPECT_FALSE(selectionOpFromString("union"));
}

TEST(SelectionDeathTest, OverflowingSizeStops) {
    const int64_t side = int64_t(1) << 40;
    EXPECT_DEATH(Selection::fromMask(std::vector<uint8_t>(), side, side), "requirement failed");
}
