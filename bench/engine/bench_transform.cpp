// A transform session renders at every mouse move: the free, perspective and
// warp renders of a 2000 x 1500 photo lifted from a 3000 x 2000 layer, beside
// copying the lifted pixels and the drawing library's plain identity draw of
// the same picture.
#include "PhotoLike.h"
#include "engine/document/StudioDocument.h"
#include "engine/platform/Canvas2D.h"
#include "engine/transform/TransformSession.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>

namespace {

using namespace korv;

struct Fixture {
    std::unique_ptr<StudioDocument> doc;
    std::shared_ptr<TransformSession> session;
    Fixture() {
        const int64_t w = 3000, h = 2000;
        RGBABuffer photo(w, h);
        for (int64_t y = 250; y < 1750; ++y)
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
    s.affine = AffineTransform::translation(-1500, -1000)
                   .then(AffineTransform::rotation(0.3))
                   .then(AffineTransform::scale(0.9, 0.9))
                   .then(AffineTransform::translation(1500, 1000));
    s.corners[1].x += 200;
    s.corners[2].y += 150;
    s.warp[5] = {s.warp[5].x + 120, s.warp[5].y + 80};
    for (auto _ : state) {
        TileSet out = s.render();
        benchmark::DoNotOptimize(out.tiles.data());
    }
    state.SetItemsProcessed(state.iterations() * s.source.w * s.source.h);
}

void BM_RenderFree(benchmark::State& state) { renderIn(state, TransformMode::free); }
void BM_RenderPerspective(benchmark::State& state) { renderIn(state, TransformMode::perspective); }
void BM_RenderWarp(benchmark::State& state) { renderIn(state, TransformMode::warp); }
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

void BM_Baseline_IdentityDraw(benchmark::State& state) {
    const TransformSession& s = *fixture().session;
    RGBABuffer target(s.floating->width(), s.floating->height());
    for (auto _ : state) {
        auto ctx = Canvas2D::rgba(target);
        ctx->drawImage(*s.floatingImage, {0, 0, double(target.width()), double(target.height())});
        ctx->flush();
        benchmark::DoNotOptimize(target.data());
    }
}
BENCHMARK(BM_Baseline_IdentityDraw)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

