#include "TestLayers.h"
#include "engine/core/Selection.h"
#include "engine/document/StudioDocument.h"

#include <gtest/gtest.h>

using namespace korv;
using korv::test::solidLayer;

namespace {

constexpr Pixel4 kRed{200, 0, 0, 255};
constexpr Pixel4 kBlue{0, 0, 200, 255};

// 300 x 200: a red pixel layer with one blue pixel at (10, 20), a mask hiding
// its right half, a shape and a text layer, and a selection.
std::unique_ptr<StudioDocument> sample() {
    const TileGrid grid(300, 200);
    StudioLayer base = solidLayer(grid, kRed, {0, 0, 300, 200}, "Base");
    base.pixels->setPixel(10, 20, kBlue);
    base.mask = korv::test::maskHiding(grid, 255, {150, 0, 150, 200});
    StudioLayer shape(Uuid::random(), "Shape", StudioLayerKind::shape);
    shape.shape = ShapeSpec(ShapeKind::rectangle);
    shape.shape->x = 20;
    shape.shape->y = 30;
    shape.effects.shadowDistance = 10;
    StudioLayer text(Uuid::random(), "Text", StudioLayerKind::text);
    text.text = TextSpec("Hi");
    auto doc = std::make_unique<StudioDocument>(300, 200, 72.0, std::vector<StudioLayer>{base, shape, text});
    doc->setSelection(Selection::all(300, 200));
    doc->takeDirtyTiles();
    return doc;
}

const StudioLayer& named(const StudioDocument& d, const std::string& name) {
    for (const auto& l : d.layers)
        if (l.name == name) return l;
    throw std::runtime_error("no layer " + name);
}

} // namespace

TEST(ImageOperations, CanvasSizeAndCropMovePixelsExactlyAndKeepVectorsInPlace) {
    auto d = sample();
    int gridChanges = 0;
    d->onGridChange = [&] { ++gridChanges; };

    // Wider with the anchor at the left: the picture stays at the left, the new area is empty.
    d->resizeCanvas(400, 200, 0, 0.5);
    EXPECT_EQ(d->width(), 400);
    EXPECT_EQ(d->grid.cols, 2);
    const StudioLayer* base = &named(*d, "Base");
    EXPECT_EQ(base->pixels->pixel(10, 20), kBlue);
    EXPECT_EQ(base->pixels->pixel(350, 100)[3], 0);
    EXPECT_EQ(base->mask->alpha(200, 10), 255); // the mask moved with the picture
    EXPECT_EQ(base->mask->alpha(350, 10), 0);   // and the new area is revealed
    EXPECT_FALSE(d->selection);
    EXPECT_EQ(gridChanges, 1);
    EXPECT_EQ(int64_t(d->dirtyTiles.size()), d->grid.count());

    // Centred: 101 extra pixels put the picture 51 pixels in (ties away from zero).
    d->resizeCanvas(501, 203, 0.5, 0.5);
    base = &named(*d, "Base");
    EXPECT_EQ(base->pixels->pixel(10 + 51, 20 + 2), kBlue);
    EXPECT_DOUBLE_EQ(named(*d, "Shape").shape->x, 20 + 51);
    EXPECT_DOUBLE_EQ(named(*d, "Text").text->y, 40 + 2);

    // Crop to 100 x 80 around the blue pixel: it lands at (10, 20) again.
    d->crop({51, 2, 100, 80});
    EXPECT_EQ(d->width(), 100);
    EXPECT_EQ(d->height(), 80);
    EXPECT_EQ(named(*d, "Base").pixels->pixel(10, 20), kBlue);
    EXPECT_DOUBLE_EQ(named(*d, "Shape").shape->x, 20);

    // A crop off the canvas changes nothing.
    const uint64_t before = d->fingerprint();
    d->crop({500, 500, 10, 10});
    EXPECT_EQ(d->fingerprint(), before);
    EXPECT_EQ(gridChanges, 3);
}

TEST(ImageOperations, RotateAndFlipTurnEveryPixelAndRasterizeVectors) {
    auto d = sample();
    d->rotate(1); // clockwise: (x, y) goes to (h - 1 - y, x)
    EXPECT_EQ(d->width(), 200);
    EXPECT_EQ(d->height(), 300);
    EXPECT_EQ(named(*d, "Base").pixels->pixel(200 - 1 - 20, 10), kBlue);
    EXPECT_EQ(named(*d, "Shape").kind, StudioLayerKind::pixel);
    EXPECT_EQ(named(*d, "Text").kind, StudioLayerKind::pixel);
    EXPECT_FALSE(d->selection);
    // The mask turned too: the hidden right half is now the bottom half.
    EXPECT_EQ(named(*d, "Base").mask->alpha(100, 250), 255);
    EXPECT_EQ(named(*d, "Base").mask->alpha(100, 50), 0);

    d->rotate(3); // and back
    EXPECT_EQ(d->width(), 300);
    EXPECT_EQ(named(*d, "Base").pixels->pixel(10, 20), kBlue);
    const uint64_t upright = d->fingerprint();
    d->rotate(4);
    EXPECT_EQ(d->fingerprint(), upright);

    d->rotate(2);
    EXPECT_EQ(named(*d, "Base").pixels->pixel(300 - 1 - 10, 200 - 1 - 20), kBlue);
    d->rotate(-2); // only the low two bits count
    EXPECT_EQ(named(*d, "Base").pixels->pixel(10, 20), kBlue);

    d->flip(true);
    EXPECT_EQ(named(*d, "Base").pixels->pixel(289, 20), kBlue);
    d->flip(false);
    EXPECT_EQ(named(*d, "Base").pixels->pixel(289, 179), kBlue);
}

TEST(ImageOperations, ImageSizeResamplesAndKeepsVectorsSharp) {
    auto d = sample();
    d->resizeImage(600, 100);
    EXPECT_EQ(d->width(), 600);
    EXPECT_EQ(d->height(), 100);
    const StudioLayer& base = named(*d, "Base");
    EXPECT_EQ(base.pixels->pixel(100, 50), kRed); // a flat area stays exact
    EXPECT_GT(base.mask->alpha(500, 50), 250);
    EXPECT_LT(base.mask->alpha(100, 50), 5);
    const StudioLayer& shape = named(*d, "Shape");
    EXPECT_EQ(shape.kind, StudioLayerKind::shape);
    EXPECT_DOUBLE_EQ(shape.shape->x, 40);
    EXPECT_DOUBLE_EQ(shape.shape->y, 15);
    EXPECT_DOUBLE_EQ(shape.shape->w, 200);
    EXPECT_DOUBLE_EQ(shape.shape->h, 50);
    EXPECT_DOUBLE_EQ(shape.shape->strokeWidth, 4 * 1.25);
    EXPECT_DOUBLE_EQ(shape.effects.shadowDistance, 10 * 1.25);
    EXPECT_DOUBLE_EQ(named(*d, "Text").text->size, 72 * 1.25);

    // A layer with nothing visible stays without tiles at any size.
    StudioDocument empty(300, 200);
    empty.resizeImage(30000, 30000);
    EXPECT_EQ(empty.width(), 30000);
    EXPECT_TRUE(empty.layers[0].pixels->isEmpty());
}

TEST(ImageOperations, MoveShiftsPixelsAndVectorsButNotTheMask) {
    auto d = sample();
    const Uuid baseID = named(*d, "Base").id;
    d->offsetLayer(baseID, 30, -10);
    const StudioLayer& base = named(*d, "Base");
    EXPECT_EQ(base.pixels->pixel(40, 10), kBlue);
    EXPECT_EQ(base.pixels->pixel(10, 195)[3], 0); // uncovered at the bottom
    EXPECT_EQ(base.pixels->pixel(20, 195)[3], 0);
    EXPECT_EQ(base.mask->alpha(160, 5), 255); // the mask stayed
    EXPECT_EQ(base.mask->alpha(140, 5), 0);

    const Uuid shapeID = named(*d, "Shape").id;
    d->offsetLayer(shapeID, -5, 7);
    EXPECT_DOUBLE_EQ(named(*d, "Shape").shape->x, 15);
    EXPECT_DOUBLE_EQ(named(*d, "Shape").shape->y, 37);

    d->update(shapeID, false, [](StudioLayer& l) { l.isLocked = true; });
    d->offsetLayer(shapeID, 100, 100);
    EXPECT_DOUBLE_EQ(named(*d, "Shape").shape->x, 15);

    // A group moves with everything it holds.
    const auto group = d->group({baseID, shapeID});
    ASSERT_TRUE(group);
    d->offsetLayer(*group, 1, 1);
    const StudioLayer* g = d->find(*group);
    EXPECT_EQ(g->children[0].pixels->pixel(41, 11), kBlue);
}
