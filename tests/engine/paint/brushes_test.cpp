#include "engine/paint/BrushLibrary.h"
#include "engine/paint/BrushPreview.h"
#include "engine/paint/BrushSettings.h"
#include "engine/paint/PaperGrain.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

using namespace korv;

namespace {

BrushSettings decoded(const nlohmann::json& j) {
    return j.get<BrushSettings>();
}

} // namespace

TEST(PaintBrushSettings, SanitizeHoldsEveryRangeAndNaNTakesTheLowerBound) {
    BrushSettings b;
    b.size = 0, b.flow = 0, b.spacing = 0, b.textureScale = 0.1, b.roundness = 0, b.particleSize = 0;
    b.sanitize();
    EXPECT_EQ(b.size, 1);
    EXPECT_EQ(b.flow, 0.005);
    EXPECT_EQ(b.spacing, 0.02);
    EXPECT_EQ(b.textureScale, 0.25);
    EXPECT_EQ(b.roundness, 0.05);
    EXPECT_EQ(b.particleSize, 0.5);
    b.size = 5000;
    b.sanitize();
    EXPECT_EQ(b.size, 1000);

    const double nan = std::numeric_limits<double>::quiet_NaN(),
                 inf = std::numeric_limits<double>::infinity();
    b.size = nan, b.flow = nan, b.angle = nan, b.strength = inf, b.airbrushRate = -inf,
    b.sprayDensity = 1e300;
    b.sanitize();
    EXPECT_EQ(b.size, 1);
    EXPECT_EQ(b.flow, 0.005);
    EXPECT_EQ(b.angle, -180);
    EXPECT_EQ(b.strength, 0);
    EXPECT_EQ(b.airbrushRate, 1);
    EXPECT_EQ(b.sprayDensity, 400);
}

TEST(PaintBrushSettings, DecodingTakesDefaultsForWhatIsMissingOrWrongAndSanitizes) {
    const BrushSettings empty = decoded(nlohmann::json::object());
    EXPECT_EQ(empty.name, "Brush");
    EXPECT_EQ(empty.category, "My Brushes");
    EXPECT_EQ(empty.size, 20);
    EXPECT_EQ(empty.kind, BrushKind::paint);
    EXPECT_EQ(empty.id, BrushSettings::stableID("My Brushes/Brush"));

    nlohmann::json hostile = {
        {"size", "huge"},       {"flow", std::numeric_limits<double>::quiet_NaN()},
        {"opacity", 7},         {"kind", "sculpt"},
        {"spray", 1},           {"hardness", nullptr},
        {"angle", -1e9},        {"name", 12},
        {"id", "not a uuid"},   {"sprayDensity", std::numeric_limits<double>::infinity()},
        {"scatter", {1, 2, 3}}, {"isBuiltIn", true}};
    const BrushSettings b = decoded(hostile);
    EXPECT_EQ(b.size, 20);
    EXPECT_EQ(b.flow, 0.005);
    EXPECT_EQ(b.opacity, 1);
    EXPECT_EQ(b.kind, BrushKind::paint);
    EXPECT_FALSE(b.spray);
    EXPECT_EQ(b.hardness, 0.9);
    EXPECT_EQ(b.angle, -180);
    EXPECT_EQ(b.name, "Brush");
    EXPECT_EQ(b.sprayDensity, 1); // not finite: the lower bound
    EXPECT_EQ(b.scatter, 0);
    EXPECT_TRUE(b.isBuiltIn);
    EXPECT_EQ(decoded(nlohmann::json::array()), empty);

    // Every key is written, in field order, and reads back to the same brush.
    const BrushSettings pencil = *BrushLibrary::named("Pencil 6B");
    const nlohmann::json j = pencil;
    ASSERT_EQ(j.size(), 29u);
    for (std::string_view key : BrushSettings::K)
        EXPECT_TRUE(j.contains(std::string(key))) << key;
    EXPECT_EQ(decoded(j), pencil);
}

TEST(PaintBrushSettings, StableIDRepeatsAndIsVersion4) {
    const Uuid a = BrushSettings::stableID("Pens/Studio Pen");
    EXPECT_EQ(a, BrushSettings::stableID("Pens/Studio Pen"));
    EXPECT_NE(a, BrushSettings::stableID("Pens/Studio Pen "));
    EXPECT_EQ(a.bytes()[6] >> 4, 4);
    EXPECT_EQ(a.bytes()[8] & 0xC0, 0x80);
    EXPECT_EQ(a.toString(), "238A507A-F3BA-443A-B3D1-B0FA438BBE72");
    // The empty text: h1 and h2 at their starting values, then stamped.
    EXPECT_EQ(BrushSettings::stableID("").toString(), "25232284-E49C-42CB-A49C-F2CB25232284");
}

TEST(PaintBrushLibrary, HoldsTheBuiltInBrushesInOrder) {
    const auto& all = BrushLibrary::builtIn();
    ASSERT_EQ(all.size(), 33u);
    EXPECT_EQ(all.front().name, "Studio Pen");
    EXPECT_EQ(all.back().name, "Pixel Eraser");
    const std::vector<std::string> expected{"Pens",    "Pencils",       "Inks",
                                            "Markers", "Round Brushes", "Airbrush",
                                            "Texture", "Smudge & Blur", "Erasers"};
    EXPECT_EQ(BrushLibrary::categories(), expected);
    ASSERT_TRUE(BrushLibrary::named("Hard Round"));
    EXPECT_EQ(BrushLibrary::named("Hard Round")->hardness, 0.95);
    EXPECT_FALSE(BrushLibrary::named("hard round"));
    for (const BrushSettings& b : all) {
        EXPECT_TRUE(b.isBuiltIn);
        EXPECT_EQ(b.id, BrushSettings::stableID(b.category + "/" + b.name));
        BrushSettings again = b;
        again.sanitize();
        EXPECT_EQ(again, b) << b.name;
    }
    EXPECT_EQ(BrushLibrary::named("Spray Can")->particleSize, 2);
    EXPECT_EQ(BrushLibrary::named("Calligraphy Ink")->angle, 45);
    EXPECT_EQ(BrushLibrary::named("Strong Blur")->kind, BrushKind::blur);
}

TEST(PaintPaperGrain, IsInRangeVariedAndSeamless) {
    const float* g = PaperGrain::values();
    EXPECT_EQ(g, PaperGrain::values());
    float lo = 1, hi = 0;
    for (int i = 0; i < 65536; ++i) {
        ASSERT_GE(g[i], 0.0f);
        ASSERT_LE(g[i], 1.0f);
        lo = std::min(lo, g[i]), hi = std::max(hi, g[i]);
    }
    EXPECT_LT(lo, 0.3f);
    EXPECT_GT(hi, 0.7f);
    // Across the wrap the step is no larger than the largest between neighbours inside.
    double wrapStep = 0, innerStep = 0;
    for (int y = 0; y < 256; ++y) {
        wrapStep = std::max(wrapStep, double(std::abs(g[y * 256 + 255] - g[y * 256])));
        wrapStep = std::max(wrapStep, double(std::abs(g[255 * 256 + y] - g[y])));
        for (int x = 1; x < 256; ++x) {
            innerStep = std::max(innerStep, double(std::abs(g[y * 256 + x] - g[y * 256 + x - 1])));
            innerStep = std::max(innerStep, double(std::abs(g[x * 256 + y] - g[(x - 1) * 256 + y])));
        }
    }
    EXPECT_LE(wrapStep, innerStep);
}

TEST(PaintBrushPreview, DrawsAWaveForEveryBuiltInBrush) {
    for (const BrushSettings& b : BrushLibrary::builtIn()) {
        const RGBABufferPtr img = BrushPreview::render(b, 120, 40, PaintColor(0.1, 0.2, 0.8, 1));
        ASSERT_TRUE(img) << b.name;
        int64_t covered = 0;
        for (int64_t i = 0; i < img->width() * img->height(); ++i)
            covered += img->data()[i * 4 + 3] > 0;
        EXPECT_GT(covered, 40) << b.name;
    }
    EXPECT_FALSE(BrushPreview::render(BrushSettings(), 0, 40, PaintColor::black()));
}
