#include "app/model/CanvasZoom.h"

#include <algorithm>
#include <array>

namespace korv::CanvasZoom {
namespace {
constexpr std::array<double, 18> kSteps{0.05, 0.1, 0.167, 0.25, 0.333, 0.5, 0.667, 1,  1.5,
                                        2,    3,   4,     6,    8,     12,  16,    24, 32};
}

double nextStep(double zoom, bool in) {
    if (in) {
        for (double step : kSteps)
            if (step > zoom * 1.01) return step;
        return kSteps.back();
    }
    for (auto it = kSteps.rbegin(); it != kSteps.rend(); ++it)
        if (*it < zoom / 1.01) return *it;
    return kSteps.front();
}

std::optional<double> fit(double viewWidth, double viewHeight, double pictureWidth, double pictureHeight) {
    if (viewWidth <= 10 || pictureWidth <= 0 || pictureHeight <= 0) return std::nullopt;
    return std::clamp(std::min((viewWidth - 50) / pictureWidth, (viewHeight - 50) / pictureHeight), 0.01,
                      32.0);
}

double clamped(double zoom) {
    return std::clamp(zoom, 0.01, 64.0);
}

} // namespace korv::CanvasZoom
