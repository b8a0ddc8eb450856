// Flatten of a 4000 x 3000 photo-like picture with a curves and a
// hue/saturation layer over it, beside the same flatten without them, so the
// difference is what the two adjustments cost. Then each type alone over the
// picture, each type's step on one tile, and the compiling of a program,
// which happens once per plan.
#include "PhotoLike.h"
#include "engine/document/SampleDocument.h"
#include "engine/render/AdjustmentProgram.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>

namespace {

using namespace korv;

constexpr int64_t kWidth = 4000, kHeight = 3000;

StudioLayer photo(const TileGrid& grid) {
    StudioLayer l = StudioLayer::pixelLayer("Photo", grid);
    l.pixels = paintTiles(
        grid, [&](int64_t x, int64_t y) { return bench::photoLikePixel(x, y, grid.width, grid.height); });
    l.freezeAll();
    return l;
}

StudioLayer adjustment(const AdjustmentSpec& spec) {
    StudioLayer l(Uuid::random(), "Adjustment", StudioLayerKind::adjustment);
    l.adjustment = spec;
    return l;
}

AdjustmentSpec curvesSpec() {
    AdjustmentSpec s(AdjustmentType::curves);
    s.curves[0] = {{0, 0}, {0.25, 0.2}, {0.75, 0.82}, {1, 1}};
    s.curves[3] = {{0, 0.05}, {1, 0.95}};
    return s;
}

AdjustmentSpec hueSaturationSpec() {
    AdjustmentSpec s(AdjustmentType::hueSaturation);
    s.hue = 15;
    s.saturation = 25;
    s.lightness = 5;
    return s;
}

const StudioLayer& picture() {
    static const StudioLayer layer = photo(TileGrid(kWidth, kHeight));
    return layer;
}

void flattenLayers(benchmark::State& state, std::vector<StudioLayer> layers) {
    const StudioDocument doc(kWidth, kHeight, 72, std::move(layers));
    for (auto _ : state) {
        RGBABufferPtr flat = StudioRenderer::flatten(doc);
        benchmark::DoNotOptimize(flat->data());
    }
    state.counters["per_pixel"] =
        benchmark::Counter(double(state.iterations()) * double(kWidth * kHeight),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_FlattenPhoto(benchmark::State& state) {
    flattenLayers(state, {picture()});
}

void BM_FlattenPhotoCurvesHueSaturation(benchmark::State& state) {
    flattenLayers(state, {picture(), adjustment(curvesSpec()), adjustment(hueSaturationSpec())});
}

// One adjustment of each type over the picture, in the settings that do the most work.
void BM_FlattenPhotoWith(benchmark::State& state) {
    AdjustmentSpec s(AdjustmentType(state.range(0)));
    s.colorize = false;
    s.bwTint = true;
    s.hue = 20;
    s.balance[1] = {10, 0, -10};
    s.vibrance = 40;
    state.SetLabel(std::string(toString(s.type)));
    flattenLayers(state, {picture(), adjustment(s)});
}

// The adjustment step alone, one thread, on a working buffer of one tile of
// the picture. The buffer is refilled outside the timing: run on its own
// output again and again, a program would drift into subnormal floats.
void BM_AdjustTile(benchmark::State& state) {
    AdjustmentSpec s(AdjustmentType(state.range(0)));
    s.bwTint = true;
    s.hue = 20;
    s.balance[1] = {10, 0, -10};
    s.vibrance = 40;
    state.SetLabel(std::string(toString(s.type)));
    PlanNode node;
    node.kind = StudioLayerKind::adjustment;
    node.program = std::make_shared<const AdjustmentProgram>(s);
    const Tile& tile = *picture().pixels->tile(0);
    std::vector<float> source(size_t(kTilePixels) * 4), buffer(source.size());
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = float(tile.pixels()[i]) / 255.0f;
    for (auto _ : state) {
        state.PauseTiming();
        buffer = source;
        state.ResumeTiming();
        StudioRenderer::adjust(node, 0, buffer.data());
        benchmark::DoNotOptimize(buffer.data());
    }
    state.counters["per_pixel"] =
        benchmark::Counter(double(state.iterations()) * double(kTilePixels),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_CompileCurves(benchmark::State& state) {
    const AdjustmentSpec s = curvesSpec();
    for (auto _ : state) {
        AdjustmentProgram program(s);
        benchmark::DoNotOptimize(program.lutB.data());
    }
}

// Flattening runs on all cores: wall time, and CPU time summed over threads.
BENCHMARK(BM_FlattenPhoto)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_FlattenPhotoCurvesHueSaturation)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(BM_FlattenPhotoWith)
    ->DenseRange(0, kAdjustmentTypeCount - 1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(BM_AdjustTile)->DenseRange(0, kAdjustmentTypeCount - 1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CompileCurves)->Unit(benchmark::kMicrosecond);

} // namespace
