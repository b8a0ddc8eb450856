#pragma once
// The brushes that ship with the editor, grouped by category. Built once, on
// first use, and never changed after.
#include "engine/paint/BrushSettings.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korv::BrushLibrary {

// The 33 built-in brushes, in menu order.
const std::vector<BrushSettings>& builtIn();
// The distinct categories in order of first appearance.
std::vector<std::string> categories();
// The first built-in brush with exactly this name.
std::optional<BrushSettings> named(std::string_view name);

} // namespace korv::BrushLibrary
