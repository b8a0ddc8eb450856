// The layer operations that touch pixels, on an 8000 x 6000 document, each
// beside a baseline measured in the same run: mask commands against a
// memcpy of the bytes they write, merge down and stamp against the flatten
// they rest on, duplicate against copying the layer's pixels.
#include "engine/core/Selection.h"
#include "engine/document/SampleDocument.h"
#include "engine/document/StudioDocument.h"
#include "engine/render/StudioRenderer.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>

namespace {

using namespace korv;

constexpr int64_t kWidth = 8000, kHeight = 6000;

StudioLayer painted(const TileGrid& grid, uint8_t shade) {
    StudioLayer l = StudioLayer::pixelLayer("Paint", grid);
    l.pixels = paintTiles(grid, [shade](int64_t x, int64_t y) {
        const auto v = uint8_t((x * 7 + y * 3 + shade) & 0xFF);
        return Pixel4{v, uint8_t(v / 2), shade, 255};
    });
    l.freezeAll();
    return l;
}

// Two painted layers, the upper one half transparent through a soft mask
// over its left half, and an oval selection of a third of the canvas.
std::unique_ptr<StudioDocument> document() {
    const TileGrid grid(kWidth, kHeight);
    std::vector<StudioLayer> layers{painted(grid, 40), painted(grid, 200)};
    auto doc = std::make_unique<StudioDocument>(kWidth, kHeight, 72.0, std::move(layers));
    Path oval;
    oval.addEllipse(Rect{1000, 1000, 5000, 3000});
    doc->selection = Selection::make(oval, SelectionOp::replace, nullptr, kWidth, kHeight, true);
    doc->addMask(doc->layers[1].id, NewMask::revealSelection);
    doc->layers[1].freezeAll();
    return doc;
}

StudioDocument& shared() {
    static auto doc = document();
    return *doc;
}

// What a command that writes every byte of a layer can't beat: copying them.
void BM_Baseline_MemcpyLayer(benchmark::State& state) {
    const auto source = shared().layers[0].pixels->toBuffer();
    RGBABuffer target(kWidth, kHeight, RGBABuffer::Uninitialized{});
    for (auto _ : state) {
        std::memcpy(target.data(), source->data(), size_t(source->byteCount()));
        benchmark::DoNotOptimize(target.data());
    }
}
BENCHMARK(BM_Baseline_MemcpyLayer)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AddMaskFromSelection(benchmark::State& state) {
    auto& doc = shared();
    const Uuid id = doc.layers[0].id;
    for (auto _ : state) {
        doc.addMask(id, NewMask::revealSelection);
        state.PauseTiming();
        doc.update(id, false, [](StudioLayer& l) { l.mask.reset(); });
        state.ResumeTiming();
    }
}
BENCHMARK(BM_AddMaskFromSelection)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_InvertMask(benchmark::State& state) {
    auto& doc = shared();
    const Uuid id = doc.layers[1].id;
    for (auto _ : state) {
        doc.invertMask(id);
        state.PauseTiming();
        doc.invertMask(id);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_InvertMask)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ApplyMask(benchmark::State& state) {
    auto& doc = shared();
    const Uuid id = doc.layers[1].id;
    const StudioLayer before = doc.layers[1];
    for (auto _ : state) {
        doc.applyMask(id);
        state.PauseTiming();
        doc.update(id, false, [&](StudioLayer& l) { l = before; });
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ApplyMask)->Unit(benchmark::kMillisecond)->UseRealTime();

// Merge down and stamp are a flatten of their layers plus bookkeeping.
void BM_Baseline_FlattenTwoLayers(benchmark::State& state) {
    auto& doc = shared();
    for (auto _ : state)
        benchmark::DoNotOptimize(StudioRenderer::flatten(doc.layers, doc));
}
BENCHMARK(BM_Baseline_FlattenTwoLayers)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MergeDown(benchmark::State& state) {
    auto& doc = shared();
    const std::vector<StudioLayer> before = doc.layers;
    for (auto _ : state) {
        doc.mergeDown(before[1].id);
        state.PauseTiming();
        doc.layers = before;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_MergeDown)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_StampVisible(benchmark::State& state) {
    auto& doc = shared();
    const std::vector<StudioLayer> before = doc.layers;
    for (auto _ : state) {
        doc.stampVisible();
        state.PauseTiming();
        doc.layers = before;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StampVisible)->Unit(benchmark::kMillisecond)->UseRealTime();

// Duplicate shares tiles; copying the pixels is what it avoids.
void BM_Baseline_CopyLayerPixels(benchmark::State& state) {
    auto& doc = shared();
    for (auto _ : state)
        benchmark::DoNotOptimize(doc.layers[0].pixels->toBuffer());
}
BENCHMARK(BM_Baseline_CopyLayerPixels)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Duplicate(benchmark::State& state) {
    auto& doc = shared();
    const std::vector<StudioLayer> before = doc.layers;
    for (auto _ : state) {
        doc.duplicate(before[1].id);
        state.PauseTiming();
        doc.layers = before;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_Duplicate)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
