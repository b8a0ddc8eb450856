#pragma once
// What describes a brush without running it: its kind, its 29 settings with
// their coded form, and the ranges that keep a stored or typed brush safe for
// the dab engine.
#include "engine/core/Uuid.h"

#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace korv {

enum class BrushKind : uint8_t { paint, erase, smudge, blur };
std::string_view toString(BrushKind kind);
std::optional<BrushKind> brushKindFromString(std::string_view text);

struct BrushSettings {
    Uuid id;
    std::string name;
    std::string category;
    BrushKind kind = BrushKind::paint;
    double size = 20;
    double opacity = 1;
    double flow = 1;
    double hardness = 0.9;
    double spacing = 0.1;
    double stabilizer = 0;
    double sizeJitter = 0;
    double opacityJitter = 0;
    double scatter = 0;
    double texture = 0;
    double textureScale = 1;
    double roundness = 1;
    double angle = 0;
    double angleJitter = 0;
    bool pressureSize = true;
    bool pressureOpacity = false;
    bool pressureFlow = false;
    double minSize = 0.2;
    bool airbrush = false;
    double airbrushRate = 20;
    bool spray = false;
    double sprayDensity = 30;
    double particleSize = 1.5;
    double strength = 0.5;
    bool isBuiltIn = false;

    // The coded names, in field order.
    static const std::array<std::string_view, 29> K;

    BrushSettings() : BrushSettings("Brush", "My Brushes", BrushKind::paint) {}
    // Without an id the brush takes stableID(category + "/" + name).
    BrushSettings(std::string name, std::string category, BrushKind kind,
                  std::optional<Uuid> id = std::nullopt);

    // Clamps every ranged field; a value that is not finite takes the lower bound.
    void sanitize();
    // The same text gives the same version 4 UUID on every machine.
    static Uuid stableID(std::string_view text);

    bool operator==(const BrushSettings&) const = default;
};

// Writes all 29 keys.
void to_json(nlohmann::json& j, const BrushSettings& b);
// Every key is optional, and a key of the wrong type counts as missing; the
// result is sanitised, so no stored brush brings values out of range.
void from_json(const nlohmann::json& j, BrushSettings& b);

} // namespace korv
