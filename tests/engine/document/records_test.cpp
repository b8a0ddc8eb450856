#include "engine/document/RecordCoding.h"
#include "engine/document/StudioDocument.h"
#include "engine/render/StudioRenderer.h"

#include <gtest/gtest.h>

using namespace korv;
using nlohmann::json;

namespace {

// A coded record must carry exactly these keys, and lacking any one of them
// refuses the whole record: decoding gives nothing, and decoding into an
// existing value leaves it as it was. The value must differ from the default
// in its first field, so that a decoder that stops half way shows.
template <class T>
void expectStrictKeys(const T& value, const std::vector<std::string>& keys) {
    ASSERT_NE(value, T{});
    const json full = value;
    std::vector<std::string> coded;
    for (const auto& [k, v] : full.items())
        coded.push_back(k);
    std::vector<std::string> expected = keys;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(coded, expected);
    EXPECT_EQ(decoded<T>(full), value);

    for (const std::string& key : keys) {
        SCOPED_TRACE(key);
        json lacking = full;
        lacking.erase(key);
        EXPECT_FALSE(decoded<T>(lacking).has_value());
        T target{};
        EXPECT_ANY_THROW(from_json(lacking, target));
        EXPECT_EQ(target, T{});
    }
}

} // namespace

TEST(Records, NewAdjustmentsStartAtIdentityAndEditsRoundTrip) {
    for (int i = 0; i < kAdjustmentTypeCount; ++i) {
        const AdjustmentSpec s(static_cast<AdjustmentType>(i));
        EXPECT_EQ(s.levels, std::vector<LevelsChannel>(4));
        EXPECT_TRUE(s.levels[0].isIdentity());
        EXPECT_EQ(s.curves, std::vector<std::vector<CurvePoint>>(4, {{0, 0}, {1, 1}}));
        EXPECT_EQ(s.bw, (std::array<double, 6>{40, 60, 40, 60, 20, 80}));
    }
    EXPECT_FALSE((LevelsChannel{0, 1, 1.2, 0, 1}).isIdentity());

    AdjustmentSpec edited(AdjustmentType::curves);
    edited.curves[2] = {{0, 0.1}, {0.5, 0.7}, {1, 0.9}};
    edited.balance[1][2] = -35;
    edited.stops.push_back({0.5, RGBA(0.1, 0.2, 0.3, 0.4)});
    edited.posterizeLevels = 7;
    EXPECT_EQ(json::parse(json(edited).dump()).get<AdjustmentSpec>(), edited);
    TextSpec text("Two\nlines — ünïcode");
    text.align = TextAlign::right;
    EXPECT_EQ(json::parse(json(text).dump()).get<TextSpec>(), text);
}

TEST(Records, KeysAreTheFieldNamesAndAllRequired) {
    // clang-format off
    expectStrictKeys(AdjustmentSpec(AdjustmentType::gradientMap),
                     {"type", "levels", "curves", "hue", "saturation", "lightness", "colorize", "colorizeHue",
                      "colorizeSaturation", "balance", "preserveLuminosity", "vibrance", "vibranceSaturation",
                      "bw", "bwTint", "bwTintHue", "bwTintSaturation", "filterColor", "density", "stops",
                      "reverse", "posterizeLevels", "thresholdLevel", "brightness", "contrast", "exposure",
                      "offset", "gammaCorrection"});
    // clang-format on
    expectStrictKeys(LevelsChannel{0.1, 0.9, 1.2, 0.05, 0.95},
                     {"inBlack", "inWhite", "gamma", "outBlack", "outWhite"});
    expectStrictKeys(CurvePoint{0.25, 0.75}, {"x", "y"});
    expectStrictKeys(GradientStop{0.5, RGBA::white()}, {"position", "color"});
    expectStrictKeys(FillSpec(FillKind::pattern), {"kind", "color1", "color2", "angle", "centerX", "centerY",
                                                   "radius", "pattern", "scale", "reverse"});
    expectStrictKeys(ShapeSpec(ShapeKind::star),
                     {"kind", "x", "y", "w", "h", "cornerRadius", "sides", "fillEnabled", "fillColor",
                      "strokeEnabled", "strokeColor", "strokeWidth", "rotation"});
    expectStrictKeys(TextSpec("Hi"), {"text", "fontFamily", "size", "bold", "italic", "color", "align",
                                      "tracking", "lineSpacing", "x", "y", "boxWidth", "rotation"});
    EffectsSpec shadow;
    shadow.shadowOn = true;
    expectStrictKeys(shadow, {"shadowOn", "shadowColor", "shadowOpacity", "shadowAngle", "shadowDistance",
                              "shadowBlur", "strokeOn", "strokeColor", "strokeWidth", "glowOn", "glowColor",
                              "glowOpacity", "glowSize", "overlayOn", "overlayColor", "overlayOpacity"});

    // A key missing deep inside refuses the outer record too.
    json adj = AdjustmentSpec(AdjustmentType::levels);
    adj["levels"][2].erase("gamma");
    EXPECT_FALSE(decoded<AdjustmentSpec>(adj).has_value());
    json fill = FillSpec{};
    fill["color2"].erase("a");
    EXPECT_FALSE(decoded<FillSpec>(fill).has_value());
    json shape = ShapeSpec{};
    shape["kind"] = "hexagon";
    EXPECT_FALSE(decoded<ShapeSpec>(shape).has_value());
}

TEST(Records, EnumerationsCodeTheirCaseNamesInOrder) {
    // Each case's coded name in case order; every name reads back to its case.
    auto coded = [](int count, auto fromString, auto cast) {
        std::string out;
        for (int i = 0; i < count; ++i) {
            out += std::string(toString(cast(i))) + " ";
            EXPECT_EQ(fromString(toString(cast(i))), cast(i));
            EXPECT_EQ(json(cast(i)).template get<decltype(cast(i))>(), cast(i));
        }
        return out;
    };
    auto adjustment = [](int i) { return AdjustmentType(i); };
    EXPECT_EQ(
        coded(kAdjustmentTypeCount, adjustmentTypeFromString, adjustment),
        "levels curves hueSaturation colorBalance vibrance blackWhite photoFilter gradientMap posterize "
        "threshold brightnessContrast exposure invert ");
    std::string shown;
    for (int i = 0; i < kAdjustmentTypeCount; ++i)
        shown += std::string(displayName(adjustment(i))) + "|";
    EXPECT_EQ(shown, "Levels|Curves|Hue/Saturation|Color Balance|Vibrance|Black & White|Photo Filter|"
                     "Gradient Map|Posterize|Threshold|Brightness/Contrast|Exposure|Invert|");
    EXPECT_EQ(coded(4, fillKindFromString, [](int i) { return FillKind(i); }),
              "solid linearGradient radialGradient pattern ");
    EXPECT_EQ(coded(4, patternKindFromString, [](int i) { return PatternKind(i); }),
              "checker stripes dots grid ");
    EXPECT_EQ(coded(7, shapeKindFromString, [](int i) { return ShapeKind(i); }),
              "rectangle roundedRectangle ellipse line polygon star arrow ");
    EXPECT_EQ(coded(3, textAlignFromString, [](int i) { return TextAlign(i); }), "left center right ");
    EXPECT_FALSE(adjustmentTypeFromString("Levels").has_value());
}

TEST(Records, OnlyShadowStrokeAndGlowNeedARaster) {
    EffectsSpec fx;
    EXPECT_FALSE(fx.any() || fx.needsRaster());
    fx.overlayOn = true;
    EXPECT_TRUE(fx.any() && !fx.needsRaster());
    for (bool EffectsSpec::*on : {&EffectsSpec::shadowOn, &EffectsSpec::strokeOn, &EffectsSpec::glowOn}) {
        EffectsSpec one;
        one.*on = true;
        EXPECT_TRUE(one.any() && one.needsRaster());
    }
}

TEST(Records, LayerFingerprintFollowsRecordsButNotPresentation) {
    StudioLayer base(Uuid::random(), "Shape", StudioLayerKind::shape);
    base.shape = ShapeSpec(ShapeKind::ellipse);
    const uint64_t h = base.fingerprint();

    std::vector<std::pair<std::string, std::function<void(StudioLayer&)>>> edits{
        {"shape field", [](StudioLayer& l) { l.shape->strokeWidth = 5; }},
        {"shape absent", [](StudioLayer& l) { l.shape.reset(); }},
        {"adjustment added", [](StudioLayer& l) { l.adjustment = AdjustmentSpec(AdjustmentType::invert); }},
        {"fill added", [](StudioLayer& l) { l.fill = FillSpec{}; }},
        {"text added", [](StudioLayer& l) { l.text = TextSpec(""); }},
        {"effects field", [](StudioLayer& l) { l.effects.overlayOpacity = 0.5; }},
        {"effects colour alpha", [](StudioLayer& l) { l.effects.shadowColor.a = 0.5; }},
    };
    for (const auto& [what, edit] : edits) {
        StudioLayer l = base;
        edit(l);
        EXPECT_NE(l.fingerprint(), h) << what;
    }
    // Records in different slots hash apart even with equal contents.
    StudioLayer a = base, b = base;
    a.adjustment = AdjustmentSpec(AdjustmentType::levels);
    a.adjustment->levels[1].gamma = 2;
    b.adjustment = AdjustmentSpec(AdjustmentType::levels);
    b.adjustment->levels[2].gamma = 2;
    EXPECT_NE(a.fingerprint(), b.fingerprint());

    StudioLayer shown = base;
    shown.isExpanded = false;
    shown.version = 41;
    EXPECT_EQ(shown.fingerprint(), h);
}

TEST(Records, UnencodableRecordSkipsItsStep) {
    // A text that isn't valid UTF-8 can't be coded: the key says so and the
    // fingerprint goes on as if the record weren't there.
    StudioLayer layer(Uuid::random(), "Text", StudioLayerKind::text);
    const uint64_t without = layer.fingerprint();
    layer.text = TextSpec(std::string("bad \xC3\x28 byte"));
    EXPECT_EQ(layer.fingerprint(), without);
    EXPECT_EQ(StudioRenderer::specKey(*layer.text), "?");

    // The render key and the fingerprint hash the very same canonical bytes.
    const EffectsSpec fx;
    char hex[24];
    std::snprintf(hex, sizeof hex, "%llx", static_cast<unsigned long long>(*recordHash(fx)));
    EXPECT_EQ(StudioRenderer::specKey(fx), hex);
    EXPECT_EQ(*canonicalJSON(json{{"b", 1}, {"a", 2.5}}), R"({"a":2.5,"b":1})");
}

TEST(Records, OverlayReachesThePlanForEveryKind) {
    StudioDocument doc(4, 4, 72.0, PaintColor::white());
    doc.update(doc.layers[0].id, true, [](StudioLayer& l) {
        l.effects.overlayOn = true;
        l.effects.overlayColor = RGBA(1, 0, 0, 0.3); // the colour's alpha is not drawn
        l.effects.overlayOpacity = 0.5;
    });
    EXPECT_EQ(StudioRenderer::pixel(doc, 1, 1), (Pixel4{255, 128, 128, 255}));

    StudioLayer adjustment(Uuid::random(), "Invert", StudioLayerKind::adjustment);
    adjustment.adjustment = AdjustmentSpec(AdjustmentType::invert);
    adjustment.effects.overlayOn = true;
    StudioLayer plain = StudioLayer::pixelLayer("Plain", doc.grid);
    const RenderPlan p = StudioRenderer::plan({adjustment, plain}, doc.grid, doc.cache());
    ASSERT_TRUE(p[0].overlay.has_value());
    EXPECT_EQ(*p[0].overlay, (std::array<float, 4>{1.0f, 0.2f, 0.2f, 1.0f}));
    EXPECT_FALSE(p[1].overlay.has_value());
}
