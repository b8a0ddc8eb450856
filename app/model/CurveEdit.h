#pragma once
// The rules of the curve graph, on the 0...1 square: where a click lands, how
// a dragged point is held between its neighbours, and when it is removed.
// The widget only converts pixels to this square and back.
#include "engine/document/AdjustmentSpec.h"

#include <optional>
#include <vector>

namespace korv::CurveEdit {

// Points closer than this in x would make the curve a vertical step.
inline constexpr double kMinGap = 0.01;
// How far past the graph a point must be dragged before it goes.
inline constexpr double kRemoveMargin = 0.08;

// The point nearest to (x, y) within `radius`, if any.
std::optional<size_t> hit(const std::vector<CurvePoint>& points, double x, double y, double radius);
// Adds a point in x order and answers its index. A click on a column that
// already has a point moves that point instead, so two never share an x.
size_t add(std::vector<CurvePoint>& points, double x, double y);
// Moves a point, held inside the square and strictly between its neighbours.
void move(std::vector<CurvePoint>& points, size_t index, double x, double y);
// True when a point dragged to (x, y) should leave the curve: it is off the
// graph and is neither end point, so at least two points always stay.
bool dropsOff(const std::vector<CurvePoint>& points, size_t index, double x, double y);
// The curve's value at x, as the renderer computes it.
double value(const std::vector<CurvePoint>& points, double x);

} // namespace korv::CurveEdit
