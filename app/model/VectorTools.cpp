#include "app/model/VectorTools.h"

#include "engine/render/VectorRender.h"

#include <cmath>

namespace korv {

std::optional<Uuid> textLayerAt(const StudioDocument& doc, Point at) {
    for (const LayerRow& row : doc.rows()) {
        const StudioLayer& l = row.layer;
        if (l.kind != StudioLayerKind::text || !l.text) continue;
        const Rect box = VectorRender::textBounds(*l.text);
        if (at.x >= box.minX() && at.x < box.maxX() && at.y >= box.minY() && at.y < box.maxY()) return l.id;
    }
    return std::nullopt;
}

std::optional<ShapeSpec> shapeFromDrag(const ShapeSpec& tool, Point start, Point end, double zoom) {
    const double dx = end.x - start.x, dy = end.y - start.y;
    if (std::fabs(dx) * zoom < 3 && std::fabs(dy) * zoom < 3) return std::nullopt;
    ShapeSpec spec = tool;
    if (tool.kind == ShapeKind::line || tool.kind == ShapeKind::arrow) {
        spec.x = start.x;
        spec.y = start.y;
        spec.w = dx;
        spec.h = dy;
    } else {
        spec.x = std::min(start.x, end.x);
        spec.y = std::min(start.y, end.y);
        spec.w = std::fabs(dx);
        spec.h = std::fabs(dy);
    }
    return spec;
}

} // namespace korv
