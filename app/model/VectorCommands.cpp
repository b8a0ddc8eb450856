// The commands that add fill, text and shape layers from a whole record, as
// the Text and Shape tools and the command line give one.
#include "app/model/StudioModel.h"
#include "app/model/VectorTools.h"
#include "engine/platform/TextLayout.h"

#include <cmath>

namespace korv {

void StudioModel::addFill(const FillSpec& spec) {
    act("New Fill Layer", [&](StudioDocument& d) {
        d.addFill(spec);
        return true;
    });
}

void StudioModel::addText(const TextSpec& spec) {
    act("New Text", [&](StudioDocument& d) {
        d.addText(spec);
        return true;
    });
}

void StudioModel::addShape(const ShapeSpec& spec) {
    act("New Shape", [&](StudioDocument& d) {
        d.addShape(spec);
        return true;
    });
}

ShapeSpec StudioModel::defaultShapeSpec() {
    ShapeSpec spec(ShapeKind::roundedRectangle);
    spec.fillColor = RGBA(0.25, 0.55, 0.95, 1);
    spec.strokeColor = RGBA::white();
    return spec;
}

TextSpec StudioModel::defaultTextSpec() {
    TextSpec spec("Your text here");
    spec.fontFamily = TextLayout::resolveFamily(spec.fontFamily);
    return spec;
}

void StudioModel::textClick(Point at) {
    auto* d = doc();
    if (!d) return;
    if (const auto hit = textLayerAt(*d, at)) {
        select(*hit);
        return;
    }
    TextSpec spec = textSpec;
    spec.x = std::round(at.x);
    spec.y = std::round(at.y);
    spec.color = RGBA(primary);
    addText(spec);
}

bool StudioModel::shapeDrag(Point start, Point end, double zoom) {
    if (!doc()) return false;
    auto spec = shapeFromDrag(shapeSpec, start, end, zoom);
    if (!spec) return false;
    spec->fillColor = RGBA(primary);
    spec->strokeColor = RGBA(secondary);
    addShape(*spec);
    return true;
}

} // namespace korv
