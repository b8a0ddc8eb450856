#pragma once
// The parameters of an adjustment layer. One record serves every type, and
// each type reads only its own fields, so a layer remembers the settings of
// a type it was switched away from.
#include "engine/core/PaintColor.h"

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>
#include <vector>

namespace korv {

enum class AdjustmentType : uint8_t {
    levels,
    curves,
    hueSaturation,
    colorBalance,
    vibrance,
    blackWhite,
    photoFilter,
    gradientMap,
    posterize,
    threshold,
    brightnessContrast,
    exposure,
    invert,
};

inline constexpr int kAdjustmentTypeCount = 13;

// The coded form, which is also the type's id ("hueSaturation").
std::string_view toString(AdjustmentType t);
std::optional<AdjustmentType> adjustmentTypeFromString(std::string_view text);
std::string_view displayName(AdjustmentType t);

// One channel of Levels, on the 0...1 scale except gamma.
struct LevelsChannel {
    double inBlack = 0;
    double inWhite = 1;
    double gamma = 1;
    double outBlack = 0;
    double outWhite = 1;

    bool isIdentity() const { return *this == LevelsChannel{}; }
    bool operator==(const LevelsChannel&) const = default;
};

struct CurvePoint {
    double x = 0;
    double y = 0;
    bool operator==(const CurvePoint&) const = default;
};

struct GradientStop {
    double position = 0;
    RGBA color;
    bool operator==(const GradientStop&) const = default;
};

struct AdjustmentSpec {
    AdjustmentType type = AdjustmentType::levels;
    // Index 0 is the master channel, then red, green, blue.
    std::vector<LevelsChannel> levels = std::vector<LevelsChannel>(4);
    std::vector<std::vector<CurvePoint>> curves =
        std::vector<std::vector<CurvePoint>>(4, std::vector<CurvePoint>{{0, 0}, {1, 1}});
    double hue = 0;
    double saturation = 0;
    double lightness = 0;
    bool colorize = false;
    double colorizeHue = 30;
    double colorizeSaturation = 25;
    // Rows: shadows, midtones, highlights; columns: shifts toward red, green, blue.
    std::array<std::array<double, 3>, 3> balance{};
    bool preserveLuminosity = true;
    double vibrance = 0;
    double vibranceSaturation = 0;
    // Reds, yellows, greens, cyans, blues, magentas, in percent.
    std::array<double, 6> bw{40, 60, 40, 60, 20, 80};
    bool bwTint = false;
    double bwTintHue = 35;
    double bwTintSaturation = 20;
    RGBA filterColor{0.925, 0.541, 0, 1};
    double density = 0.25;
    std::vector<GradientStop> stops{{0, RGBA::black()}, {1, RGBA::white()}};
    bool reverse = false;
    int64_t posterizeLevels = 4;
    double thresholdLevel = 128;
    double brightness = 0;
    double contrast = 0;
    double exposure = 0;
    double offset = 0;
    double gammaCorrection = 1;

    AdjustmentSpec() = default;
    explicit AdjustmentSpec(AdjustmentType type) : type(type) {}

    bool operator==(const AdjustmentSpec&) const = default;
};

void to_json(nlohmann::json& j, AdjustmentType t);
void from_json(const nlohmann::json& j, AdjustmentType& t);
void to_json(nlohmann::json& j, const LevelsChannel& c);
void from_json(const nlohmann::json& j, LevelsChannel& c);
void to_json(nlohmann::json& j, const CurvePoint& p);
void from_json(const nlohmann::json& j, CurvePoint& p);
void to_json(nlohmann::json& j, const GradientStop& s);
void from_json(const nlohmann::json& j, GradientStop& s);
void to_json(nlohmann::json& j, const AdjustmentSpec& s);
void from_json(const nlohmann::json& j, AdjustmentSpec& s);

} // namespace korv
