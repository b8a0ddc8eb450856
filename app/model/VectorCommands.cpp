// The commands that add fill, text and shape layers from a whole record, as
// the Text and Shape tools and the command line give one.
#include "app/model/StudioModel.h"

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

} // namespace korv
