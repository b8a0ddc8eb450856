#include "engine/render/AdjustmentProgram.h"

#include "engine/core/Require.h"
#include "engine/render/PixelMath.h"

#include <algorithm>
#include <cmath>

namespace korv {

namespace {

// The kernels must melt into their loops, or nothing vectorises.
#define KORV_INLINE [[gnu::always_inline]] inline

using Kind = AdjustmentProgram::Kind;
using Constants = AdjustmentProgram::Constants;

constexpr float kThird = 0.33333334f;
constexpr float kSixth = float(1.0 / 6.0);
constexpr float kTwoThirds = float(2.0 / 3.0);

// Clamps to 0...1; NaN becomes 0, so no table index can come from it.
double unit(double v) {
    return v > 0.0 ? (v < 1.0 ? v : 1.0) : 0.0;
}

KORV_INLINE float unitf(float v) {
    return selectFloat(v > 0.0f, selectFloat(v < 1.0f, v, 1.0f), 0.0f);
}
// By value, not through references: a choice between two addresses is not if-converted.
KORV_INLINE float lesser(float a, float b) {
    return b < a ? b : a;
}
KORV_INLINE float greater(float a, float b) {
    return a < b ? b : a;
}
// floor without a library call, so that the baseline build vectorises too
// (SSE2 has no rounding instruction). Floats of 2^23 and above are whole.
KORV_INLINE float floorOf(float x) {
    const float big = 8388608.0f;
    const float held = lesser(greater(x, -big), big);
    const float t = float(int(held));
    return selectFloat(std::fabs(x) < big, selectFloat(t > held, t - 1.0f, t), x);
}
KORV_INLINE float lum(float r, float g, float b) {
    return 0.3f * r + 0.59f * g + 0.11f * b;
}

// Entry i of every table stands for i / 1023, worked in doubles.
template <class F>
std::vector<float> table(F f) {
    std::vector<float> t(static_cast<size_t>(AdjustmentProgram::n));
    for (int64_t i = 0; i < AdjustmentProgram::n; ++i)
        t[size_t(i)] = float(unit(f(double(i) / double(AdjustmentProgram::n - 1))));
    return t;
}

double levelsStage(const LevelsChannel& c, double x) {
    const double t = (x - c.inBlack) / std::max(c.inWhite - c.inBlack, 0.000001);
    return c.outBlack + (c.outWhite - c.outBlack) * std::pow(unit(t), 1.0 / std::max(c.gamma, 0.01));
}

// sRGB to linear light and back, in floats.
float toLinear(float x) {
    return x <= 0.04045f ? x / 12.92f : std::pow((x + 0.055f) / 1.055f, 2.4f);
}
float fromLinear(float p) {
    return p <= 0.0031308f ? p * 12.92f : 1.055f * std::pow(p, 0.41666666f) - 0.055f;
}

// Reads a table between its entries, so smooth gradients stay smooth without a finer table.
KORV_INLINE float lookup(const float* t, float c) {
    const float x = unitf(c) * 1023.0f;
    const int i = int(x);
    const int j = i < 1022 ? i : 1022;
    const float v = t[j] + (x - float(j)) * (t[j + 1] - t[j]);
    return selectFloat(i > 1022, t[1023], v);
}

struct RGB {
    float r, g, b;
};

KORV_INLINE float hueChannel(float p, float q, float t) {
    t = selectFloat(t < 0.0f, t + 1.0f, t);
    t = selectFloat(t > 1.0f, t - 1.0f, t);
    const float rise = p + (q - p) * 6.0f * t;
    const float fall = p + (q - p) * (kTwoThirds - t) * 6.0f;
    return selectFloat(t < kSixth, rise, selectFloat(t < 0.5f, q, selectFloat(t < kTwoThirds, fall, p)));
}

KORV_INLINE RGB hsl(float h, float s, float l) {
    const float q = selectFloat(l < 0.5f, l * (1.0f + s), l + s - l * s);
    const float p = 2.0f * l - q;
    return {hueChannel(p, q, h + kThird), hueChannel(p, q, h), hueChannel(p, q, h - kThird)};
}

KORV_INLINE float lightness(float c, float t) {
    return selectFloat(t > 0.0f, c + (1.0f - c) * t, selectFloat(t < 0.0f, (t + 1.0f) * c, c));
}

// Every kernel computes all of its cases and selects, so its loop has no branch.
struct HueSaturation {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const float mx = greater(greater(r, g), b), mn = lesser(lesser(r, g), b);
        const float l = (mx + mn) * 0.5f;
        const float d = mx - mn;
        const bool spread = mx != mn;
        // Operands are chosen before dividing, so each case costs one division, not three.
        const float s = d / selectFloat(l > 0.5f, 2.0f - mx - mn, mx + mn);
        const bool fromR = mx == r, fromG = !fromR & (mx == g);
        const float sector = selectFloat(fromR, g - b, selectFloat(fromG, b - r, r - g)) / d;
        const float offset =
            selectFloat(fromR, selectFloat(g < b, 6.0f, 0.0f), selectFloat(fromG, 2.0f, 4.0f));
        const float h = selectFloat(spread, (sector + offset) / 6.0f, 0.0f);
        float x = h + k.hue;
        x = x - floorOf(x);
        const float s2 = k.saturation * selectFloat(spread, s, 0.0f);
        const RGB c = hsl(x, lesser(s2, 1.0f), l);
        const bool grey = s2 <= 0.0f;
        r = lightness(selectFloat(grey, l, c.r), k.lightness);
        g = lightness(selectFloat(grey, l, c.g), k.lightness);
        b = lightness(selectFloat(grey, l, c.b), k.lightness);
    }
};

struct Colorize {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const float mx = greater(greater(r, g), b), mn = lesser(lesser(r, g), b);
        const float l = lightness((mx + mn) * 0.5f, k.lightness);
        const RGB c = hsl(k.hue, lesser(k.saturation, 1.0f), l);
        const bool grey = k.saturation <= 0.0f;
        r = selectFloat(grey, l, c.r);
        g = selectFloat(grey, l, c.g);
        b = selectFloat(grey, l, c.b);
    }
};

struct ColorBalance {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const float l = lum(r, g, b);
        const float ws = (1.0f - l) * (1.0f - l), wh = l * l;
        const float wm = greater(1.0f - ws - wh, 0.0f);
        const auto& t = k.balance;
        const float r2 = unitf(r + (t[0][0] * ws + t[1][0] * wm + t[2][0] * wh) * 0.5f);
        const float g2 = unitf(g + (t[0][1] * ws + t[1][1] * wm + t[2][1] * wh) * 0.5f);
        const float b2 = unitf(b + (t[0][2] * ws + t[1][2] * wm + t[2][2] * wh) * 0.5f);
        const float d = l - lum(r2, g2, b2);
        r = selectFloat(k.preserve, unitf(r2 + d), r2);
        g = selectFloat(k.preserve, unitf(g2 + d), g2);
        b = selectFloat(k.preserve, unitf(b2 + d), b2);
    }
};

struct Vibrance {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const float l = lum(r, g, b);
        const float mx = greater(greater(r, g), b), mn = lesser(lesser(r, g), b);
        const float v =
            selectFloat(k.vibrance >= 0.0f, (mn - mx + 1.0f) * k.vibrance * 1.5f, k.vibrance) + 1.0f;
        const float m = k.vibranceGain;
        r = unitf(l + m * (unitf(l + (r - l) * v) - l));
        g = unitf(l + m * (unitf(l + (g - l) * v) - l));
        b = unitf(l + m * (unitf(l + (b - l) * v) - l));
    }
};

// The tint's colour is worked out only by the variant that shows it.
template <bool Tint>
struct BlackWhite {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const auto& w = k.bw;
        const float mx = greater(greater(r, g), b), mn = lesser(lesser(r, g), b);
        const float md = r + g + b - mn - mx;
        const bool redMax = (g <= r) & (b <= r);
        const bool greenMax = !redMax & (r <= g) & (b <= g);
        const float primary = selectFloat(redMax, w[0], selectFloat(greenMax, w[2], w[4]));
        const float secondary = selectFloat(
            redMax, selectFloat(b <= g, w[1], w[5]),
            selectFloat(greenMax, selectFloat(b <= r, w[1], w[3]), selectFloat(g <= r, w[5], w[3])));
        const float grey = unitf((mx - md) * primary + mn + (md - mn) * secondary);
        if constexpr (Tint) {
            const RGB c = hsl(k.hue, lesser(k.saturation, 1.0f), grey);
            r = c.r;
            g = c.g;
            b = c.b;
        } else {
            r = g = b = grey;
        }
    }
};

struct PhotoFilter {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const float d = k.density;
        const float before = lum(r, g, b);
        const float r1 = unitf(r + (r * k.filter[0] - r) * d * 1.6f);
        const float g1 = unitf(g + (g * k.filter[1] - g) * d * 1.6f);
        const float b1 = unitf(b + (b * k.filter[2] - b) * d * 1.6f);
        const float after = lum(r1, g1, b1);
        const float q = before / after;
        const bool keep = k.preserve & (after > 0.0001f);
        r = selectFloat(keep, unitf(r1 * q), r1);
        g = selectFloat(keep, unitf(g1 * q), g1);
        b = selectFloat(keep, unitf(b1 * q), b1);
    }
};

struct Threshold {
    KORV_INLINE static void run(float& r, float& g, float& b, const Constants& k) {
        const float v = selectFloat(lum(r, g, b) * 255.0f >= k.threshold, 1.0f, 0.0f);
        r = g = b = v;
    }
};

KORV_INLINE void tablesKernel(const float* tr, const float* tg, const float* tb, float& r, float& g,
                              float& b) {
    r = lookup(tr, r);
    g = lookup(tg, g);
    b = lookup(tb, b);
}

KORV_INLINE void gradientKernel(const float* colours, float& r, float& g, float& b) {
    const int i = int(unitf(lum(r, g, b)) * 255.0f + 0.5f);
    r = colours[i * 3];
    g = colours[i * 3 + 1];
    b = colours[i * 3 + 2];
}

KORV_PIXEL_LOOP void tablesLoop(const float* tr, const float* tg, const float* tb, float* __restrict r,
                                float* __restrict g, float* __restrict b, int64_t count) {
    for (int64_t i = 0; i < count; ++i)
        tablesKernel(tr, tg, tb, r[i], g[i], b[i]);
}

KORV_PIXEL_LOOP void gradientLoop(const float* colours, float* __restrict r, float* __restrict g,
                                  float* __restrict b, int64_t count) {
    for (int64_t i = 0; i < count; ++i)
        gradientKernel(colours, r[i], g[i], b[i]);
}

// The constants arrive by value: a local copy cannot alias the planes.
template <class Kernel>
KORV_PIXEL_LOOP void formulaLoop(const Constants k, float* __restrict r, float* __restrict g,
                                 float* __restrict b, int64_t count) {
    for (int64_t i = 0; i < count; ++i)
        Kernel::run(r[i], g[i], b[i], k);
}

// The one switch over the formulas, taken per call and never per pixel.
template <class Fn>
void withFormula(Kind kind, Fn&& fn) {
    switch (kind) {
    case Kind::hueSaturation:
        return fn(HueSaturation{});
    case Kind::colorize:
        return fn(Colorize{});
    case Kind::colorBalance:
        return fn(ColorBalance{});
    case Kind::vibrance:
        return fn(Vibrance{});
    case Kind::blackWhite:
        return fn(BlackWhite<false>{});
    case Kind::tintedBlackWhite:
        return fn(BlackWhite<true>{});
    case Kind::photoFilter:
        return fn(PhotoFilter{});
    case Kind::threshold:
        return fn(Threshold{});
    case Kind::tables:
    case Kind::gradientMap:
        break;
    }
    KORV_REQUIRE(false);
}

} // namespace

AdjustmentProgram::AdjustmentProgram(AdjustmentSpec specIn) : spec(std::move(specIn)) {
    using enum AdjustmentType;
    auto single = [&](auto f) {
        lutR = table(f);
        lutG = lutR;
        lutB = lutR;
        perChannel = true;
    };
    switch (spec.type) {
    case levels: {
        const LevelsChannel master = spec.levels.empty() ? LevelsChannel{} : spec.levels[0];
        std::vector<float>* luts[3] = {&lutR, &lutG, &lutB};
        for (size_t c = 1; c <= 3; ++c) {
            const LevelsChannel channel = c < spec.levels.size() ? spec.levels[c] : LevelsChannel{};
            *luts[c - 1] = table([&](double x) { return levelsStage(master, levelsStage(channel, x)); });
        }
        perChannel = true;
        break;
    }
    case curves: {
        auto points = [&](size_t c) {
            return c < spec.curves.size() ? spec.curves[c] : std::vector<CurvePoint>{};
        };
        const std::vector<float> master = curveTable(points(0), n);
        std::vector<float>* luts[3] = {&lutR, &lutG, &lutB};
        for (size_t c = 1; c <= 3; ++c) {
            const std::vector<float> channel = curveTable(points(c), n);
            std::vector<float>& out = *luts[c - 1];
            out.resize(size_t(n));
            for (size_t i = 0; i < size_t(n); ++i) {
                const double k = std::round(double(channel[i]) * double(n - 1));
                out[i] = master[size_t(std::clamp(k, 0.0, double(n - 1)))];
            }
        }
        perChannel = true;
        break;
    }
    case posterize: {
        const double steps = double(std::clamp<int64_t>(spec.posterizeLevels, 2, 255) - 1);
        single([&](double x) { return std::round(x * steps) / steps; });
        break;
    }
    case brightnessContrast: {
        const double c = spec.contrast;
        const double gain = c / 100.0 * (c > 0 ? 1.5 : 1.0) + 1.0;
        single([&](double x) { return spec.brightness / 255.0 + (gain * (x - 0.5) + 0.5); });
        break;
    }
    case exposure: {
        const double gain = std::pow(2.0, spec.exposure);
        const double g = std::max(spec.gammaCorrection, 0.01);
        single([&](double x) {
            const double l = spec.offset + gain * double(toLinear(float(x)));
            return double(fromLinear(float(std::pow(std::max(l, 0.0), 1.0 / g))));
        });
        break;
    }
    case invert:
        single([](double x) { return 1.0 - x; });
        break;
    case gradientMap: {
        std::vector<GradientStop> stops = spec.stops;
        std::stable_sort(stops.begin(), stops.end(), [](const GradientStop& a, const GradientStop& b) {
            return a.position < b.position;
        });
        if (stops.empty()) stops = {{0, RGBA::black()}, {1, RGBA::white()}};
        gradient.resize(256);
        for (int i = 0; i < 256; ++i) {
            const double t = spec.reverse ? 1.0 - double(i) / 255.0 : double(i) / 255.0;
            RGBA c = stops.front().color;
            if (t >= stops.back().position) {
                c = stops.back().color;
            } else if (t > stops.front().position) {
                size_t k = 0;
                while (stops[k + 1].position < t)
                    ++k;
                const GradientStop &lo = stops[k], &hi = stops[k + 1];
                const double f = (t - lo.position) / std::max(hi.position - lo.position, 0.000000001);
                c = {lo.color.r + (hi.color.r - lo.color.r) * f, lo.color.g + (hi.color.g - lo.color.g) * f,
                     lo.color.b + (hi.color.b - lo.color.b) * f, 1};
            }
            gradient[size_t(i)] = {float(unit(c.r)), float(unit(c.g)), float(unit(c.b))};
            for (size_t j = 0; j < 3; ++j)
                gradientFlat_[size_t(i) * 3 + j] = gradient[size_t(i)][j];
        }
        kind_ = Kind::gradientMap;
        break;
    }
    case hueSaturation: {
        const float k = float(spec.saturation / 100.0);
        c_.lightness = float(spec.lightness / 100.0);
        if (spec.colorize) {
            c_.hue = float(spec.colorizeHue / 360.0);
            c_.saturation = float(spec.colorizeSaturation / 100.0);
            kind_ = Kind::colorize;
        } else {
            c_.hue = float(spec.hue / 360.0);
            c_.saturation = k >= 0.0f ? 2.0f * k + 1.0f : k + 1.0f;
            kind_ = Kind::hueSaturation;
        }
        break;
    }
    case colorBalance:
        for (size_t i = 0; i < 3; ++i)
            for (size_t j = 0; j < 3; ++j)
                c_.balance[i][j] = float(spec.balance[i][j] / 100.0);
        c_.preserve = spec.preserveLuminosity;
        kind_ = Kind::colorBalance;
        break;
    case vibrance:
        c_.vibrance = float(spec.vibrance / 100.0);
        c_.vibranceGain = float(spec.vibranceSaturation / 100.0) + 1.0f;
        kind_ = Kind::vibrance;
        break;
    case blackWhite:
        for (size_t i = 0; i < 6; ++i)
            c_.bw[i] = float(spec.bw[i] / 100.0);
        c_.hue = float(spec.bwTintHue / 360.0);
        c_.saturation = float(spec.bwTintSaturation / 100.0);
        kind_ = spec.bwTint && c_.saturation > 0.0f ? Kind::tintedBlackWhite : Kind::blackWhite;
        break;
    case photoFilter:
        c_.filter = {float(spec.filterColor.r), float(spec.filterColor.g), float(spec.filterColor.b)};
        c_.density = float(unit(spec.density));
        c_.preserve = spec.preserveLuminosity;
        kind_ = Kind::photoFilter;
        break;
    case threshold:
        c_.threshold = float(spec.thresholdLevel);
        kind_ = Kind::threshold;
        break;
    }
}

void AdjustmentProgram::apply(float& r, float& g, float& b) const {
    if (kind_ == Kind::tables) return tablesKernel(lutR.data(), lutG.data(), lutB.data(), r, g, b);
    if (kind_ == Kind::gradientMap) return gradientKernel(gradientFlat_.data(), r, g, b);
    withFormula(kind_, [&](auto kernel) { decltype(kernel)::run(r, g, b, c_); });
}

void AdjustmentProgram::apply(float* r, float* g, float* b, int64_t count) const {
    if (kind_ == Kind::tables) return tablesLoop(lutR.data(), lutG.data(), lutB.data(), r, g, b, count);
    if (kind_ == Kind::gradientMap) return gradientLoop(gradientFlat_.data(), r, g, b, count);
    withFormula(kind_, [&](auto kernel) { formulaLoop<decltype(kernel)>(c_, r, g, b, count); });
}

Pixel4 AdjustmentProgram::apply8(uint8_t r, uint8_t g, uint8_t b, uint8_t a) const {
    if (a == 0) return {r, g, b, a};
    const float a2 = float(a) / 255.0f;
    float c[3] = {float(r) / 255.0f / a2, float(g) / 255.0f / a2, float(b) / 255.0f / a2};
    apply(c[0], c[1], c[2]);
    Pixel4 out{0, 0, 0, a};
    for (size_t i = 0; i < 3; ++i)
        out[i] = uint8_t(std::clamp(int(unitf(c[i]) * a2 * 255.0f + 0.5f), 0, 255));
    return out;
}

std::vector<float> AdjustmentProgram::curveTable(std::vector<CurvePoint> points, int64_t n) {
    KORV_REQUIRE(n >= 0);
    std::stable_sort(points.begin(), points.end(),
                     [](const CurvePoint& a, const CurvePoint& b) { return a.x < b.x; });
    if (points.empty()) points = {{0, 0}, {1, 1}};
    std::vector<float> out(size_t(n), float(unit(points[0].y)));
    const size_t m = points.size();
    if (m == 1) return out;

    std::vector<double> d(m - 1), t(m);
    for (size_t i = 0; i + 1 < m; ++i)
        d[i] = (points[i + 1].y - points[i].y) / std::max(points[i + 1].x - points[i].x, 0.000000001);
    t[0] = d[0];
    t[m - 1] = d[m - 2];
    for (size_t i = 1; i + 1 < m; ++i)
        t[i] = d[i - 1] * d[i] <= 0 ? 0.0 : (d[i - 1] + d[i]) * 0.5;
    // Fritsch-Carlson: tangents held so that each piece stays monotone.
    for (size_t i = 0; i + 1 < m; ++i) {
        if (d[i] == 0) {
            t[i] = 0;
            t[i + 1] = 0;
            continue;
        }
        const double a = t[i] / d[i], b = t[i + 1] / d[i];
        const double sum = a * a + b * b;
        if (sum > 9) {
            const double s = 3 / std::sqrt(sum);
            t[i] = a * s * d[i];
            t[i + 1] = b * s * d[i];
        }
    }

    for (int64_t j = 0; j < n; ++j) {
        const double u = n > 1 ? double(j) / double(n - 1) : 0.0;
        double y;
        if (u <= points.front().x) {
            y = points.front().y;
        } else if (u >= points.back().x) {
            y = points.back().y;
        } else {
            size_t k = 0;
            while (points[k + 1].x < u)
                ++k;
            const double h = points[k + 1].x - points[k].x;
            const double w = (u - points[k].x) / h;
            const double w2 = w * w, w3 = w2 * w;
            y = points[k].y * (2 * w3 - 3 * w2 + 1) + t[k] * h * (w3 - 2 * w2 + w) +
                points[k + 1].y * (3 * w2 - 2 * w3) + t[k + 1] * h * (w3 - w2);
        }
        out[size_t(j)] = float(unit(y));
    }
    return out;
}

std::array<float, 3> AdjustmentProgram::hslToRgb(float h, float s, float l) {
    const RGB c = hsl(h, s, l);
    return {c.r, c.g, c.b};
}

} // namespace korv
