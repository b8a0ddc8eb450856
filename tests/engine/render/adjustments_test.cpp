#include "TestLayers.h"
#include "engine/formats/PngCodec.h"
#include "engine/render/AdjustmentProgram.h"
#include "engine/render/StudioRenderer.h"

#include <cstdio>
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

void writePNG(const RGBABuffer& image, const std::string& path) {
    const std::vector<uint8_t> bytes = encodePNG(image, 72.0, 9);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
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
            Pixel4 p = photo.pixel(x, y);
            for (size_t c = 0; c < 3; ++c)
                p[c] = uint8_t((p[c] * a + 127) / 255);
            p[3] = uint8_t(a);
            out->setPixel(x, y, p);
        }
    return out;
}

// One telling setting per type, for the pictures kept beside the tests.
std::vector<AdjustmentSpec> goldenSpecs() {
    std::vector<AdjustmentSpec> specs;
    AdjustmentSpec s(levels);
    s.levels[0] = {0.1, 0.9, 1.2, 0, 1};
    s.levels[1].outBlack = 0.08;
    specs.push_back(s);
    s = AdjustmentSpec(curves);
    s.curves[0] = {{0, 0}, {0.25, 0.18}, {0.75, 0.85}, {1, 1}};
    s.curves[3] = {{0, 0.1}, {1, 0.95}};
    specs.push_back(s);
    s = AdjustmentSpec(hueSaturation);
    s.hue = 40;
    s.saturation = 30;
    s.lightness = -10;
    specs.push_back(s);
    s = AdjustmentSpec(colorBalance);
    s.balance = {{{0, 0, 40}, {0, 10, 0}, {30, 10, 0}}};
    specs.push_back(s);
    s = AdjustmentSpec(vibrance);
    s.vibrance = 70;
    s.vibranceSaturation = 10;
    specs.push_back(s);
    s = AdjustmentSpec(blackWhite);
    s.bwTint = true;
    specs.push_back(s);
    s = AdjustmentSpec(photoFilter);
    s.density = 0.6;
    specs.push_back(s);
    s = AdjustmentSpec(gradientMap);
    s.stops = {{0, {0.05, 0.05, 0.3, 1}}, {0.55, {0.9, 0.35, 0.1, 1}}, {1, {1, 0.95, 0.7, 1}}};
    specs.push_back(s);
    specs.push_back(AdjustmentSpec(posterize));
    s = AdjustmentSpec(threshold);
    s.thresholdLevel = 110;
    specs.push_back(s);
    s = AdjustmentSpec(brightnessContrast);
    s.brightness = 20;
    s.contrast = 40;
    specs.push_back(s);
    s = AdjustmentSpec(exposure);
    s.exposure = 0.7;
    s.offset = 0.01;
    s.gammaCorrection = 1.1;
    specs.push_back(s);
    specs.push_back(AdjustmentSpec(invert));
    return specs;
}

} // namespace

TEST(AdjustmentProgram, ReferencePoints) {
    EXPECT_TRUE(near(run(AdjustmentSpec(invert), {200, 100, 50, 255}), {55, 155, 205, 255}, 0));

    AdjustmentSpec s(levels);
    s.levels[0].inBlack = 0.2;
    EXPECT_TRUE(near(run(s, grey(51)), grey(0)));
    EXPECT_TRUE(near(run(s, grey(153)), grey(128)));
    EXPECT_TRUE(near(run(s, grey(255)), grey(255)));
    s = AdjustmentSpec(levels);
    s.levels[1].inWhite = 128.0 / 255.0;
    EXPECT_TRUE(near(run(s, grey(128)), {255, 128, 128, 255}));
    s = AdjustmentSpec(levels);
    s.levels[0].gamma = 2;
    EXPECT_TRUE(near(run(s, grey(128)), grey(181)));
    s.levels[0].gamma = -1; // held at 0.01: everything but white goes to black
    EXPECT_TRUE(near(run(s, grey(200)), grey(0)));
    EXPECT_TRUE(near(run(s, grey(255)), grey(255)));
    s.levels.clear(); // missing rows are the identity
    EXPECT_TRUE(near(run(s, {10, 120, 240, 255}), {10, 120, 240, 255}, 0));

    s = AdjustmentSpec(curves);
    s.curves[0] = {{0, 0}, {0.5, 0.75}, {1, 1}};
    EXPECT_TRUE(near(run(s, grey(128)), grey(191)));
    s = AdjustmentSpec(curves);
    s.curves[3] = {{0, 0.2}, {1, 1}};
    EXPECT_TRUE(near(run(s, grey(128)), {128, 128, 153, 255}));
    s.curves[0] = {{0, 0}, {1, 0.5}}; // the master comes after the channel curve
    EXPECT_TRUE(near(run(s, grey(128)), {64, 64, 77, 255}));

    s = AdjustmentSpec(hueSaturation);
    s.hue = 180;
    EXPECT_TRUE(near(run(s, {255, 0, 0, 255}), {0, 255, 255, 255}));
    s = AdjustmentSpec(hueSaturation);
    s.saturation = -100;
    const Pixel4 flat = run(s, {200, 60, 90, 255});
    EXPECT_TRUE(flat[0] == flat[1] && flat[1] == flat[2]);
    s = AdjustmentSpec(hueSaturation);
    s.lightness = 50;
    EXPECT_TRUE(near(run(s, grey(100)), grey(178)));
    s.colorize = true;
    s.lightness = 0;
    s.colorizeHue = 240;
    s.colorizeSaturation = 100;
    const Pixel4 blue = run(s, grey(128));
    EXPECT_GT(int(blue[2]), int(blue[0]) + 100);
    EXPECT_EQ(blue[0], blue[1]);

    s = AdjustmentSpec(colorBalance);
    s.balance[0] = {60, 0, 0};
    const int darkGain = int(run(s, grey(40))[0]) - 40, lightGain = int(run(s, grey(215))[0]) - 215;
    EXPECT_GT(darkGain, 4 * std::max(lightGain, 1));
    s = AdjustmentSpec(colorBalance);
    s.balance[1] = {0, 0, 80};
    const Pixel4 kept = run(s, {120, 130, 110, 255});
    EXPECT_NEAR(0.3 * kept[0] + 0.59 * kept[1] + 0.11 * kept[2], 0.3 * 120 + 0.59 * 130 + 0.11 * 110, 1.0);
    EXPECT_GT(kept[2], 110);

    s = AdjustmentSpec(vibrance);
    s.vibrance = 100;
    const Pixel4 dull = run(s, {140, 120, 120, 255}), vivid = run(s, {240, 40, 40, 255});
    EXPECT_GT(double(dull[0] - dull[1]) / 20.0, 1.5 * double(vivid[0] - vivid[1]) / 200.0);

    s = AdjustmentSpec(blackWhite);
    s.bw[0] = 100;
    EXPECT_TRUE(near(run(s, {255, 0, 0, 255}), grey(255)));
    s.bw[0] = 30;
    EXPECT_TRUE(near(run(s, {255, 0, 0, 255}), grey(77)));

    s = AdjustmentSpec(photoFilter);
    const Pixel4 warm = run(s, grey(150));
    EXPECT_GT(warm[0], warm[2]);

    s = AdjustmentSpec(gradientMap);
    s.stops = {{1, {1, 0, 0, 1}}, {0, {0, 0, 0, 1}}}; // any order
    EXPECT_TRUE(near(run(s, grey(255)), {255, 0, 0, 255}, 0));
    EXPECT_TRUE(near(run(s, grey(0)), {0, 0, 0, 255}, 0));
    s.reverse = true;
    EXPECT_TRUE(near(run(s, grey(0)), {255, 0, 0, 255}, 0));

    s = AdjustmentSpec(posterize);
    s.posterizeLevels = 1; // held at 2
    EXPECT_TRUE(near(run(s, grey(100)), grey(0), 0));
    EXPECT_TRUE(near(run(s, grey(200)), grey(255), 0));

    s = AdjustmentSpec(threshold);
    EXPECT_TRUE(near(run(s, grey(100)), grey(0), 0));
    EXPECT_TRUE(near(run(s, grey(200)), grey(255), 0));

    s = AdjustmentSpec(brightnessContrast);
    s.brightness = 50;
    EXPECT_TRUE(near(run(s, grey(100)), grey(150)));

    s = AdjustmentSpec(exposure);
    s.exposure = 1;
    EXPECT_TRUE(near(run(s, grey(128)), grey(176)));

    // Alpha stays, and the colour changes inside it.
    EXPECT_TRUE(near(run(AdjustmentSpec(invert), {100, 50, 0, 128}), {28, 78, 128, 128}));
    EXPECT_TRUE(near(run(AdjustmentSpec(invert), {9, 9, 9, 0}), {9, 9, 9, 0}, 0));
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

    // No points is the identity; beyond the ends the curve is flat.
    const std::vector<float> identity = AdjustmentProgram::curveTable({}, 1024);
    EXPECT_NEAR(identity[512], 512.0 / 1023.0, 1e-6);
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

    AdjustmentSpec filter(photoFilter);
    filter.density = 0;
    const std::vector<std::vector<AdjustmentSpec>> identities = {
        {AdjustmentSpec(levels)},
        {AdjustmentSpec(curves)},
        {AdjustmentSpec(hueSaturation)},
        {AdjustmentSpec(colorBalance)},
        {AdjustmentSpec(vibrance)},
        {AdjustmentSpec(brightnessContrast)},
        {AdjustmentSpec(exposure)},
        {filter},
        {AdjustmentSpec(invert), AdjustmentSpec(invert)},
    };
    for (const auto& specs : identities) {
        std::vector<StudioLayer> layers{pictureLayer(*faded)};
        for (const auto& s : specs)
            layers.push_back(adjustmentLayer(s));
        const RGBABufferPtr out = flatten(w, h, std::move(layers));
        EXPECT_EQ(0, std::memcmp(out->data(), plain->data(), size_t(plain->byteCount())))
            << displayName(specs[0].type);
    }
}

TEST(Adjustments, OpacityMaskAndModeActOnTheMix) {
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
}

TEST(Adjustments, AlphaNeverChanges) {
    TileGrid g(64, 64);
    StudioLayer below = solidLayer(g, {100, 50, 0, 128}, {0, 0, 32, 64});
    const Pixel4 before = below.pixels->pixel(3, 3);
    StudioLayer adj = adjustmentLayer(AdjustmentSpec(invert));
    StudioDocument doc(64, 64, 72, {below, adj});
    const RGBABufferPtr out = doc.flattened();
    EXPECT_TRUE(near(out->pixel(3, 3), {28, 78, 128, 128}));
    EXPECT_TRUE(near(out->pixel(40, 3), {0, 0, 0, 0}, 0));
    EXPECT_EQ(doc.layers[0].pixels->pixel(3, 3), before);
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
        if (update) writePNG(*out, path);
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
