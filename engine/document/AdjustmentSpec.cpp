#include "engine/document/AdjustmentSpec.h"

#include "engine/document/RecordCoding.h"

namespace korv {

namespace {
constexpr EnumNames<AdjustmentType, kAdjustmentTypeCount> kTypeNames{{
    "levels",
    "curves",
    "hueSaturation",
    "colorBalance",
    "vibrance",
    "blackWhite",
    "photoFilter",
    "gradientMap",
    "posterize",
    "threshold",
    "brightnessContrast",
    "exposure",
    "invert",
}};

constexpr std::array<std::string_view, kAdjustmentTypeCount> kTypeDisplay{
    "Levels",    "Curves",        "Hue/Saturation",      "Color Balance",
    "Vibrance",  "Black & White", "Photo Filter",        "Gradient Map",
    "Posterize", "Threshold",     "Brightness/Contrast", "Exposure",
    "Invert",
};

constexpr auto levelsFields = [](auto& c, auto&& f) {
    f("inBlack", c.inBlack);
    f("inWhite", c.inWhite);
    f("gamma", c.gamma);
    f("outBlack", c.outBlack);
    f("outWhite", c.outWhite);
};

constexpr auto pointFields = [](auto& p, auto&& f) {
    f("x", p.x);
    f("y", p.y);
};

constexpr auto stopFields = [](auto& s, auto&& f) {
    f("position", s.position);
    f("color", s.color);
};

constexpr auto adjustmentFields = [](auto& s, auto&& f) {
    f("type", s.type);
    f("levels", s.levels);
    f("curves", s.curves);
    f("hue", s.hue);
    f("saturation", s.saturation);
    f("lightness", s.lightness);
    f("colorize", s.colorize);
    f("colorizeHue", s.colorizeHue);
    f("colorizeSaturation", s.colorizeSaturation);
    f("balance", s.balance);
    f("preserveLuminosity", s.preserveLuminosity);
    f("vibrance", s.vibrance);
    f("vibranceSaturation", s.vibranceSaturation);
    f("bw", s.bw);
    f("bwTint", s.bwTint);
    f("bwTintHue", s.bwTintHue);
    f("bwTintSaturation", s.bwTintSaturation);
    f("filterColor", s.filterColor);
    f("density", s.density);
    f("stops", s.stops);
    f("reverse", s.reverse);
    f("posterizeLevels", s.posterizeLevels);
    f("thresholdLevel", s.thresholdLevel);
    f("brightness", s.brightness);
    f("contrast", s.contrast);
    f("exposure", s.exposure);
    f("offset", s.offset);
    f("gammaCorrection", s.gammaCorrection);
};
} // namespace

std::string_view toString(AdjustmentType t) {
    return kTypeNames(t);
}
std::optional<AdjustmentType> adjustmentTypeFromString(std::string_view text) {
    return kTypeNames.parse(text);
}
std::string_view displayName(AdjustmentType t) {
    return kTypeDisplay[size_t(t)];
}

void to_json(nlohmann::json& j, AdjustmentType t) {
    j = std::string(toString(t));
}
void from_json(const nlohmann::json& j, AdjustmentType& t) {
    t = kTypeNames.decode(j);
}
void to_json(nlohmann::json& j, const LevelsChannel& c) {
    writeFields(j, c, levelsFields);
}
void from_json(const nlohmann::json& j, LevelsChannel& c) {
    readFields(j, c, levelsFields);
}
void to_json(nlohmann::json& j, const CurvePoint& p) {
    writeFields(j, p, pointFields);
}
void from_json(const nlohmann::json& j, CurvePoint& p) {
    readFields(j, p, pointFields);
}
void to_json(nlohmann::json& j, const GradientStop& s) {
    writeFields(j, s, stopFields);
}
void from_json(const nlohmann::json& j, GradientStop& s) {
    readFields(j, s, stopFields);
}
void to_json(nlohmann::json& j, const AdjustmentSpec& s) {
    writeFields(j, s, adjustmentFields);
}
void from_json(const nlohmann::json& j, AdjustmentSpec& s) {
    readFields(j, s, adjustmentFields);
}

} // namespace korv
