#include "engine/selection/SelectionTools.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <numeric>

using namespace korv;
using namespace korv::SelectionTools;

namespace {

// 100 x 20, opaque grey bands of 25 columns: 100, 110, 140, 100 from the left.
const RGBABuffer& bands() {
    static const RGBABufferPtr b = [] {
        auto out = std::make_shared<RGBABuffer>(100, 20);
        const uint8_t values[] = {100, 110, 140, 100};
        for (int64_t y = 0; y < 20; ++y)
            for (int64_t x = 0; x < 100; ++x) {
                const uint8_t v = values[x / 25];
                out->setPixel(x, y, {v, v, v, 255});
            }
        return out;
    }();
    return *b;
}

int64_t selected(const Mask& m) {
    return std::count(m.begin(), m.end(), uint8_t(255));
}

} // namespace

TEST(MagicWand, BandsByToleranceAndContiguity) {
    struct Case {
        int64_t tolerance;
        bool contiguous;
        int64_t count;
    };
    for (const Case& c :
         {Case{0, true, 500}, Case{10, true, 1000}, Case{39, true, 1000}, Case{40, true, 2000},
          Case{0, false, 1000}, Case{-5, true, 500}, Case{900, true, 2000}}) {
        const auto m = magicWand(bands(), 10, 10, c.tolerance, c.contiguous, false);
        ASSERT_TRUE(m);
        ASSERT_EQ(m->size(), 2000u);
        EXPECT_EQ(selected(*m), c.count) << c.tolerance << " " << c.contiguous;
        // A hard mask: nothing between 0 and 255.
        EXPECT_EQ(selected(*m) + std::count(m->begin(), m->end(), uint8_t(0)), 2000);
    }
    const auto m = magicWand(bands(), 10, 10, 0, true, false);
    const SelectionRef s = selection(*m, 100, 20, SelectionOp::replace, nullptr);
    ASSERT_TRUE(s);
    EXPECT_EQ(s->bounds(), (IRect{0, 0, 25, 20}));
    // Not contiguous, both bands of 100 are taken and the ones between are not.
    const auto all = magicWand(bands(), 10, 10, 0, false, false);
    EXPECT_EQ((*all)[5 * 100 + 80], 255);
    EXPECT_EQ((*all)[5 * 100 + 30], 0);
}

TEST(MagicWand, ClickOffTheBufferGivesNothing) {
    EXPECT_FALSE(magicWand(bands(), 100, 5, 32, true, false));
    EXPECT_FALSE(magicWand(bands(), 5, -1, 32, true, false));
    EXPECT_FALSE(magicWand(bands(), -1, 5, 32, false, false));
    EXPECT_FALSE(magicWand(bands(), 5, 20, 32, false, false));
    EXPECT_TRUE(magicWand(bands(), 99, 19, 32, false, false));
}

TEST(MagicWand, ComparesStraightColourAndTreatsTransparentAlike) {
    // Colour bytes left in transparent pixels play no part.
    RGBABuffer clear(30, 10);
    for (int64_t i = 0; i < 300; ++i)
        clear.data()[i * 4] = uint8_t(i * 7);
    const auto m = magicWand(clear, 3, 4, 0, true, false);
    ASSERT_TRUE(m);
    EXPECT_EQ(selected(*m), 300);

    // Half-transparent red (premultiplied 128) is straight 255: it matches
    // opaque red exactly at tolerance 127 in alpha, and not at 126.
    RGBABuffer b(2, 1);
    b.setPixel(0, 0, {255, 0, 0, 255});
    b.setPixel(1, 0, {128, 0, 0, 128});
    EXPECT_EQ(selected(*magicWand(b, 0, 0, 127, true, false)), 2);
    EXPECT_EQ(selected(*magicWand(b, 0, 0, 126, true, false)), 1);
}

TEST(MagicWand, FillComparesWithTheSeedNotTheNeighbour) {
    // A slow ramp: each step is within tolerance of its neighbour but the
    // fill stops where the distance from the seed passes it.
    RGBABuffer ramp(50, 3);
    for (int64_t y = 0; y < 3; ++y)
        for (int64_t x = 0; x < 50; ++x)
            ramp.setPixel(x, y, {uint8_t(x * 2), 0, 0, 255});
    const auto m = magicWand(ramp, 0, 1, 10, true, false);
    EXPECT_EQ(selected(*m), 6 * 3);

    // A diagonal does not connect.
    RGBABuffer diag(3, 3);
    for (int64_t i = 0; i < 3; ++i)
        diag.setPixel(i, i, {0, 0, 0, 255});
    EXPECT_EQ(selected(*magicWand(diag, 0, 0, 0, true, false)), 1);
    EXPECT_EQ(selected(*magicWand(diag, 0, 0, 0, false, false)), 3);
}

TEST(MagicWand, AntialiasSoftensOnlyTheEdge) {
    const auto m = magicWand(bands(), 10, 10, 0, true, true);
    ASSERT_TRUE(m);
    EXPECT_EQ((*m)[10 * 100 + 10], 255);
    EXPECT_EQ((*m)[10 * 100 + 60], 0);
    // Columns 24 and 25 straddle the edge and turn partial.
    const uint8_t in = (*m)[10 * 100 + 24], out = (*m)[10 * 100 + 25];
    EXPECT_GT(in, 128);
    EXPECT_LT(in, 255);
    EXPECT_GT(out, 0);
    EXPECT_LT(out, 128);
    // The top and bottom rows are clamped, so no dark margin appears.
    EXPECT_EQ((*m)[0 * 100 + 10], 255);
    EXPECT_EQ((*m)[19 * 100 + 10], 255);
}
