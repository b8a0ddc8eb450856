#include "app/model/Tool.h"

namespace korv {
namespace {

struct ToolInfo {
    std::string_view code, name, tip;
};

// In palette order, one row per case of Tool.
constexpr std::array<ToolInfo, kToolCount> kTools{{
    {"move", "Move", "Drag to move the current layer. Text and shapes stay editable."},
    {"marquee", "Rectangle Select", "Drag a rectangle. Shift adds, Alt takes away."},
    {"ellipse", "Ellipse Select", "Drag an oval. Shift adds, Alt takes away."},
    {"lasso", "Lasso", "Draw around an area freehand."},
    {"polygonLasso", "Polygon Lasso",
     "Click corner points; double-click (or click the first point) to finish."},
    {"magicWand", "Magic Wand", "Click a color. Tolerance sets how alike colors must be."},
    {"quickSelect", "Quick Select", "Brush over a subject to select it."},
    {"crop", "Crop", "Drag the area to keep, then press Return (or Apply)."},
    {"brush", "Brush", "Paint with any KORV Paint brush. On a mask: black hides, white shows."},
    {"eraser", "Eraser", "Erase pixels (or reveal on a mask)."},
    {"smudge", "Smudge", "Push paint around like a fingertip."},
    {"clone", "Clone Stamp", "Alt-click a source, then paint to copy it."},
    {"heal", "Healing Brush",
     "Alt-click a source, then paint: texture is copied and colors blend in seamlessly."},
    {"spotHeal", "Spot Healing", "Paint over a spot or blemish; the source is chosen for you."},
    {"redEye", "Red Eye", "Click a red pupil (size = the circle)."},
    {"dodge", "Dodge (lighten)", "Paint to lighten shadows, midtones or highlights."},
    {"burn", "Burn (darken)", "Paint to darken shadows, midtones or highlights."},
    {"sponge", "Sponge", "Paint to remove (or add) color."},
    {"blur", "Blur Brush", "Paint to soften detail."},
    {"sharpen", "Sharpen Brush", "Paint to crispen detail."},
    {"gradient", "Gradient", "Drag to lay a gradient from the paint color to the second color."},
    {"bucket", "Paint Bucket", "Click to fill similar connected colors."},
    {"text", "Text", "Click to add text (edit it in Properties). Click text to select it."},
    {"shape", "Shape", "Drag to draw a shape layer."},
    {"eyedropper", "Eyedropper", "Click to pick a color from the picture."},
    {"hand", "Hand", "Drag to scroll the canvas (or hold Space with any tool)."},
    {"zoom", "Zoom", "Click to zoom in, Alt-click to zoom out."},
}};

} // namespace

std::string_view toString(Tool tool) {
    return kTools[size_t(tool)].code;
}
std::string_view displayName(Tool tool) {
    return kTools[size_t(tool)].name;
}
std::string_view tip(Tool tool) {
    return kTools[size_t(tool)].tip;
}

std::optional<Tool> toolFromString(std::string_view text) {
    for (size_t i = 0; i < kTools.size(); ++i)
        if (kTools[i].code == text) return Tool(i);
    return std::nullopt;
}

const std::vector<std::vector<Tool>>& toolGroups() {
    static const std::vector<std::vector<Tool>> groups = [] {
        auto range = [](Tool first, Tool last) {
            std::vector<Tool> tools;
            for (int t = int(first); t <= int(last); ++t)
                tools.push_back(Tool(t));
            return tools;
        };
        return std::vector<std::vector<Tool>>{
            range(Tool::move, Tool::crop),
            {Tool::brush, Tool::eraser, Tool::smudge, Tool::gradient, Tool::bucket},
            {Tool::clone, Tool::heal, Tool::spotHeal, Tool::redEye},
            range(Tool::dodge, Tool::sharpen),
            {Tool::text, Tool::shape, Tool::eyedropper, Tool::hand, Tool::zoom}};
    }();
    return groups;
}

char key(Tool tool) {
    static constexpr std::string_view kKeys = "vmelpwqcbxusjkronyfagdthi z";
    static_assert(kKeys.size() == kToolCount);
    const char c = kKeys[size_t(tool)];
    return c == ' ' ? '\0' : c;
}

} // namespace korv
