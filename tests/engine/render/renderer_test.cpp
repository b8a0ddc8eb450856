#include "TestLayers.h"

#include "engine/document/SampleDocument.h"
#include "engine/render/StudioRenderer.h"

#include <cstdlib>
#include <gtest/gtest.h>

using namespace korv;
using korv::test::maskHiding;
using korv::test::solidLayer;

namespace {
constexpr Pixel4 kWhite{255, 255, 255, 255}, kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 0, 255, 255};

::testing::AssertionResult near(Pixel4 got, Pixel4 want, int tolerance = 1) {
    for (int c = 0; c < 4; ++c)
        if (std::abs(int(got[size_t(c)]) - int(want[size_t(c)])) > tolerance)
            return ::testing::AssertionFailure()
                   << "got (" << int(got[0]) << "," << int(got[1]) << "," << int(got[2]) << "," << int(got[3])
                   << ") want (" << int(want[0]) << "," << int(want[1]) << "," << int(want[2]) << ","
                   << int(want[3]) << ")";
    return ::testing::AssertionSuccess();
}
} // namespace

TEST(Renderer, MasksHideByTheirValue) {
    TileGrid g(300, 300);
    StudioLayer top = solidLayer(g, kRed);
    TileSet mask(g);
    // Rows of the mask: hide all, hide 128, hide nothing (absent pixels), across tile and strip edges.
    for (int64_t x = 0; x < 300; ++x) {
        for (int64_t y = 40; y < 100; ++y) mask.setPixel(x, y, {255, 255, 255, 255});
        for (int64_t y = 100; y < 280; ++y) mask.setPixel(x, y, {100, 100, 100, 100});
    }
    top.mask = mask;
    StudioDocument doc(300, 300, 72, {solidLayer(g, kBlue), top});
    auto flat = doc.flattened();
    EXPECT_TRUE(near(flat->pixel(10, 10), kRed));
    EXPECT_TRUE(near(flat->pixel(270, 60), kBlue));
    EXPECT_TRUE(near(flat->pixel(260, 270), {155, 0, 100, 255}));
    EXPECT_TRUE(near(flat->pixel(5, 290), kRed));

    doc.update(top.id, true, [](StudioLayer& l) { l.maskEnabled = false; });
    EXPECT_TRUE(near(doc.flattened()->pixel(270, 60), kRed));
}

TEST(Renderer, ClippingCorrections) {
    TileGrid g(8, 8);
    auto clipped = [&](bool c) {
        StudioLayer l = StudioLayer::pixelLayer("L", g);
        l.isClipping = c;
        return l;
    };
    StudioLayer adjustment(Uuid::random(), "Adj", StudioLayerKind::adjustment);
    StudioLayer clippedAdjustment = adjustment;
    clippedAdjustment.isClipping = true;
    RenderCache cache;
    // bottom clipped, base, clipped, clipped adjustment, adjustment base, clipped above it, clipped
    auto plan = StudioRenderer::plan({clipped(true), clipped(false), clipped(true), clippedAdjustment, adjustment,
                                      clipped(true), clipped(true)},
                                     g, cache);
    std::vector<bool> flags;
    for (const auto& n : plan) flags.push_back(n.clipping);
    EXPECT_EQ(flags, (std::vector<bool>{false, false, true, true, false, false, false}));
}

TEST(Renderer, ClippedLayersFollowTheirBase) {
    TileGrid g(300, 300);
    const IRect square{100, 100, 100, 100};
    StudioLayer base = solidLayer(g, kRed, square);
    StudioLayer blue = solidLayer(g, kBlue);
    blue.isClipping = true;
    blue.opacity = 0.5;
    StudioDocument doc(300, 300, 72, {solidLayer(g, kWhite), base, blue});
    auto flat = doc.flattened();
    EXPECT_TRUE(near(flat->pixel(150, 150), {128, 0, 127, 255}));
    EXPECT_TRUE(near(flat->pixel(50, 50), kWhite));
    EXPECT_TRUE(near(flat->pixel(250, 250), kWhite)); // another tile without base pixels

    doc.update(blue.id, true, [](StudioLayer& l) { l.isVisible = false; });
    EXPECT_TRUE(near(doc.flattened()->pixel(150, 150), kRed));
    doc.update(blue.id, true, [](StudioLayer& l) { l.isVisible = true; });
    doc.update(base.id, true, [](StudioLayer& l) { l.isVisible = false; });
    EXPECT_TRUE(near(doc.flattened()->pixel(150, 150), kWhite));

    // At the bottom of its list a clipped layer draws as an ordinary one.
    StudioLayer alone = solidLayer(g, kGreen, square);
    alone.isClipping = true;
    StudioDocument bottom(300, 300, 72, {alone});
    EXPECT_TRUE(near(bottom.flattened()->pixel(150, 150), kGreen));
}

TEST(Renderer, GroupsAreIsolatedAndFadeAsOne) {
    TileGrid g(300, 300);
    StudioLayer group = StudioLayer::group("G", {solidLayer(g, kRed), solidLayer(g, kGreen)});
    group.opacity = 0.5;
    StudioDocument doc(300, 300, 72, {solidLayer(g, kWhite), group});
    // Only the top child shows through the faded group; the red below it doesn't leak.
    EXPECT_TRUE(near(doc.flattened()->pixel(280, 280), {128, 255, 128, 255}));

    // A group's mask cuts the whole group.
    doc.update(group.id, true, [&](StudioLayer& l) { l.mask = maskHiding(g, 255, {0, 0, 300, 150}); });
    auto flat = doc.flattened();
    EXPECT_TRUE(near(flat->pixel(10, 10), kWhite));
    EXPECT_TRUE(near(flat->pixel(10, 200), {128, 255, 128, 255}));

    // An empty group draws nothing, and hidden layers take no part.
    StudioLayer hidden = solidLayer(g, kBlue);
    hidden.isVisible = false;
    StudioDocument quiet(300, 300, 72, {StudioLayer::group("Empty", {}), hidden});
    EXPECT_EQ(quiet.flattened()->fingerprint(), RGBABuffer(300, 300).fingerprint());
}

TEST(Renderer, OpacityFillAndPartialAlpha) {
    TileGrid g(64, 64);
    StudioLayer half = solidLayer(g, {0, 0, 128, 128}); // half-transparent blue
    StudioDocument doc(64, 64, 72, {half});
    EXPECT_TRUE(near(doc.flattened()->pixel(3, 3), {0, 0, 128, 128}));
    doc.update(half.id, true, [](StudioLayer& l) { l.fillOpacity = 0.5; });
    EXPECT_TRUE(near(doc.flattened()->pixel(3, 3), {0, 0, 64, 64}));
    doc.update(half.id, true, [](StudioLayer& l) { l.opacity = 0.0; });
    EXPECT_EQ(StudioRenderer::pixel(doc, 3, 3), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(StudioRenderer::pixel(doc, -1, 3), (Pixel4{0, 0, 0, 0}));
}

TEST(Renderer, TileImagesMatchTheFlattenedPicture) {
    auto doc = makeSampleDocument(700, 300);
    auto flat = doc->flattened();
    auto images = StudioRenderer::tileImages(*doc, {0, 2, 5, 99});
    ASSERT_EQ(images.size(), 3u); // 99 is not a tile
    const RGBABuffer& edge = *images.at(5);
    EXPECT_EQ(edge.width(), 700 - 512);
    EXPECT_EQ(edge.height(), 300 - 256);
    for (int64_t y = 0; y < edge.height(); y += 7)
        for (int64_t x = 0; x < edge.width(); x += 5) ASSERT_EQ(edge.pixel(x, y), flat->pixel(512 + x, 256 + y));
    EXPECT_EQ(StudioRenderer::pixel(*doc, 650, 290), flat->pixel(650, 290));
    for (int64_t i = 0; i < flat->width() * flat->height(); ++i) {
        const uint8_t* p = flat->data() + i * 4;
        ASSERT_LE(std::max({p[0], p[1], p[2]}), p[3]) << "invalid premultiplied pixel at " << i;
    }
}

TEST(Renderer, Thumbnails) {
    StudioDocument wide(2000, 1000, 72, PaintColor::white());
    auto t = StudioRenderer::thumbnail(wide.layers[0], wide, 100);
    ASSERT_TRUE(t);
    EXPECT_EQ(t->width(), 100);
    EXPECT_EQ(t->height(), 50);
    EXPECT_EQ(t->pixel(99, 49), kWhite);

    StudioDocument line(10000, 1, 72, PaintColor::white());
    auto l = StudioRenderer::thumbnail(line.layers[0], line, 100);
    EXPECT_EQ(l->width(), 100);
    EXPECT_EQ(l->height(), 1);

    StudioLayer adjustment(Uuid::random(), "Adj", StudioLayerKind::adjustment);
    EXPECT_FALSE(StudioRenderer::thumbnail(adjustment, wide, 100));
    EXPECT_FALSE(StudioRenderer::maskThumbnail(wide.layers[0], wide, 100));

    StudioLayer masked = wide.layers[0];
    masked.mask = maskHiding(wide.grid, 255, {0, 0, 1000, 1000});
    auto m = StudioRenderer::maskThumbnail(masked, wide, 100);
    EXPECT_EQ(m->pixel(10, 10), (Pixel4{0, 0, 0, 255}));
    EXPECT_EQ(m->pixel(90, 10), kWhite);

    StudioLayer group = StudioLayer::group("G", {solidLayer(wide.grid, kRed, {1000, 0, 1000, 1000})});
    auto gt = StudioRenderer::thumbnail(group, wide, 100);
    EXPECT_EQ(gt->pixel(10, 10), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(gt->pixel(90, 10), kRed);
}
