// Flatten of a 4000 x 3000 document of five pixel layers (a group, a mask, a
// clipped layer), and the screen update of the four tiles under a 100-pixel
// dab, each beside a memcpy of the same bytes as a floor.
#include "engine/document/SampleDocument.h"
#include "engine/render/StudioRenderer.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <vector>

namespace {

using namespace korv;

constexpr int64_t kWidth = 4000, kHeight = 3000;

StudioDocument& sample() {
    static auto doc = makeSampleDocument(kWidth, kHeight);
    return *doc;
}

int64_t pixelLayerCount(const std::vector<StudioLayer>& layers) {
    int64_t n = 0;
    for (const auto& l : layers) n += l.pixels ? 1 : pixelLayerCount(l.children);
    return n;
}

void BM_Flatten(benchmark::State& state) {
    StudioDocument& doc = sample();
    for (auto _ : state) {
        RGBABufferPtr flat = StudioRenderer::flatten(doc);
        benchmark::DoNotOptimize(flat->data());
    }
    state.SetBytesProcessed(state.iterations() * kWidth * kHeight * 4);
    state.counters["layers"] = double(pixelLayerCount(doc.layers));
}
BENCHMARK(BM_Flatten)->Unit(benchmark::kMillisecond)->UseRealTime();

// Floor: copying every layer's bytes once into one canvas, single-threaded.
void BM_Baseline_MemcpyLayers(benchmark::State& state) {
    const int64_t bytes = kWidth * kHeight * 4;
    const int64_t layers = pixelLayerCount(sample().layers);
    std::vector<uint8_t> src(size_t(bytes * layers), 1);
    std::vector<uint8_t> dst(size_t(bytes), 0);
    for (auto _ : state) {
        for (int64_t l = 0; l < layers; ++l) std::memcpy(dst.data(), src.data() + l * bytes, size_t(bytes));
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}
BENCHMARK(BM_Baseline_MemcpyLayers)->Unit(benchmark::kMillisecond)->UseRealTime();

// A 100-pixel dab on a tile corner touches four tiles; only those are rendered.
void BM_DabTiles(benchmark::State& state) {
    StudioDocument& doc = sample();
    const std::vector<int64_t> tiles = doc.grid.tiles({2048 - 50, 1280 - 50, 100, 100});
    for (auto _ : state) {
        auto images = StudioRenderer::tileImages(doc, tiles);
        benchmark::DoNotOptimize(images.size());
    }
    state.counters["tiles"] = double(tiles.size());
    state.SetBytesProcessed(state.iterations() * int64_t(tiles.size()) * kTileBytes);
}
BENCHMARK(BM_DabTiles)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_Baseline_MemcpyDabTiles(benchmark::State& state) {
    const int64_t layers = pixelLayerCount(sample().layers);
    std::vector<uint8_t> src(size_t(4 * layers * kTileBytes), 1);
    std::vector<uint8_t> dst(size_t(4 * kTileBytes), 0);
    for (auto _ : state) {
        for (int64_t l = 0; l < layers; ++l)
            std::memcpy(dst.data(), src.data() + l * 4 * kTileBytes, size_t(4 * kTileBytes));
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetBytesProcessed(state.iterations() * 4 * kTileBytes);
}
BENCHMARK(BM_Baseline_MemcpyDabTiles)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace
