// Dabs per second of the paint engine for the brushes that cost the most,
// each beside a floor measured in the same run: filling the dab's rectangle
// with memset, or the bare float blend of one tile. Then the repaint of the
// tiles under one 100-pixel dab through the renderer, beside a memcpy of
// those tiles.
#include "engine/document/SampleDocument.h"
#include "engine/paint/BrushLibrary.h"
#include "engine/paint/BrushStroke.h"
#include "engine/paint/PaintDocument.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using namespace korv;

constexpr int64_t kCanvas = 2048;

// One stroke running back and forth along a line; each iteration moves the
// pen one dab spacing, so it lays one dab on average.
void runDabs(benchmark::State& state, BrushSettings brush) {
    brush.pressureSize = false;
    brush.sanitize();
    PaintDocument doc(kCanvas, kCanvas);
    const double step = std::max(brush.size * brush.spacing, 0.5);
    const double lo = brush.size, hi = double(kCanvas) - brush.size;
    double x = lo, dir = 1;
    BrushStroke stroke(doc, doc.activeLayer(), brush, PaintColor(0.2, 0.4, 0.8, 1), 1);
    // A ground for the smudge to push and the first pick-up out of the way.
    stroke.add({x, 1024, 1, 0, 0, 0});
    const int64_t start = stroke.dabCount();
    for (auto _ : state) {
        x += step * dir;
        if (x > hi || x < lo) {
            dir = -dir;
            x += 2 * step * dir;
        }
        stroke.add({x, 1024 + 0.37 * dir, 0.8, 0, 0, 0});
    }
    const double dabs = double(stroke.dabCount() - start);
    state.counters["dabs/s"] = benchmark::Counter(dabs, benchmark::Counter::kIsRate);
    state.counters["dabs/iter"] = dabs / double(std::max<int64_t>(state.iterations(), 1));
}

BrushSettings softRound(double size) {
    BrushSettings b = *BrushLibrary::named("Soft Round");
    b.size = size;
    return b;
}

void BM_Dab_SoftRound60(benchmark::State& state) {
    runDabs(state, softRound(60));
}
BENCHMARK(BM_Dab_SoftRound60)->Unit(benchmark::kMicrosecond);

void BM_Dab_SoftRound300(benchmark::State& state) {
    runDabs(state, softRound(300));
}
BENCHMARK(BM_Dab_SoftRound300)->Unit(benchmark::kMicrosecond);

void BM_Dab_Pencil6B(benchmark::State& state) {
    runDabs(state, *BrushLibrary::named("Pencil 6B"));
}
BENCHMARK(BM_Dab_Pencil6B)->Unit(benchmark::kMicrosecond);

void BM_Dab_SprayCan(benchmark::State& state) {
    runDabs(state, *BrushLibrary::named("Spray Can"));
}
BENCHMARK(BM_Dab_SprayCan)->Unit(benchmark::kMicrosecond);

void BM_Dab_Smudge(benchmark::State& state) {
    runDabs(state, *BrushLibrary::named("Smudge"));
}
BENCHMARK(BM_Dab_Smudge)->Unit(benchmark::kMicrosecond);

// Floor: writing every byte of the dab's rectangle once, row by row.
void BM_Baseline_FillDabRect(benchmark::State& state) {
    const int64_t side = state.range(0) + 3;
    std::vector<uint8_t> canvas(size_t(kCanvas * kCanvas * 4));
    uint8_t v = 0;
    for (auto _ : state) {
        ++v;
        for (int64_t y = 0; y < side; ++y)
            std::memset(canvas.data() + ((100 + y) * kCanvas + 100) * 4, v, size_t(side * 4));
        benchmark::DoNotOptimize(canvas.data());
    }
}
BENCHMARK(BM_Baseline_FillDabRect)->Arg(60)->Arg(300)->Unit(benchmark::kMicrosecond);

// Floor: one float coverage plane of a tile blended over its bytes.
void BM_Baseline_FloatBlendTile(benchmark::State& state) {
    std::vector<float> mask(size_t(kTileSize * kTileSize), 0.5f);
    std::vector<uint8_t> before(size_t(kTileBytes), 200);
    std::vector<uint8_t> out(size_t(kTileBytes), 0);
    for (auto _ : state) {
        for (int64_t i = 0; i < kTileSize * kTileSize; ++i) {
            const float m = mask[size_t(i)], keep = 1 - m;
            for (int k = 0; k < 4; ++k)
                out[size_t(i * 4 + k)] = uint8_t(keep * float(before[size_t(i * 4 + k)]) + m * 255 + 0.5f);
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Baseline_FloatBlendTile)->Unit(benchmark::kMicrosecond);

struct RenderFixture {
    std::unique_ptr<StudioDocument> doc = makeSampleDocument(4000, 3000);
    Uuid layer;
    RenderFixture() {
        for (const StudioLayer& l : doc->layers)
            if (l.pixels) layer = l.id;
    }
};

RenderFixture& fixture() {
    static RenderFixture f;
    return f;
}

// A 100-pixel dab on a tile corner, its tiles handed back to the document,
// and those tiles rendered for the screen, as the canvas does per flush.
void BM_DabAndRepaint100(benchmark::State& state) {
    RenderFixture& f = fixture();
    StudioDocument& doc = *f.doc;
    BrushSettings brush = *BrushLibrary::named("Hard Round");
    brush.size = 100;
    PaintDocument host(doc.width(), doc.height());
    TileSet raster = *doc.editableRaster(f.layer, false);
    raster.ensureCells();
    host.activeLayer()->tiles = raster.tiles;
    int64_t tiles = 0;
    for (auto _ : state) {
        BrushStroke stroke(host, host.activeLayer(), brush, PaintColor(1, 0.5, 0, 1), 1);
        stroke.add({2048, 1280, 1, 0, 0, 0});
        stroke.end();
        doc.setRaster(f.layer, false, TileSet(host.grid, host.activeLayer()->tiles), true);
        const std::vector<int64_t> dirty = host.takeDirtyTiles();
        auto images = StudioRenderer::tileImages(doc, dirty);
        tiles = int64_t(dirty.size());
        benchmark::DoNotOptimize(images.size());
    }
    state.counters["tiles"] = double(tiles);
}
BENCHMARK(BM_DabAndRepaint100)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Floor: copying the bytes of the four tiles under that dab.
void BM_Baseline_MemcpyDabTiles(benchmark::State& state) {
    std::vector<uint8_t> src(size_t(4 * kTileBytes), 7), dst(src.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), src.size());
        benchmark::DoNotOptimize(dst.data());
    }
}
BENCHMARK(BM_Baseline_MemcpyDabTiles)->Unit(benchmark::kMicrosecond);

} // namespace
