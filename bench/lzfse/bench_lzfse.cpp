// Encode and decode throughput of our LZFSE codec on the tile vectors, beside
// zlib (levels 1 and 6), zstd (levels 1 and 3) and lz4, all measured in the
// same run. Each codec reuses its working memory across calls, as a document
// writer compressing many tiles would. Counters: MB/s of raw bytes, and the
// compressed size as a fraction of the raw size (ratio, lower is better).
#include "lzfse/Lzfse.h"

#include <benchmark/benchmark.h>
#include <fstream>
#include <iterator>
#include <lz4.h>
#include <memory>
#include <string>
#include <vector>
#include <zlib.h>
#include <zstd.h>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes readVector(const std::string& name) {
    std::ifstream in(std::string(KORV_TESTDATA_DIR) + "/lzfse/" + name + ".raw", std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// One codec: compress into dst (capacity given), decompress to exactly `raw` bytes.
class Codec {
public:
    virtual ~Codec() = default;
    virtual size_t bound(size_t n) const = 0;
    virtual size_t encode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) = 0;
    virtual size_t decode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) = 0;
};

class Lzfse : public Codec {
public:
    size_t bound(size_t n) const override { return korv::lzfse::encodeBound(n); }
    size_t encode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        return korv::lzfse::encode(dst, cap, src, n, encodeScratch_.data());
    }
    size_t decode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        return korv::lzfse::decode(dst, cap, src, n, decodeScratch_.data());
    }

private:
    Bytes encodeScratch_ = Bytes(korv::lzfse::encodeScratchSize());
    Bytes decodeScratch_ = Bytes(korv::lzfse::decodeScratchSize());
};

class Zlib : public Codec {
public:
    explicit Zlib(int level) {
        deflateInit(&deflater_, level);
        inflateInit(&inflater_);
    }
    ~Zlib() override {
        deflateEnd(&deflater_);
        inflateEnd(&inflater_);
    }
    size_t bound(size_t n) const override { return compressBound(static_cast<uLong>(n)); }
    size_t encode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        deflateReset(&deflater_);
        return run(deflater_, dst, cap, src, n, [](z_stream& z) { return deflate(&z, Z_FINISH); });
    }
    size_t decode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        inflateReset(&inflater_);
        return run(inflater_, dst, cap, src, n, [](z_stream& z) { return inflate(&z, Z_FINISH); });
    }

private:
    template <typename Step>
    static size_t run(z_stream& z, uint8_t* dst, size_t cap, const uint8_t* src, size_t n, Step step) {
        z.next_in = const_cast<Bytef*>(src);
        z.avail_in = static_cast<uInt>(n);
        z.next_out = dst;
        z.avail_out = static_cast<uInt>(cap);
        return step(z) == Z_STREAM_END ? cap - z.avail_out : 0;
    }
    z_stream deflater_{};
    z_stream inflater_{};
};

class Zstd : public Codec {
public:
    explicit Zstd(int level) : level_(level) {}
    ~Zstd() override {
        ZSTD_freeCCtx(cctx_);
        ZSTD_freeDCtx(dctx_);
    }
    size_t bound(size_t n) const override { return ZSTD_compressBound(n); }
    size_t encode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        const size_t r = ZSTD_compressCCtx(cctx_, dst, cap, src, n, level_);
        return ZSTD_isError(r) ? 0 : r;
    }
    size_t decode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        const size_t r = ZSTD_decompressDCtx(dctx_, dst, cap, src, n);
        return ZSTD_isError(r) ? 0 : r;
    }

private:
    int level_;
    ZSTD_CCtx* cctx_ = ZSTD_createCCtx();
    ZSTD_DCtx* dctx_ = ZSTD_createDCtx();
};

class Lz4 : public Codec {
public:
    size_t bound(size_t n) const override {
        return static_cast<size_t>(LZ4_compressBound(static_cast<int>(n)));
    }
    size_t encode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        const int r = LZ4_compress_fast_extState(state_.data(), reinterpret_cast<const char*>(src),
                                                 reinterpret_cast<char*>(dst), static_cast<int>(n),
                                                 static_cast<int>(cap), 1);
        return r > 0 ? static_cast<size_t>(r) : 0;
    }
    size_t decode(uint8_t* dst, size_t cap, const uint8_t* src, size_t n) override {
        const int r = LZ4_decompress_safe(reinterpret_cast<const char*>(src), reinterpret_cast<char*>(dst),
                                          static_cast<int>(n), static_cast<int>(cap));
        return r > 0 ? static_cast<size_t>(r) : 0;
    }

private:
    std::vector<char> state_ = std::vector<char>(static_cast<size_t>(LZ4_sizeofState()));
};

using MakeCodec = std::unique_ptr<Codec> (*)();
const std::pair<const char*, MakeCodec> kCodecs[] = {
    {"korv-lzfse", [] { return std::unique_ptr<Codec>(new Lzfse); }},
    {"zlib-1", [] { return std::unique_ptr<Codec>(new Zlib(1)); }},
    {"zlib-6", [] { return std::unique_ptr<Codec>(new Zlib(6)); }},
    {"zstd-1", [] { return std::unique_ptr<Codec>(new Zstd(1)); }},
    {"zstd-3", [] { return std::unique_ptr<Codec>(new Zstd(3)); }},
    {"lz4", [] { return std::unique_ptr<Codec>(new Lz4); }},
};

const char* const kTiles[] = {"tile-photo",   "tile-gradient", "tile-sparse",
                              "tile-stripes", "tile-flat",     "tile-noise"};

void report(benchmark::State& state, const Bytes& raw, size_t packed) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * raw.size()));
    state.counters["MB/s"] =
        benchmark::Counter(raw.size() / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["ratio"] = static_cast<double>(packed) / raw.size();
}

void encodeBench(benchmark::State& state, const std::string& tile, MakeCodec make) {
    const Bytes raw = readVector(tile);
    auto codec = make();
    Bytes packed(codec->bound(raw.size()));
    size_t n = 0;
    while (state.KeepRunning()) {
        n = codec->encode(packed.data(), packed.size(), raw.data(), raw.size());
        benchmark::DoNotOptimize(packed.data());
    }
    if (n == 0 || raw.empty()) {
        state.SkipWithError("encoding failed");
    }
    report(state, raw, n);
}

void decodeBench(benchmark::State& state, const std::string& tile, MakeCodec make) {
    const Bytes raw = readVector(tile);
    auto codec = make();
    Bytes packed(codec->bound(raw.size()));
    packed.resize(codec->encode(packed.data(), packed.size(), raw.data(), raw.size()));
    Bytes out(raw.size());
    size_t n = 0;
    while (state.KeepRunning()) {
        n = codec->decode(out.data(), out.size(), packed.data(), packed.size());
        benchmark::DoNotOptimize(out.data());
    }
    if (n != raw.size() || out != raw) {
        state.SkipWithError("decoding failed");
    }
    report(state, raw, packed.size());
}

// Registered tile by tile, codecs side by side.
const bool kRegistered = [] {
    for (const char* tile : kTiles) {
        for (const auto& [name, make] : kCodecs) {
            benchmark::RegisterBenchmark((std::string("encode/") + tile + "/" + name).c_str(), encodeBench,
                                         std::string(tile), make)
                ->Unit(benchmark::kMicrosecond);
        }
        for (const auto& [name, make] : kCodecs) {
            benchmark::RegisterBenchmark((std::string("decode/") + tile + "/" + name).c_str(), decodeBench,
                                         std::string(tile), make)
                ->Unit(benchmark::kMicrosecond);
        }
    }
    return true;
}();

} // namespace
