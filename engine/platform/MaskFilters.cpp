#include "engine/platform/MaskFilters.h"

#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

namespace korv::MaskFilters {
namespace {

int64_t bandCount(int64_t rows) {
    const int64_t cores = std::max<int64_t>(1, std::thread::hardware_concurrency());
    return std::clamp<int64_t>(rows / 64, 1, cores);
}

// Half-widths of the disc's rows: row d holds the x with x^2 + d^2 <= r^2.
std::vector<int64_t> discRows(double radius, int64_t rows, int64_t widest) {
    const double r2 = radius * radius;
    std::vector<int64_t> half(size_t(rows + 1));
    for (int64_t d = 0; d <= rows; ++d) {
        int64_t x = int64_t(std::sqrt(std::max(0.0, r2 - double(d) * double(d))));
        while (double((x + 1) * (x + 1) + d * d) <= r2) ++x;
        while (x > 0 && double(x * x + d * d) > r2) --x;
        half[size_t(d)] = std::min(x, widest);
    }
    return half;
}

template <bool Max> inline uint8_t pick(uint8_t a, uint8_t b) {
    if constexpr (Max)
        return a > b ? a : b;
    else
        return a < b ? a : b;
}

// One step wider: a window of half-width w + 1 is the extreme of the windows
// of half-width w either side (with the centre on the first step, when the
// two side windows are single pixels). Ends clip the window.
template <bool Max>
void widen(const uint8_t* __restrict cur, uint8_t* __restrict next, int64_t n, bool first) {
    next[0] = pick<Max>(cur[0], cur[1]);
    next[n - 1] = pick<Max>(cur[n - 2], cur[n - 1]);
    if (first) {
        for (int64_t x = 1; x < n - 1; ++x)
            next[x] = pick<Max>(pick<Max>(cur[x - 1], cur[x]), cur[x + 1]);
    } else {
        for (int64_t x = 1; x < n - 1; ++x)
            next[x] = pick<Max>(cur[x - 1], cur[x + 1]);
    }
}

template <bool Max> void accumulate(uint8_t* __restrict out, const uint8_t* __restrict row, int64_t n) {
    for (int64_t x = 0; x < n; ++x)
        out[x] = pick<Max>(out[x], row[x]);
}

template <bool Max>
void morphology(const uint8_t* src, uint8_t* dst, int64_t width, int64_t height, double radius) {
    // Every point within reach of every other: the extreme value everywhere.
    const double reach = std::hypot(double(width - 1), double(height - 1));
    if (radius >= reach) {
        uint8_t v = src[0];
        for (int64_t i = 0; i < width * height; ++i)
            v = pick<Max>(v, src[i]);
        std::memset(dst, v, size_t(width * height));
        return;
    }
    const int64_t R = std::min<int64_t>(int64_t(radius), height - 1);
    const std::vector<int64_t> half = discRows(radius, R, width - 1);
    const int64_t bands = bandCount(height);
    parallelFor(bands, [&](int64_t b) {
        const int64_t y0 = height * b / bands, y1 = height * (b + 1) / bands;
        std::memset(dst + y0 * width, Max ? 0 : 255, size_t((y1 - y0) * width));
        std::vector<uint8_t> bufA(static_cast<size_t>(width)), bufB(static_cast<size_t>(width));
        // Each source row is widened step by step (a window of half-width w+1
        // is the extreme of the windows of half-width w either side), and at
        // each width it meets the output rows whose disc row has that width.
        // Rows beyond the top and bottom repeat the edge rows, which never
        // reach further than the edge rows themselves, so they are left out.
        for (int64_t ys = std::max<int64_t>(0, y0 - R); ys < std::min(height, y1 + R); ++ys) {
            uint8_t* cur = bufA.data();
            uint8_t* next = bufB.data();
            std::memcpy(cur, src + ys * width, size_t(width));
            int64_t w = 0;
            for (int64_t d = R; d >= 0; --d) {
                const bool above = ys - d >= y0 && ys - d < y1;
                const bool below = d > 0 && ys + d >= y0 && ys + d < y1;
                if (!above && !below) continue;
                while (w < half[size_t(d)]) {
                    widen<Max>(cur, next, width, w == 0);
                    std::swap(cur, next);
                    ++w;
                }
                for (int side = 0; side < (d > 0 ? 2 : 1); ++side) {
                    const int64_t y = side == 0 ? ys - d : ys + d;
                    if (y < y0 || y >= y1) continue;
                    accumulate<Max>(dst + y * width, cur, width);
                }
            }
        }
    });
}

// Box widths for n passes whose variances add up to sigma^2 as nearly as odd widths allow.
std::vector<int64_t> boxWidths(double sigma, int n) {
    const double ideal = std::sqrt(12.0 * sigma * sigma / n + 1.0);
    int64_t wl = int64_t(std::floor(ideal));
    if (wl % 2 == 0) --wl;
    wl = std::max<int64_t>(wl, 1);
    const int64_t wu = wl + 2;
    const double mIdeal =
        (12.0 * sigma * sigma - n * double(wl * wl) - 4.0 * n * double(wl) - 3.0 * n) / (-4.0 * double(wl) - 4.0);
    const int64_t m = std::clamp<int64_t>(std::llround(mIdeal), 0, n);
    std::vector<int64_t> widths;
    for (int i = 0; i < n; ++i)
        widths.push_back(i < m ? wl : wu);
    return widths;
}

// One box pass along a line of n values `step` apart, edges continued.
void boxLine(const float* in, float* out, int64_t n, int64_t r) {
    double sum = double(in[0]) * double(r + 1);
    for (int64_t i = 1; i <= r; ++i)
        sum += in[std::min(i, n - 1)];
    const double scale = 1.0 / double(2 * r + 1);
    for (int64_t i = 0; i < n; ++i) {
        out[i] = float(sum * scale);
        sum += double(in[std::min(i + r + 1, n - 1)]) - double(in[std::max<int64_t>(i - r, 0)]);
    }
}

} // namespace

void discMorphology(const uint8_t* src, uint8_t* dst, int64_t width, int64_t height, double radius,
                    bool maximum) {
    if (width < 1 || height < 1) return;
    if (maximum)
        morphology<true>(src, dst, width, height, radius);
    else
        morphology<false>(src, dst, width, height, radius);
}

void boxGaussian(const uint8_t* src, uint8_t* dst, int64_t width, int64_t height, double sigma) {
    if (width < 1 || height < 1) return;
    // Beyond the picture's size a larger sigma changes little a byte can show,
    // and bounding it bounds the margins below.
    sigma = std::min(sigma, double(std::max(width, height)));
    const std::vector<int64_t> widths = boxWidths(sigma, 8);
    // Each pass that clamps at its own ends would continue its blurred edge,
    // not the picture's; a margin as wide as all the passes reach holds the
    // continued edge instead, and what the clamping spoils stays inside it.
    int64_t margin = 0;
    for (int64_t w : widths)
        margin += w / 2;
    std::vector<float> plane(size_t(width * height));
    const int64_t bands = bandCount(height);
    parallelFor(bands, [&](int64_t b) {
        const int64_t n = width + 2 * margin;
        std::vector<float> a(static_cast<size_t>(n)), t(static_cast<size_t>(n));
        for (int64_t y = height * b / bands; y < height * (b + 1) / bands; ++y) {
            const uint8_t* row = src + y * width;
            for (int64_t x = 0; x < n; ++x)
                a[size_t(x)] = row[std::clamp<int64_t>(x - margin, 0, width - 1)];
            for (int64_t w : widths) {
                boxLine(a.data(), t.data(), n, w / 2);
                std::swap(a, t);
            }
            std::memcpy(plane.data() + y * width, a.data() + margin, size_t(width) * sizeof(float));
        }
    });
    // Columns: a running sum per column, the columns of a narrow strip side by side.
    constexpr int64_t kStrip = 256;
    const int64_t strips = (width + kStrip - 1) / kStrip;
    const int64_t rows = height + 2 * margin;
    parallelFor(strips, [&](int64_t s) {
        const int64_t x0 = s * kStrip, x1 = std::min(width, x0 + kStrip), n = x1 - x0;
        std::vector<float> a(static_cast<size_t>(n * rows)), t(static_cast<size_t>(n * rows));
        for (int64_t y = 0; y < rows; ++y)
            std::memcpy(a.data() + y * n, plane.data() + std::clamp<int64_t>(y - margin, 0, height - 1) * width + x0,
                        size_t(n) * sizeof(float));
        std::vector<double> sum(static_cast<size_t>(n));
        for (int64_t wdt : widths) {
            const int64_t r = wdt / 2;
            const double scale = 1.0 / double(wdt);
            auto row = [&](int64_t y) { return a.data() + std::clamp<int64_t>(y, 0, rows - 1) * n; };
            for (int64_t x = 0; x < n; ++x)
                sum[size_t(x)] = double(row(0)[x]) * double(r + 1);
            for (int64_t i = 1; i <= r; ++i) {
                const float* p = row(i);
                for (int64_t x = 0; x < n; ++x)
                    sum[size_t(x)] += p[x];
            }
            for (int64_t y = 0; y < rows; ++y) {
                float* o = t.data() + y * n;
                const float* add = row(y + r + 1);
                const float* drop = row(y - r);
                for (int64_t x = 0; x < n; ++x) {
                    o[x] = float(sum[size_t(x)] * scale);
                    sum[size_t(x)] += double(add[x]) - double(drop[x]);
                }
            }
            std::swap(a, t);
        }
        for (int64_t y = 0; y < height; ++y)
            for (int64_t x = 0; x < n; ++x)
                dst[y * width + x0 + x] = uint8_t(std::clamp(a[size_t((y + margin) * n + x)] + 0.5f, 0.0f, 255.0f));
    });
}

} // namespace korv::MaskFilters
