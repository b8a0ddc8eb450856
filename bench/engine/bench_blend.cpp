// Full composite of a 4000 x 3000 picture with a five-layer stack in the blend
// modes that cost the most (overlay, softLight, color, multiply), beside the
// same stack all in normal and a plain copy of the canvas's bytes.
#include "engine/core/SeededRandom.h"
#include "engine/document/SampleDocument.h"
#include "engine/render/Compositor.h"
#include "engine/render/StudioRenderer.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using namespace korv;

namespace {

constexpr int64_t kWidth = 4000, kHeight = 3000;

uint8_t unit8(double v) {
    return uint8_t(std::lround(std::fmin(std::fmax(v, 0.0), 1.0) * 255.0));
}
Pixel4 premul(double r, double g, double b, double a) {
    return {unit8(r * a), unit8(g * a), unit8(b * a), unit8(a)};
}

// Every layer covers the whole canvas with varied colour and alpha, so no
// pixel is skipped for being transparent.
std::vector<StudioLayer> stack(const TileGrid& grid, bool modes) {
    const double w = double(grid.width), h = double(grid.height);
    auto layer = [&](const char* name, BlendMode mode, double opacity, auto shade) {
        StudioLayer l = StudioLayer::pixelLayer(name, grid);
        l.blendMode = modes ? mode : BlendMode::normal;
        l.opacity = opacity;
        l.pixels = paintTiles(grid, shade);
        l.freezeAll();
        return l;
    };
    std::vector<StudioLayer> layers;
    layers.push_back(layer("Photo", BlendMode::normal, 1.0, [&](int64_t x, int64_t y) {
        const double u = double(x) / w, v = double(y) / h;
        return premul(0.2 + 0.6 * u, 0.3 + 0.5 * v, 0.5 + 0.4 * std::sin(u * 7 + v * 3), 1.0);
    }));
    layers.push_back(layer("Contrast", BlendMode::overlay, 0.8, [&](int64_t x, int64_t y) {
        const double t = 0.5 + 0.5 * std::sin(double(x) * 0.013) * std::cos(double(y) * 0.011);
        return premul(t, t, t, 1.0);
    }));
    layers.push_back(layer("Glow", BlendMode::softLight, 1.0, [&](int64_t x, int64_t y) {
        const double d = std::hypot(double(x) / w - 0.5, double(y) / h - 0.5);
        return premul(1.0, 0.8, 0.5, std::fmax(0.15, 1.0 - d * 1.6));
    }));
    layers.push_back(layer("Tone", BlendMode::color, 0.6, [&](int64_t x, int64_t) {
        const double u = double(x) / w;
        return premul(0.9 - 0.6 * u, 0.4, 0.2 + 0.6 * u, 0.7);
    }));
    layers.push_back(layer("Vignette", BlendMode::multiply, 1.0, [&](int64_t x, int64_t y) {
        const double d = std::hypot(double(x) / w - 0.5, double(y) / h - 0.5);
        const double v = std::fmin(1.0, 1.15 - d);
        return premul(v, v, v * 0.95, 1.0);
    }));
    return layers;
}

void flattenStack(benchmark::State& state, bool modes) {
    StudioDocument doc(kWidth, kHeight, 72.0, stack(TileGrid(kWidth, kHeight), modes));
    for (auto _ : state) {
        RGBABufferPtr flat = StudioRenderer::flatten(doc);
        benchmark::DoNotOptimize(flat->data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * kWidth * kHeight * 4);
}

void BM_FlattenModes(benchmark::State& state) {
    flattenStack(state, true);
}
void BM_FlattenAllNormal(benchmark::State& state) {
    flattenStack(state, false);
}

// The floor: moving the finished canvas's bytes once.
void BM_MemcpyCanvas(benchmark::State& state) {
    const size_t bytes = size_t(kWidth * kHeight * 4);
    std::vector<uint8_t> from(bytes, 7), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
}

// One tile of translucent floats onto an opaque one, per mode: where each
// mode stands against normal.
void BM_BlendTile(benchmark::State& state) {
    const auto mode = BlendMode(state.range(0));
    std::vector<float> src(size_t(kTilePixels) * 4), dst(src.size()), back(src.size());
    SeededRandom random(7);
    for (int64_t i = 0; i < kTilePixels; ++i) {
        const float a = 0.25f + 0.75f * float(random.unit());
        for (int c = 0; c < 3; ++c) {
            src[size_t(i * 4 + c)] = a * float(random.unit());
            back[size_t(i * 4 + c)] = float(random.unit());
        }
        src[size_t(i * 4 + 3)] = a;
        back[size_t(i * 4 + 3)] = 1.0f;
    }
    for (auto _ : state) {
        state.PauseTiming();
        dst = back;
        state.ResumeTiming();
        Compositor::blendSpan(dst.data(), src.data(), kTilePixels, 0.9f, mode, false, false);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetLabel(std::string(toString(mode)));
    state.SetItemsProcessed(int64_t(state.iterations()) * kTilePixels);
}

} // namespace

BENCHMARK(BM_BlendTile)->DenseRange(0, kBlendModeCount - 1)->Unit(benchmark::kMicrosecond);
// Flattening runs on all cores: wall time, and CPU time summed over threads
// (the steadier figure on a shared machine).
BENCHMARK(BM_FlattenModes)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_FlattenAllNormal)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_MemcpyCanvas)->Unit(benchmark::kMillisecond)->UseRealTime();
