// The Image menu's commands: the picture's size, canvas, orientation and
// crop, each one history step after which the canvas fits the new picture.
#include "app/model/Quoting.h"
#include "app/model/StudioModel.h"
#include "engine/core/Constants.h"
#include "engine/core/Selection.h"

#include <cmath>

namespace korv {
namespace {

bool withinLimits(int64_t width, int64_t height) {
    return width >= 1 && height >= 1 && width <= kMaxCanvasSide && height <= kMaxCanvasSide;
}

} // namespace

bool StudioModel::gridCommand(const std::string& name, const std::function<bool(StudioDocument&)>& body) {
    return act(name, [&](StudioDocument& d) {
        if (!body(d)) return false;
        // The tiles the canvas shows belong to the old grid: it rebuilds them
        // for the new one and fits the picture before the step refreshes it.
        if (auto* session = current()) session->needsFit = true;
        canvasShowCurrent();
        return true;
    });
}

void StudioModel::resizeImage(int64_t width, int64_t height) {
    gridCommand("Image Size", [&](StudioDocument& d) {
        if (!withinLimits(width, height) || (width == d.width() && height == d.height())) return false;
        d.resizeImage(width, height);
        return true;
    });
}

void StudioModel::resizeCanvas(int64_t width, int64_t height, double anchorX, double anchorY) {
    gridCommand("Canvas Size", [&](StudioDocument& d) {
        if (!withinLimits(width, height) || !std::isfinite(anchorX) || !std::isfinite(anchorY)) return false;
        if (width == d.width() && height == d.height()) return false;
        d.resizeCanvas(width, height, anchorX, anchorY);
        return true;
    });
}

void StudioModel::rotate(int64_t quarterTurns) {
    gridCommand("Rotate", [&](StudioDocument& d) {
        if ((quarterTurns & 3) == 0) return false;
        d.rotate(quarterTurns);
        return true;
    });
}

void StudioModel::flip(bool horizontal) {
    gridCommand(horizontal ? "Flip Horizontal" : "Flip Vertical", [&](StudioDocument& d) {
        d.flip(horizontal);
        return true;
    });
}

void StudioModel::cropToSelection() {
    gridCommand("Crop", [&](StudioDocument& d) {
        if (!d.selection) return false;
        const IRect r = d.selection->bounds().intersection(d.grid.bounds());
        if (r.isEmpty() || (r.w == d.width() && r.h == d.height())) return false;
        d.crop(r);
        return true;
    });
}

void StudioModel::applyCrop() {
    if (!cropRect) return;
    const CanvasRect r = *cropRect;
    cropRect.reset();
    // A rectangle dragged either way round covers the same pixels.
    const double x = std::min(r.x, r.x + r.w), y = std::min(r.y, r.y + r.h);
    const IRect area = IRect::covering(x, y, std::fabs(r.w), std::fabs(r.h));
    if (!gridCommand("Crop", [&](StudioDocument& d) {
            const IRect inside = area.intersection(d.grid.bounds());
            if (inside.isEmpty() || (inside.w == d.width() && inside.h == d.height())) return false;
            d.crop(inside);
            return true;
        }))
        refresh(false);
}

void StudioModel::moveLayerBy(int64_t dx, int64_t dy) {
    const auto active = activeLayer();
    if (!active || (dx == 0 && dy == 0)) return;
    if (active->isLocked) {
        status = inQuotes(active->name) + " is locked. Unlock it in the Layers panel to change it.";
        notify();
        return;
    }
    act("Move", [&](StudioDocument& d) {
        d.offsetLayer(active->id, dx, dy);
        return true;
    });
}

} // namespace korv
