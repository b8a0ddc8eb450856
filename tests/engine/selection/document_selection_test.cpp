#include "TestLayers.h"
#include "engine/core/Selection.h"
#include "engine/document/StudioDocument.h"
#include "engine/selection/SelectionTools.h"

#include <gtest/gtest.h>

using namespace korv;

TEST(DocumentSelection, Commands) {
    StudioDocument doc(40, 30);
    doc.invertSelection();
    EXPECT_FALSE(doc.selection);
    doc.selectAll();
    ASSERT_TRUE(doc.selection);
    EXPECT_EQ(doc.selection->bounds(), (IRect{0, 0, 40, 30}));
    doc.invertSelection(); // nothing is left
    EXPECT_FALSE(doc.selection);
    doc.setSelection(Selection::fromMask(std::vector<uint8_t>(1200, 255), 40, 30));
    doc.deselect();
    EXPECT_FALSE(doc.selection);
}

TEST(DocumentSelection, LayerShapeAndMask) {
    const TileGrid g(300, 20);
    StudioLayer shape = test::solidLayer(g, {10, 20, 30, 200}, {5, 2, 280, 6});
    shape.mask = test::maskHiding(g, 255, {0, 0, 10, 20});
    shape.mask->setPixel(100, 10, {60, 60, 60, 60});
    const Uuid id = shape.id;
    StudioDocument doc(300, 20, 72, {shape});

    doc.selectLayerShape(id);
    ASSERT_TRUE(doc.selection);
    EXPECT_EQ(doc.selection->bounds(), (IRect{5, 2, 280, 6}));
    EXPECT_EQ(doc.selection->value(6, 3), 200);

    doc.selectMask(id);
    ASSERT_TRUE(doc.selection);
    EXPECT_EQ(doc.selection->value(3, 3), 0);
    EXPECT_EQ(doc.selection->value(100, 10), 195);
    EXPECT_EQ(doc.selection->value(299, 19), 255); // the second mask tile is absent

    // Unknown ids and a layer without a mask change nothing.
    const SelectionRef before = doc.selection;
    doc.selectMask(Uuid::random());
    doc.selectLayerShape(Uuid::random());
    EXPECT_EQ(doc.selection, before);
    StudioDocument plain(20, 20, 72, {test::solidLayer(TileGrid(20, 20), {0, 0, 0, 255})});
    plain.selectAll();
    const SelectionRef all = plain.selection;
    plain.selectMask(plain.layers[0].id);
    EXPECT_EQ(plain.selection, all);
}

TEST(DocumentSelection, MaskSmallerThanCanvasRevealsBeyond) {
    const TileGrid g(20, 20);
    StudioLayer l = test::solidLayer(g, {0, 0, 0, 255});
    l.mask = test::maskHiding(TileGrid(10, 10), 255, {0, 0, 10, 10});
    const Uuid id = l.id;
    StudioDocument doc(20, 20, 72, {l});
    doc.selectMask(id);
    ASSERT_TRUE(doc.selection);
    EXPECT_EQ(doc.selection->value(9, 9), 0);
    EXPECT_EQ(doc.selection->value(10, 5), 255);
    EXPECT_EQ(doc.selection->value(5, 15), 255);
}
