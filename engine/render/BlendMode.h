#pragma once
// The 19 ways a layer meets what lies below it, in their fixed order.
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string_view>

namespace korv {

enum class BlendMode : uint8_t {
    normal,
    multiply,
    screen,
    overlay,
    darken,
    lighten,
    colorDodge,
    colorBurn,
    hardLight,
    softLight,
    difference,
    exclusion,
    add,
    subtract,
    linearBurn,
    hue,
    saturation,
    color,
    luminosity,
};

inline constexpr int kBlendModeCount = 19;

// The coded form, which is also the mode's id ("colorDodge").
std::string_view toString(BlendMode m);
std::optional<BlendMode> blendModeFromString(std::string_view text);
std::string_view displayName(BlendMode m);
// Four characters, trailing blanks included ("mul ").
std::string_view psdKey(BlendMode m);
// An unknown key gives normal.
BlendMode blendModeFromPSD(std::string_view key);
bool isSeparable(BlendMode m);

void to_json(nlohmann::json& j, BlendMode m);
void from_json(const nlohmann::json& j, BlendMode& m);

} // namespace korv
