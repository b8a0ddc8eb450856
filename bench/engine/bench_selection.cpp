// The magic wand on a 6000 x 4000 photo-like picture, contiguous and not,
// beside a bare cv::floodFill and cv::inRange on the same picture; feather
// and grow of a 6000 x 4000 mask beside the bare cv::GaussianBlur and
// cv::dilate they stand on; and the selection (with its traced outline) made
// from a wand's mask. Multi-threaded figures show wall time and the CPU time
// of all threads.
#include "PhotoLike.h"
#include "engine/platform/StudioCI.h"
#include "engine/selection/SelectionTools.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace {

using namespace korv;

constexpr int64_t kWidth = 6000, kHeight = 4000;
constexpr int64_t kClickX = 1500, kClickY = 600;
constexpr int64_t kTolerance = 32;

const RGBABuffer& picture() {
    static const RGBABufferPtr buffer = [] {
        auto b = std::make_shared<RGBABuffer>(kWidth, kHeight, RGBABuffer::Uninitialized{});
        for (int64_t y = 0; y < kHeight; ++y)
            for (int64_t x = 0; x < kWidth; ++x)
                b->setPixel(x, y, bench::photoLikePixel(x, y, kWidth, kHeight));
        return b;
    }();
    return *buffer;
}

// The picture without alpha, for OpenCV's flood fill (which takes no four-channel images).
const cv::Mat& pictureBGR() {
    static const cv::Mat rgb = [] {
        const RGBABuffer& p = picture();
        cv::Mat rgba(int(kHeight), int(kWidth), CV_8UC4, const_cast<uint8_t*>(p.data()));
        cv::Mat out;
        cv::cvtColor(rgba, out, cv::COLOR_RGBA2RGB);
        return out;
    }();
    return rgb;
}

// A hard mask of the sky as the wand finds it: a big region with a ragged edge.
const SelectionTools::Mask& skyMask() {
    static const SelectionTools::Mask mask =
        *SelectionTools::magicWand(picture(), kClickX, kClickY, kTolerance, true, false);
    return mask;
}

void BM_WandContiguous(benchmark::State& state) {
    picture();
    int64_t count = 0;
    for (auto _ : state) {
        auto m = SelectionTools::magicWand(picture(), kClickX, kClickY, kTolerance, true, false);
        count = std::count(m->begin(), m->end(), uint8_t(255));
        benchmark::DoNotOptimize(m->data());
    }
    state.counters["selected"] = double(count);
}

void BM_WandEverywhere(benchmark::State& state) {
    picture();
    for (auto _ : state) {
        auto m = SelectionTools::magicWand(picture(), kClickX, kClickY, kTolerance, false, false);
        benchmark::DoNotOptimize(m->data());
    }
}

// Baseline: OpenCV's 4-connected flood fill with a fixed range of the same
// tolerance around the seed, filling only a mask.
void BM_CvFloodFill(benchmark::State& state) {
    const cv::Mat& img = pictureBGR();
    int64_t count = 0;
    for (auto _ : state) {
        cv::Mat mask = cv::Mat::zeros(img.rows + 2, img.cols + 2, CV_8UC1);
        const double t = double(kTolerance);
        count = cv::floodFill(img, mask, {int(kClickX), int(kClickY)}, cv::Scalar(), nullptr,
                              cv::Scalar::all(t), cv::Scalar::all(t),
                              4 | cv::FLOODFILL_FIXED_RANGE | cv::FLOODFILL_MASK_ONLY | (255 << 8));
        benchmark::DoNotOptimize(mask.data);
    }
    state.counters["selected"] = double(count);
}

// Baseline for the non-contiguous wand: every pixel within range of the seed.
void BM_CvInRange(benchmark::State& state) {
    const cv::Mat& img = pictureBGR();
    const cv::Vec3b seed = img.at<cv::Vec3b>(int(kClickY), int(kClickX));
    const double t = double(kTolerance);
    const cv::Scalar lo(seed[0] - t, seed[1] - t, seed[2] - t), hi(seed[0] + t, seed[1] + t, seed[2] + t);
    for (auto _ : state) {
        cv::Mat mask;
        cv::inRange(img, lo, hi, mask);
        benchmark::DoNotOptimize(mask.data);
    }
}

void BM_Feather20(benchmark::State& state) {
    const SelectionTools::Mask& m = skyMask();
    for (auto _ : state) {
        auto out = SelectionTools::feather(m, kWidth, kHeight, 20);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_CvGaussianBlur20(benchmark::State& state) {
    const SelectionTools::Mask& m = skyMask();
    const cv::Mat src(int(kHeight), int(kWidth), CV_8UC1, const_cast<uint8_t*>(m.data()));
    for (auto _ : state) {
        cv::Mat dst;
        cv::GaussianBlur(src, dst, {121, 121}, 20, 20, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
    }
}

void BM_Grow10(benchmark::State& state) {
    const SelectionTools::Mask& m = skyMask();
    for (auto _ : state) {
        auto out = SelectionTools::grow(m, kWidth, kHeight, 10);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_CvDilate10(benchmark::State& state) {
    const SelectionTools::Mask& m = skyMask();
    const cv::Mat src(int(kHeight), int(kWidth), CV_8UC1, const_cast<uint8_t*>(m.data()));
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, {21, 21});
    for (auto _ : state) {
        cv::Mat dst;
        cv::dilate(src, dst, disc, {-1, -1}, 1, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
    }
}

// The sliders' maxima: feather 200 and grow 200, on the sky mask at 24 MP
// (argument 1) and on its 2000 x 2000 corner (argument 0). The baselines are
// what these ran as before: OpenCV's Gaussian of 3 sigma and its dilation by
// the whole disc, on the 2000 x 2000 corner only, since they take seconds.
struct SizedMask {
    SelectionTools::Mask mask;
    int64_t width, height;
};

const SizedMask& maskOfSize(int64_t which) {
    static const SizedMask full{skyMask(), kWidth, kHeight};
    static const SizedMask corner = [] {
        SizedMask c{SelectionTools::Mask(size_t(2000 * 2000)), 2000, 2000};
        for (int64_t y = 0; y < 2000; ++y)
            std::copy_n(skyMask().data() + y * kWidth, 2000, c.mask.data() + y * 2000);
        return c;
    }();
    return which == 0 ? corner : full;
}

void BM_Feather200(benchmark::State& state) {
    const SizedMask& m = maskOfSize(state.range(0));
    for (auto _ : state) {
        auto out = SelectionTools::feather(m.mask, m.width, m.height, 200);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_Grow200(benchmark::State& state) {
    const SizedMask& m = maskOfSize(state.range(0));
    for (auto _ : state) {
        auto out = SelectionTools::grow(m.mask, m.width, m.height, 200);
        benchmark::DoNotOptimize(out.data());
    }
}

void BM_CvGaussianBlur200(benchmark::State& state) {
    const SizedMask& m = maskOfSize(0);
    const cv::Mat src(int(m.height), int(m.width), CV_8UC1, const_cast<uint8_t*>(m.mask.data()));
    for (auto _ : state) {
        cv::Mat dst;
        cv::GaussianBlur(src, dst, {1201, 1201}, 200, 200, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
    }
}

void BM_CvDilate200(benchmark::State& state) {
    const SizedMask& m = maskOfSize(0);
    const cv::Mat src(int(m.height), int(m.width), CV_8UC1, const_cast<uint8_t*>(m.mask.data()));
    const cv::Mat disc = cv::getStructuringElement(cv::MORPH_ELLIPSE, {401, 401});
    for (auto _ : state) {
        cv::Mat dst;
        cv::dilate(src, dst, disc, {-1, -1}, 1, cv::BORDER_REPLICATE);
        benchmark::DoNotOptimize(dst.data);
    }
}

// The wand's mask turned into a selection: the copy, the bounds and the traced outline.
void BM_SelectionFromWand(benchmark::State& state) {
    const SelectionTools::Mask& m = skyMask();
    size_t points = 0;
    for (auto _ : state) {
        SelectionRef s = SelectionTools::selection(m, kWidth, kHeight, SelectionOp::replace, nullptr);
        points = s->outline().points().size();
        benchmark::DoNotOptimize(s.get());
    }
    state.counters["outline_points"] = double(points);
}

void BM_Threads(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(StudioCI::threadCount());
    state.counters["opencv_threads"] = double(StudioCI::threadCount());
}

#define KORV_WALL(b) BENCHMARK(b)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()
BENCHMARK(BM_Threads)->Iterations(1);
KORV_WALL(BM_WandContiguous);
KORV_WALL(BM_CvFloodFill);
KORV_WALL(BM_WandEverywhere);
KORV_WALL(BM_CvInRange);
KORV_WALL(BM_Feather20);
KORV_WALL(BM_CvGaussianBlur20);
KORV_WALL(BM_Grow10);
KORV_WALL(BM_CvDilate10);
KORV_WALL(BM_SelectionFromWand);
KORV_WALL(BM_Feather200)->Arg(0)->Arg(1);
KORV_WALL(BM_CvGaussianBlur200)->Iterations(1);
KORV_WALL(BM_Grow200)->Arg(0)->Arg(1);
KORV_WALL(BM_CvDilate200)->Iterations(1);

} // namespace
