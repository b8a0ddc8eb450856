#pragma once
// An adjustment record compiled once into what makes it cheap per pixel: three
// 1024-entry tables, a 256-colour gradient, or the constants of a short
// formula. Programs work on straight sRGB colours in 0...1; the renderer deals
// with alpha, opacity, mask and blend mode.
#include "engine/core/RGBABuffer.h"
#include "engine/document/AdjustmentSpec.h"

#include <array>
#include <cstdint>
#include <vector>

namespace korv {

class AdjustmentProgram {
public:
    explicit AdjustmentProgram(AdjustmentSpec spec);

    const AdjustmentSpec spec;
    static constexpr int64_t n = 1024;
    // Per-channel tables; empty for the formula types.
    std::vector<float> lutR, lutG, lutB;
    // True when the tables are the whole program.
    bool perChannel = false;
    // The gradient map's colours, indexed by luminosity.
    std::vector<std::array<float, 3>> gradient;

    // One straight colour, in place.
    void apply(float& r, float& g, float& b) const;
    // count straight colours held in three planes, in place. The program's
    // case is chosen once per call, so the loop over pixels has no branch.
    void apply(float* r, float* g, float* b, int64_t count) const;
    // One premultiplied byte pixel; alpha stays. For single reads, not loops.
    Pixel4 apply8(uint8_t r, uint8_t g, uint8_t b, uint8_t a) const;

    // A monotone cubic through the points (sorted by x), sampled at n evenly
    // spaced places from 0 to 1 and clamped; no points means the identity.
    static std::vector<float> curveTable(std::vector<CurvePoint> points, int64_t n);
    // HSL to RGB with hue h in turns (taken once around, not reduced further).
    static std::array<float, 3> hslToRgb(float h, float s, float l);

    // How apply runs: tables, or one of the formulas with its variant.
    enum class Kind : uint8_t {
        tables,
        hueSaturation,
        colorize,
        colorBalance,
        vibrance,
        blackWhite,
        tintedBlackWhite,
        photoFilter,
        gradientMap,
        threshold,
    };
    Kind kind() const { return kind_; }

    // The formulas' constants: the record's doubles divided in double
    // precision, then held as the floats the formulas run in.
    struct Constants {
        float hue = 0;        // turns, the hue shift, colorize hue or tint hue
        float saturation = 0; // the factor on saturation, or colorize/tint saturation
        float lightness = 0;
        std::array<std::array<float, 3>, 3> balance{};
        bool preserve = false;
        float vibrance = 0;
        float vibranceGain = 0;
        std::array<float, 6> bw{};
        std::array<float, 3> filter{};
        float density = 0;
        float threshold = 0;
    };

private:
    Kind kind_ = Kind::tables;
    Constants c_;
    // The gradient as one run of r, g, b floats, for the pixel loop.
    std::array<float, 256 * 3> gradientFlat_{};
};

} // namespace korv
