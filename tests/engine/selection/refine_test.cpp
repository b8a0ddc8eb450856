#include "engine/core/Selection.h"
#include "engine/selection/FillOptions.h"
#include "engine/selection/SelectionTools.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

using namespace korv;
using namespace korv::SelectionTools;

namespace {

// A square of 255 inside a w x h mask.
Mask square(int64_t w, int64_t h, IRect r) {
    Mask m(size_t(w * h), 0);
    for (int64_t y = r.y; y < r.maxY(); ++y)
        for (int64_t x = r.x; x < r.maxX(); ++x)
            m[size_t(y * w + x)] = 255;
    return m;
}

int64_t count255(const Mask& m) {
    return std::count(m.begin(), m.end(), uint8_t(255));
}

} // namespace

TEST(Refine, ZeroAmountsChangeNothingAndSmoothHardens) {
    Mask soft(40);
    for (size_t i = 0; i < soft.size(); ++i)
        soft[i] = uint8_t(i * 6 + 7);
    EXPECT_EQ(feather(soft, 8, 5, 0), soft);
    EXPECT_EQ(feather(soft, 8, 5, -3), soft);
    EXPECT_EQ(grow(soft, 8, 5, 0), soft);

    Mask edge = {127, 128, 0, 255};
    EXPECT_EQ(smooth(edge, 2, 2, 0), (Mask{0, 255, 0, 255}));
    EXPECT_TRUE(smooth({}, 0, 0, 3).empty());
    // A blurred single pixel falls below half and vanishes; a big square stays.
    Mask dot = square(20, 20, {10, 10, 1, 1});
    EXPECT_EQ(count255(smooth(dot, 20, 20, 2)), 0);
    Mask block = square(20, 20, {5, 5, 10, 10});
    EXPECT_GT(count255(smooth(block, 20, 20, 2)), 80);
}

TEST(Refine, GrowShrinkAndFeather) {
    const Mask m = square(30, 30, {10, 10, 10, 10});
    const Mask grown = grow(m, 30, 30, 2);
    EXPECT_EQ(grown[size_t(15 * 30 + 8)], 255); // two to the left
    EXPECT_EQ(grown[size_t(15 * 30 + 7)], 0);   // three
    EXPECT_EQ(grown[size_t(8 * 30 + 8)], 0);    // the corner of a disc is round
    const Mask shrunk = grow(m, 30, 30, -2);
    EXPECT_EQ(count255(shrunk), 36);

    const Mask soft = feather(m, 30, 30, 3);
    EXPECT_LT(soft[size_t(15 * 30 + 10)], 255);
    EXPECT_GT(soft[size_t(15 * 30 + 9)], 0);
    EXPECT_EQ(soft[size_t(15 * 30 + 0)], 0);

    // At the canvas edge the world outside continues the edge: a band along
    // the left side stays attached to it when shrunk and does not grow a dark margin.
    const Mask left = square(30, 30, {0, 0, 6, 30});
    const Mask thin = grow(left, 30, 30, -3);
    EXPECT_EQ(thin[size_t(15 * 30 + 0)], 255);
    EXPECT_EQ(thin[size_t(15 * 30 + 2)], 255);
    EXPECT_EQ(thin[size_t(15 * 30 + 3)], 0);
    EXPECT_EQ(thin[size_t(0 * 30 + 0)], 255);
    const Mask full(900, 255);
    EXPECT_EQ(feather(full, 30, 30, 5), full);
}

TEST(Refine, BorderIsCentredOnTheEdge) {
    const Mask full(100, 255);
    EXPECT_EQ(count255(border(full, 10, 10, 4)), 0);
    const Mask m = square(30, 30, {10, 10, 10, 10});
    EXPECT_EQ(count255(border(m, 30, 30, 0)), 0);
    const Mask b = border(m, 30, 30, 4);
    EXPECT_EQ(b[size_t(15 * 30 + 15)], 0);   // deep inside
    EXPECT_EQ(b[size_t(15 * 30 + 11)], 255); // inside, near the edge
    EXPECT_EQ(b[size_t(15 * 30 + 9)], 255);  // outside, near the edge
    EXPECT_EQ(b[size_t(15 * 30 + 5)], 0);    // far outside
}

TEST(Refine, FractionalAmountsHaveTheWidthAskedFor) {
    const Mask m = square(30, 30, {10, 10, 10, 10});
    auto row = [](const Mask& b, int64_t x) { return int(b[size_t(15 * 30 + x)]); };
    // Border 1: one pixel just outside the edge; 3: two outside, one inside.
    const Mask one = border(m, 30, 30, 1);
    EXPECT_EQ(row(one, 9), 255);
    EXPECT_EQ(row(one, 8), 0);
    EXPECT_EQ(row(one, 10), 0);
    const Mask three = border(m, 30, 30, 3);
    EXPECT_EQ(row(three, 8), 255);
    EXPECT_EQ(row(three, 10), 255);
    EXPECT_EQ(row(three, 11), 0);
    const Mask oneAndHalf = border(m, 30, 30, 1.5);
    EXPECT_EQ(row(oneAndHalf, 9), 255);
    EXPECT_NEAR(row(oneAndHalf, 10), 128, 1);
    EXPECT_EQ(row(oneAndHalf, 11), 0);
    EXPECT_EQ(row(border(m, 30, 30, 0.5), 9), 128);

    // Grow and shrink by less than a pixel move the edge by that much coverage.
    EXPECT_EQ(row(grow(m, 30, 30, 0.5), 9), 128);
    EXPECT_EQ(row(grow(m, 30, 30, 0.25), 9), 64);
    EXPECT_EQ(row(grow(m, 30, 30, -0.5), 10), 127);
    int last = 0;
    for (double p : {0.0, 0.3, 0.9, 1.0, 1.2, 1.8, 2.0}) {
        const int v = row(grow(m, 30, 30, p), 8);
        EXPECT_GE(v, last) << p;
        last = v;
    }
    EXPECT_EQ(last, 255);
}

TEST(Refine, HugeAmountsStayBounded) {
    const Mask m = square(30, 20, {10, 5, 10, 10});
    for (double p : {1e9, std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(count255(grow(m, 30, 20, p)), 600);
        EXPECT_EQ(count255(grow(m, 30, 20, -p)), 0);
        const Mask f = feather(m, 30, 20, p);
        EXPECT_LE(*std::max_element(f.begin(), f.end()) - *std::min_element(f.begin(), f.end()), 2);
        EXPECT_EQ(border(m, 30, 20, p).size(), m.size());
        EXPECT_EQ(smooth(m, 30, 20, p).size(), m.size());
    }
    EXPECT_EQ(grow(m, 30, 20, std::numeric_limits<double>::quiet_NaN()), m);
}

TEST(Refine, SelectionCombines) {
    const Mask m = square(10, 10, {0, 0, 5, 10});
    EXPECT_FALSE(selection(m, 10, 10, SelectionOp::subtract, nullptr));
    EXPECT_FALSE(selection(m, 10, 10, SelectionOp::intersect, nullptr));
    EXPECT_FALSE(selection(m, 10, 9, SelectionOp::replace, nullptr));
    EXPECT_FALSE(selection(Mask(100, 0), 10, 10, SelectionOp::add, nullptr));
    ASSERT_TRUE(selection(m, 10, 10, SelectionOp::add, nullptr));

    const SelectionRef existing = Selection::fromMask(square(10, 10, {3, 0, 7, 10}), 10, 10);
    auto area = [](const SelectionRef& s) { return s ? count255(maskArray(*s)) : 0; };
    EXPECT_EQ(area(selection(m, 10, 10, SelectionOp::replace, existing)), 50);
    EXPECT_EQ(area(selection(m, 10, 10, SelectionOp::add, existing)), 100);
    EXPECT_EQ(area(selection(m, 10, 10, SelectionOp::subtract, existing)), 50);
    EXPECT_EQ(area(selection(m, 10, 10, SelectionOp::intersect, existing)), 20);
    EXPECT_FALSE(selection(square(10, 10, {0, 0, 10, 10}), 10, 10, SelectionOp::subtract, existing));
    // Soft bytes multiply as bytes do.
    Mask half(100, 128);
    const SelectionRef s = selection(half, 10, 10, SelectionOp::intersect, existing);
    EXPECT_EQ(s->value(5, 5), mulBytes(255, 128));
    EXPECT_EQ(s->value(0, 0), 0);
    // The outline is traced from the bytes.
    EXPECT_EQ(s->outline(), outline(maskArray(*s).data(), 10, 10));
}

TEST(Refine, OutlineSegments) {
    Mask one(size_t(6 * 6), 0);
    one[3 * 6 + 2] = 200;
    const Path p = outline(one.data(), 6, 6);
    using V = Path::Verb;
    ASSERT_EQ(p.verbs(),
              (std::vector<V>{V::move, V::line, V::move, V::line, V::move, V::line, V::move, V::line}));
    EXPECT_EQ(p.points(),
              (std::vector<Point>{{2, 3}, {3, 3}, {2, 4}, {3, 4}, {2, 3}, {2, 4}, {3, 3}, {3, 4}}));

    // A run merges across a flip of the inside side; 127 is outside.
    Mask flip = {255, 0, 127, 0, 255, 0};
    const Path f = outline(flip.data(), 2, 3);
    ASSERT_GE(f.points().size(), 4u);
    EXPECT_EQ(f.points()[0], (Point{0, 0}));
    EXPECT_EQ(f.points()[1], (Point{1, 0}));
    EXPECT_EQ(f.points()[2], (Point{0, 1}));
    EXPECT_EQ(f.points()[3], (Point{1, 1}));
    // A full canvas is a frame of four whole-side segments.
    Mask full(12, 255);
    EXPECT_EQ(outline(full.data(), 4, 3).points(),
              (std::vector<Point>{{0, 0}, {4, 0}, {0, 3}, {4, 3}, {0, 0}, {0, 3}, {4, 0}, {4, 3}}));
}

TEST(Refine, FromAlphaAndMaskArray) {
    TileSet tiles(TileGrid(300, 260));
    tiles.setPixel(299, 259, {1, 2, 3, 77});
    tiles.setPixel(0, 0, {0, 0, 0, 9});
    const Mask m = fromAlpha(tiles);
    ASSERT_EQ(m.size(), 300u * 260u);
    EXPECT_EQ(m[0], 9);
    EXPECT_EQ(m[259 * 300 + 299], 77);
    EXPECT_EQ(std::count(m.begin(), m.end(), 0), 300 * 260 - 2);

    const SelectionRef s = Selection::fromMask(square(4, 3, {1, 1, 2, 1}), 4, 3);
    EXPECT_EQ(maskArray(*s), square(4, 3, {1, 1, 2, 1}));
    EXPECT_TRUE(maskArray(*Selection::all(0, 5)).empty());
}

TEST(FillOptions, CodesByFieldName) {
    FillOptions o;
    EXPECT_EQ(o.tolerance, 32);
    EXPECT_TRUE(o.contiguous);
    EXPECT_FALSE(o.sampleAllLayers);
    EXPECT_EQ(o.expand, 1);
    o.tolerance = 7;
    o.contiguous = false;
    o.sampleAllLayers = true;
    o.expand = -3;
    const nlohmann::json j = o;
    EXPECT_EQ(
        j, nlohmann::json::parse(R"({"tolerance":7,"contiguous":false,"sampleAllLayers":true,"expand":-3})"));
    EXPECT_EQ(j.get<FillOptions>(), o);
    nlohmann::json missing = j;
    missing.erase("expand");
    FillOptions kept;
    EXPECT_THROW(from_json(missing, kept), std::exception);
    EXPECT_EQ(kept, FillOptions{});
}
