// Text, shape and fill layers added from whole records, as the tools and the
// command line give them.
#include "FakeHost.h"
#include "app/model/StudioModel.h"
#include "engine/render/StudioRenderer.h"
#include "engine/render/VectorRender.h"

#include <gtest/gtest.h>

// Fontconfig keeps what it parses from configuration files (the system's, which
// Pango loads on a thread of its own) behind offset-coded pointers that the leak
// checker can't follow, so that memory looks lost at exit. Its frames carry no
// frame pointers, so the stack names only the library.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}

namespace korv {
namespace {

using test::FakeHost;

struct VectorCommandsTest : ::testing::Test {
    FakeHost host;
    StudioModel model{host, false};

    void SetUp() override { model.newDocument(320, 200, 72, PaintColor::white()); }
    StudioDocument& doc() { return *model.doc(); }
    std::string lastStep() { return doc().undoName().value_or(""); }
};

TEST_F(VectorCommandsTest, ATextLayerGoesAboveTheActiveLayerAsOneStep) {
    const Uuid background = *doc().activeID;
    TextSpec spec("Hello\nworld, and a long second line");
    spec.color = RGBA(1, 0, 0, 1);
    spec.x = 10;
    spec.y = 10;
    model.addText(spec);
    EXPECT_EQ(lastStep(), "New Text");
    ASSERT_EQ(doc().layers.size(), 2u);
    const StudioLayer& added = doc().layers[1];
    EXPECT_EQ(added.kind, StudioLayerKind::text);
    EXPECT_EQ(*added.text, spec);
    EXPECT_EQ(added.name, "Hello world, and a long "); // 24 characters, the break a blank
    EXPECT_EQ(doc().activeID, added.id);
    // It draws over the white background.
    const Rect box = VectorRender::textBounds(spec);
    const RGBABufferPtr picture = doc().flattened();
    bool red = false;
    for (int64_t y = int64_t(box.y); y < int64_t(box.maxY()) && !red; ++y)
        for (int64_t x = int64_t(box.x); x < int64_t(box.maxX()) && !red; ++x)
            red = picture->pixel(x, y) == Pixel4{255, 0, 0, 255};
    EXPECT_TRUE(red);

    model.undo();
    EXPECT_EQ(doc().layers.size(), 1u);
    EXPECT_EQ(doc().activeID, background);
    model.addText(TextSpec("   "));
    EXPECT_EQ(doc().layers.back().name, "Text 1");
}

TEST_F(VectorCommandsTest, ShapeAndFillLayersAreNamedAfterTheirKind) {
    ShapeSpec star(ShapeKind::star);
    star.x = 20, star.y = 20;
    model.addShape(star);
    EXPECT_EQ(lastStep(), "New Shape");
    EXPECT_EQ(doc().layers.back().name, "Star 1");
    EXPECT_EQ(*doc().layers.back().shape, star);
    const Pixel4 inside = StudioRenderer::pixel(doc(), 70, 70);
    EXPECT_EQ(inside[0], 64);
    EXPECT_NEAR(inside[2], 242, 1); // 0.95 x 255, as the rasteriser rounds it
    EXPECT_EQ(StudioRenderer::pixel(doc(), 22, 22), (Pixel4{255, 255, 255, 255})); // a corner of its box

    FillSpec fill(FillKind::pattern);
    fill.scale = 8;
    model.addFill(fill);
    EXPECT_EQ(lastStep(), "New Fill Layer");
    EXPECT_EQ(doc().layers.back().name, "Pattern Fill 1");
    EXPECT_EQ(*doc().layers.back().fill, fill);
    EXPECT_EQ(doc().layers.size(), 3u);
    EXPECT_EQ(StudioRenderer::pixel(doc(), 1, 1), (Pixel4{51, 115, 230, 255}));
    EXPECT_EQ(StudioRenderer::pixel(doc(), 9, 1), (Pixel4{255, 255, 255, 255}));
}

} // namespace
} // namespace korv
