#include "engine/render/BlendMode.h"

#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace korv {

namespace {
struct ModeRow {
    std::string_view name, display, psd;
};
constexpr std::array<ModeRow, kBlendModeCount> kModes{{
    {"normal", "Normal", "norm"},
    {"multiply", "Multiply", "mul "},
    {"screen", "Screen", "scrn"},
    {"overlay", "Overlay", "over"},
    {"darken", "Darken", "dark"},
    {"lighten", "Lighten", "lite"},
    {"colorDodge", "Color Dodge", "div "},
    {"colorBurn", "Color Burn", "idiv"},
    {"hardLight", "Hard Light", "hLit"},
    {"softLight", "Soft Light", "sLit"},
    {"difference", "Difference", "diff"},
    {"exclusion", "Exclusion", "smud"},
    {"add", "Add", "lddg"},
    {"subtract", "Subtract", "fsub"},
    {"linearBurn", "Linear Burn", "lbrn"},
    {"hue", "Hue", "hue "},
    {"saturation", "Saturation", "sat "},
    {"color", "Color", "colr"},
    {"luminosity", "Luminosity", "lum "},
}};
const ModeRow& row(BlendMode m) { return kModes[size_t(m)]; }
} // namespace

std::string_view toString(BlendMode m) { return row(m).name; }
std::string_view displayName(BlendMode m) { return row(m).display; }
std::string_view psdKey(BlendMode m) { return row(m).psd; }
bool isSeparable(BlendMode m) { return m < BlendMode::hue; }

std::optional<BlendMode> blendModeFromString(std::string_view text) {
    for (size_t i = 0; i < kModes.size(); ++i)
        if (kModes[i].name == text) return BlendMode(i);
    return std::nullopt;
}

BlendMode blendModeFromPSD(std::string_view key) {
    for (size_t i = 0; i < kModes.size(); ++i)
        if (kModes[i].psd == key) return BlendMode(i);
    return BlendMode::normal;
}

void to_json(nlohmann::json& j, BlendMode m) { j = std::string(toString(m)); }
void from_json(const nlohmann::json& j, BlendMode& m) {
    auto v = blendModeFromString(j.get<std::string>());
    if (!v) throw std::invalid_argument("unknown blend mode");
    m = *v;
}

} // namespace korv
