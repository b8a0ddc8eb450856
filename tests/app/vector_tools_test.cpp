// The Text and Shape tools as the canvas drives them: where a click lands,
// what a drag makes, and the tool records that outlive the session.
#include "FakeHost.h"
#include "app/model/StudioModel.h"
#include "app/model/VectorTools.h"
#include "engine/platform/TextLayout.h"
#include "engine/render/VectorRender.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace korv {
namespace {

using test::FakeHost;

struct VectorToolsTest : ::testing::Test {
    FakeHost host;
    StudioModel model{host, false};

    void SetUp() override { model.newDocument(400, 300, 72, PaintColor::white()); }
    StudioDocument& doc() { return *model.doc(); }
    size_t steps() { return doc().history().size(); }
};

TEST(ShapeFromDrag, BoxesTakeTheCornersAndLinesKeepTheirDirection) {
    ShapeSpec tool(ShapeKind::ellipse);
    tool.cornerRadius = 9;
    tool.sides = 5;
    // Dragged up and to the left: the box still starts at the smaller corner.
    const auto box = shapeFromDrag(tool, {120, 90}, {20, 40}, 1);
    ASSERT_TRUE(box);
    EXPECT_EQ((Rect{box->x, box->y, box->w, box->h}), (Rect{20, 40, 100, 50}));
    EXPECT_EQ(box->kind, ShapeKind::ellipse);
    EXPECT_EQ(box->sides, 5);
    EXPECT_EQ(box->cornerRadius, 9);

    for (ShapeKind kind : {ShapeKind::line, ShapeKind::arrow}) {
        const auto line = shapeFromDrag(ShapeSpec(kind), {120, 90}, {20, 140}, 1);
        ASSERT_TRUE(line);
        EXPECT_EQ((Rect{line->x, line->y, line->w, line->h}), (Rect{120, 90, -100, 50}));
    }
    // A horizontal line has no height, yet it is a line.
    EXPECT_TRUE(shapeFromDrag(ShapeSpec(ShapeKind::line), {10, 10}, {60, 10}, 1));
}

TEST(ShapeFromDrag, ADragUnderThreeViewPointsOnBothAxesIsASlip) {
    const ShapeSpec tool;
    EXPECT_FALSE(shapeFromDrag(tool, {10, 10}, {12.9, 7.1}, 1));
    EXPECT_TRUE(shapeFromDrag(tool, {10, 10}, {13, 10}, 1));
    // Zoomed out, 2 picture pixels are less than a view point; zoomed in they are 8.
    EXPECT_FALSE(shapeFromDrag(tool, {10, 10}, {30, 30}, 0.1));
    EXPECT_TRUE(shapeFromDrag(tool, {10, 10}, {12, 12}, 4));
}

TEST_F(VectorToolsTest, TheTextToolPlacesTextOrSelectsTheTextUnderTheClick) {
    model.primary = PaintColor{1, 0, 0, 1};
    model.textSpec.size = 40;
    model.textClick({50.4, 60.6});
    ASSERT_EQ(doc().layers.size(), 2u);
    const StudioLayer first = doc().layers[1];
    ASSERT_TRUE(first.text);
    EXPECT_EQ(first.text->text, "Your text here");
    EXPECT_EQ(first.text->size, 40);
    EXPECT_EQ(first.text->color, RGBA(1, 0, 0, 1));
    EXPECT_EQ(first.text->x, 50);
    EXPECT_EQ(first.text->y, 61);
    EXPECT_EQ(doc().undoName(), std::optional<std::string>("New Text"));

    // A second text elsewhere, then a click inside the first one's box selects it, with no step.
    model.textClick({60, 200});
    ASSERT_EQ(doc().layers.size(), 3u);
    const Rect box = VectorRender::textBounds(*first.text);
    const auto before = steps();
    model.textClick({box.maxX() - 2, box.maxY() - 2});
    EXPECT_EQ(doc().activeID, first.id);
    EXPECT_EQ(steps(), before);
    EXPECT_EQ(doc().layers.size(), 3u);
    // Just outside the box is empty canvas: a new text.
    model.textClick({box.maxX() + 1, box.y});
    EXPECT_EQ(doc().layers.size(), 4u);
}

TEST_F(VectorToolsTest, TheTopmostTextWinsAndOtherLayersAreNotText) {
    model.shapeDrag({0, 0}, {400, 300}, 1); // a shape covering everything
    EXPECT_FALSE(textLayerAt(doc(), {100, 100}));
    TextSpec a("Under"), b("Over");
    a.x = b.x = 20;
    a.y = b.y = 20;
    model.addText(a);
    const Uuid under = *doc().activeID;
    model.addText(b);
    const Uuid over = *doc().activeID;
    EXPECT_EQ(textLayerAt(doc(), {25, 25}), over);
    model.select(under);
    model.moveLayer(true); // the under one goes on top
    EXPECT_EQ(textLayerAt(doc(), {25, 25}), under);
    // Inside a group, text is still found.
    model.addGroup();
    EXPECT_EQ(textLayerAt(doc(), {25, 25}), under);
}

TEST_F(VectorToolsTest, AShapeDragUsesBothColoursAndTheToolsRecord) {
    model.primary = PaintColor{0, 1, 0, 1};
    model.secondary = PaintColor{0, 0, 1, 1};
    model.shapeSpec.kind = ShapeKind::star;
    model.shapeSpec.strokeEnabled = true;
    const auto before = steps();
    EXPECT_FALSE(model.shapeDrag({100, 100}, {101, 102}, 1));
    EXPECT_EQ(steps(), before);
    EXPECT_EQ(doc().layers.size(), 1u);
    EXPECT_TRUE(model.shapeDrag({200, 150}, {100, 50}, 1));
    EXPECT_EQ(steps(), before + 1);
    EXPECT_EQ(doc().undoName(), std::optional<std::string>("New Shape"));
    const ShapeSpec made = *doc().layers.back().shape;
    EXPECT_EQ(made.kind, ShapeKind::star);
    EXPECT_TRUE(made.strokeEnabled);
    EXPECT_EQ(made.fillColor, RGBA(0, 1, 0, 1));
    EXPECT_EQ(made.strokeColor, RGBA(0, 0, 1, 1));
    EXPECT_EQ((Rect{made.x, made.y, made.w, made.h}), (Rect{100, 50, 100, 100}));
    // The record itself keeps its own colours for the next time.
    EXPECT_EQ(model.shapeSpec.fillColor, StudioModel::defaultShapeSpec().fillColor);
}

TEST(VectorToolsWithoutPicture, ClicksAndDragsDoNothing) {
    FakeHost host;
    StudioModel model(host, false);
    model.textClick({10, 10});
    EXPECT_FALSE(model.shapeDrag({0, 0}, {100, 100}, 1));
    EXPECT_TRUE(model.sessions.empty());
    EXPECT_FALSE(model.alert);
}

TEST(VectorToolSettings, TheRecordsStartAsDesignedAndSurviveARestart) {
    FakeHost host;
    {
        StudioModel model(host, true);
        EXPECT_EQ(model.shapeSpec.kind, ShapeKind::roundedRectangle);
        EXPECT_EQ(model.shapeSpec.cornerRadius, 16);
        EXPECT_EQ(model.shapeSpec.sides, 6);
        EXPECT_EQ(model.textSpec.text, "Your text here");
        // The menus can name the family: it is an installed one.
        const auto families = TextLayout::families();
        EXPECT_NE(std::find(families.begin(), families.end(), model.textSpec.fontFamily), families.end());
        model.shapeSpec.kind = ShapeKind::arrow;
        model.textSpec.fontFamily = "DejaVu Serif";
        model.textSpec.italic = true;
        model.saveToolSettings();
    }
    {
        StudioModel model(host, true);
        EXPECT_EQ(model.shapeSpec.kind, ShapeKind::arrow);
        EXPECT_EQ(model.textSpec.fontFamily, "DejaVu Serif");
        EXPECT_TRUE(model.textSpec.italic);
    }
    // A stored record that can't be read leaves the defaults.
    host.settings["korv.pe.shapeSpec"] = "[1, 2";
    host.settings["korv.pe.textSpec"] = "\"text\"";
    StudioModel model(host, true);
    EXPECT_EQ(model.shapeSpec, StudioModel::defaultShapeSpec());
    EXPECT_EQ(model.textSpec, StudioModel::defaultTextSpec());
}

} // namespace
} // namespace korv
