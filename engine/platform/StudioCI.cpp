#include "engine/platform/StudioCI.h"

#include "engine/core/ParallelFor.h"
#include "engine/core/Require.h"
#include "engine/platform/MaskFilters.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace korv::StudioCI {

namespace {

// Rows per band when a loop of ours spreads a picture over the cores.
constexpr int64_t kBandRows = 64;

void forBands(int64_t height, const std::function<void(int64_t, int64_t)>& body) {
    const int64_t bands = (height + kBandRows - 1) / kBandRows;
    parallelFor(bands, [&](int64_t b) { body(b * kBandRows, std::min(height, (b + 1) * kBandRows)); });
}

int cvBorder(Edges edges) {
    return edges == Edges::clamp ? cv::BORDER_REPLICATE : cv::BORDER_CONSTANT;
}

// Views of our memory; OpenCV only reads a source, so the const_cast never leads to a write.
cv::Mat view(const RGBABuffer& b) {
    KORV_REQUIRE(b.width() <= INT_MAX && b.height() <= INT_MAX);
    return cv::Mat(int(b.height()), int(b.width()), CV_8UC4, const_cast<uint8_t*>(b.data()));
}
cv::Mat view(RGBABuffer& b) {
    KORV_REQUIRE(b.width() <= INT_MAX && b.height() <= INT_MAX);
    return cv::Mat(int(b.height()), int(b.width()), CV_8UC4, b.data());
}
cv::Mat view(const Mask& m, int64_t width, int64_t height) {
    return cv::Mat(int(height), int(width), CV_8UC1, const_cast<uint8_t*>(m.data()));
}
cv::Mat view(Mask& m, int64_t width, int64_t height) {
    return cv::Mat(int(height), int(width), CV_8UC1, m.data());
}

void checkMask(const Mask& mask, int64_t width, int64_t height) {
    KORV_REQUIRE(width >= 0 && height >= 0 && width <= INT_MAX && height <= INT_MAX);
    KORV_REQUIRE(mask.size() == size_t(width) * size_t(height));
}

// 3 sigma either side holds all but 0.3% of the weight; the kernel is normalised.
cv::Size gaussianSize(double sigma) {
    const int half = int(std::ceil(3.0 * sigma));
    return {2 * half + 1, 2 * half + 1};
}

void blur(const cv::Mat& src, cv::Mat& dst, double sigma, Edges edges) {
    threadCount();
    cv::GaussianBlur(src, dst, gaussianSize(sigma), sigma, sigma, cvBorder(edges));
}

// Every point within `radius` of the centre; a fraction of a pixel more
// radius can only add points, which keeps the filters monotone in it.
cv::Mat disc(double radius) {
    const int half = int(std::floor(radius));
    cv::Mat k(2 * half + 1, 2 * half + 1, CV_8UC1);
    const double r2 = radius * radius;
    for (int y = -half; y <= half; ++y)
        for (int x = -half; x <= half; ++x)
            k.at<uint8_t>(y + half, x + half) = double(x * x + y * y) <= r2 ? 1 : 0;
    return k;
}

void morphology(const cv::Mat& src, cv::Mat& dst, double radius, Edges edges, bool maximum) {
    const int threads = threadCount();
    const cv::Mat k = disc(radius);
    // OpenCV runs a morphology on one thread, so the picture is cut into
    // bands of rows. A band is a view into the whole picture, and OpenCV reads
    // the rows beyond a view's own from its parent, so the seams don't show;
    // the border applies at the picture's edges only.
    const int rows = src.rows;
    const int64_t bands = std::clamp<int64_t>(rows / kBandRows, 1, int64_t(threads) * 4);
    parallelFor(bands, [&](int64_t b) {
        const int y0 = int(rows * b / bands), y1 = int(rows * (b + 1) / bands);
        const cv::Mat in = src.rowRange(y0, y1);
        cv::Mat out = dst.rowRange(y0, y1);
        // A constant 0 beyond the edge is what a transparent world gives; replicate continues the edge.
        if (maximum)
            cv::dilate(in, out, k, {-1, -1}, 1, cvBorder(edges), cv::Scalar::all(0));
        else
            cv::erode(in, out, k, {-1, -1}, 1, cvBorder(edges), cv::Scalar::all(0));
    });
}

// Infinite amounts are bounded by the picture's size further on.
bool filters(double amount, double least) {
    return !std::isnan(amount) && amount >= least;
}

// A radius past the picture's diagonal reaches every pixel from every other,
// so a larger one changes nothing; bounding it keeps kernels finite.
double boundedRadius(double radius, int64_t width, int64_t height) {
    return std::min(radius, std::hypot(double(width), double(height)) + 1.0);
}

// A sigma of the longer side already spreads a pixel nearly evenly over the picture.
double boundedSigma(double sigma, int64_t width, int64_t height) {
    return std::min(sigma, double(std::max<int64_t>({width, height, 1})));
}

// Past this sigma the eight box passes beat the true kernel, whose cost grows with sigma.
constexpr double kBoxSigma = 20.0;

RGBABufferPtr morphologyImage(const RGBABuffer& image, double radius, Edges edges, bool maximum) {
    if (!filters(radius, 1.0)) return image.copy();
    radius = boundedRadius(radius, image.width(), image.height());
    auto out = std::make_shared<RGBABuffer>(image.width(), image.height(), RGBABuffer::Uninitialized{});
    cv::Mat dst = view(*out);
    morphology(view(image), dst, radius, edges, maximum);
    return out;
}

Mask morphologyMask(const Mask& mask, int64_t width, int64_t height, double radius, Edges edges,
                    bool maximum) {
    checkMask(mask, width, height);
    if (mask.empty() || !filters(radius, 1.0)) return mask;
    radius = boundedRadius(radius, width, height);
    Mask out(mask.size());
    if (edges == Edges::clamp) {
        MaskFilters::discMorphology(mask.data(), out.data(), width, height, radius, maximum);
        return out;
    }
    cv::Mat dst = view(out, width, height);
    morphology(view(mask, width, height), dst, radius, edges, maximum);
    return out;
}

} // namespace

int threadCount() {
    // OpenCV shares oneTBB's pool with parallelFor; this only makes sure it is allowed every core.
    static const int threads = [] {
        const int cores = std::max(1, cv::getNumberOfCPUs());
        if (cv::getNumThreads() < cores) cv::setNumThreads(cores);
        return cv::getNumThreads();
    }();
    return threads;
}

RGBABufferPtr image(const RGBABuffer& buffer) {
    return buffer.copy();
}

RGBABufferPtr render(const RGBABuffer& image, int64_t width, int64_t height) {
    RGBABufferPtr out = image.cropped({0, 0, width, height});
    render(*out);
    return out;
}

void render(RGBABuffer& image) {
    const int64_t width = image.width();
    forBands(image.height(), [&](int64_t y0, int64_t y1) {
        for (int64_t y = y0; y < y1; ++y) {
            uint8_t* p = image.row(y);
            for (int64_t x = 0; x < width; ++x) {
                const uint8_t a = p[x * 4 + 3];
                p[x * 4 + 0] = std::min(p[x * 4 + 0], a);
                p[x * 4 + 1] = std::min(p[x * 4 + 1], a);
                p[x * 4 + 2] = std::min(p[x * 4 + 2], a);
            }
        }
    });
}

RGBABufferPtr gaussianBlur(const RGBABuffer& image, double sigma, Edges edges) {
    if (!filters(sigma, 0.0) || sigma == 0) return image.copy();
    sigma = boundedSigma(sigma, image.width(), image.height());
    auto out = std::make_shared<RGBABuffer>(image.width(), image.height(), RGBABuffer::Uninitialized{});
    cv::Mat dst = view(*out);
    blur(view(image), dst, sigma, edges);
    return out;
}

Mask gaussianBlur(const Mask& mask, int64_t width, int64_t height, double sigma, Edges edges) {
    checkMask(mask, width, height);
    if (mask.empty() || !filters(sigma, 0.0) || sigma == 0) return mask;
    sigma = boundedSigma(sigma, width, height);
    Mask out(mask.size());
    if (edges == Edges::clamp && sigma > kBoxSigma) {
        MaskFilters::boxGaussian(mask.data(), out.data(), width, height, sigma);
        return out;
    }
    cv::Mat dst = view(out, width, height);
    blur(view(mask, width, height), dst, sigma, edges);
    return out;
}

RGBABufferPtr morphologyMaximum(const RGBABuffer& image, double radius, Edges edges) {
    return morphologyImage(image, radius, edges, true);
}
RGBABufferPtr morphologyMinimum(const RGBABuffer& image, double radius, Edges edges) {
    return morphologyImage(image, radius, edges, false);
}
Mask morphologyMaximum(const Mask& mask, int64_t width, int64_t height, double radius, Edges edges) {
    return morphologyMask(mask, width, height, radius, edges, true);
}
Mask morphologyMinimum(const Mask& mask, int64_t width, int64_t height, double radius, Edges edges) {
    return morphologyMask(mask, width, height, radius, edges, false);
}

RGBABufferPtr colorMatrix(const RGBABuffer& image, const ColorMatrix& matrix) {
    auto out = std::make_shared<RGBABuffer>(image.width(), image.height(), RGBABuffer::Uninitialized{});
    const int64_t width = image.width();
    const std::array<float, 16> m = matrix.m;
    const std::array<float, 4> bias = matrix.bias;
    forBands(image.height(), [&](int64_t y0, int64_t y1) {
        for (int64_t y = y0; y < y1; ++y) {
            const uint8_t* s = image.row(y);
            uint8_t* d = out->row(y);
            for (int64_t x = 0; x < width; ++x) {
                float in[4];
                for (int c = 0; c < 4; ++c)
                    in[c] = float(s[x * 4 + c]) / 255.0f;
                for (int c = 0; c < 4; ++c) {
                    float v = m[size_t(c) * 4] * in[0] + m[size_t(c) * 4 + 1] * in[1] +
                              m[size_t(c) * 4 + 2] * in[2] + m[size_t(c) * 4 + 3] * in[3] + bias[size_t(c)];
                    v = std::clamp(v, 0.0f, 1.0f);
                    d[x * 4 + c] = uint8_t(v * 255.0f + 0.5f);
                }
            }
        }
    });
    return out;
}

RGBABufferPtr crop(const RGBABuffer& image, const IRect& rect) {
    return image.cropped(rect);
}

RGBABufferPtr translate(const RGBABuffer& image, double dx, double dy) {
    const int64_t w = image.width(), h = image.height();
    auto out = std::make_shared<RGBABuffer>(w, h);
    if (!std::isfinite(dx) || !std::isfinite(dy)) return out;
    if (dx == std::floor(dx) && dy == std::floor(dy)) {
        // Whole pixels: a shifted copy, nothing resampled.
        if (std::fabs(dx) >= double(w) || std::fabs(dy) >= double(h)) return out;
        const int64_t ix = int64_t(dx), iy = int64_t(dy);
        const int64_t x0 = std::max<int64_t>(ix, 0), x1 = std::min(w, w + ix);
        const int64_t y0 = std::max<int64_t>(iy, 0), y1 = std::min(h, h + iy);
        for (int64_t y = y0; y < y1; ++y)
            std::memcpy(out->row(y) + x0 * 4, image.row(y - iy) + (x0 - ix) * 4, size_t(x1 - x0) * 4);
        return out;
    }
    threadCount();
    const cv::Matx23d shift(1, 0, dx, 0, 1, dy);
    cv::Mat dst = view(*out);
    cv::warpAffine(view(image), dst, shift, dst.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                   cv::Scalar::all(0));
    return out;
}

void warpAffine(const RGBABuffer& image, RGBABuffer& out, const AffineTransform& inverse) {
    if (image.width() < 1 || image.height() < 1 || out.width() < 1 || out.height() < 1) return;
    threadCount();
    const cv::Matx23d map(inverse.a, inverse.c, inverse.tx, inverse.b, inverse.d, inverse.ty);
    cv::Mat dst = view(out);
    cv::warpAffine(view(image), dst, map, dst.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                   cv::BORDER_REPLICATE);
}

RGBABufferPtr compositeOver(const RGBABuffer& top, const RGBABuffer& bottom) {
    KORV_REQUIRE(top.width() == bottom.width() && top.height() == bottom.height());
    auto out = std::make_shared<RGBABuffer>(top.width(), top.height(), RGBABuffer::Uninitialized{});
    const int64_t width = top.width();
    forBands(top.height(), [&](int64_t y0, int64_t y1) {
        for (int64_t y = y0; y < y1; ++y) {
            const uint8_t* t = top.row(y);
            const uint8_t* b = bottom.row(y);
            uint8_t* d = out->row(y);
            for (int64_t x = 0; x < width; ++x) {
                const uint32_t keep = 255u - t[x * 4 + 3];
                for (int c = 0; c < 4; ++c) {
                    // floor((b * keep + 127) / 255), the product of two bytes.
                    const uint32_t under = ((uint32_t(b[x * 4 + c]) * keep + 127) * 32897u) >> 23;
                    d[x * 4 + c] = uint8_t(std::min(255u, t[x * 4 + c] + under));
                }
            }
        }
    });
    return out;
}

} // namespace korv::StudioCI
