#include "engine/core/SeededRandom.h"
#include "engine/document/StudioDocument.h"
#include "engine/render/Compositor.h"
#include "engine/render/StudioRenderer.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace korv;
using Compositor::Color3;

namespace {

constexpr BlendMode kAllModes[] = {
    BlendMode::normal,     BlendMode::multiply,  BlendMode::screen,     BlendMode::overlay,
    BlendMode::darken,     BlendMode::lighten,   BlendMode::colorDodge, BlendMode::colorBurn,
    BlendMode::hardLight,  BlendMode::softLight, BlendMode::difference, BlendMode::exclusion,
    BlendMode::add,        BlendMode::subtract,  BlendMode::linearBurn, BlendMode::hue,
    BlendMode::saturation, BlendMode::color,     BlendMode::luminosity,
};

Color3 grey(float v) {
    return {v, v, v};
}

TilePtr tileOf(const std::function<Pixel4(int64_t, int64_t)>& shade) {
    auto t = std::make_shared<Tile>();
    for (int64_t y = 0; y < kTileSize; ++y)
        for (int64_t x = 0; x < kTileSize; ++x) {
            const Pixel4 p = shade(x, y);
            std::copy(p.begin(), p.end(), t->row(y) + x * 4);
        }
    t->freeze();
    return t;
}

TilePtr solid(Pixel4 p) {
    return tileOf([&](int64_t, int64_t) { return p; });
}

Pixel4 at(const uint8_t* tile, int64_t x, int64_t y) {
    const uint8_t* p = tile + y * kTileStride + x * 4;
    return {p[0], p[1], p[2], p[3]};
}

CompositeInput input(TilePtr t, BlendMode mode = BlendMode::normal, float opacity = 1,
                     bool clipping = false) {
    CompositeInput c;
    c.tiles = {std::move(t)};
    c.mode = mode;
    c.opacity = opacity;
    c.clipping = clipping;
    return c;
}

StudioLayer layerOf(const TileGrid& grid, TilePtr t, BlendMode mode, float opacity, bool clipping = false) {
    StudioLayer l = StudioLayer::pixelLayer("Layer", grid);
    l.pixels->setTile(0, std::move(t));
    l.blendMode = mode;
    l.opacity = opacity;
    l.isClipping = clipping;
    return l;
}

// Premultiplied bytes with colour never above alpha.
Pixel4 randomPixel(SeededRandom& r, uint8_t minAlpha) {
    const auto a = uint8_t(minAlpha + r.next() % (256u - minAlpha));
    auto c = [&] { return uint8_t(r.next() % (unsigned(a) + 1)); };
    return {c(), c(), c(), a};
}

// The compositing equation in doubles around the float formula of blend():
// the yardstick for every other form.
Pixel4 reference(Pixel4 back, Pixel4 src, BlendMode mode, double opacity) {
    double d[4], s[4];
    const double k = opacity / 255.0;
    for (int c = 0; c < 4; ++c) {
        d[c] = back[c] / 255.0;
        s[c] = src[c] * k;
    }
    const double sa = s[3], ab = d[3];
    double out[4];
    if (sa <= 0) return back;
    if (mode == BlendMode::normal || ab <= 0) {
        for (int c = 0; c < 4; ++c)
            out[c] = s[c] + (mode == BlendMode::normal ? (1 - sa) * d[c] : 0.0);
    } else {
        const Color3 B = Compositor::blend(mode, {float(d[0] / ab), float(d[1] / ab), float(d[2] / ab)},
                                           {float(s[0] / sa), float(s[1] / sa), float(s[2] / sa)});
        for (int c = 0; c < 3; ++c)
            out[c] = B[size_t(c)] * ab * sa + (1 - ab) * s[c] + (1 - sa) * d[c];
        out[3] = (1 - sa) * ab + sa;
    }
    Pixel4 p;
    for (int c = 0; c < 4; ++c)
        p[size_t(c)] = uint8_t(std::lround(std::clamp(out[c], 0.0, 1.0) * 255.0));
    for (int c = 0; c < 3; ++c)
        p[size_t(c)] = std::min(p[size_t(c)], p[3]);
    return p;
}

void expectNear(Pixel4 got, Pixel4 want, int tolerance, const std::string& what) {
    for (size_t c = 0; c < 4; ++c)
        ASSERT_LE(std::abs(int(got[c]) - int(want[c])), tolerance)
            << what << " channel " << c << ": got " << int(got[c]) << ", want " << int(want[c]);
}

} // namespace

TEST(BlendFormula, DodgeAndBurnTestInOrder) {
    // A black backdrop stays black under dodge even with a white source; white stays white under burn.
    EXPECT_EQ(Compositor::blend(BlendMode::colorDodge, grey(0), grey(1)), grey(0));
    EXPECT_EQ(Compositor::blend(BlendMode::colorDodge, grey(0.2f), grey(1)), grey(1));
    EXPECT_EQ(Compositor::blend(BlendMode::colorBurn, grey(1), grey(0)), grey(1));
    EXPECT_EQ(Compositor::blend(BlendMode::colorBurn, grey(0.8f), grey(0)), grey(0));
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::colorDodge, grey(0.25f), grey(0.5f))[0], 0.5f);
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::colorBurn, grey(0.75f), grey(0.5f))[0], 0.5f);
}

TEST(BlendFormula, SeparableEdges) {
    const Color3 c{0.2f, 0.5f, 0.9f};
    EXPECT_EQ(Compositor::blend(BlendMode::multiply, c, grey(1)), c);
    EXPECT_EQ(Compositor::blend(BlendMode::difference, c, c), grey(0));
    EXPECT_EQ(Compositor::blend(BlendMode::subtract, grey(0.3f), grey(0.7f)), grey(0));
    EXPECT_EQ(Compositor::blend(BlendMode::add, grey(0.75f), grey(0.5f)), grey(1));
    EXPECT_EQ(Compositor::blend(BlendMode::linearBurn, grey(0.3f), grey(0.3f)), grey(0));
    EXPECT_EQ(Compositor::blend(BlendMode::normal, c, grey(0.4f)), grey(0.4f));
    // Overlay switches on the backdrop, hard light on the source.
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::overlay, grey(0.25f), grey(0.5f))[0], 0.25f);
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::hardLight, grey(0.25f), grey(0.5f))[0], 0.25f);
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::overlay, grey(0.75f), grey(0.25f))[0], 0.625f);
    // Soft light: the cubic below a quarter, the square root above it.
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::softLight, grey(0.64f), grey(1))[0], 0.8f);
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::softLight, grey(0.25f), grey(1))[0], 0.5f);
    EXPECT_FLOAT_EQ(Compositor::blend(BlendMode::softLight, grey(0.5f), grey(0))[0], 0.25f);
}

TEST(BlendFormula, NonSeparableModesOnGreys) {
    const Color3 back = grey(0.3f), src = grey(0.8f);
    for (BlendMode m : {BlendMode::hue, BlendMode::color, BlendMode::saturation})
        for (float v : Compositor::blend(m, back, src))
            EXPECT_NEAR(v, 0.3f, 1e-6f) << toString(m);
    for (float v : Compositor::blend(BlendMode::luminosity, back, src))
        EXPECT_NEAR(v, 0.8f, 1e-6f);
    // A colour takes the backdrop's lightness, keeps its own hue.
    const Color3 red = Compositor::blend(BlendMode::color, grey(0.3f), {1, 0, 0});
    EXPECT_NEAR(0.3f * red[0] + 0.59f * red[1] + 0.11f * red[2], 0.3f, 1e-6f);
    EXPECT_GT(red[0], red[1]);
    EXPECT_FLOAT_EQ(red[1], red[2]);
}

TEST(BlendFormula, SetSatKeepsChannelOrderAndTies) {
    EXPECT_EQ(Compositor::setSat(0.4f, 0.4f, 0.4f, 0.7f), (Color3{0, 0, 0}));
    const Color3 c = Compositor::setSat(0.9f, 0.1f, 0.4f, 0.5f);
    EXPECT_EQ(c[0], 0.5f);
    EXPECT_EQ(c[1], 0.0f);
    EXPECT_FLOAT_EQ(c[2], 0.1875f);
    // Equal largest channels: the later one is the maximum, the earlier the middle.
    const Color3 t = Compositor::setSat(0.6f, 0.6f, 0.2f, 0.3f);
    EXPECT_EQ(t[1], 0.3f);
    EXPECT_EQ(t[2], 0.0f);
    EXPECT_FLOAT_EQ(t[0], 0.3f);
}

TEST(BlendPixel, EmptyBackdropAndNoSourceNeverMakeNaN) {
    // Under any mode an empty backdrop takes the source; kept inside it, nothing shows.
    for (BlendMode m : kAllModes) {
        float d[4] = {0, 0, 0, 0};
        Compositor::blendPixel(d, 0.2f, 0.1f, 0.3f, 0.5f, m, false);
        EXPECT_EQ(d[0], 0.2f);
        EXPECT_EQ(d[3], 0.5f);
        float e[4] = {0, 0, 0, 0};
        Compositor::blendPixel(e, 0.2f, 0.1f, 0.3f, 0.5f, m, true);
        EXPECT_EQ(e[0], 0.0f);
        EXPECT_EQ(e[3], 0.0f);
        float f[4] = {0.1f, 0.2f, 0.3f, 0.4f};
        Compositor::blendPixel(f, 0.5f, 0.5f, 0.5f, 0.0f, m, false);
        EXPECT_EQ(f[2], 0.3f);
    }
    // lum(v, v, v) is not exactly v in floats: greys and black against each other
    // leave ClipColor without room, where 0/0 must not happen.
    for (BlendMode m : kAllModes)
        for (int s = 0; s < 256; s += 3)
            for (Pixel4 back : {Pixel4{29, 45, 58, 77}, Pixel4{0, 0, 0, 255}, Pixel4{77, 77, 77, 77}}) {
                const float v = float(s) / 255.0f;
                float d[4] = {back[0] / 255.0f, back[1] / 255.0f, back[2] / 255.0f, back[3] / 255.0f};
                Compositor::blendPixel(d, v, v, v, 1.0f, m, false);
                for (float x : d)
                    ASSERT_TRUE(std::isfinite(x)) << toString(m) << " grey " << s;
            }
    EXPECT_EQ(Compositor::blendBytes({0, 0, 0, 255}, {128, 128, 128, 255}, BlendMode::color, 1),
              (Pixel4{0, 0, 0, 255}));
}

// The four forms of the arithmetic over many pixels: translucent sources, in
// every mode, over translucent and opaque backdrops, at two opacities.
TEST(Compositing, AllFormsAgreeInEveryMode) {
    SeededRandom r(3);
    std::vector<Pixel4> back(static_cast<size_t>(kTilePixels)), src(static_cast<size_t>(kTilePixels));
    for (int64_t i = 0; i < kTilePixels; ++i) {
        // The lower half of the tile has an opaque backdrop.
        back[size_t(i)] = randomPixel(r, i < kTilePixels / 2 ? 1 : 255);
        src[size_t(i)] = randomPixel(r, 0);
        if (i % 7 == 0) src[size_t(i)][3] = 255; // some opaque sources too
        if (i % 11 == 0) back[size_t(i)] = {0, 0, 0, 0};
    }
    auto backTile = tileOf([&](int64_t x, int64_t y) { return back[size_t(y * kTileSize + x)]; });
    auto srcTile = tileOf([&](int64_t x, int64_t y) { return src[size_t(y * kTileSize + x)]; });
    const TileGrid grid(kTileSize, kTileSize);
    std::vector<uint8_t> tile(static_cast<size_t>(kTileBytes));

    for (float opacity : {1.0f, 0.6f}) {
        for (BlendMode m : kAllModes) {
            const std::string what = std::string(toString(m)) + " at " + std::to_string(opacity);
            Compositor::compositeTile(0, {input(backTile), input(srcTile, m, opacity)}, tile.data());
            StudioDocument doc(
                kTileSize, kTileSize, 72.0,
                {layerOf(grid, backTile, BlendMode::normal, 1), layerOf(grid, srcTile, m, opacity)});
            const RGBABufferPtr flat = StudioRenderer::flatten(doc);
            for (int64_t i = 0; i < kTilePixels; i += 3) {
                const int64_t x = i % kTileSize, y = i / kTileSize;
                const Pixel4 b = back[size_t(i)], s = src[size_t(i)];
                const Pixel4 bytes = Compositor::blendBytes(b, s, m, opacity);
                const Pixel4 want = reference(b, s, m, opacity);
                expectNear(bytes, want, 1, what + " blendBytes");
                expectNear(at(tile.data(), x, y), bytes, 1, what + " compositeTile");
                expectNear(flat->pixel(x, y), bytes, 1, what + " renderer");
                if (HasFailure()) return;
            }
        }
    }
}

TEST(Compositing, FirstLayerTakesNoModeAndClippingStaysInside) {
    std::vector<uint8_t> out(static_cast<size_t>(kTileBytes));
    // Multiply over nothing draws the layer as it is, faded.
    const TilePtr grey = solid({100, 100, 100, 200});
    Compositor::compositeTile(0, {input(grey, BlendMode::multiply, 0.5f)}, out.data());
    EXPECT_EQ(at(out.data(), 9, 9), (Pixel4{50, 50, 50, 100}));

    // A red layer clipped to a left half: inside it mixes by its opacity, outside nothing.
    const TilePtr half = tileOf([](int64_t x, int64_t) {
        return x < 128 ? Pixel4{0, 0, 255, 255} : Pixel4{};
    });
    const TilePtr red = solid({255, 0, 0, 255});
    const std::vector<CompositeInput> stack = {input(half), input(red, BlendMode::normal, 0.5f, true)};
    Compositor::compositeTile(0, stack, out.data());
    EXPECT_EQ(at(out.data(), 10, 10), (Pixel4{128, 0, 128, 255}));
    EXPECT_EQ(at(out.data(), 200, 10), (Pixel4{0, 0, 0, 0}));

    // A hidden base hides its run; a hidden clipped layer leaves the base alone.
    auto hiddenBase = stack;
    hiddenBase[0].visible = false;
    Compositor::compositeTile(0, hiddenBase, out.data());
    EXPECT_EQ(at(out.data(), 10, 10), (Pixel4{0, 0, 0, 0}));
    auto hiddenClip = stack;
    hiddenClip[1].visible = false;
    Compositor::compositeTile(0, hiddenClip, out.data());
    EXPECT_EQ(at(out.data(), 10, 10), (Pixel4{0, 0, 255, 255}));

    // The same stack through the layered renderer gives the same bytes.
    const TileGrid grid(kTileSize, kTileSize);
    StudioDocument doc(
        kTileSize, kTileSize, 72.0,
        {layerOf(grid, half, BlendMode::normal, 1), layerOf(grid, red, BlendMode::normal, 0.5f, true)});
    Compositor::compositeTile(0, stack, out.data());
    const RGBABufferPtr flat = StudioRenderer::flatten(doc);
    for (int64_t x = 0; x < kTileSize; x += 17)
        EXPECT_EQ(flat->pixel(x, 3), at(out.data(), x, 3));

    // A tint pulls colour towards it inside the pixel's alpha.
    CompositeInput skin = input(grey);
    skin.tint = std::array<float, 4>{1, 0, 0, 1};
    Compositor::compositeTile(0, {skin}, out.data());
    EXPECT_EQ(at(out.data(), 0, 0), (Pixel4{200, 0, 0, 200}));

    Compositor::compositeTile(0, {}, out.data());
    EXPECT_EQ(at(out.data(), 0, 0), (Pixel4{0, 0, 0, 0}));
}

TEST(Compositing, ImagesAndFlattenCoverTheCanvas) {
    const TileGrid grid(300, 10);
    CompositeInput layer;
    layer.tiles = {solid({10, 20, 30, 255}), nullptr};
    const auto images = Compositor::compositeImages({1, 0, 5, -1}, {layer}, grid);
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(images.at(0)->width(), 256);
    EXPECT_EQ(images.at(1)->width(), 44);
    EXPECT_EQ(images.at(1)->pixel(0, 0), (Pixel4{0, 0, 0, 0}));
    const RGBABufferPtr flat = Compositor::flatten({layer}, grid);
    EXPECT_EQ(flat->width(), 300);
    EXPECT_EQ(flat->pixel(255, 9), (Pixel4{10, 20, 30, 255}));
    EXPECT_EQ(flat->pixel(256, 0), (Pixel4{0, 0, 0, 0}));
}

TEST(Renderer, MultiplyOverRed) {
    const TileGrid grid(300, 40);
    StudioLayer red = StudioLayer::pixelLayer("Red", grid);
    red.pixels->fillAll(255, 0, 0, 255);
    StudioLayer grey = StudioLayer::pixelLayer("Grey", grid);
    grey.pixels->fillAll(128, 128, 128, 255);
    grey.blendMode = BlendMode::multiply;
    StudioLayer shade = grey;
    shade.opacity = 0.5;
    StudioLayer group = StudioLayer::group("Group", {grey});
    group.blendMode = BlendMode::multiply;

    EXPECT_EQ(StudioRenderer::flatten(StudioDocument(300, 40, 72.0, {red, grey}))->pixel(290, 30),
              (Pixel4{128, 0, 0, 255}));
    // Half of the way from red to the product: 0.5 x 128/255 + 0.5 = 191.5 of 255.
    const Pixel4 half = StudioRenderer::flatten(StudioDocument(300, 40, 72.0, {red, shade}))->pixel(3, 3);
    EXPECT_NEAR(half[0], 192, 1);
    EXPECT_EQ(half[1], 0);
    EXPECT_EQ(half[3], 255);
    // Alone, the layer in multiply has nothing to multiply: it shows as it is, faded.
    EXPECT_EQ(StudioRenderer::flatten(StudioDocument(300, 40, 72.0, {shade}))->pixel(299, 0),
              (Pixel4{64, 64, 64, 128}));
    // A group in multiply composites its content as one layer in that mode.
    EXPECT_EQ(StudioRenderer::flatten(StudioDocument(300, 40, 72.0, {red, group}))->pixel(10, 10),
              (Pixel4{128, 0, 0, 255}));
}
