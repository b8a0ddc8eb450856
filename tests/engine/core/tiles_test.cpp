#include "engine/core/Fnv.h"
#include "engine/core/PaintColor.h"
#include "engine/core/SeededRandom.h"
#include "engine/core/TileSet.h"
#include "engine/core/Uuid.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace korv;

TEST(TileGrid, EdgeTilesAndOrder) {
    TileGrid g(257, 1);
    EXPECT_EQ(g.cols, 2);
    EXPECT_EQ(g.rows, 1);
    EXPECT_EQ(g.rect(1), (IRect{256, 0, 1, 1}));
    EXPECT_EQ(TileGrid(256, 256).count(), 1);
    EXPECT_EQ(TileGrid(0, 0).count(), 0);

    TileGrid g512(512, 512);
    EXPECT_EQ(g512.tiles({255, 255, 2, 2}), (std::vector<int64_t>{0, 1, 2, 3}));
    EXPECT_TRUE(g512.tiles({600, 0, 10, 10}).empty());
    EXPECT_TRUE(g512.tiles({-20, -20, 10, 10}).empty());
    // A rectangle hanging off the canvas is clipped first.
    EXPECT_EQ(g512.tiles({-5, 300, 1000, 1}), (std::vector<int64_t>{2, 3}));
}

TEST(IRect, IntersectionUnionAndText) {
    IRect a{0, 0, 10, 10}, b{20, 20, 5, 5};
    EXPECT_EQ(a.intersection(b), IRect::zero());
    EXPECT_EQ(a.intersection({5, 5, 10, 10}), (IRect{5, 5, 5, 5}));
    // An empty rectangle elsewhere does not stretch the union.
    EXPECT_EQ(a.unionWith({100, 100, 0, 5}), a);
    EXPECT_EQ(IRect(100, 100, 0, 5).unionWith(a), a);
    EXPECT_EQ(a.unionWith(b), (IRect{0, 0, 25, 25}));
    EXPECT_EQ(a.insetBy(-2), (IRect{-2, -2, 14, 14}));
    EXPECT_EQ((IRect{-3, 4, 5, 6}).description(), "(-3,4 5x6)");
    EXPECT_EQ(IRect::covering(0.5, -0.5, 1.2, 1.0), (IRect{0, -1, 2, 2}));
    EXPECT_EQ(IRect::covering(INFINITY, 0, 1, 1), IRect::zero());
}

TEST(TileSet, CopyOnWriteAfterFreeze) {
    TileGrid g(300, 300);
    TileSet first(g);
    first.setPixel(10, 10, {1, 2, 3, 4});
    first.freeze();
    const Tile* shared = first.tile(0);

    TileSet copy = first;
    copy.setPixel(10, 10, {9, 9, 9, 9});
    EXPECT_EQ(first.pixel(10, 10), (Pixel4{1, 2, 3, 4}));
    EXPECT_EQ(copy.pixel(10, 10), (Pixel4{9, 9, 9, 9}));
    EXPECT_EQ(first.tile(0), shared);
    const Tile* fresh = copy.tile(0);
    ASSERT_NE(fresh, shared);
    EXPECT_FALSE(fresh->frozen());
    // The private copy is written in place from now on.
    copy.setPixel(11, 10, {5, 5, 5, 5});
    EXPECT_EQ(copy.tile(0), fresh);
    EXPECT_EQ(first.pixel(11, 10), (Pixel4{0, 0, 0, 0}));
}

TEST(TileSet, OutsideTheCanvasIsTransparentAndUntouched) {
    TileSet s(TileGrid(257, 3));
    s.setPixel(-1, 0, {1, 1, 1, 1});
    s.setPixel(257, 0, {1, 1, 1, 1});
    EXPECT_EQ(s.tile(0), nullptr);
    EXPECT_EQ(s.tile(1), nullptr);
    EXPECT_EQ(s.alpha(-1, 0), 0);
    EXPECT_EQ(s.pixel(0, 3), (Pixel4{0, 0, 0, 0}));
    EXPECT_FALSE(s.contentBounds().has_value());
}

TEST(TileSet, FingerprintTreatsTransparentTilesAsAbsent) {
    TileGrid g(600, 300);
    TileSet none(g), blank(g);
    blank.writable(4); // all zero, present
    EXPECT_TRUE(blank.isEmpty());
    EXPECT_EQ(none.fingerprint(), blank.fingerprint());
    EXPECT_EQ(TileSet(TileGrid(0, 0)).fingerprint(), kFnvBasis);

    // Colour under zero alpha counts once the tile holds a visible pixel.
    TileSet a(g), b(g);
    a.setPixel(0, 0, {0, 0, 0, 255});
    b.setPixel(0, 0, {0, 0, 0, 255});
    EXPECT_EQ(a.fingerprint(), b.fingerprint());
    b.setPixel(5, 5, {7, 0, 0, 0});
    EXPECT_NE(a.fingerprint(), b.fingerprint());
    // The same tile at another index hashes differently.
    TileSet c(g);
    c.setPixel(256, 0, {0, 0, 0, 255});
    EXPECT_NE(a.fingerprint(), c.fingerprint());
}

TEST(TileSet, LoadWriteAndRegions) {
    TileGrid g(300, 260);
    RGBABuffer buf(300, 260);
    buf.setPixel(5, 5, {9, 9, 9, 0}); // colour without alpha: no tile
    TileSet s(g);
    s.load(buf);
    for (int64_t i = 0; i < g.count(); ++i) EXPECT_EQ(s.tile(i), nullptr);

    buf.setPixel(299, 259, {10, 20, 30, 40});
    s.load(buf);
    EXPECT_EQ(s.tile(0), nullptr);
    ASSERT_NE(s.tile(3), nullptr);
    EXPECT_EQ(s.pixel(299, 259), (Pixel4{10, 20, 30, 40}));
    EXPECT_EQ(s.contentBounds(), (IRect{299, 259, 1, 1}));
    // The colour bytes under zero alpha in an absent tile are not kept.
    EXPECT_EQ(s.toBuffer()->pixel(5, 5), (Pixel4{0, 0, 0, 0}));
    buf.setPixel(5, 5, {0, 0, 0, 0});
    EXPECT_EQ(s.toBuffer()->fingerprint(), buf.fingerprint());

    // Coverage 128 of white over transparent.
    RGBABuffer white(4, 4);
    white.fill(PaintColor::white());
    TileSet t(g);
    t.write(white, {254, 254, 4, 4}, [](int64_t, int64_t) { return 128; });
    EXPECT_EQ(t.pixel(255, 255), (Pixel4{128, 128, 128, 128}));
    EXPECT_EQ(t.pixel(256, 257), (Pixel4{128, 128, 128, 128}));
    EXPECT_EQ(t.contentBounds(), (IRect{254, 254, 4, 4}));

    // Coverage 0 leaves pixels alone but still unshares a frozen tile.
    t.freeze();
    const Tile* before = t.tile(0);
    t.write(white, {0, 0, 4, 4}, [](int64_t, int64_t) { return 0; });
    EXPECT_NE(t.tile(0), before);
    EXPECT_EQ(t.pixel(0, 0), (Pixel4{0, 0, 0, 0}));

    // A region partly off the canvas reads transparent there.
    auto r = t.region({250, 250, 10, 10});
    EXPECT_EQ(r->pixel(5, 5), (Pixel4{128, 128, 128, 128}));
    EXPECT_EQ(t.region({-5, -5, 3, 3})->pixel(0, 0), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(RGBABuffer(0, -3).width(), 1);
}

TEST(SmallValues, RandomColourAndUuid) {
    SeededRandom r(0);
    EXPECT_EQ(r.state, 1u);
    EXPECT_EQ(r.next(), 0x40822041u);
    SeededRandom a(42), b(42);
    for (int i = 0; i < 100; ++i) {
        double u = a.unit();
        EXPECT_GE(u, 0.0);
        EXPECT_LT(u, 1.0);
        EXPECT_EQ(u, b.unit());
    }

    auto c = PaintColor::fromHex("  #f80 \n");
    ASSERT_TRUE(c);
    EXPECT_EQ(c->r, 1.0);
    EXPECT_EQ(c->g, 136 / 255.0);
    EXPECT_EQ(c->b, 0.0);
    EXPECT_EQ(c->a, 1.0);
    EXPECT_FALSE(PaintColor::fromHex("12345"));
    EXPECT_FALSE(PaintColor::fromHex("#12345G"));
    EXPECT_EQ(PaintColor::fromHex("00000080")->a, 128 / 255.0);
    EXPECT_EQ(PaintColor(0.5, 0.25, 1, 1).hex(), "#8040FF");
    // Halves round away from zero.
    EXPECT_EQ(PaintColor(0.5 / 255.0, 0, 0, 1).r8(), 1);

    auto hsb = PaintColor(1, 0, 1, 1).hsb();
    EXPECT_DOUBLE_EQ(hsb[0], 5.0 / 6.0);
    PaintColor back = PaintColor::fromHSV(hsb[0], hsb[1], hsb[2], 1);
    EXPECT_NEAR(back.r, 1, 1e-12);
    EXPECT_NEAR(back.g, 0, 1e-12);
    EXPECT_NEAR(back.b, 1, 1e-12);

    Uuid u = Uuid::random();
    std::string text = u.toString();
    EXPECT_EQ(text.size(), 36u);
    EXPECT_EQ(text[14], '4');
    EXPECT_EQ(Uuid::parse(text), u);
    EXPECT_NE(Uuid::random(), u);
    EXPECT_FALSE(Uuid::parse("not-a-uuid"));
}

TEST(SmallValuesDeathTest, ByteOfOutOfRangeValueStops) {
    EXPECT_DEATH(unitToByte(1.5), "requirement failed");
    EXPECT_DEATH(unitToByte(std::nan("")), "requirement failed");
}
