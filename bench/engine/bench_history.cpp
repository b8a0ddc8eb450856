// What one undo step costs on a large picture: 100 commits on an 8000 x 8000
// document of 4 opaque layers, each step painting a few tiles of one layer.
// A commit should cost references, never pixels; the baseline is what copying
// one layer's pixels once would cost.
#include "engine/document/StudioDocument.h"

#include <benchmark/benchmark.h>

using namespace korv;

namespace {

constexpr int64_t kSide = 8000;
constexpr int kLayers = 4;
constexpr int kSteps = 100;
constexpr int kTilesPerStep = 3;

std::unique_ptr<StudioDocument> makeDocument() {
    const TileGrid grid(kSide, kSide);
    std::vector<StudioLayer> layers;
    for (int i = 0; i < kLayers; ++i) {
        StudioLayer layer = StudioLayer::pixelLayer("Layer " + std::to_string(i + 1), grid);
        layer.pixels->fillAll(uint8_t(40 * i), 90, 160, 255);
        layers.push_back(std::move(layer));
    }
    return std::make_unique<StudioDocument>(kSide, kSide, 72.0, std::move(layers));
}

// A brush dab's worth of change: a few tiles of one layer, copied on first write.
void paintStep(StudioDocument& doc, int step) {
    StudioLayer& layer = doc.layers[size_t(step % kLayers)];
    const int64_t count = doc.grid.count();
    for (int k = 0; k < kTilesPerStep; ++k) {
        const int64_t index = (int64_t(step) * 37 + k * 11) % count;
        layer.pixels->writable(index).pixels()[0] = uint8_t(step);
    }
}

void rawPixelCounters(benchmark::State& state) {
    state.counters["rawPixelBytes"] = double(kLayers) * double(kSide) * double(kSide) * 4;
}

// Argument 1 keeps every step, which leaves out the cost of releasing the
// tiles of dropped steps: what remains is the commit itself.
void BM_Commit(benchmark::State& state) {
    auto doc = makeDocument();
    if (state.range(0) == 1) doc->maxUndoSteps = kSteps;
    int step = 0;
    for (auto _ : state) {
        state.PauseTiming();
        paintStep(*doc, step++);
        state.ResumeTiming();
        doc->commit("Brush");
    }
    rawPixelCounters(state);
    state.counters["historyBytes"] = double(doc->historyBytes());
    state.counters["historyItems"] = double(doc->history().size());
}
BENCHMARK(BM_Commit)->Arg(0)->Arg(1)->Iterations(kSteps)->Unit(benchmark::kMicrosecond);

// The byte budget's measure over a full history of 61 items.
void BM_HistoryBytes(benchmark::State& state) {
    auto doc = makeDocument();
    for (int step = 0; step < kSteps; ++step) {
        paintStep(*doc, step);
        doc->commit("Brush");
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(doc->historyBytes());
    state.counters["historyItems"] = double(doc->history().size());
}
BENCHMARK(BM_HistoryBytes)->Unit(benchmark::kMicrosecond);

void BM_UndoRedo(benchmark::State& state) {
    auto doc = makeDocument();
    for (int step = 0; step < 10; ++step) {
        paintStep(*doc, step);
        doc->commit("Brush");
    }
    for (auto _ : state) {
        doc->undo();
        doc->redo();
    }
}
BENCHMARK(BM_UndoRedo)->Unit(benchmark::kMicrosecond);

// Baseline: an undo that copied pixels would pay at least this for one layer.
void BM_CopyOneLayerPixels(benchmark::State& state) {
    auto doc = makeDocument();
    const TileSet& source = *doc->layers[0].pixels;
    for (auto _ : state) {
        TileSet copy(source.grid);
        for (int64_t i = 0; i < source.grid.count(); ++i)
            copy.setTile(i, Tile::copying(*source.tile(i)));
        benchmark::DoNotOptimize(copy);
    }
    state.counters["layerBytes"] = double(kSide) * double(kSide) * 4;
}
BENCHMARK(BM_CopyOneLayerPixels)->Iterations(5)->Unit(benchmark::kMillisecond);

} // namespace
