// Save and reopen of a 4000 x 3000 document with five painted layers, beside
// LZFSE alone on the same tiles.
#include "PhotoLike.h"
#include "engine/document/SampleDocument.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/StudioFile.h"
#include "lzfse/Lzfse.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <vector>

namespace {

using namespace korv;

StudioDocument& sample() {
    static auto doc = makeSampleDocument(4000, 3000);
    return *doc;
}

const std::vector<uint8_t>& savedFile() {
    static const std::vector<uint8_t> file = StudioFile::encode(StudioFile::snapshot(sample(), false));
    return file;
}

std::vector<const Tile*> allTiles(const std::vector<StudioLayer>& layers) {
    std::vector<const Tile*> out;
    for (const auto& l : layers) {
        for (const auto* set : {&l.pixels, &l.mask})
            if (*set)
                for (const auto& t : (*set)->tiles)
                    if (t) out.push_back(t.get());
        auto inner = allTiles(l.children);
        out.insert(out.end(), inner.begin(), inner.end());
    }
    return out;
}

void BM_Save(benchmark::State& state) {
    const auto snap = StudioFile::snapshot(sample(), false);
    int64_t fileSize = 0;
    for (auto _ : state) {
        auto bytes = StudioFile::encode(snap);
        fileSize = int64_t(bytes.size());
        benchmark::DoNotOptimize(bytes.data());
    }
    const auto tiles = allTiles(snap.layers);
    state.SetBytesProcessed(state.iterations() * int64_t(tiles.size()) * kTileBytes);
    state.counters["file_MB"] = double(fileSize) / 1e6;
    state.counters["tiles"] = double(tiles.size());
}
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond)->UseRealTime();

// What a save in the editor adds to the encode: the capture with its preview
// (a flatten of the whole canvas), and the atomic write with its fsync.
void BM_SnapshotWithPreview(benchmark::State& state) {
    for (auto _ : state) {
        auto snap = StudioFile::snapshot(sample(), true);
        benchmark::DoNotOptimize(snap.preview.get());
    }
}
BENCHMARK(BM_SnapshotWithPreview)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WriteAtomically(benchmark::State& state) {
    const std::vector<uint8_t>& file = savedFile();
    const std::string path = (std::filesystem::temp_directory_path() / "korv-bench-save.korvstudio").string();
    for (auto _ : state)
        writeFileAtomically(path, file);
    std::filesystem::remove(path);
    state.SetBytesProcessed(state.iterations() * int64_t(file.size()));
}
BENCHMARK(BM_WriteAtomically)->Unit(benchmark::kMillisecond)->UseRealTime();

// A two-layer 24-megapixel photo document saved as the editor saves it: the
// capture with its preview, the parallel encode and the atomic write with its
// fsync. The encode alone of the same capture is the baseline.
StudioDocument& photoDocument() {
    static auto doc = [] {
        const int64_t w = 6000, h = 4000;
        RGBABuffer photo(w, h, RGBABuffer::Uninitialized{});
        for (int64_t y = 0; y < h; ++y)
            for (int64_t x = 0; x < w; ++x)
                photo.setPixel(x, y, bench::photoLikePixel(x, y, w, h));
        auto d = std::make_unique<StudioDocument>(photo, 72.0, "Background");
        StudioLayer copy = d->layers[0];
        copy.id = Uuid::random();
        copy.name = "Copy";
        copy.pixels = TileSet::from(photo); // its own tiles, as a retouched copy would have
        copy.blendMode = BlendMode::softLight;
        d->layers.push_back(std::move(copy));
        return d;
    }();
    return *doc;
}

void BM_Save24MPAsTheEditor(benchmark::State& state) {
    const std::string path = (std::filesystem::temp_directory_path() / "korv-bench-24mp.korvstudio").string();
    for (auto _ : state)
        writeFileAtomically(path, StudioFile::encode(StudioFile::snapshot(photoDocument(), true)));
    std::filesystem::remove(path);
}
BENCHMARK(BM_Save24MPAsTheEditor)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void BM_Baseline_Encode24MP(benchmark::State& state) {
    const auto snap = StudioFile::snapshot(photoDocument(), false);
    for (auto _ : state) {
        auto bytes = StudioFile::encode(snap);
        benchmark::DoNotOptimize(bytes.data());
    }
}
BENCHMARK(BM_Baseline_Encode24MP)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

void BM_Reopen(benchmark::State& state) {
    const auto& file = savedFile();
    for (auto _ : state) {
        auto doc = StudioFile::decode(file);
        benchmark::DoNotOptimize(doc.get());
    }
    state.SetBytesProcessed(state.iterations() * int64_t(allTiles(sample().layers).size()) * kTileBytes);
    state.counters["file_MB"] = double(file.size()) / 1e6;
}
BENCHMARK(BM_Reopen)->Unit(benchmark::kMillisecond)->UseRealTime();

// The codec alone on the same tiles, one thread: encode, then decode.
void BM_Baseline_LzfseEncodeTiles(benchmark::State& state) {
    const auto tiles = allTiles(sample().layers);
    std::vector<uint8_t> work(0x41000), scratch(lzfse::encodeScratchSize());
    for (auto _ : state)
        for (const Tile* t : tiles)
            benchmark::DoNotOptimize(
                lzfse::encode(work.data(), work.size(), t->pixels(), size_t(kTileBytes), scratch.data()));
    state.SetBytesProcessed(state.iterations() * int64_t(tiles.size()) * kTileBytes);
}
BENCHMARK(BM_Baseline_LzfseEncodeTiles)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Baseline_LzfseDecodeTiles(benchmark::State& state) {
    const auto tiles = allTiles(sample().layers);
    std::vector<std::vector<uint8_t>> packed;
    std::vector<uint8_t> work(0x41000);
    for (const Tile* t : tiles) {
        size_t n = lzfse::encode(work.data(), work.size(), t->pixels(), size_t(kTileBytes));
        packed.emplace_back(work.begin(), work.begin() + std::ptrdiff_t(n));
    }
    std::vector<uint8_t> out(static_cast<size_t>(kTileBytes));
    for (auto _ : state)
        for (const auto& p : packed)
            benchmark::DoNotOptimize(lzfse::decode(out.data(), out.size(), p.data(), p.size()));
    state.SetBytesProcessed(state.iterations() * int64_t(tiles.size()) * kTileBytes);
}
BENCHMARK(BM_Baseline_LzfseDecodeTiles)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
