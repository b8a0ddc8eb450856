#pragma once
// The canvas's zoom arithmetic, kept apart from the widget so it is tested headless.
#include <optional>

namespace korv::CanvasZoom {

// The next step of the zoom menu's table going in or out; a zoom within 1%
// of a step doesn't land on that step again.
double nextStep(double zoom, bool in);
// The zoom that fits a picture in a view with a 25-point margin, clamped to
// 0.01...32; nothing for a view too narrow to fit anything.
std::optional<double> fit(double viewWidth, double viewHeight, double pictureWidth, double pictureHeight);
// Any zoom a gesture may reach.
double clamped(double zoom);

} // namespace korv::CanvasZoom
