#pragma once
// The rules of the Text and Shape tools that need no window: which text a
// click lands on, and the shape box a drag describes.
#include "engine/document/StudioDocument.h"
#include "engine/platform/Geometry.h"

#include <optional>

namespace korv {

// The topmost text layer whose laid-out box holds the canvas point, groups'
// children included; hidden layers count, since their text can still be
// chosen to be edited.
std::optional<Uuid> textLayerAt(const StudioDocument& doc, Point at);

// The shape the Shape tool makes from a drag between two canvas points,
// taking everything but the box from `tool`. A drag shorter than 3 view
// points on both axes at this zoom is a slip of the hand: none. Lines and
// arrows keep the drag's direction in a signed width and height; the other
// kinds take the box between the points.
std::optional<ShapeSpec> shapeFromDrag(const ShapeSpec& tool, Point start, Point end, double zoom);

} // namespace korv
