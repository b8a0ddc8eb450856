// Fill layers: solid colours, gradients and patterns, to the byte.
#include "engine/core/Constants.h"
#include "engine/render/VectorRender.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

namespace korv {
namespace {

Pixel4 at(const TileSet& set, int64_t x, int64_t y) {
    return set.pixel(x, y);
}

// A byte of an edge tile beyond the canvas.
uint8_t padding(const TileSet& set, int64_t tile, int64_t px, int64_t py, int k) {
    const Tile* t = set.tile(tile);
    return t ? t->row(py)[px * 4 + k] : 0;
}

FillSpec twoColour(FillKind kind, RGBA a, RGBA b) {
    FillSpec s(kind);
    s.color1 = a;
    s.color2 = b;
    return s;
}

TEST(VectorFill, SolidFillsEveryTileWholePaddingIncluded) {
    const TileGrid grid(300, 260); // 2 x 2 tiles, edges half empty
    const TileSet set = VectorRender::fill(FillSpec(), grid);
    EXPECT_EQ(at(set, 0, 0), (Pixel4{51, 115, 230, 255}));
    EXPECT_EQ(at(set, 299, 259), (Pixel4{51, 115, 230, 255}));
    // (300, 0) and (0, 260) lie outside the canvas, in the edge tiles' padding.
    EXPECT_EQ(padding(set, 1, 300 - 256, 0, 0), 51);
    EXPECT_EQ(padding(set, 3, 255, 255, 3), 255);
    for (int64_t i = 0; i < grid.count(); ++i)
        EXPECT_TRUE(set.tile(i)->frozen());

    // Premultiplied, rounded half away from zero: 255 x 0.5 x 0.5 = 63.75.
    FillSpec half;
    half.color1 = RGBA(0.5, 1, 0, 0.5);
    EXPECT_EQ(at(VectorRender::fill(half, grid), 10, 10), (Pixel4{64, 128, 0, 128}));
}

TEST(VectorFill, LinearGradientRunsAlongItsAngleAndRoundsHalfUp) {
    const TileGrid grid(100, 50);
    FillSpec s = twoColour(FillKind::linearGradient, RGBA::black(), RGBA::white());
    s.angle = 0;
    const TileSet across = VectorRender::fill(s, grid);
    EXPECT_LT(at(across, 2, 25)[0], 20);
    EXPECT_GT(at(across, 97, 25)[0], 235);
    // The centre of column 49 is 0.5 left of the middle: t = 0.495, 126.225;
    // of column 50, 0.505 and 128.775.
    EXPECT_EQ(at(across, 49, 0)[0], 126);
    EXPECT_EQ(at(across, 50, 0)[0], 129);
    EXPECT_EQ(at(across, 50, 0), at(across, 50, 49)); // nothing changes down a column
    EXPECT_EQ(at(across, 0, 0)[3], 255);

    // 90 runs top to bottom: L is the height alone.
    s.angle = 90;
    const TileSet down = VectorRender::fill(s, grid);
    EXPECT_EQ(at(down, 0, 10), at(down, 99, 10));
    EXPECT_LT(at(down, 0, 1)[0], 15);
    EXPECT_GT(at(down, 0, 48)[0], 240);
    // Gradients leave the padding of edge tiles empty.
    EXPECT_EQ(padding(down, 0, 100, 10, 3), 0);
    EXPECT_EQ(padding(down, 0, 10, 50, 3), 0);
}

// The bytes of the formula, pixel by pixel, whatever shortcut the renderer takes.
TEST(VectorFill, LinearGradientsMatchTheirFormulaAtEveryAngle) {
    const TileGrid grid(300, 260);
    const RGBA from(0.9, 0.2, 0.1, 1), to(0.1, 0.4, 1, 0.3);
    for (double angle : {0.0, 90.0, 180.0, 37.0, -120.0}) {
        FillSpec s = twoColour(FillKind::linearGradient, from, to);
        s.angle = angle;
        const TileSet set = VectorRender::fill(s, grid);
        const double th = angle * std::numbers::pi / 180, W = 300, H = 260;
        const double L = std::fabs(std::cos(th)) * W + std::fabs(std::sin(th)) * H;
        const double pa[4] = {from.a * from.r, from.a * from.g, from.a * from.b, from.a};
        const double pb[4] = {to.a * to.r, to.a * to.g, to.a * to.b, to.a};
        int wrong = 0;
        for (int64_t py = 0; py < 260; ++py)
            for (int64_t px = 0; px < 300; ++px) {
                const double x = double(px) + 0.5, y = double(py) + 0.5;
                double t = (std::cos(th) * (x - W / 2) + std::sin(th) * (y - H / 2)) / L + 0.5;
                t = std::clamp(t, 0.0, 1.0);
                const Pixel4 p = at(set, px, py);
                for (int k = 0; k < 4; ++k)
                    wrong += p[size_t(k)] != uint8_t(std::round(255 * (pa[k] + t * (pb[k] - pa[k]))));
            }
        EXPECT_EQ(wrong, 0) << "angle " << angle;
    }
}

TEST(VectorFill, GradientTowardsTransparentStaysFreeOfDarkFringes) {
    const TileGrid grid(101, 1);
    FillSpec s = twoColour(FillKind::linearGradient, RGBA::white(), RGBA(0, 0, 0, 0));
    s.angle = 0;
    const TileSet set = VectorRender::fill(s, grid);
    // Blending premultiplied values keeps the colour equal to the alpha: a
    // blend of straight colours would give grey at half alpha (64, 128).
    for (int64_t x = 0; x < 101; ++x) {
        const Pixel4 p = at(set, x, 0);
        EXPECT_EQ(p[0], p[3]) << "x = " << x;
    }
    EXPECT_EQ(at(set, 50, 0), (Pixel4{128, 128, 128, 128}));
}

TEST(VectorFill, RadialGradientFromItsCentreAndReversed) {
    const TileGrid grid(200, 100);
    FillSpec s = twoColour(FillKind::radialGradient, RGBA(1, 0, 0, 1), RGBA(0, 0, 1, 1));
    s.centerX = 0.25;
    const TileSet set = VectorRender::fill(s, grid);
    // Centre (50, 50); radius 0.5 x 200 = 100.
    EXPECT_EQ(at(set, 49, 49), (Pixel4{253, 0, 2, 255})); // t = 0.707 / 100: 1.8 of 255
    EXPECT_EQ(at(set, 199, 99), (Pixel4{0, 0, 255, 255}));
    EXPECT_EQ(at(set, 99, 49)[2], 126); // t = 49.5 / 100 = 0.495

    s.reverse = true;
    const TileSet reversed = VectorRender::fill(s, grid);
    EXPECT_EQ(at(reversed, 49, 49), (Pixel4{2, 0, 253, 255}));
    EXPECT_EQ(at(reversed, 199, 99), (Pixel4{255, 0, 0, 255}));

    // A radius of 0 still spans one pixel rather than dividing by zero.
    s.radius = 0;
    EXPECT_EQ(at(VectorRender::fill(s, grid), 52, 50), (Pixel4{255, 0, 0, 255}));
}

TEST(VectorFill, PatternsAlternateTheirColoursHardEdged) {
    const TileGrid grid(100, 100);
    const RGBA a = RGBA::black(), b = RGBA::white();
    const Pixel4 A{0, 0, 0, 255}, B{255, 255, 255, 255};
    FillSpec s = twoColour(FillKind::pattern, a, b);
    s.scale = 10;

    s.pattern = PatternKind::checker;
    const TileSet checker = VectorRender::fill(s, grid);
    EXPECT_EQ(at(checker, 5, 5), A);
    EXPECT_EQ(at(checker, 15, 5), B);
    EXPECT_EQ(at(checker, 15, 15), A);
    EXPECT_EQ(at(checker, 9, 0), A);
    EXPECT_EQ(at(checker, 10, 0), B);

    s.pattern = PatternKind::stripes;
    s.angle = 0; // floor(x / s): upright stripes
    const TileSet stripes = VectorRender::fill(s, grid);
    EXPECT_EQ(at(stripes, 5, 0), A);
    EXPECT_EQ(at(stripes, 5, 77), A);
    EXPECT_EQ(at(stripes, 15, 0), B);
    s.angle = 90;
    const TileSet lying = VectorRender::fill(s, grid);
    EXPECT_EQ(at(lying, 15, 5), A);
    EXPECT_EQ(at(lying, 5, 15), B);

    s.pattern = PatternKind::dots;
    const TileSet dots = VectorRender::fill(s, grid);
    EXPECT_EQ(at(dots, 25, 45), A); // a cell's centre
    EXPECT_EQ(at(dots, 20, 40), B); // its corner
    EXPECT_EQ(at(dots, 27, 45), A); // 0.25 from the centre: 0.0625 < 0.09
    EXPECT_EQ(at(dots, 28, 45), B); // 0.35: 0.1225

    s.pattern = PatternKind::grid;
    s.scale = 24; // lines 2 pixels wide
    const TileSet lines = VectorRender::fill(s, grid);
    EXPECT_EQ(at(lines, 24, 10), A);
    EXPECT_EQ(at(lines, 25, 10), A);
    EXPECT_EQ(at(lines, 26, 10), B);
    EXPECT_EQ(at(lines, 10, 49), A);
    EXPECT_EQ(at(lines, 10, 10), B);
}

TEST(VectorFill, ATinyScaleCountsAsTwoAndEndsReversedColoursSwap) {
    const TileGrid grid(64, 64);
    FillSpec s = twoColour(FillKind::pattern, RGBA::black(), RGBA::white());
    for (double scale : {0.0, -5.0, 1.0}) {
        s.scale = scale;
        const TileSet set = VectorRender::fill(s, grid);
        EXPECT_EQ(at(set, 0, 0)[0], 0) << scale;
        EXPECT_EQ(at(set, 1, 0)[0], 0) << scale;
        EXPECT_EQ(at(set, 2, 0)[0], 255) << scale;
    }
    s.scale = 10;
    s.reverse = true;
    EXPECT_EQ(at(VectorRender::fill(s, grid), 5, 5)[0], 255);
}

} // namespace
} // namespace korv
