// Write and read of a 4000 x 3000 document of ten layers (masks and a group)
// as a layered PSD, beside the native format's save and open of the same
// document in the same run; and the two per-pixel loops alone on one plane.
#include "PhotoLike.h"
#include "engine/core/ParallelFor.h"
#include "engine/formats/PSDFile.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioPSD.h"
#include "engine/render/StudioRenderer.h"

#include <benchmark/benchmark.h>
#include <mutex>
#include <vector>

namespace {

using namespace korv;

constexpr int64_t kWidth = 4000, kHeight = 3000;

// A photo-like raster inside the rectangle, shifted per layer so that no two match.
TileSet photoRaster(const TileGrid& grid, const IRect& where, int64_t shift, uint8_t alpha) {
    TileSet set(grid);
    const IRect r = where.intersection(grid.bounds());
    const auto tiles = grid.tiles(r);
    parallelFor(int64_t(tiles.size()), [&](int64_t k) {
        const int64_t index = tiles[size_t(k)];
        const IRect part = grid.rect(index).intersection(r);
        Tile* tile = nullptr;
        {
            static std::mutex lock;
            std::lock_guard guard(lock);
            tile = &set.writable(index);
        }
        for (int64_t y = part.y; y < part.maxY(); ++y)
            for (int64_t x = part.x; x < part.maxX(); ++x) {
                Pixel4 p = bench::photoLikePixel(x + shift, y, kWidth, kHeight);
                uint8_t* px = tile->row(y & 255) + (x & 255) * 4;
                for (int c = 0; c < 3; ++c)
                    px[c] = uint8_t((p[size_t(c)] * alpha + 127) / 255);
                px[3] = alpha;
            }
    });
    return set;
}

TileSet ellipseMask(const TileGrid& grid, const IRect& box) {
    TileSet mask(grid);
    const double cx = box.x + box.w / 2.0, cy = box.y + box.h / 2.0;
    for (int64_t y = 0; y < grid.height; y += 1)
        for (int64_t x = 0; x < grid.width; x += 1) {
            const double dx = (x - cx) / (box.w / 2.0), dy = (y - cy) / (box.h / 2.0);
            if (dx * dx + dy * dy > 1) mask.setPixel(x, y, {255, 255, 255, 255});
        }
    return mask;
}

StudioDocument& tenLayers() {
    static auto doc = [] {
        const TileGrid grid(kWidth, kHeight);
        std::vector<StudioLayer> layers;
        StudioLayer base = StudioLayer::pixelLayer("Photo", grid);
        base.pixels = photoRaster(grid, grid.bounds(), 0, 255);
        layers.push_back(std::move(base));
        std::vector<StudioLayer> grouped;
        for (int i = 1; i < 10; ++i) {
            StudioLayer l = StudioLayer::pixelLayer("Layer " + std::to_string(i), grid);
            const IRect where{int64_t(i) * 300, int64_t(i) * 200, 1800, 1400};
            l.pixels = photoRaster(grid, where, i * 997, i % 3 == 0 ? 160 : 255);
            l.blendMode = i % 2 ? BlendMode::normal : BlendMode::multiply;
            l.opacity = 0.8;
            if (i % 3 == 1) l.mask = ellipseMask(grid, where);
            (i >= 6 ? grouped : layers).push_back(std::move(l));
        }
        layers.push_back(StudioLayer::group("Group", std::move(grouped)));
        return std::make_unique<StudioDocument>(kWidth, kHeight, 300.0, std::move(layers));
    }();
    return *doc;
}

const std::vector<uint8_t>& psdFile() {
    static const std::vector<uint8_t> file = StudioPSD::write(tenLayers());
    return file;
}

const std::vector<uint8_t>& nativeFile() {
    static const std::vector<uint8_t> file = StudioFile::encode(StudioFile::snapshot(tenLayers(), false));
    return file;
}

void BM_PSDWrite(benchmark::State& state) {
    tenLayers(); // built once, outside the timing
    for (auto _ : state) {
        auto bytes = StudioPSD::write(tenLayers());
        benchmark::DoNotOptimize(bytes.data());
    }
    state.counters["file_MB"] = double(psdFile().size()) / 1e6;
}
BENCHMARK(BM_PSDWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

// The merged picture's render alone: the part of the write that is not the format's.
void BM_Flatten(benchmark::State& state) {
    for (auto _ : state) {
        auto flat = StudioRenderer::flatten(tenLayers());
        benchmark::DoNotOptimize(flat.get());
    }
}
BENCHMARK(BM_Flatten)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PSDRead(benchmark::State& state) {
    for (auto _ : state) {
        auto doc = StudioPSD::read(psdFile());
        benchmark::DoNotOptimize(doc.get());
    }
}
BENCHMARK(BM_PSDRead)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_NativeSave(benchmark::State& state) {
    tenLayers();
    for (auto _ : state) {
        auto bytes = StudioFile::encode(StudioFile::snapshot(tenLayers(), false));
        benchmark::DoNotOptimize(bytes.data());
    }
    state.counters["file_MB"] = double(nativeFile().size()) / 1e6;
}
BENCHMARK(BM_NativeSave)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_NativeOpen(benchmark::State& state) {
    for (auto _ : state) {
        auto doc = StudioFile::decode(nativeFile());
        benchmark::DoNotOptimize(doc.get());
    }
}
BENCHMARK(BM_NativeOpen)->Unit(benchmark::kMillisecond)->UseRealTime();

// The per-pixel loops alone on the whole canvas: the plane split and the
// PackBits coding of one plane.
void BM_Planes(benchmark::State& state) {
    const auto buffer = tenLayers().layers[0].pixels->toBuffer();
    for (auto _ : state) {
        auto p = PSDFile::planes(*buffer, {0, 0, kWidth, kHeight});
        benchmark::DoNotOptimize(p[0].data());
    }
    state.SetBytesProcessed(state.iterations() * buffer->byteCount());
}
BENCHMARK(BM_Planes)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RLEPlane(benchmark::State& state) {
    const auto buffer = tenLayers().layers[0].pixels->toBuffer();
    const auto p = PSDFile::planes(*buffer, {0, 0, kWidth, kHeight});
    for (auto _ : state) {
        auto packed = PSDFile::rle(p[0].data(), kWidth, kHeight);
        benchmark::DoNotOptimize(packed.data.data());
    }
    state.SetBytesProcessed(state.iterations() * kWidth * kHeight);
}
BENCHMARK(BM_RLEPlane)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
