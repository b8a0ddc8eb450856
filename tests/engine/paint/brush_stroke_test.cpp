#include "engine/core/Selection.h"
#include "engine/core/TileSet.h"
#include "engine/paint/BrushLibrary.h"
#include "engine/paint/BrushStroke.h"
#include "engine/paint/PaintDocument.h"
#include "engine/paint/PaperGrain.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace korv;

namespace {

void fill(Layer& layer, Pixel4 p) {
    RGBABuffer b(layer.grid.width, layer.grid.height);
    for (int64_t y = 0; y < b.height(); ++y)
        for (int64_t x = 0; x < b.width(); ++x)
            b.setPixel(x, y, p);
    layer.load(b);
}

// A hard round of full opacity and flow, no pressure, no texture.
BrushSettings hardBrush(double size = 20) {
    BrushSettings b("Test", "Tests", BrushKind::paint);
    b.size = size;
    b.hardness = 1;
    b.pressureSize = false;
    return b;
}

StrokePoint at(double x, double y, double pressure = 1) {
    return {x, y, pressure, 0, 0, 0};
}

uint64_t fingerprint(const Layer& layer) {
    return layer.toBuffer()->fingerprint();
}

// Paints on a picture of every kind of pixel: opaque, half transparent, clear.
void expectColourNeverAboveAlpha(const BrushSettings& brush, bool alphaLocked) {
    PaintDocument doc(300, 300);
    Layer& layer = *doc.activeLayer();
    RGBABuffer b(300, 300);
    SeededRandom rng(9);
    for (int64_t y = 0; y < 300; ++y)
        for (int64_t x = 0; x < 300; ++x) {
            const uint8_t a = x < 100 ? 255 : (x < 200 ? uint8_t(rng.next() % 256) : 0);
            auto c = [&] { return uint8_t(a ? rng.next() % (a + 1) : 0); };
            b.setPixel(x, y, {c(), c(), c(), a});
        }
    layer.load(b);
    layer.alphaLocked = alphaLocked;
    std::vector<StrokePoint> points;
    for (int i = 0; i <= 40; ++i)
        points.push_back(at(10 + i * 7, 150 + 60 * std::sin(i * 0.3), 0.3 + 0.7 * (i % 5) / 4.0));
    doc.paintStroke(points, brush, PaintColor(0.9, 0.3, 1, 1), nullptr, 3);
    const RGBABufferPtr out = layer.toBuffer();
    for (int64_t i = 0; i < 300 * 300; ++i) {
        const uint8_t* p = out->data() + i * 4;
        ASSERT_TRUE(p[0] <= p[3] && p[1] <= p[3] && p[2] <= p[3]) << brush.name << " at " << i;
        if (alphaLocked && brush.kind == BrushKind::paint) {
            ASSERT_EQ(p[3], b.data()[i * 4 + 3]);
        }
    }
}

} // namespace

TEST(PaintBrushStroke, OneClickIsOneDabAtThePoint) {
    PaintDocument doc(200, 200);
    BrushStroke stroke(doc, doc.activeLayer(), hardBrush(), PaintColor::black(), 1);
    stroke.begin(at(100, 100));
    stroke.end();
    EXPECT_EQ(stroke.dabCount(), 1);
    const Layer& layer = *doc.activeLayer();
    EXPECT_EQ(layer.pixel(100, 100), (Pixel4{0, 0, 0, 255}));
    EXPECT_EQ(layer.pixel(100, 115)[3], 0);
    EXPECT_EQ(stroke.dirty(), (IRect{89, 89, 23, 23}));
    EXPECT_EQ(doc.takeDirtyTiles(), std::vector<int64_t>{0});
    stroke.add(at(150, 150)); // ended: ignored
    EXPECT_EQ(stroke.dabCount(), 1);
}

TEST(PaintBrushStroke, TipShapes) {
    PaintDocument doc(100, 100);
    Layer& layer = *doc.activeLayer();
    // A soft tip falls off smoothly from the centre to the rim: at 5.52 of 10
    // pixels the coverage is 1 - t^2 (3 - 2t) with t = 0.552, about 0.42.
    fill(layer, {255, 255, 255, 255});
    BrushSettings soft = hardBrush();
    soft.hardness = 0;
    doc.paintStroke({at(50, 50)}, soft, PaintColor::black());
    EXPECT_EQ(layer.pixel(55, 50)[0], 147);
    EXPECT_EQ(layer.pixel(60, 50)[0], 255);
    EXPECT_LT(layer.pixel(50, 50)[0], 5);

    // The grain is anchored to the canvas: full texture leaves the grain's own
    // value as coverage, wherever the dab's centre lies.
    BrushSettings grainy = hardBrush(30);
    grainy.texture = 1;
    for (double cx : {40.0, 47.0}) {
        fill(layer, {255, 255, 255, 255});
        doc.paintStroke({at(cx, 50)}, grainy, PaintColor::black());
        for (int64_t x = 40; x < 48; ++x) {
            const float g = PaperGrain::values()[50 * 256 + x];
            EXPECT_NEAR(layer.pixel(x, 50)[0], 255 * (1 - g), 0.6) << x;
        }
    }

    // Erasing scales all four channels alike.
    fill(layer, {200, 0, 0, 255});
    BrushSettings eraser = hardBrush();
    eraser.kind = BrushKind::erase;
    eraser.opacity = 0.5;
    doc.paintStroke({at(50, 50)}, eraser, PaintColor::black());
    EXPECT_EQ(layer.pixel(50, 50), (Pixel4{100, 0, 0, 128}));

    // A squashed tip is long along its angle and short across it.
    BrushSettings flat = hardBrush();
    flat.roundness = 0.5;
    for (double angle : {0.0, 90.0}) {
        fill(layer, {255, 255, 255, 255});
        flat.angle = angle;
        doc.paintStroke({at(50, 50)}, flat, PaintColor::black());
        const bool along = angle == 0;
        EXPECT_EQ(layer.pixel(57, 50)[0], along ? 0 : 255) << angle;
        EXPECT_EQ(layer.pixel(50, 57)[0], along ? 255 : 0) << angle;
    }
}

TEST(PaintBrushStroke, CoverageCeilingAndFlow) {
    PaintDocument doc(100, 100);
    Layer& layer = *doc.activeLayer();
    fill(layer, {255, 255, 255, 255});
    BrushSettings brush = hardBrush();
    brush.opacity = 0.5;
    brush.airbrush = true;
    brush.airbrushRate = 1;
    {
        BrushStroke stroke(doc, doc.activeLayer(), brush, PaintColor::black(), 1);
        stroke.add(at(50, 50));
        EXPECT_EQ(layer.pixel(50, 50)[0], 128);
        stroke.hold(30);
        EXPECT_EQ(stroke.dabCount(), 31);
        EXPECT_EQ(layer.pixel(50, 50), (Pixel4{128, 128, 128, 255}));
        stroke.end();
    }
    // A new stroke starts from the new pixels and goes further.
    doc.paintStroke({at(50, 50)}, brush, PaintColor::black());
    EXPECT_EQ(layer.pixel(50, 50)[0], 64);

    // A lighter dab over coverage already reached takes none of it back.
    fill(layer, {255, 255, 255, 255});
    BrushSettings pressing = hardBrush();
    pressing.pressureOpacity = true;
    {
        BrushStroke stroke(doc, doc.activeLayer(), pressing, PaintColor::black(), 1);
        stroke.add(at(50, 50, 1));
        stroke.add(at(52, 50, 0.2));
        EXPECT_EQ(stroke.dabCount(), 2);
        EXPECT_EQ(layer.pixel(50, 50)[0], 0);
        EXPECT_NEAR(layer.pixel(61, 50)[0], 204, 1);
    }

    fill(layer, {255, 255, 255, 255});
    brush.opacity = 1;
    brush.flow = 0.1;
    BrushStroke stroke(doc, doc.activeLayer(), brush, PaintColor::black(), 1);
    stroke.add(at(50, 50));
    for (int n = 1; n <= 8; ++n) {
        EXPECT_NEAR(layer.pixel(50, 50)[0], 255 * std::pow(0.9, n), 0.6) << n;
        stroke.hold(1);
    }
}

TEST(PaintBrushStroke, RandomDrawsOnlyForSettingsAboveZeroAndRepeatPerSeed) {
    PaintDocument doc(300, 300);
    const std::vector<StrokePoint> path{at(20, 20), at(280, 200), at(40, 260)};
    BrushSettings plain = hardBrush(12);
    {
        BrushStroke stroke(doc, doc.activeLayer(), plain, PaintColor::black(), 5);
        for (const StrokePoint& p : path)
            stroke.add(p);
        stroke.end();
        EXPECT_GT(stroke.dabCount(), 100);
        EXPECT_EQ(stroke.rng(), SeededRandom(5));
    }
    // One draw per dab for each jitter, two for scatter.
    const auto drawsPerDab = [&](auto set, double pressure = 1) {
        BrushSettings b = plain;
        set(b);
        BrushStroke stroke(doc, doc.activeLayer(), b, PaintColor::black(), 5);
        stroke.add(at(150, 150, pressure));
        SeededRandom expected(5);
        int n = 0;
        while (!(expected == stroke.rng()) && n < 1000) {
            expected.next();
            ++n;
        }
        return n;
    };
    EXPECT_EQ(drawsPerDab([](BrushSettings& b) { b.sizeJitter = 0.1; }), 1);
    EXPECT_EQ(drawsPerDab([](BrushSettings& b) { b.scatter = 0.1; }), 2);
    EXPECT_EQ(drawsPerDab([](BrushSettings& b) { b.opacityJitter = 0.1; }), 1);
    EXPECT_EQ(drawsPerDab([](BrushSettings& b) { b.angleJitter = 0.1; }), 1);
    // A spray dab: three draws per particle, density times pressure particles,
    // halves rounded away from zero, at least one.
    const auto spray = [](BrushSettings& b) {
        b.spray = true;
        b.sprayDensity = 10;
    };
    EXPECT_EQ(drawsPerDab(spray, 0.5), 15);
    EXPECT_EQ(drawsPerDab(spray, 0.25), 9);
    EXPECT_EQ(drawsPerDab(spray, 0.0), 3);

    BrushSettings charcoal = *BrushLibrary::named("Charcoal");
    const auto paint = [&](uint64_t seed) {
        PaintDocument d(300, 300);
        d.paintStroke(path, charcoal, PaintColor(0.2, 0.4, 0.6, 1), nullptr, seed);
        return fingerprint(*d.activeLayer());
    };
    EXPECT_EQ(paint(11), paint(11));
    EXPECT_NE(paint(11), paint(12));
}

TEST(PaintBrushStroke, HoldSpacingAndCatchUp) {
    PaintDocument doc(200, 200);
    BrushSettings air = hardBrush();
    air.airbrush = true;
    air.airbrushRate = 20;
    BrushStroke stroke(doc, doc.activeLayer(), air, PaintColor::black(), 1);
    stroke.hold(1); // nothing placed yet
    EXPECT_EQ(stroke.dabCount(), 0);
    stroke.add(at(100, 100));
    stroke.hold(0.12);
    EXPECT_EQ(stroke.dabCount(), 3);
    EXPECT_NEAR(stroke.holdCarry(), 0.4, 1e-9);
    stroke.hold(-1);
    stroke.hold(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(stroke.dabCount(), 3);

    BrushStroke still(doc, doc.activeLayer(), hardBrush(), PaintColor::black(), 1);
    still.add(at(100, 100));
    still.hold(5);
    EXPECT_EQ(still.dabCount(), 1);

    // Spacing 0.02 of 10 pixels would be 0.2; dabs stay half a pixel apart.
    BrushSettings fine = hardBrush(10);
    fine.spacing = 0.02;
    BrushStroke spaced(doc, doc.activeLayer(), fine, PaintColor::black(), 1);
    spaced.add(at(10, 10));
    EXPECT_EQ(spaced.need(), 0.5);
    spaced.add(at(15, 10));
    EXPECT_EQ(spaced.dabCount(), 11);

    // A light touch spaces dabs in step with the smaller tip.
    BrushSettings pen = hardBrush(20);
    pen.pressureSize = true;
    pen.minSize = 0;
    BrushStroke light(doc, doc.activeLayer(), pen, PaintColor::black(), 1);
    light.add(at(10, 50, 0.5));
    EXPECT_DOUBLE_EQ(light.need(), 1.0);

    // The stabiliser lags, and end() walks the rest of the way to the pen.
    BrushSettings steady = hardBrush(4);
    steady.stabilizer = 100;
    BrushStroke lagging(doc, doc.activeLayer(), steady, PaintColor::black(), 1);
    lagging.add(at(20, 20));
    lagging.add(at(180, 20));
    EXPECT_EQ(doc.activeLayer()->pixel(178, 20)[3], 0);
    lagging.end();
    EXPECT_EQ(doc.activeLayer()->pixel(179, 20)[3], 255);
}

TEST(PaintBrushStroke, SmudgeBlurAlphaLockAndSelection) {
    PaintDocument doc(200, 200);
    Layer& layer = *doc.activeLayer();
    RGBABuffer halves(200, 200);
    for (int64_t y = 0; y < 200; ++y)
        for (int64_t x = 0; x < 200; ++x)
            halves.setPixel(x, y, x < 100 ? Pixel4{200, 0, 0, 255} : Pixel4{0, 0, 200, 255});
    layer.load(halves);
    const uint64_t before = fingerprint(layer);

    BrushSettings smudge = *BrushLibrary::named("Smudge");
    BrushStroke stroke(doc, doc.activeLayer(), smudge, PaintColor::black(), 1);
    stroke.add(at(90, 100));
    EXPECT_EQ(fingerprint(layer), before);
    EXPECT_EQ(stroke.dirty(), IRect::zero());
    stroke.add(at(110, 100));
    EXPECT_NE(fingerprint(layer), before);
    EXPECT_GT(layer.pixel(105, 100)[0], 0); // red carried into the blue half
    stroke.end();

    // Blur on a flat area touches no tile.
    fill(layer, {50, 60, 70, 255});
    doc.layers[0]->freeze();
    const TilePtr flat = layer.tiles[0];
    doc.paintStroke({at(50, 50), at(120, 80)}, *BrushLibrary::named("Blur"), PaintColor::black());
    EXPECT_EQ(layer.tiles[0], flat);
    layer.load(halves);
    doc.paintStroke({at(100, 50), at(100, 150)}, *BrushLibrary::named("Strong Blur"), PaintColor::black());
    EXPECT_GT(layer.pixel(98, 100)[2], 20);
    EXPECT_GT(layer.pixel(101, 100)[0], 20);

    // Alpha lock: clear stays clear, half transparent keeps its alpha exactly.
    RGBABuffer mixed(200, 200);
    for (int64_t y = 0; y < 200; ++y)
        for (int64_t x = 100; x < 200; ++x)
            mixed.setPixel(x, y, {30, 40, 50, 128});
    layer.load(mixed);
    layer.alphaLocked = true;
    doc.paintStroke({at(60, 100), at(140, 100)}, hardBrush(30), PaintColor(1, 0, 0, 1));
    EXPECT_EQ(layer.pixel(80, 100), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(layer.pixel(120, 100), (Pixel4{128, 0, 0, 128}));
    layer.alphaLocked = false;

    // A selection byte of 128 halves a hard dab.
    fill(layer, {255, 255, 255, 255});
    doc.setSelection(Selection::fromMask(std::vector<uint8_t>(200 * 200, 128), 200, 200));
    doc.paintStroke({at(100, 100)}, hardBrush(), PaintColor::black());
    EXPECT_NEAR(layer.pixel(100, 100)[0], 127, 1);
    doc.deselect();
}

TEST(PaintBrushStroke, HistoryTilesStayUntouchedAndColourNeverPassesAlpha) {
    PaintDocument doc(300, 300);
    Layer& layer = *doc.activeLayer();
    fill(layer, {10, 20, 30, 255});
    doc.commit("Fill");
    const TilePtr held = doc.history().back().state.layers[0].tiles[0];
    const uint64_t heldPrint = TileSet(doc.grid, doc.history().back().state.layers[0].tiles).fingerprint();
    for (const char* name : {"Hard Round", "Smudge", "Blur", "Hard Eraser", "Spray Can"}) {
        doc.paintStroke({at(20, 20), at(200, 100)}, *BrushLibrary::named(name), PaintColor::white());
        doc.paintStroke({at(20, 20), at(200, 100)}, *BrushLibrary::named(name), PaintColor::white());
    }
    EXPECT_NE(layer.tiles[0], held);
    EXPECT_EQ(TileSet(doc.grid, doc.history().back().state.layers[0].tiles).fingerprint(), heldPrint);
    doc.revertToLastCommit();
    EXPECT_EQ(layer.pixel(20, 20), (Pixel4{10, 20, 30, 255}));

    for (const char* name : {"Soft Round", "Hard Round", "Pencil 6B", "Chalk", "Spray Can", "Soft Eraser",
                             "Finger Blend", "Strong Blur"}) {
        expectColourNeverAboveAlpha(*BrushLibrary::named(name), false);
        expectColourNeverAboveAlpha(*BrushLibrary::named(name), true);
    }
}

TEST(PaintBrushStroke, HostileInputDoesNoHarm) {
    PaintDocument doc(100, 100);
    Layer& layer = *doc.activeLayer();
    const uint64_t empty = fingerprint(layer);
    BrushSettings jittery = hardBrush();
    jittery.sizeJitter = 0.5;
    BrushStroke outside(doc, doc.activeLayer(), jittery, PaintColor::black(), 3);
    outside.add(at(-500, -500));
    outside.add(at(-500, -400));
    outside.end();
    EXPECT_GT(outside.dabCount(), 40);
    EXPECT_NE(outside.rng(), SeededRandom(3));
    EXPECT_EQ(fingerprint(layer), empty);
    EXPECT_EQ(outside.dirty(), IRect::zero());
    EXPECT_TRUE(doc.dirtyTiles.empty());

    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    for (const char* name : {"Hard Round", "Smudge", "Blur", "Spray Can", "Studio Pen"}) {
        BrushSettings b = *BrushLibrary::named(name);
        b.size = 1;
        b.sprayDensity = 1;
        const IRect r = doc.paintStroke(
            {at(50, 50, nan), at(nan, 3), at(1e300, 50), at(-inf, inf, inf), at(40, 40), at(50, 1e18)}, b,
            PaintColor::black());
        EXPECT_TRUE(r.isEmpty() || doc.grid.bounds().intersection(r) == r) << name;
    }
    layer.isLocked = true;
    const uint64_t locked = fingerprint(layer);
    EXPECT_EQ(doc.paintStroke({at(50, 50)}, hardBrush(), PaintColor::black()), IRect::zero());
    EXPECT_EQ(fingerprint(layer), locked);
    layer.isLocked = false;
    EXPECT_EQ(doc.paintStroke({}, hardBrush(), PaintColor::black()), IRect::zero());
}
