// Fill, text and shape rasters on a 6000 x 4000 canvas: a full-canvas linear
// gradient, a checker and a solid fill beside a memset of the same bytes as
// a floor, a paragraph of 200-pixel text and a large star with a stroke.
#include "engine/render/VectorRender.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

namespace {

using namespace korv;

constexpr int64_t kWidth = 6000, kHeight = 4000;
const TileGrid kGrid(kWidth, kHeight);

void fillBench(benchmark::State& state, const FillSpec& spec) {
    for (auto _ : state) {
        TileSet set = VectorRender::fill(spec, kGrid);
        benchmark::DoNotOptimize(set.tiles.data());
    }
    state.SetBytesProcessed(state.iterations() * kWidth * kHeight * 4);
}

void BM_LinearGradient(benchmark::State& state) {
    FillSpec spec(FillKind::linearGradient);
    spec.angle = 30;
    spec.color2 = RGBA(1, 0.5, 0, 0.25);
    fillBench(state, spec);
}
BENCHMARK(BM_LinearGradient)->Unit(benchmark::kMillisecond)->UseRealTime();

// The default: top to bottom, where each row is one colour.
void BM_LinearGradientDown(benchmark::State& state) {
    fillBench(state, FillSpec(FillKind::linearGradient));
}
BENCHMARK(BM_LinearGradientDown)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RadialGradient(benchmark::State& state) {
    fillBench(state, FillSpec(FillKind::radialGradient));
}
BENCHMARK(BM_RadialGradient)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Checker(benchmark::State& state) {
    FillSpec spec(FillKind::pattern);
    spec.scale = 24;
    fillBench(state, spec);
}
BENCHMARK(BM_Checker)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Solid(benchmark::State& state) {
    fillBench(state, FillSpec(FillKind::solid));
}
BENCHMARK(BM_Solid)->Unit(benchmark::kMillisecond)->UseRealTime();

// Floor: one thread setting the canvas's bytes in a buffer made once.
void BM_Baseline_Memset(benchmark::State& state) {
    std::vector<uint8_t> canvas(size_t(kWidth * kHeight * 4));
    int value = 0;
    for (auto _ : state) {
        std::memset(canvas.data(), ++value & 0xFF, canvas.size());
        benchmark::DoNotOptimize(canvas.data());
    }
    state.SetBytesProcessed(state.iterations() * kWidth * kHeight * 4);
}
BENCHMARK(BM_Baseline_Memset)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_TextParagraph(benchmark::State& state) {
    TextSpec spec("KORV Lumenary sets type for photographs: a paragraph of text at two hundred points, "
                  "wrapped inside its box, across many tiles.");
    spec.size = 200;
    spec.boxWidth = 5000;
    spec.x = 300;
    spec.y = 300;
    int64_t tiles = 0;
    for (auto _ : state) {
        TileSet set = VectorRender::text(spec, kGrid);
        benchmark::DoNotOptimize(set.tiles.data());
        tiles = 0;
        for (const TilePtr& t : set.tiles)
            tiles += t != nullptr;
    }
    state.counters["tiles"] = double(tiles);
}
BENCHMARK(BM_TextParagraph)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Star(benchmark::State& state) {
    ShapeSpec spec(ShapeKind::star);
    spec.sides = 5;
    spec.x = 1000;
    spec.y = 500;
    spec.w = 3000;
    spec.h = 3000;
    spec.strokeEnabled = true;
    spec.strokeWidth = 12;
    for (auto _ : state) {
        TileSet set = VectorRender::shape(spec, kGrid);
        benchmark::DoNotOptimize(set.tiles.data());
    }
}
BENCHMARK(BM_Star)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
