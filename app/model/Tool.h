#pragma once
// The tools of the palette, with the coded names the user defaults store.
#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace korv {

enum class Tool : uint8_t {
    move,
    marquee,
    ellipse,
    lasso,
    polygonLasso,
    magicWand,
    quickSelect,
    crop,
    brush,
    eraser,
    smudge,
    clone,
    heal,
    spotHeal,
    redEye,
    dodge,
    burn,
    sponge,
    blur,
    sharpen,
    gradient,
    bucket,
    text,
    shape,
    eyedropper,
    hand,
    zoom
};

inline constexpr int kToolCount = 27;

std::string_view toString(Tool tool);
std::optional<Tool> toolFromString(std::string_view text);
std::string_view displayName(Tool tool);
// The one-letter shortcut, lower case; the Hand has none (Space stands for it).
char key(Tool tool);
// The status line's hint when the tool is chosen.
std::string_view tip(Tool tool);
// The palette's groups, top to bottom: selecting and cropping, painting,
// repairing, toning and the rest.
const std::vector<std::vector<Tool>>& toolGroups();

} // namespace korv
