#pragma once
// A layered document as a real Photoshop file: other programs see pixels,
// names, blend modes, opacity, fill, visibility, clipping, masks, groups and
// the finished picture; what PSD can't hold travels in a private tagged block
// ("KOrv") that they ignore and this program reads back fully editable.
#include "engine/document/StudioDocument.h"

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <vector>

namespace korv {

namespace StudioPSD {

// The private block, as JSON by field name; the optional specs are left out when absent.
struct Extra {
    Uuid id;
    StudioLayerKind kind = StudioLayerKind::pixel;
    double opacity = 1;
    double fill = 1;
    bool locked = false;
    bool maskEnabled = true;
    bool expanded = true;
    std::optional<AdjustmentSpec> adjustment;
    std::optional<FillSpec> fillSpec;
    std::optional<TextSpec> text;
    std::optional<ShapeSpec> shape;
    EffectsSpec effects;
    bool operator==(const Extra&) const = default;
};

void to_json(nlohmann::json& j, const Extra& e);
void from_json(const nlohmann::json& j, Extra& e);

// Throws what JSON encoding throws (a name that isn't UTF-8).
std::vector<uint8_t> write(const StudioDocument& document);
// Throws StudioFileError, PSDError or BEReader::Short; no partial document is given.
std::unique_ptr<StudioDocument> read(std::span<const uint8_t> bytes);

} // namespace StudioPSD
} // namespace korv
