// Text layers: fonts as fontconfig resolves them, layout sizes, rasters that
// are neither clipped nor spread over the canvas, and text that keeps its
// look through the cache, a saved file and rasterizing.
#include "engine/document/StudioDocument.h"
#include "engine/formats/StudioFile.h"
#include "engine/render/StudioRenderer.h"
#include "engine/render/VectorRender.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace korv {
namespace {

int64_t alphaSum(const TileSet& set) {
    int64_t sum = 0;
    for (const TilePtr& t : set.tiles)
        if (t)
            for (int64_t i = 3; i < kTileBytes; i += 4)
                sum += t->pixels()[i];
    return sum;
}

std::vector<int64_t> presentTiles(const TileSet& set) {
    std::vector<int64_t> out;
    for (size_t i = 0; i < set.tiles.size(); ++i)
        if (set.tiles[i]) out.push_back(int64_t(i));
    return out;
}

bool inside(const IRect& inner, const Rect& outer) {
    return double(inner.x) >= outer.minX() && double(inner.y) >= outer.minY() &&
           double(inner.maxX()) <= outer.maxX() && double(inner.maxY()) <= outer.maxY();
}

TEST(VectorText, FontsResolveThroughFontconfig) {
    // The default family maps to an installed sans with Helvetica's widths.
    const TextLayout::Font def = VectorRender::font(TextSpec("KORV"));
    EXPECT_EQ(def.family, "Liberation Sans");
    EXPECT_TRUE(def.bold); // a new text is bold
    EXPECT_FALSE(def.italic);

    const std::vector<std::string> families = TextLayout::families();
    for (const char* expected : {"DejaVu Sans", "Liberation Serif", "Noto Sans", "Nimbus Mono PS"})
        EXPECT_TRUE(std::binary_search(families.begin(), families.end(), expected)) << expected;

    // Bold and italic come together, or not at all when the family lacks the face.
    TextSpec s("Aa");
    s.fontFamily = "DejaVu Serif";
    s.italic = true;
    EXPECT_EQ(VectorRender::font(s), (TextLayout::Font{"DejaVu Serif", 72, true, true}));
    s.fontFamily = "Dancing Script"; // upright faces only
    EXPECT_EQ(VectorRender::font(s), (TextLayout::Font{"Dancing Script", 72, false, false}));
    s.italic = false;
    EXPECT_TRUE(VectorRender::font(s).bold);

    s.size = 1;
    EXPECT_EQ(VectorRender::font(s).size, 2);
    s.size = 9000;
    EXPECT_EQ(VectorRender::font(s).size, 3000);
}

TEST(VectorText, SizesFollowTheFontTheBoxAndTheParagraph) {
    TextSpec s("KORV");
    s.fontFamily = "DejaVu Sans";
    const VectorRender::Size one = VectorRender::textSize(s);
    EXPECT_GT(one.width, 150);
    EXPECT_GT(one.height, 72);
    EXPECT_LT(one.height, 72 * 1.4);
    EXPECT_EQ(one.width, std::ceil(one.width)); // whole pixels, the margin included
    EXPECT_EQ(VectorRender::textBounds(s), (Rect{40, 40, one.width, one.height}));

    // An empty text is one blank high.
    TextSpec empty = s;
    empty.text.clear();
    const VectorRender::Size blank = VectorRender::textSize(empty);
    EXPECT_GT(blank.width, 2);
    EXPECT_EQ(blank.height, one.height);

    TextSpec two = s;
    two.text = "KORV\nKORV";
    const double twoLines = VectorRender::textSize(two).height;
    EXPECT_NEAR(twoLines - 2, 2 * (one.height - 2), 2);
    two.lineSpacing = 2;
    EXPECT_NEAR(VectorRender::textSize(two).height - 2, 2 * 2 * (one.height - 2), 4);
    two.lineSpacing = 50; // at most four times
    EXPECT_NEAR(VectorRender::textSize(two).height - 2, 4 * 2 * (one.height - 2), 8);

    TextSpec tracked = s;
    tracked.tracking = 10;
    // Ten more pixels after each letter, the last one's perhaps left out.
    EXPECT_GE(VectorRender::textSize(tracked).width, one.width + 29);
    EXPECT_LE(VectorRender::textSize(tracked).width, one.width + 41);

    // Size 1 is drawn as 2.
    TextSpec tiny = s, two_px = s;
    tiny.size = 1;
    two_px.size = 2;
    EXPECT_EQ(VectorRender::textSize(tiny), VectorRender::textSize(two_px));

    // A box width wraps the words and fixes the width.
    TextSpec wrapped = s;
    wrapped.text = "one two three four five six";
    wrapped.boxWidth = 300;
    const VectorRender::Size w = VectorRender::textSize(wrapped);
    EXPECT_EQ(w.width, 302);
    EXPECT_GT(w.height, 2.5 * (one.height - 2));
}

TEST(VectorText, DrawsInsideItsBoxAndAlignsItsLines) {
    const TileGrid grid(600, 300);
    TextSpec s("KORV");
    const TileSet set = VectorRender::text(s, grid);
    const std::optional<IRect> drawn = set.contentBounds();
    ASSERT_TRUE(drawn);
    EXPECT_TRUE(inside(*drawn, VectorRender::textBounds(s))) << drawn->description();
    EXPECT_GT(drawn->w, 100);
    // White text, premultiplied: every colour byte equals its alpha, and the
    // edges are smooth, not just on and off.
    int64_t partial = 0;
    for (int64_t y = drawn->y; y < drawn->maxY(); ++y)
        for (int64_t x = drawn->x; x < drawn->maxX(); ++x) {
            const Pixel4 p = set.pixel(x, y);
            ASSERT_EQ(p[0], p[3]);
            ASSERT_EQ(p[1], p[0]); // grey antialiasing: no colour fringes
            partial += p[3] > 0 && p[3] < 255;
        }
    EXPECT_GT(partial, 100);

    // Lines of a wrapped paragraph sit to the left, the middle or the right of the box.
    TextSpec para("I\nIIIIIIII");
    para.boxWidth = 500;
    para.x = 50;
    const auto firstLine = [&](TextAlign a) {
        para.align = a;
        const TileSet p = VectorRender::text(para, grid);
        const Rect b = VectorRender::textBounds(para);
        // The first line alone: the top third of the box.
        int64_t lo = grid.width, hi = -1;
        for (int64_t y = int64_t(b.y); y < int64_t(b.y + b.h / 3); ++y)
            for (int64_t x = 0; x < grid.width; ++x)
                if (p.alpha(x, y)) lo = std::min(lo, x), hi = std::max(hi, x);
        return (lo + hi) / 2;
    };
    EXPECT_LT(firstLine(TextAlign::left), 80);
    EXPECT_NEAR(double(firstLine(TextAlign::center)), 300, 6);
    EXPECT_GT(firstLine(TextAlign::right), 520);
}

TEST(VectorText, RotatedTextReachesBeyondItsBoxUnclipped) {
    const TileGrid grid(800, 800);
    TextSpec s("Lumenary");
    s.x = 150;
    s.y = 350;
    const TileSet flat = VectorRender::text(s, grid);
    s.rotation = 90;
    const TileSet turned = VectorRender::text(s, grid);
    const Rect box = VectorRender::textBounds(s);
    const IRect drawn = *turned.contentBounds();
    EXPECT_LT(double(drawn.y), box.minY() - 50);
    EXPECT_GT(double(drawn.maxY()), box.maxY() + 50);
    EXPECT_LT(drawn.w, 120);
    // A quarter turn only moves the ink: nothing is lost at the edges.
    EXPECT_NEAR(double(alphaSum(turned)), double(alphaSum(flat)), 0.01 * double(alphaSum(flat)));
}

TEST(VectorText, TheHugestSizeIsClampedAndDrawsOnlyWhereItFalls) {
    const TileGrid grid(1200, 1200);
    TextSpec s("W");
    s.size = 9000;
    s.x = 0;
    s.y = 0;
    TextSpec max = s;
    max.size = 3000;
    const TileSet huge = VectorRender::text(s, grid);
    EXPECT_EQ(huge.fingerprint(), VectorRender::text(max, grid).fingerprint());
    // The glyph is far larger than the canvas, which it covers; drawing is
    // clipped to the canvas, not made at the glyph's size.
    EXPECT_GT(VectorRender::textBounds(s).w, 2000);
    EXPECT_EQ(huge.contentBounds()->maxX(), 1200);
    EXPECT_LT(huge.contentBounds()->x, 20);
    EXPECT_EQ(huge.contentBounds()->maxY(), 1200);
}

TEST(VectorText, EditingATextRedrawsOnlyItsTilesAndTheCacheKeepsOneEntry) {
    StudioLayer layer(Uuid::random(), "Title", StudioLayerKind::text);
    layer.text = TextSpec("KORV");
    StudioDocument doc(1024, 1024, 72, {layer});
    RenderCache& cache = doc.cache();
    const std::optional<TileSet> first = StudioRenderer::contentRaster(doc.layers[0], doc.grid, cache);
    ASSERT_TRUE(first);
    EXPECT_EQ(presentTiles(*first), (std::vector<int64_t>{0}));
    // A second plan takes the very same tiles from the cache.
    EXPECT_EQ(*StudioRenderer::contentRaster(doc.layers[0], doc.grid, cache), *first);

    doc.layers[0].text->text = "KORV Lumenary";
    doc.layers[0].text->x = 180;
    const std::optional<TileSet> edited = StudioRenderer::contentRaster(doc.layers[0], doc.grid, cache);
    EXPECT_FALSE(*edited == *first);
    // The tiles under the new box, in the top row, and no others.
    const Rect box = VectorRender::textBounds(*doc.layers[0].text);
    EXPECT_EQ(presentTiles(*edited), doc.grid.tiles(IRect::covering(box.x, box.y, box.w, box.h)));
    EXPECT_EQ(presentTiles(*edited).size(), 3u);
    EXPECT_EQ(cache.rasterCount(), 1u);
    // Its content is still its record: the edit is undone by the record alone.
    doc.layers[0].text = TextSpec("KORV");
    EXPECT_EQ(StudioRenderer::contentRaster(doc.layers[0], doc.grid, cache)->fingerprint(),
              first->fingerprint());
}

TEST(VectorText, ASavedDocumentAndARasterizedLayerKeepTheLook) {
    StudioLayer text(Uuid::random(), "Title", StudioLayerKind::text);
    text.text = TextSpec("Aa Lumenary");
    text.text->fontFamily = "Liberation Serif";
    text.text->italic = true;
    text.text->rotation = -12;
    text.text->color = RGBA(0.9, 0.3, 0.1, 1);
    StudioLayer star(Uuid::random(), "Star", StudioLayerKind::shape);
    star.shape = ShapeSpec(ShapeKind::star);
    StudioLayer fill(Uuid::random(), "Fill", StudioLayerKind::fill);
    fill.fill = FillSpec(FillKind::radialGradient);
    StudioDocument doc(500, 300, 72, {fill, star, text});
    const RGBABufferPtr before = doc.flattened();

    const std::unique_ptr<StudioDocument> reopened = StudioFile::decode(StudioFile::encode(doc));
    ASSERT_TRUE(reopened);
    ASSERT_TRUE(reopened->layers[2].text);
    EXPECT_EQ(*reopened->layers[2].text, *text.text);
    EXPECT_EQ(TileSet::from(*reopened->flattened()).fingerprint(), TileSet::from(*before).fingerprint());

    doc.rasterize(text.id);
    doc.rasterize(star.id);
    EXPECT_EQ(doc.find(text.id)->kind, StudioLayerKind::pixel);
    EXPECT_FALSE(doc.find(text.id)->text);
    EXPECT_EQ(TileSet::from(*doc.flattened()).fingerprint(), TileSet::from(*before).fingerprint());
}

} // namespace
} // namespace korv
