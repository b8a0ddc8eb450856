#pragma once
// Every layer's effects: a drop shadow, an outline stroke, an outer glow and
// a colour overlay, each with its own switch. The alpha of the colours is
// kept but not drawn: each effect has its own strength.
#include "engine/core/PaintColor.h"

#include <nlohmann/json_fwd.hpp>

namespace korv {

struct EffectsSpec {
    bool shadowOn = false;
    RGBA shadowColor = RGBA::black();
    double shadowOpacity = 0.6;
    // Where the light comes from, in degrees: 135 throws the shadow to the lower right.
    double shadowAngle = 135;
    double shadowDistance = 8;
    double shadowBlur = 8;
    bool strokeOn = false;
    RGBA strokeColor = RGBA::black();
    double strokeWidth = 3; // all of it outside the layer's edge
    bool glowOn = false;
    RGBA glowColor{1, 0.9, 0.5, 1};
    double glowOpacity = 0.75;
    double glowSize = 12;
    bool overlayOn = false;
    RGBA overlayColor{1, 0.2, 0.2, 1};
    double overlayOpacity = 1;

    bool any() const { return shadowOn || strokeOn || glowOn || overlayOn; }
    // The overlay is applied while compositing; only the others need a raster under the layer.
    bool needsRaster() const { return shadowOn || strokeOn || glowOn; }

    bool operator==(const EffectsSpec&) const = default;
};

void to_json(nlohmann::json& j, const EffectsSpec& s);
void from_json(const nlohmann::json& j, EffectsSpec& s);

} // namespace korv
