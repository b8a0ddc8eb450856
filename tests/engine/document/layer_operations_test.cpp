#include "TestLayers.h"
#include "engine/core/Selection.h"

#include <gtest/gtest.h>
#include <limits>

using namespace korv;
using korv::test::maskHiding;
using korv::test::solidLayer;

namespace {

// Two by two tiles, with clipped edge tiles on the right and at the bottom.
const TileGrid kGrid(300, 260);

int maxDiff(const RGBABuffer& a, const RGBABuffer& b) {
    int worst = 0;
    for (int64_t i = 0; i < a.byteCount(); ++i)
        worst = std::max(worst, std::abs(int(a.data()[i]) - int(b.data()[i])));
    return worst;
}

std::vector<Uuid> ids(const std::vector<StudioLayer>& layers) {
    std::vector<Uuid> out;
    for (const auto& l : layers)
        out.push_back(l.id);
    return out;
}

} // namespace

TEST(LayerOperations, MergeDownKeepsTheLook) {
    struct Case {
        BlendMode lowerMode, upperMode;
        double lowerOpacity;
        bool upperEmpty;
    };
    for (Case c : {Case{BlendMode::normal, BlendMode::normal, 0.6, false},
                   Case{BlendMode::multiply, BlendMode::multiply, 1.0, false},
                   Case{BlendMode::multiply, BlendMode::normal, 0.5, true}}) {
        StudioLayer bg = solidLayer(kGrid, {200, 180, 160, 255});
        StudioLayer lower = solidLayer(kGrid, {40, 120, 200, 255}, {20, 20, 250, 200});
        lower.blendMode = c.lowerMode;
        lower.opacity = c.lowerOpacity;
        lower.mask = maskHiding(kGrid, 128, {0, 0, 150, 260});
        StudioLayer upper = c.upperEmpty ? StudioLayer::pixelLayer("Up", kGrid)
                                         : solidLayer(kGrid, {60, 30, 0, 128}, {100, 100, 200, 160});
        upper.blendMode = c.upperMode;
        StudioDocument doc(300, 260, 72, {bg, lower, upper}, bg.id);
        auto before = doc.flattened();

        doc.mergeDown(upper.id);
        ASSERT_EQ(doc.layers.size(), 2u);
        const StudioLayer& merged = doc.layers[1];
        EXPECT_EQ(merged.id, lower.id);
        EXPECT_EQ(doc.activeID, lower.id);
        EXPECT_FALSE(merged.mask);
        EXPECT_EQ(merged.blendMode, c.lowerMode);
        EXPECT_EQ(merged.opacity, c.lowerMode == BlendMode::normal ? 1.0 : c.lowerOpacity);
        EXPECT_EQ(merged.version, lower.version + 1);
        EXPECT_LE(maxDiff(*before, *doc.flattened()), 2) << toString(c.lowerMode);
    }
}

TEST(LayerOperations, MergeDownRefusesBottomAdjustmentAndGroup) {
    StudioLayer bottom = solidLayer(kGrid, {9, 9, 9, 255});
    StudioLayer adjustment(Uuid::random(), "Invert", StudioLayerKind::adjustment);
    adjustment.adjustment = AdjustmentSpec(AdjustmentType::invert);
    StudioLayer overAdjustment = solidLayer(kGrid, {1, 2, 3, 255});
    StudioLayer group = StudioLayer::group("G", {solidLayer(kGrid, {5, 5, 5, 255})});
    StudioLayer overGroup = solidLayer(kGrid, {7, 7, 7, 255});
    StudioDocument doc(300, 260, 72, {bottom, adjustment, overAdjustment, group, overGroup});
    const uint64_t print = doc.fingerprint();
    doc.takeDirtyTiles();
    for (const Uuid& id : {bottom.id, overAdjustment.id, overGroup.id, Uuid::random()})
        doc.mergeDown(id);
    EXPECT_EQ(doc.fingerprint(), print);
    EXPECT_TRUE(doc.dirtyTiles.empty());
}

// A hidden layer in the pair: merging would make a visible upper vanish, or
// drop a hidden upper's content. Both are refused and named.
TEST(LayerOperations, MergeDownRefusesAHiddenLayerOfThePair) {
    for (bool upperHidden : {true, false}) {
        SCOPED_TRACE(upperHidden);
        StudioLayer bg = solidLayer(kGrid, {200, 180, 160, 255});
        StudioLayer lower = solidLayer(kGrid, {40, 120, 200, 255}, {20, 20, 250, 200});
        StudioLayer upper = solidLayer(kGrid, {60, 30, 0, 128}, {100, 100, 200, 160});
        (upperHidden ? upper : lower).isVisible = false;
        StudioDocument doc(300, 260, 72, {bg, lower, upper}, upper.id);
        const auto before = doc.flattened();
        const uint64_t print = doc.fingerprint();
        ASSERT_NE(doc.hiddenOfMergePair(upper.id), nullptr);
        EXPECT_EQ(doc.hiddenOfMergePair(upper.id)->id, upperHidden ? upper.id : lower.id);
        doc.mergeDown(upper.id);
        EXPECT_EQ(doc.fingerprint(), print);
        EXPECT_EQ(maxDiff(*before, *doc.flattened()), 0);
    }
}

TEST(LayerOperations, DeleteChoosesTheLayerBelow) {
    StudioLayer a = StudioLayer::pixelLayer("A", kGrid), b = StudioLayer::pixelLayer("B", kGrid),
                c = StudioLayer::pixelLayer("C", kGrid), d = StudioLayer::pixelLayer("D", kGrid),
                inner = StudioLayer::pixelLayer("In", kGrid);
    StudioLayer g = StudioLayer::group("G", {inner});
    StudioDocument doc(300, 260, 72, {a, b, g, c, d}, d.id);
    doc.deleteLayer(d.id);
    EXPECT_EQ(doc.activeID, c.id);
    doc.activeID = b.id;
    doc.deleteLayer(b.id);
    EXPECT_EQ(doc.activeID, a.id);
    doc.activeID = inner.id;
    doc.deleteLayer(inner.id); // the group is left empty: the topmost layer takes over
    EXPECT_EQ(doc.activeID, c.id);
    doc.deleteLayer(g.id); // not active: the active layer stays
    EXPECT_EQ(doc.activeID, c.id);
    doc.activeID = a.id;
    doc.deleteLayer(a.id);
    EXPECT_EQ(doc.activeID, c.id); // the new bottom layer
    doc.deleteLayer(c.id);
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_EQ(doc.layers[0].name, "Layer 1");
    EXPECT_EQ(doc.layers[0].kind, StudioLayerKind::pixel);
    EXPECT_EQ(doc.activeID, doc.layers[0].id);
}

TEST(LayerOperations, MoveClampsAndRefusesCycles) {
    StudioLayer a = StudioLayer::pixelLayer("A", kGrid), b = StudioLayer::pixelLayer("B", kGrid),
                c = StudioLayer::pixelLayer("C", kGrid);
    StudioLayer inner = StudioLayer::group("Inner", {});
    StudioLayer outer = StudioLayer::group("Outer", {inner});
    StudioDocument doc(300, 260, 72, {a, b, c, outer});
    doc.move(a.id, int64_t(10));
    EXPECT_EQ(ids(doc.layers), (std::vector<Uuid>{b.id, c.id, outer.id, a.id}));
    doc.move(a.id, std::numeric_limits<int64_t>::min());
    EXPECT_EQ(ids(doc.layers), (std::vector<Uuid>{a.id, b.id, c.id, outer.id}));
    doc.move(b.id, int64_t(1));
    EXPECT_EQ(ids(doc.layers), (std::vector<Uuid>{a.id, c.id, b.id, outer.id}));

    doc.takeDirtyTiles();
    const uint64_t print = doc.fingerprint();
    doc.move(c.id, int64_t(0));
    doc.move(outer.id, std::optional<Uuid>(inner.id));
    doc.move(outer.id, std::optional<Uuid>(outer.id));
    doc.move(c.id, std::optional<Uuid>(b.id)); // not a group
    EXPECT_EQ(doc.fingerprint(), print);
    EXPECT_TRUE(doc.dirtyTiles.empty());

    doc.move(a.id, std::optional<Uuid>(inner.id));
    EXPECT_EQ(doc.path(a.id), (LayerPath{2, 0, 0}));
    EXPECT_EQ(doc.activeID, a.id);
    doc.move(a.id, std::nullopt);
    EXPECT_EQ(doc.path(a.id), (LayerPath{3}));
}

TEST(LayerOperations, GroupThenUngroupRestoresOrderAndLook) {
    StudioLayer a = solidLayer(kGrid, {100, 100, 100, 255}),
                b = solidLayer(kGrid, {0, 80, 0, 128}, {0, 0, 200, 90}),
                c = solidLayer(kGrid, {90, 0, 0, 200}, {50, 50, 250, 200}),
                d = StudioLayer::pixelLayer("D", kGrid);
    StudioDocument doc(300, 260, 72, {a, b, c, d});
    auto before = doc.flattened();
    auto g = doc.group({c.id, b.id, Uuid::random()});
    ASSERT_TRUE(g);
    EXPECT_EQ(ids(doc.layers), (std::vector<Uuid>{a.id, *g, d.id}));
    EXPECT_EQ(ids(doc.layers[1].children), (std::vector<Uuid>{b.id, c.id}));
    EXPECT_EQ(doc.layers[1].name, "Group 1");
    EXPECT_EQ(doc.activeID, g);
    EXPECT_LE(maxDiff(*before, *doc.flattened()), 1);

    doc.ungroup(*g);
    EXPECT_EQ(ids(doc.layers), (std::vector<Uuid>{a.id, b.id, c.id, d.id}));
    EXPECT_EQ(doc.activeID, c.id);
    EXPECT_EQ(maxDiff(*before, *doc.flattened()), 0);
    EXPECT_FALSE(doc.group({}));
    EXPECT_FALSE(doc.group({Uuid::random()}));
}

TEST(LayerOperations, DuplicateSharesTilesUntilPainted) {
    StudioLayer src = solidLayer(kGrid, {10, 20, 30, 255}, {0, 0, 100, 100}, "Sky");
    src.mask = maskHiding(kGrid, 50, {0, 0, 10, 10});
    StudioLayer g = StudioLayer::group("G", {src});
    StudioDocument doc(300, 260, 72, {StudioLayer::pixelLayer("Base", kGrid), g});
    // A tile written since the last commit is not frozen yet; the duplicate must freeze it.
    TileSet fresh = *doc.editableRaster(src.id, false);
    fresh.writable(0);
    doc.setRaster(src.id, false, fresh, true);
    src = *doc.find(src.id);
    ASSERT_FALSE(src.pixels->tiles[0]->frozen());
    auto copyID = doc.duplicate(src.id);
    ASSERT_TRUE(copyID);
    EXPECT_EQ(doc.path(*copyID), (LayerPath{1, 1}));
    EXPECT_EQ(doc.activeID, copyID);
    StudioLayer copy = *doc.layer(copyID);
    EXPECT_EQ(copy.name, "Sky copy");
    EXPECT_EQ(copy.pixels->tiles[0], src.pixels->tiles[0]);
    EXPECT_EQ(copy.mask->tiles[0], src.mask->tiles[0]);

    auto raster = doc.editableRaster(*copyID, false);
    ASSERT_TRUE(raster);
    raster->writable(0).pixels()[0] = 99;
    doc.setRaster(*copyID, false, *raster, true);
    EXPECT_EQ(doc.find(src.id)->pixels->pixel(0, 0), (Pixel4{10, 20, 30, 255}));
    EXPECT_EQ(doc.find(*copyID)->pixels->pixel(0, 0)[0], 99);

    auto groupCopy = doc.duplicate(g.id);
    ASSERT_TRUE(groupCopy);
    const StudioLayer& gc = *doc.find(*groupCopy);
    EXPECT_EQ(gc.name, "G copy");
    ASSERT_EQ(gc.children.size(), 2u);
    EXPECT_NE(gc.children[0].id, src.id);
    EXPECT_EQ(gc.children[0].name, "Sky"); // only the duplicated layer is renamed
    EXPECT_FALSE(doc.duplicate(Uuid::random()));
}

TEST(LayerOperations, MaskCommands) {
    StudioLayer l = solidLayer(kGrid, {200, 100, 50, 255}, {0, 0, 300, 100});
    l.mask = TileSet(kGrid);
    StudioDocument doc(300, 260, 72, {l});
    doc.invertMask(l.id);
    const TileSet& inverted = *doc.find(l.id)->mask;
    for (const auto& t : inverted.tiles) {
        ASSERT_TRUE(t);
        EXPECT_TRUE(std::all_of(t->pixels(), t->pixels() + kTileBytes, [](uint8_t v) { return v == 255; }));
    }
    EXPECT_EQ(doc.find(l.id)->maskValue(299, 259), 0);
    doc.invertMask(l.id);
    EXPECT_TRUE(std::all_of(doc.find(l.id)->mask->tiles.begin(), doc.find(l.id)->mask->tiles.end(),
                            [](const TilePtr& t) { return !t; }));

    // Half hidden in part of tile 0 only; tile 1 has pixels but no mask tile.
    doc.setRaster(l.id, true, maskHiding(kGrid, 128, {0, 0, 40, 40}), true);
    const TilePtr untouched = doc.find(l.id)->pixels->tiles[1];
    doc.applyMask(l.id);
    const StudioLayer& applied = *doc.find(l.id);
    EXPECT_FALSE(applied.mask);
    EXPECT_EQ(applied.pixels->pixel(5, 5), (Pixel4{100, 50, 25, 127}));
    EXPECT_EQ(applied.pixels->pixel(45, 5), (Pixel4{200, 100, 50, 255}));
    EXPECT_EQ(applied.pixels->tiles[1], untouched);
    EXPECT_EQ(l.pixels->pixel(5, 5), (Pixel4{200, 100, 50, 255})); // the history's tiles stay

    doc.addMask(l.id, NewMask::hideSelection);
    EXPECT_TRUE(doc.find(l.id)->mask->isEmpty());
    std::vector<uint8_t> sel(size_t(300 * 260), 0);
    for (int64_t y = 0; y < 20; ++y)
        std::fill_n(sel.begin() + y * 300 + 270, 30, uint8_t(255));
    doc.selection = Selection::fromMask(sel, 300, 260);
    doc.addMask(l.id, NewMask::hideSelection);
    const TileSet& hidden = *doc.find(l.id)->mask;
    EXPECT_EQ(
        std::count_if(hidden.tiles.begin(), hidden.tiles.end(), [](const TilePtr& t) { return bool(t); }), 1);
    EXPECT_EQ(doc.find(l.id)->maskValue(280, 10), 0);
    EXPECT_EQ(doc.find(l.id)->maskValue(260, 10), 255);
    doc.addMask(l.id, NewMask::revealSelection);
    EXPECT_EQ(doc.find(l.id)->maskValue(280, 10), 255);
    EXPECT_EQ(doc.find(l.id)->maskValue(0, 259), 0);
}

TEST(LayerOperations, EditableRasterRespectsLockAndKind) {
    StudioLayer locked = solidLayer(kGrid, {1, 1, 1, 255});
    locked.mask = TileSet(kGrid);
    locked.isLocked = true;
    StudioLayer text(Uuid::random(), "T", StudioLayerKind::text);
    text.text = TextSpec("T");
    text.mask = TileSet(kGrid);
    StudioDocument doc(300, 260, 72, {locked, text});
    EXPECT_FALSE(doc.editableRaster(locked.id, false));
    EXPECT_FALSE(doc.editableRaster(locked.id, true));
    EXPECT_FALSE(doc.editableRaster(text.id, false));
    EXPECT_TRUE(doc.editableRaster(text.id, true));
    EXPECT_FALSE(doc.editableRaster(Uuid::random(), true));
}

TEST(LayerOperations, NamesOfNewLayers) {
    StudioDocument doc(300, 260);
    const Uuid first = doc.layers[0].id;
    doc.addPixelLayer();
    EXPECT_EQ(doc.activeLayer()->name, "Layer 2");
    doc.addText(TextSpec("Hello\nworld, this is a long caption"));
    EXPECT_EQ(doc.activeLayer()->name, "Hello world, this is a l");
    doc.addText(TextSpec("é\r\nü"));
    EXPECT_EQ(doc.activeLayer()->name, "é ü");
    doc.addText(TextSpec(" \n\t"));
    EXPECT_EQ(doc.activeLayer()->name, "Text 1");
    doc.addShape(ShapeSpec(ShapeKind::roundedRectangle));
    EXPECT_EQ(doc.activeLayer()->name, "RoundedRectangle 1");
    doc.addFill(FillSpec(FillKind::radialGradient));
    EXPECT_EQ(doc.activeLayer()->name, "Gradient Fill 1");
    doc.addAdjustment(AdjustmentType::hueSaturation);
    EXPECT_EQ(doc.activeLayer()->name, std::string(displayName(AdjustmentType::hueSaturation)) + " 1");
    EXPECT_EQ(doc.activeLayer()->adjustment, AdjustmentSpec(AdjustmentType::hueSaturation));

    // Above the active layer, in its own group.
    doc.group({first});
    doc.activeID = first;
    const Uuid added = doc.addPixelLayer("Inside");
    EXPECT_EQ(doc.path(added), (LayerPath{0, 1}));
    const Uuid top = doc.insert(StudioLayer::pixelLayer("Top", kGrid), false);
    EXPECT_EQ(doc.layers.back().id, top);
}

TEST(LayerOperations, RasterizeAndFlattenKeepTheLook) {
    StudioLayer bg = solidLayer(kGrid, {250, 250, 250, 255}, {0, 0, 300, 130});
    StudioLayer g = StudioLayer::group("G", {solidLayer(kGrid, {0, 0, 200, 255}, {10, 10, 200, 200}),
                                             solidLayer(kGrid, {100, 0, 0, 128}, {60, 60, 200, 180})});
    g.opacity = 0.7;
    g.blendMode = BlendMode::multiply;
    StudioLayer fill(Uuid::random(), "Fill", StudioLayerKind::fill);
    // A checker with clear squares, so that the picture keeps holes: (150, 250) is in one.
    fill.fill = FillSpec(FillKind::pattern);
    fill.fill->color2 = RGBA(0, 0, 0, 0);
    StudioLayer hidden = StudioLayer::group("H", {solidLayer(kGrid, {9, 9, 9, 255})});
    hidden.isVisible = false;
    StudioDocument doc(300, 260, 72, {bg, g, fill, hidden});
    auto before = doc.flattened();

    doc.rasterize(g.id);
    doc.rasterize(hidden.id);
    EXPECT_FALSE(doc.find(hidden.id)->pixels->isEmpty()); // hiding is the layer's, not its pixels'
    EXPECT_FALSE(doc.find(hidden.id)->isVisible);
    doc.rasterizeAllVector();
    const StudioLayer& rg = *doc.find(g.id);
    EXPECT_EQ(rg.kind, StudioLayerKind::pixel);
    EXPECT_TRUE(rg.children.empty());
    EXPECT_EQ(rg.blendMode, BlendMode::multiply);
    EXPECT_EQ(rg.opacity, 0.7);
    EXPECT_EQ(doc.find(fill.id)->kind, StudioLayerKind::pixel);
    EXPECT_FALSE(doc.find(fill.id)->fill);
    EXPECT_LE(maxDiff(*before, *doc.flattened()), 2);

    const Uuid stamp = doc.stampVisible();
    EXPECT_EQ(doc.layers.back().id, stamp);
    EXPECT_EQ(doc.layers.back().name, "Stamp 1");
    EXPECT_EQ(doc.activeID, stamp);
    EXPECT_LE(maxDiff(*before, *doc.layers.back().pixels->toBuffer()), 2);

    // The stamp doubles what is translucent, so the look to keep is the one with it.
    before = doc.flattened();
    doc.flattenImage();
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_EQ(doc.layers[0].name, "Background");
    EXPECT_EQ(doc.activeID, doc.layers[0].id);
    EXPECT_NE(doc.layers[0].id, bg.id);
    EXPECT_EQ(doc.flattened()->pixel(150, 250)[3], 0);
    EXPECT_LE(maxDiff(*before, *doc.flattened()), 2);
}
