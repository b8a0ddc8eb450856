#pragma once
// One layer of the tree, as a value: copying a layer copies tile references,
// never pixels, so a history state is a copy of the top-level array.
#include "engine/core/TileSet.h"
#include "engine/core/Uuid.h"
#include "engine/document/AdjustmentSpec.h"
#include "engine/document/ContentSpecs.h"
#include "engine/document/EffectsSpec.h"
#include "engine/render/BlendMode.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korv {

enum class StudioLayerKind : uint8_t { pixel, adjustment, fill, text, shape, group };

std::string_view toString(StudioLayerKind k);
std::optional<StudioLayerKind> layerKindFromString(std::string_view text);
std::string_view displayName(StudioLayerKind k);

struct StudioLayer {
    Uuid id;
    std::string name;
    StudioLayerKind kind = StudioLayerKind::pixel;
    double opacity = 1.0;
    double fillOpacity = 1.0;
    BlendMode blendMode = BlendMode::normal;
    bool isVisible = true;
    bool isLocked = false;
    bool isClipping = false;
    std::optional<TileSet> pixels;
    // Stores the hidden amount: 255 - alpha is what shows; an absent tile shows all.
    std::optional<TileSet> mask;
    bool maskEnabled = true;
    // The parameters of the non-pixel kinds; only the one of the layer's kind is in use.
    std::optional<AdjustmentSpec> adjustment;
    std::optional<FillSpec> fill;
    std::optional<TextSpec> text;
    std::optional<ShapeSpec> shape;
    EffectsSpec effects;
    std::vector<StudioLayer> children; // bottom first
    bool isExpanded = true;
    int64_t version = 0;

    StudioLayer() = default;
    StudioLayer(Uuid id, std::string name, StudioLayerKind kind)
        : id(id), name(std::move(name)), kind(kind) {}
    static StudioLayer pixelLayer(std::string name, const TileGrid& grid);
    static StudioLayer group(std::string name, std::vector<StudioLayer> children);

    bool isGroup() const { return kind == StudioLayerKind::group; }
    bool isAdjustment() const { return kind == StudioLayerKind::adjustment; }
    bool isVector() const {
        return kind == StudioLayerKind::text || kind == StudioLayerKind::shape ||
               kind == StudioLayerKind::fill;
    }
    bool hasMask() const { return mask.has_value(); }
    // The visible amount of the mask at (x, y): 255 where nothing hides the layer.
    uint8_t maskValue(int64_t x, int64_t y) const {
        if (!maskEnabled || !mask) return 255;
        return uint8_t(255 - mask->alpha(x, y));
    }
    void freezeAll();
    uint64_t fingerprint() const;

    bool operator==(const StudioLayer&) const = default;
};

// One line of the layer list, top first.
struct LayerRow {
    Uuid id;
    int64_t depth = 0;
    StudioLayer layer;
};

} // namespace korv
