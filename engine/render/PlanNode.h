#pragma once
// One node of a render plan: everything a layer's pixels depend on, compiled
// once per render request and read-only afterwards, so any thread may read it.
#include "engine/core/TileSet.h"
#include "engine/document/StudioLayer.h"
#include "engine/render/BlendMode.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

namespace korv {

class AdjustmentProgram;

struct PlanNode {
    StudioLayerKind kind = StudioLayerKind::pixel;
    float opacity = 1;
    float fill = 1;
    BlendMode mode = BlendMode::normal;
    bool visible = true;
    bool clipping = false; // corrected once the siblings are known
    std::optional<TileSet> raster;
    std::optional<TileSet> mask; // only when the mask is enabled
    // Compiled once per plan and shared by every tile that renders it.
    std::shared_ptr<const AdjustmentProgram> program;
    std::optional<TileSet> under;                // effects drawn below the layer's own pixels
    std::optional<std::array<float, 4>> overlay; // r, g, b, strength
    std::vector<PlanNode> children;
};

using RenderPlan = std::vector<PlanNode>;

} // namespace korv
