#pragma once
// One pen or mouse sample in canvas pixels. Tilt is carried along for the
// record but shapes no dab.
namespace korv {

struct StrokePoint {
    double x = 0;
    double y = 0;
    double pressure = 1;
    double tiltX = 0;
    double tiltY = 0;
    double time = 0;
    bool operator==(const StrokePoint&) const = default;
};

} // namespace korv
