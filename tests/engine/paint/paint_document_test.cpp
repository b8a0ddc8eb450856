#include "engine/core/Selection.h"
#include "engine/paint/PaintDocument.h"

#include <gtest/gtest.h>

using namespace korv;

TEST(PaintDocument, StartsWithOneOpenStepAndClampsTheActiveIndex) {
    PaintDocument doc(0, -5);
    EXPECT_EQ(doc.grid.width, 1);
    EXPECT_EQ(doc.grid.height, 1);
    ASSERT_EQ(doc.history().size(), 1u);
    EXPECT_EQ(doc.history()[0].name, "Open");
    EXPECT_EQ(doc.cursor(), 0);
    EXPECT_EQ(doc.changeCount(), 0);

    PaintDocument three(10, 10);
    three.layers.push_back(std::make_shared<Layer>("b", three.grid));
    three.layers.push_back(std::make_shared<Layer>("c", three.grid));
    three.setActiveIndex(7);
    EXPECT_EQ(three.activeIndex(), 2);
    three.setActiveIndex(-3);
    EXPECT_EQ(three.activeIndex(), 0);
    three.layers.clear();
    EXPECT_EQ(three.activeIndex(), 0);
}

TEST(PaintDocument, WritableTileCopiesFrozenTilesAndLeavesHoldersAlone) {
    PaintDocument doc(600, 300);
    Layer& layer = *doc.activeLayer();
    EXPECT_FALSE(layer.tiles[1]);
    Tile& fresh = layer.writableTile(1);
    ASSERT_TRUE(layer.tiles[1]);
    EXPECT_TRUE(fresh.isEmpty());
    fresh.pixels()[3] = 200;
    EXPECT_EQ(&layer.writableTile(1), &fresh); // not frozen: the same tile

    const TilePtr held = layer.tiles[1];
    layer.freeze();
    layer.writableTile(1).pixels()[3] = 10;
    EXPECT_NE(layer.tiles[1], held);
    EXPECT_EQ(held->pixels()[3], 200);
    EXPECT_EQ(layer.pixel(256, 0)[3], 10);
    EXPECT_EQ(layer.pixel(-1, 0), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(layer.pixel(0, 0), (Pixel4{0, 0, 0, 0}));

    layer.setTile(1, nullptr);
    EXPECT_FALSE(layer.tiles[1]);
    EXPECT_EQ(held->pixels()[3], 200);

    RGBABuffer buffer(600, 300);
    buffer.setPixel(599, 299, {1, 2, 3, 4});
    layer.load(buffer);
    EXPECT_EQ(layer.pixel(599, 299), (Pixel4{1, 2, 3, 4}));
    EXPECT_FALSE(layer.tiles[0]); // empty tiles stay absent
    EXPECT_EQ(layer.toBuffer()->fingerprint(), buffer.fingerprint());
}

TEST(PaintDocument, DirtyTilesAndSelection) {
    PaintDocument doc(1000, 600);
    doc.markDirty({700, 300, 10, 10});
    doc.markDirty({0, 0, 300, 10});
    EXPECT_EQ(doc.takeDirtyTiles(), (std::vector<int64_t>{0, 1, 6}));
    EXPECT_TRUE(doc.takeDirtyTiles().empty());
    doc.markAllDirty();
    EXPECT_EQ(doc.takeDirtyTiles().size(), 12u);

    EXPECT_FALSE(doc.selection());
    doc.invertSelection();
    EXPECT_FALSE(doc.selection());
    doc.selectAll();
    ASSERT_TRUE(doc.selection());
    EXPECT_EQ(doc.selection()->value(999, 599), 255);
    doc.invertSelection();
    EXPECT_FALSE(doc.selection());
    doc.selectAll();
    doc.deselect();
    EXPECT_FALSE(doc.selection());
}

TEST(PaintDocument, CommitKeepsBothLimitsAndRevertDropsUncommittedPaint) {
    PaintDocument doc(300, 300);
    Layer& layer = *doc.activeLayer();
    doc.maxUndoSteps = 3;
    for (int i = 0; i < 6; ++i)
        doc.perform("Step " + std::to_string(i), [&] { layer.writableTile(0).pixels()[3] = uint8_t(i + 1); });
    EXPECT_EQ(doc.history().size(), 4u);
    EXPECT_EQ(doc.cursor(), 3);
    EXPECT_EQ(doc.history().back().name, "Step 5");
    EXPECT_EQ(doc.changeCount(), 6);
    // Each state kept its own bytes even though one layer was written throughout.
    EXPECT_EQ(doc.history()[1].state.layers[0].tiles[0]->pixels()[3], 4);

    layer.writableTile(0).pixels()[3] = 99;
    layer.writableTile(3).pixels()[3] = 99;
    doc.revertToLastCommit();
    EXPECT_EQ(doc.activeLayer()->pixel(0, 0)[3], 6);
    EXPECT_EQ(doc.activeLayer()->pixel(256, 256)[3], 0);

    doc.maxUndoSteps = 0;
    doc.commit("Again");
    EXPECT_EQ(doc.history().size(), 2u);
    EXPECT_EQ(doc.cursor(), 1);

    // The byte limit is looked at from 21 steps on, and keeps two at least.
    PaintDocument big(300, 300);
    big.maxUndoBytes = 3 * kTileBytes;
    for (int i = 0; i < 19; ++i)
        big.perform("s", [&] { big.activeLayer()->writableTile(0).pixels()[0] = uint8_t(i); });
    EXPECT_EQ(big.history().size(), 20u);
    big.perform("s", [&] { big.activeLayer()->writableTile(0).pixels()[0] = 100; });
    EXPECT_EQ(big.history().size(), 3u);
    EXPECT_LE(big.historyBytes(), 3 * kTileBytes);
    EXPECT_EQ(big.cursor(), 2);
    big.maxUndoBytes = 0;
    for (int i = 0; i < 18; ++i)
        big.perform("s", [&] { big.activeLayer()->writableTile(0).pixels()[0] = uint8_t(i); });
    EXPECT_EQ(big.history().size(), 2u);
}
