// A transform session renders at every mouse move: the free, perspective and
// warp renders of a 2000 x 2000 photo lifted from a 3000 x 3000 layer, beside
// copying the lifted pixels and OpenCV's bilinear warpAffine of the same
// picture by the same turn and scale. And Image Size of a 6000 x 4000 document of five layers
// beside OpenCV's area resize of the same pixels.
#include "PhotoLike.h"
#include "engine/document/StudioDocument.h"
#include "engine/transform/TransformSession.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>

namespace {

using namespace korv;

struct Fixture {
    std::unique_ptr<StudioDocument> doc;
    std::shared_ptr<TransformSession> session;
    Fixture() {
        const int64_t w = 3000, h = 3000;
        RGBABuffer photo(w, h);
        for (int64_t y = 500; y < 2500; ++y)
            for (int64_t x = 500; x < 2500; ++x)
                photo.setPixel(x, y, bench::photoLikePixel(x, y, w, h));
        doc = std::make_unique<StudioDocument>(photo, 72.0, "Photo");
        session = beginTransform(*doc, doc->layers[0].id, false);
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

void renderIn(benchmark::State& state, TransformMode mode) {
    TransformSession& s = *fixture().session;
    s.reset();
    s.mode = mode;
    s.affine = AffineTransform::translation(-1500, -1500)
                   .then(AffineTransform::rotation(0.3))
                   .then(AffineTransform::scale(0.9, 0.9))
                   .then(AffineTransform::translation(1500, 1500));
    s.corners[1].x += 200;
    s.corners[2].y += 150;
    s.warp[5] = {s.warp[5].x + 120, s.warp[5].y + 80};
    for (auto _ : state) {
        TileSet out = s.render();
        benchmark::DoNotOptimize(out.tiles.data());
    }
    state.SetItemsProcessed(state.iterations() * s.source.w * s.source.h);
}

void BM_RenderFree(benchmark::State& state) {
    renderIn(state, TransformMode::free);
}
void BM_RenderPerspective(benchmark::State& state) {
    renderIn(state, TransformMode::perspective);
}
void BM_RenderWarp(benchmark::State& state) {
    renderIn(state, TransformMode::warp);
}
BENCHMARK(BM_RenderFree)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RenderPerspective)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RenderWarp)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Baseline_CopyLiftedPixels(benchmark::State& state) {
    const RGBABuffer& floating = *fixture().session->floating;
    RGBABuffer copy(floating.width(), floating.height());
    for (auto _ : state) {
        std::memcpy(copy.data(), floating.data(), size_t(floating.byteCount()));
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(BM_Baseline_CopyLiftedPixels)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Baseline_CvWarpAffine(benchmark::State& state) {
    const TransformSession& s = *fixture().session;
    const RGBABuffer& f = *s.floating;
    const cv::Mat from(int(f.height()), int(f.width()), CV_8UC4, const_cast<uint8_t*>(f.data()));
    const cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(float(f.width()) / 2, float(f.height()) / 2),
                                                 -0.3 * 180 / M_PI, 0.9);
    cv::Mat out;
    for (auto _ : state) {
        cv::warpAffine(from, out, turn, from.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(out.data);
    }
}
BENCHMARK(BM_Baseline_CvWarpAffine)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

namespace {

// Five photo layers of 6000 x 4000, as a retouched picture has them.
std::unique_ptr<StudioDocument> fiveLayers() {
    const int64_t w = 6000, h = 4000;
    RGBABuffer photo(w, h, RGBABuffer::Uninitialized{});
    for (int64_t y = 0; y < h; ++y)
        for (int64_t x = 0; x < w; ++x)
            photo.setPixel(x, y, bench::photoLikePixel(x, y, w, h));
    auto doc = std::make_unique<StudioDocument>(photo, 72.0, "Photo");
    for (int i = 1; i < 5; ++i) {
        StudioLayer copy = doc->layers[0];
        copy.id = Uuid::random();
        copy.pixels = TileSet::from(photo);
        doc->layers.push_back(std::move(copy));
    }
    return doc;
}

void BM_ImageSizeFiveLayers(benchmark::State& state) {
    auto doc = fiveLayers();
    for (auto _ : state) {
        state.PauseTiming();
        auto copy = std::make_unique<StudioDocument>(doc->width(), doc->height(), doc->dpi, doc->layers);
        state.ResumeTiming();
        copy->resizeImage(4000, 2667);
        benchmark::DoNotOptimize(copy->layers.data());
    }
}
BENCHMARK(BM_ImageSizeFiveLayers)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void BM_Baseline_CvResizeFiveLayers(benchmark::State& state) {
    auto doc = fiveLayers();
    std::vector<cv::Mat> layers;
    for (const auto& l : doc->layers) {
        const auto buffer = l.pixels->toBuffer();
        layers.push_back(
            cv::Mat(int(buffer->height()), int(buffer->width()), CV_8UC4, buffer->data()).clone());
    }
    for (auto _ : state) {
        for (const cv::Mat& m : layers) {
            cv::Mat out;
            cv::resize(m, out, cv::Size(4000, 2667), 0, 0, cv::INTER_AREA);
            benchmark::DoNotOptimize(out.data);
        }
    }
}
BENCHMARK(BM_Baseline_CvResizeFiveLayers)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

} // namespace
