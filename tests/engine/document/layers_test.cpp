#include "TestLayers.h"

#include "engine/core/Fnv.h"

#include <gtest/gtest.h>

using namespace korv;
using korv::test::solidLayer;

TEST(StudioDocument, NewDocuments) {
    StudioDocument white(300, 200, 72, PaintColor::white());
    ASSERT_EQ(white.layers.size(), 1u);
    EXPECT_EQ(white.layers[0].name, "Background");
    EXPECT_EQ(white.activeID, white.layers[0].id);
    EXPECT_EQ(white.layers[0].pixels->pixel(299, 199), (Pixel4{255, 255, 255, 255}));

    StudioDocument clear(300, 200, 72, PaintColor::clear());
    EXPECT_EQ(clear.layers[0].name, "Background");
    for (const auto& t : clear.layers[0].pixels->tiles) EXPECT_EQ(t, nullptr);

    StudioDocument none(0, -5);
    EXPECT_EQ(none.width(), 1);
    EXPECT_EQ(none.height(), 1);
    EXPECT_EQ(none.layers[0].name, "Layer 1");

    StudioDocument empty(10, 10, 72, std::vector<StudioLayer>{});
    ASSERT_EQ(empty.layers.size(), 1u);
    EXPECT_EQ(empty.layers[0].name, "Layer 1");
}

TEST(StudioDocument, TreeWalksRowsAndNames) {
    TileGrid g(64, 64);
    StudioLayer low = StudioLayer::pixelLayer("Layer 1", g), high = StudioLayer::pixelLayer("Layer 2", g);
    StudioLayer group = StudioLayer::group("Group 1", {low, high});
    StudioLayer top = StudioLayer::pixelLayer("Top", g);
    StudioDocument doc(64, 64, 72, {group, top});
    EXPECT_EQ(doc.activeID, top.id);

    auto rows = doc.rows();
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0].id, top.id);
    EXPECT_EQ(rows[1].id, group.id);
    EXPECT_EQ(rows[2].id, high.id);
    EXPECT_EQ(rows[2].depth, 1);
    EXPECT_EQ(rows[3].id, low.id);
    doc.update(group.id, false, [](StudioLayer& l) { l.isExpanded = false; });
    EXPECT_EQ(doc.rows().size(), 2u);

    EXPECT_EQ(doc.path(high.id), (LayerPath{0, 1}));
    EXPECT_FALSE(doc.path(Uuid::random()));
    auto c = doc.container(high.id);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->parent, (LayerPath{0}));
    EXPECT_EQ(c->index, 1);
    EXPECT_EQ(doc.layer(LayerPath{0, 0}).id, low.id);
    EXPECT_EQ(doc.allLayers().size(), 4u);

    EXPECT_EQ(doc.uniqueName("Layer"), "Layer 3");
    EXPECT_EQ(doc.uniqueName("Shape"), "Shape 1");

    const int64_t v = doc.find(low.id)->version;
    EXPECT_TRUE(doc.update(low.id, true, [](StudioLayer& l) { l.opacity = 0.5; }));
    EXPECT_EQ(doc.find(low.id)->version, v + 1);
    EXPECT_FALSE(doc.update(Uuid::random(), true, [](StudioLayer& l) { l.opacity = 0; }));
}

TEST(StudioLayer, MaskValueAndFingerprint) {
    TileGrid g(300, 10);
    StudioLayer l = solidLayer(g, {10, 20, 30, 255}, {0, 0, 4, 4});
    EXPECT_EQ(l.maskValue(0, 0), 255);
    l.mask = TileSet(g);
    EXPECT_EQ(l.maskValue(0, 0), 255); // absent tile
    l.mask->setPixel(1, 1, {255, 255, 255, 255});
    EXPECT_EQ(l.maskValue(1, 1), 0);
    EXPECT_EQ(l.maskValue(-1, 1), 255);
    l.maskEnabled = false;
    EXPECT_EQ(l.maskValue(1, 1), 255);

    // Identity, presentation and content all enter the hash; isExpanded and version don't.
    l.freezeAll(); // the copies below share its tiles
    StudioLayer same = l;
    EXPECT_EQ(same.fingerprint(), l.fingerprint());
    same.isExpanded = false;
    same.version = 9;
    EXPECT_EQ(same.fingerprint(), l.fingerprint());
    same.id = Uuid::random();
    EXPECT_NE(same.fingerprint(), l.fingerprint());
    for (auto change : std::vector<std::function<void(StudioLayer&)>>{
             [](StudioLayer& x) { x.opacity = 0.99; }, [](StudioLayer& x) { x.blendMode = BlendMode::screen; },
             [](StudioLayer& x) { x.isVisible = false; }, [](StudioLayer& x) { x.maskEnabled = true; },
             [](StudioLayer& x) { x.mask.reset(); }, [](StudioLayer& x) { x.pixels->setPixel(5, 5, {1, 1, 1, 1}); },
             [](StudioLayer& x) { x.name = "Other"; }}) {
        StudioLayer changed = l;
        change(changed);
        EXPECT_NE(changed.fingerprint(), l.fingerprint());
    }

    // A transparent tile is the same as none.
    StudioLayer a = StudioLayer::pixelLayer("A", g);
    StudioLayer b = a;
    b.pixels->writable(1);
    EXPECT_EQ(a.fingerprint(), b.fingerprint());

    StudioDocument d1(300, 10, 72, {l}), d2(300, 10, 72, {l});
    EXPECT_EQ(d1.fingerprint(), d2.fingerprint());
    d2.dpi = 300;
    EXPECT_EQ(d1.fingerprint(), d2.fingerprint());
}

TEST(StudioLayer, FreezeAllReachesChildrenAndMasks) {
    TileGrid g(10, 10);
    StudioLayer inner = solidLayer(g, {1, 1, 1, 1});
    inner.mask = korv::test::maskHiding(g, 9, {0, 0, 2, 2});
    StudioLayer group = StudioLayer::group("G", {inner});
    group.freezeAll();
    EXPECT_TRUE(group.children[0].pixels->tile(0)->frozen());
    EXPECT_TRUE(group.children[0].mask->tile(0)->frozen());
}
