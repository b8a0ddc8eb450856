#include "TestLayers.h"
#include "engine/formats/ImageExport.h"
#include "engine/render/AdjustmentProgram.h"
#include "engine/render/StudioRenderer.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <png.h>

using namespace korv;
using korv::test::maskHiding;
using korv::test::solidLayer;

namespace {

using enum AdjustmentType;

const std::string kDataDir = std::string(KORV_TEST_SOURCE_DIR) + "/../data/adjustments/";

::testing::AssertionResult near(Pixel4 got, Pixel4 want, int tolerance = 1) {
    for (size_t c = 0; c < 4; ++c)
        if (std::abs(int(got[c]) - int(want[c])) > tolerance)
            return ::testing::AssertionFailure()
                   << "got (" << int(got[0]) << "," << int(got[1]) << "," << int(got[2]) << "," << int(got[3])
                   << ") want (" << int(want[0]) << "," << int(want[1]) << "," << int(want[2]) << ","
                   << int(want[3]) << ")";
    return ::testing::AssertionSuccess();
}

// An opaque PNG as a buffer; none when the file is missing or unreadable.
RGBABufferPtr readOpaquePNG(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return nullptr;
    image.format = PNG_FORMAT_RGBA;
    auto out = std::make_shared<RGBABuffer>(image.width, image.height);
    if (!png_image_finish_read(&image, nullptr, out->data(), 0, nullptr)) return nullptr;
    for (int64_t i = 3; i < out->byteCount(); i += 4)
        if (out->data()[i] != 255) return nullptr;
    return out;
}

StudioLayer adjustmentLayer(const AdjustmentSpec& spec) {
    StudioLayer l(Uuid::random(), std::string(displayName(spec.type)), StudioLayerKind::adjustment);
    l.adjustment = spec;
    return l;
}

StudioLayer pictureLayer(const RGBABuffer& image) {
    StudioLayer l = StudioLayer::pixelLayer("Photo", TileGrid(image.width(), image.height()));
    for (int64_t y = 0; y < image.height(); ++y)
        for (int64_t x = 0; x < image.width(); ++x)
            l.pixels->setPixel(x, y, image.pixel(x, y));
    return l;
}

RGBABufferPtr flatten(int64_t w, int64_t h, std::vector<StudioLayer> layers) {
    return StudioDocument(w, h, 72, std::move(layers)).flattened();
}

// One opaque pixel through a program, as the renderer would see it.
Pixel4 run(const AdjustmentSpec& spec, Pixel4 p) {
    return AdjustmentProgram(spec).apply8(p[0], p[1], p[2], p[3]);
}

Pixel4 grey(uint8_t v) {
    return {v, v, v, 255};
}

// The photo with its lower half fading out to the right, so that identity
// checks also cover premultiplied colours at every alpha.
RGBABufferPtr fadedPhoto(const RGBABuffer& photo) {
    auto out = photo.copy();
    for (int64_t y = photo.height() / 2; y < photo.height(); ++y)
        for (int64_t x = 0; x < photo.width(); ++x) {
            const unsigned a = unsigned(255 - x * 255 / (photo.width() - 1));
            const Pixel4 p = photo.pixel(x, y);
            auto mul = [a](uint8_t c) { return uint8_t((c * a + 127) / 255); };
            out->setPixel(x, y, {mul(p[0]), mul(p[1]), mul(p[2]), uint8_t(a)});
        }
    return out;
}

template <class Edit>
AdjustmentSpec with(AdjustmentType type, Edit edit) {
    AdjustmentSpec s(type);
    edit(s);
    return s;
}

// One telling setting per type, for the pictures kept beside the tests.
std::vector<AdjustmentSpec> goldenSpecs() {
    // clang-format off
    return {
        with(levels, [](auto& s) { s.levels = {{0.1, 0.9, 1.2, 0, 1}, {0, 1, 1, 0.08, 1}}; }),
        with(curves, [](auto& s) { s.curves = {{{0, 0}, {0.25, 0.18}, {0.75, 0.85}, {1, 1}}, {}, {}, {{0, 0.1}, {1, 0.95}}}; }),
        with(hueSaturation, [](auto& s) { s.hue = 40, s.saturation = 30, s.lightness = -10; }),
        with(colorBalance, [](auto& s) { s.balance = {{{0, 0, 40}, {0, 10, 0}, {30, 10, 0}}}; }),
        with(vibrance, [](auto& s) { s.vibrance = 70, s.vibranceSaturation = 10; }),
        with(blackWhite, [](auto& s) { s.bwTint = true; }),
        with(photoFilter, [](auto& s) { s.density = 0.6; }),
        with(gradientMap, [](auto& s) { s.stops = {{0, {0.05, 0.05, 0.3, 1}}, {0.55, {0.9, 0.35, 0.1, 1}}, {1, {1, 0.95, 0.7, 1}}}; }),
        AdjustmentSpec(posterize),
        with(threshold, [](auto& s) { s.thresholdLevel = 110; }),
        with(brightnessContrast, [](auto& s) { s.brightness = 20, s.contrast = 40; }),
        with(exposure, [](auto& s) { s.exposure = 0.7, s.offset = 0.01, s.gammaCorrection = 1.1; }),
        AdjustmentSpec(invert),
    };
    // clang-format on
}

} // namespace

TEST(AdjustmentProgram, ReferencePoints) {
    struct Case {
        AdjustmentSpec spec;
        Pixel4 in, out;
        int tolerance = 1;
    };
    // clang-format off
    const Case cases[] = {
        {AdjustmentSpec(invert), {200, 100, 50, 255}, {55, 155, 205, 255}, 0},
        {AdjustmentSpec(invert), {9, 9, 9, 0}, {9, 9, 9, 0}, 0},
        {AdjustmentSpec(invert), {100, 50, 0, 128}, {28, 78, 128, 128}},
        {with(levels, [](auto& s) { s.levels[0].inBlack = 0.2; }), grey(51), grey(0)},
        {with(levels, [](auto& s) { s.levels[0].inBlack = 0.2; }), grey(153), grey(128)},
        {with(levels, [](auto& s) { s.levels[1].inWhite = 128.0 / 255.0; }), grey(128), {255, 128, 128, 255}},
        {with(levels, [](auto& s) { s.levels[0].gamma = 2; }), grey(128), grey(181)},
        // A gamma below 0.01 acts as 0.01: all but white goes to black.
        {with(levels, [](auto& s) { s.levels[0].gamma = -1; }), grey(200), grey(0)},
        {with(levels, [](auto& s) { s.levels.clear(); }), {10, 120, 240, 255}, {10, 120, 240, 255}, 0},
        {with(curves, [](auto& s) { s.curves[0] = {{0, 0}, {0.5, 0.75}, {1, 1}}; }), grey(128), grey(191)},
        {with(curves, [](auto& s) { s.curves[3] = {{0, 0.2}, {1, 1}}; }), grey(128), {128, 128, 153, 255}},
        // The channel curve first, then the master.
        {with(curves, [](auto& s) { s.curves = {{{0, 0}, {1, 0.5}}, {}, {}, {{0, 0.2}, {1, 1}}}; }), grey(128), {64, 64, 77, 255}},
        {with(hueSaturation, [](auto& s) { s.hue = 180; }), {255, 0, 0, 255}, {0, 255, 255, 255}},
        {with(hueSaturation, [](auto& s) { s.saturation = -100; }), {200, 60, 90, 255}, grey(130)},
        {with(hueSaturation, [](auto& s) { s.lightness = 50; }), grey(100), grey(178)},
        {with(hueSaturation, [](auto& s) { s.colorize = true, s.colorizeHue = 240, s.colorizeSaturation = 100; }), grey(128), {1, 1, 255, 255}},
        {with(blackWhite, [](auto& s) { s.bw[0] = 100; }), {255, 0, 0, 255}, grey(255)},
        {with(blackWhite, [](auto& s) { s.bw[0] = 30; }), {255, 0, 0, 255}, grey(77)},
        {with(gradientMap, [](auto& s) { s.stops = {{1, {1, 0, 0, 1}}, {0, {0, 0, 0, 1}}}; }), grey(255), {255, 0, 0, 255}, 0},
        {with(gradientMap, [](auto& s) { s.reverse = true; }), grey(0), grey(255), 0},
        // Fewer than 2 levels act as 2.
        {with(posterize, [](auto& s) { s.posterizeLevels = 1; }), grey(100), grey(0), 0},
        {with(posterize, [](auto& s) { s.posterizeLevels = 1; }), grey(200), grey(255), 0},
        {AdjustmentSpec(threshold), grey(100), grey(0), 0},
        {AdjustmentSpec(threshold), grey(200), grey(255), 0},
        {with(brightnessContrast, [](auto& s) { s.brightness = 50; }), grey(100), grey(150)},
        {with(exposure, [](auto& s) { s.exposure = 1; }), grey(128), grey(176)},
    };
    // clang-format on
    for (const Case& c : cases)
        EXPECT_TRUE(near(run(c.spec, c.in), c.out, c.tolerance)) << toString(c.spec.type);

    // Shadows toward red move dark pixels far more than light ones.
    const AdjustmentSpec redShadows = with(colorBalance, [](auto& s) { s.balance[0] = {60, 0, 0}; });
    EXPECT_GT(int(run(redShadows, grey(40))[0]) - 40,
              4 * std::max(int(run(redShadows, grey(215))[0]) - 215, 1));
    // Midtones toward blue, keeping the luminosity.
    AdjustmentSpec blueMidtones(colorBalance);
    blueMidtones.balance[1] = {0, 0, 80};
    const Pixel4 kept = run(blueMidtones, {120, 130, 110, 255});
    EXPECT_NEAR(0.3 * kept[0] + 0.59 * kept[1] + 0.11 * kept[2], 0.3 * 120 + 0.59 * 130 + 0.11 * 110, 1.0);
    EXPECT_GT(kept[2], 140);
    // Vibrance spreads dull colours by far more than vivid ones.
    const AdjustmentSpec vivid = with(vibrance, [](auto& s) { s.vibrance = 100; });
    const Pixel4 a = run(vivid, {140, 120, 120, 255}), b = run(vivid, {240, 40, 40, 255});
    EXPECT_GT(double(a[0] - a[1]) / 20.0, 1.5 * double(b[0] - b[1]) / 200.0);
    const Pixel4 warm = run(AdjustmentSpec(photoFilter), grey(150));
    EXPECT_GT(warm[0], warm[2]);
}

TEST(AdjustmentProgram, CurveTables) {
    const std::vector<float> flat = AdjustmentProgram::curveTable({{0.3, 0.6}}, 16);
    ASSERT_EQ(flat.size(), 16u);
    for (float v : flat)
        EXPECT_EQ(v, 0.6f);

    // Collinear points, given out of order, make the straight line through them.
    const std::vector<float> line = AdjustmentProgram::curveTable({{1, 0.6}, {0, 0.1}, {0.4, 0.3}}, 1024);
    for (size_t i = 0; i < line.size(); ++i)
        EXPECT_NEAR(line[i], 0.1 + 0.5 * double(i) / 1023.0, 1e-6) << i;

    // Beyond the end points the curve is flat.
    const std::vector<float> inner = AdjustmentProgram::curveTable({{0.25, 0.2}, {0.75, 0.9}}, 1024);
    EXPECT_EQ(inner[0], 0.2f);
    EXPECT_EQ(inner[200], 0.2f);
    EXPECT_EQ(inner[1023], 0.9f);

    // A steep step between flat runs: the limited tangents keep the curve
    // monotone and inside its points, where a plain cubic would overshoot.
    const std::vector<float> step =
        AdjustmentProgram::curveTable({{0, 0}, {0.45, 0.02}, {0.55, 0.98}, {1, 1}}, 1024);
    for (size_t i = 1; i < step.size(); ++i)
        EXPECT_GE(step[i], step[i - 1]) << i;
    EXPECT_LE(step[300], 0.02f);
    EXPECT_GE(step[800], 0.98f);
}

TEST(Adjustments, IdentitySettingsChangeNothing) {
    const RGBABufferPtr photo = readOpaquePNG(kDataDir + "photo.png");
    ASSERT_TRUE(photo);
    const RGBABufferPtr faded = fadedPhoto(*photo);
    const int64_t w = photo->width(), h = photo->height();
    const RGBABufferPtr plain = flatten(w, h, {pictureLayer(*faded)});

    std::vector<std::vector<AdjustmentSpec>> identities;
    for (AdjustmentType t :
         {levels, curves, hueSaturation, colorBalance, vibrance, brightnessContrast, exposure})
        identities.push_back({AdjustmentSpec(t)});
    identities.push_back({with(photoFilter, [](auto& s) { s.density = 0; })});
    identities.push_back({AdjustmentSpec(invert), AdjustmentSpec(invert)});
    for (const auto& specs : identities) {
        std::vector<StudioLayer> layers{pictureLayer(*faded)};
        for (const auto& s : specs)
            layers.push_back(adjustmentLayer(s));
        const RGBABufferPtr out = flatten(w, h, std::move(layers));
        EXPECT_EQ(0, std::memcmp(out->data(), plain->data(), size_t(plain->byteCount())))
            << displayName(specs[0].type);
    }
}

TEST(Adjustments, OpacityMaskAndModeActOnTheMixAndAlphaStays) {
    TileGrid g(300, 300);
    const Pixel4 colour{100, 40, 160, 255};
    AdjustmentSpec brighter(brightnessContrast);
    brighter.brightness = 60; // (100, 40, 160) becomes (160, 100, 220)

    StudioLayer half = adjustmentLayer(brighter);
    half.opacity = 0.5;
    EXPECT_TRUE(near(flatten(300, 300, {solidLayer(g, colour), half})->pixel(10, 10), {130, 70, 190, 255}));

    // Hidden left of x = 150, half shown in a band across the tile edge at 256, shown elsewhere.
    StudioLayer masked = adjustmentLayer(brighter);
    TileSet mask = maskHiding(g, 255, {0, 0, 150, 300});
    for (int64_t y = 0; y < 300; ++y)
        for (int64_t x = 240; x < 270; ++x)
            mask.setPixel(x, y, {128, 128, 128, 128});
    masked.mask = mask;
    const RGBABufferPtr out = flatten(300, 300, {solidLayer(g, colour), masked});
    for (int64_t y : {0, 31, 32, 299})
        for (int64_t x : {0, 149})
            EXPECT_TRUE(near(out->pixel(x, y), colour, 0)) << x << "," << y;
    for (int64_t x : {150, 239, 270, 299})
        EXPECT_TRUE(near(out->pixel(x, 200), {160, 100, 220, 255})) << x;
    for (int64_t x : {240, 255, 256, 269})
        EXPECT_TRUE(near(out->pixel(x, 200), {130, 70, 190, 255})) << x;

    // The mode blends the adjusted colour onto the colour before: invert in
    // multiply gives c x (1 - c).
    StudioLayer multiplied = adjustmentLayer(AdjustmentSpec(invert));
    multiplied.blendMode = BlendMode::multiply;
    EXPECT_TRUE(near(flatten(300, 300, {solidLayer(g, {200, 100, 50, 255}), multiplied})->pixel(5, 5),
                     {43, 61, 40, 255}));
    multiplied.opacity = 0.5;
    EXPECT_TRUE(near(flatten(300, 300, {solidLayer(g, {200, 100, 50, 255}), multiplied})->pixel(5, 5),
                     {122, 80, 45, 255}));

    // Inside a half-transparent pixel, leaving the layer below untouched.
    const StudioLayer below = solidLayer(g, {100, 50, 0, 128}, {0, 0, 32, 64});
    EXPECT_TRUE(near(flatten(300, 300, {below, adjustmentLayer(AdjustmentSpec(invert))})->pixel(3, 3),
                     {28, 78, 128, 128}));
    EXPECT_EQ(below.pixels->pixel(3, 3), (Pixel4{100, 50, 0, 128}));
}

TEST(Adjustments, ReachOnlyWhatLiesBelowThemInTheirList) {
    TileGrid g(64, 64);
    const IRect square{16, 16, 32, 32};
    const Pixel4 white{255, 255, 255, 255}, red{255, 0, 0, 255}, blue{0, 0, 255, 255}, cyan{0, 255, 255, 255};
    auto invertLayer = [] { return adjustmentLayer(AdjustmentSpec(invert)); };

    // Clipped: only the base changes, the white around it stays.
    StudioLayer clipped = invertLayer();
    clipped.isClipping = true;
    RGBABufferPtr out = flatten(64, 64, {solidLayer(g, white), solidLayer(g, red, square), clipped});
    EXPECT_TRUE(near(out->pixel(30, 30), cyan, 0));
    EXPECT_TRUE(near(out->pixel(5, 5), white, 0));

    // Nothing below: no change, and nothing drawn.
    out = flatten(64, 64, {invertLayer(), solidLayer(g, red, square)});
    EXPECT_TRUE(near(out->pixel(30, 30), red, 0));
    EXPECT_TRUE(near(out->pixel(5, 5), {0, 0, 0, 0}, 0));

    // At the bottom of a group it sees nothing of what lies outside the group.
    out = flatten(
        64, 64, {solidLayer(g, blue), StudioLayer::group("G", {invertLayer(), solidLayer(g, red, square)})});
    EXPECT_TRUE(near(out->pixel(30, 30), red, 0));
    EXPECT_TRUE(near(out->pixel(5, 5), blue, 0));

    // Inside a group it changes the group only.
    out = flatten(
        64, 64, {solidLayer(g, red), StudioLayer::group("G", {solidLayer(g, blue, square), invertLayer()})});
    EXPECT_TRUE(near(out->pixel(30, 30), {255, 255, 0, 255}, 0));
    EXPECT_TRUE(near(out->pixel(5, 5), red, 0));
}

// Every type on a photo, against a picture checked by eye when it was made.
// KORV_UPDATE_GOLDENS=1 writes the pictures instead of comparing.
TEST(Adjustments, PhotoGoldens) {
    const RGBABufferPtr photo = readOpaquePNG(kDataDir + "photo.png");
    ASSERT_TRUE(photo);
    const int64_t w = photo->width(), h = photo->height();
    const bool update = std::getenv("KORV_UPDATE_GOLDENS") != nullptr;
    for (const AdjustmentSpec& spec : goldenSpecs()) {
        SCOPED_TRACE(std::string(toString(spec.type)));
        const RGBABufferPtr out = flatten(w, h, {pictureLayer(*photo), adjustmentLayer(spec)});
        const std::string path = kDataDir + std::string(toString(spec.type)) + ".png";
        if (update) {
            const std::vector<uint8_t> bytes = ImageExport::pngData(out, 72.0).value();
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        }
        const RGBABufferPtr golden = readOpaquePNG(path);
        ASSERT_TRUE(golden) << path;
        ASSERT_EQ(golden->width(), w);
        ASSERT_EQ(golden->height(), h);
        // The tiled renderer and the single-pixel path agree, and both match the picture.
        const AdjustmentProgram program(spec);
        int worst = 0, worstSingle = 0;
        for (int64_t y = 0; y < h; ++y)
            for (int64_t x = 0; x < w; ++x) {
                const Pixel4 got = out->pixel(x, y), want = golden->pixel(x, y), p = photo->pixel(x, y);
                const Pixel4 single = program.apply8(p[0], p[1], p[2], p[3]);
                for (size_t c = 0; c < 4; ++c) {
                    worst = std::max(worst, std::abs(int(got[c]) - int(want[c])));
                    worstSingle = std::max(worstSingle, std::abs(int(got[c]) - int(single[c])));
                }
            }
        EXPECT_LE(worst, 1);
        // The two paths reach the straight colour through differently rounded
        // floats. The gradient is read at its nearest entry, so a last-bit
        // difference in luminosity may pick the neighbouring colour.
        EXPECT_LE(worstSingle, spec.type == gradientMap ? 2 : 1);
    }
}
