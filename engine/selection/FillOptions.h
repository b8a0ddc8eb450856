#pragma once
// The options the bucket fill shares with the magic wand: how close a colour
// must be to the clicked one, and where the fill may reach.
#include <cstdint>
#include <nlohmann/json_fwd.hpp>

namespace korv {

struct FillOptions {
    // Largest accepted per-channel difference from the clicked colour.
    int64_t tolerance = 32;
    // Only pixels connected to the clicked one.
    bool contiguous = true;
    // Compare against the flattened picture instead of the active layer.
    bool sampleAllLayers = false;
    // Pixels by which the fill mask is widened.
    int64_t expand = 1;

    bool operator==(const FillOptions&) const = default;
};

void to_json(nlohmann::json& j, const FillOptions& o);
// Every key is required: a record that lacks one throws and leaves `o` as it was.
void from_json(const nlohmann::json& j, FillOptions& o);

} // namespace korv
