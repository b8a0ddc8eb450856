#include "engine/core/TileSet.h"

#include "engine/core/Fnv.h"
#include "engine/core/ParallelFor.h"
#include "engine/core/Require.h"

#include <algorithm>

namespace korv {

TileSet::TileSet(const TileGrid& g, std::vector<TilePtr> t) : grid(g), tiles(std::move(t)) {
    KORV_REQUIRE(int64_t(tiles.size()) == g.count());
}

int64_t TileSet::checked(int64_t i) const {
    KORV_REQUIRE(i >= 0 && i < grid.count());
    return i;
}

bool TileSet::operator==(const TileSet& other) const {
    if (!(grid == other.grid)) return false;
    if (tiles.size() == other.tiles.size()) return tiles == other.tiles;
    const auto& sized = tiles.empty() ? other.tiles : tiles;
    return std::all_of(sized.begin(), sized.end(), [](const TilePtr& t) { return !t; });
}

TileSet TileSet::from(const RGBABuffer& buffer) {
    TileSet set(TileGrid(buffer.width(), buffer.height()));
    set.load(buffer);
    return set;
}

Tile& TileSet::writable(int64_t i) {
    checked(i);
    ensureCells();
    TilePtr& entry = tiles[size_t(i)];
    if (!entry) entry = std::make_shared<Tile>();
    else if (entry->frozen()) entry = Tile::copying(*entry);
    return *entry;
}

void TileSet::freeze() {
    for (auto& t : tiles)
        if (t) t->freeze();
}

bool TileSet::isEmpty() const {
    return std::all_of(tiles.begin(), tiles.end(), [](const TilePtr& t) { return !t || t->isEmpty(); });
}

uint8_t TileSet::alpha(int64_t x, int64_t y) const {
    if (x < 0 || y < 0 || x >= grid.width || y >= grid.height || tiles.empty()) return 0;
    const Tile* t = tiles[size_t(grid.indexAt(x, y))].get();
    return t ? t->row(y & (kTileSize - 1))[(x & (kTileSize - 1)) * 4 + 3] : 0;
}

Pixel4 TileSet::pixel(int64_t x, int64_t y) const {
    if (x < 0 || y < 0 || x >= grid.width || y >= grid.height || tiles.empty()) return {0, 0, 0, 0};
    const Tile* t = tiles[size_t(grid.indexAt(x, y))].get();
    if (!t) return {0, 0, 0, 0};
    const uint8_t* p = t->row(y & (kTileSize - 1)) + (x & (kTileSize - 1)) * 4;
    return {p[0], p[1], p[2], p[3]};
}

void TileSet::setPixel(int64_t x, int64_t y, Pixel4 p) {
    if (x < 0 || y < 0 || x >= grid.width || y >= grid.height) return;
    Tile& t = writable(grid.indexAt(x, y));
    std::memcpy(t.row(y & (kTileSize - 1)) + (x & (kTileSize - 1)) * 4, p.data(), 4);
}

void TileSet::fillAll(uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    const uint8_t px[4] = {r, g, b, a};
    uint32_t word;
    std::memcpy(&word, px, 4);
    for (int64_t i = 0; i < grid.count(); ++i) {
        auto* out = reinterpret_cast<uint32_t*>(writable(i).pixels());
        std::fill(out, out + kTilePixels, word);
    }
}

RGBABufferPtr TileSet::toBuffer() const {
    auto out = std::make_shared<RGBABuffer>(grid.width, grid.height);
    parallelFor(grid.count(), [&](int64_t i) {
        const Tile* t = tile(i);
        if (!t) return;
        IRect r = grid.rect(i);
        for (int64_t y = 0; y < r.h; ++y)
            std::memcpy(out->row(r.y + y) + r.x * 4, t->row(y), size_t(r.w * 4));
    });
    return out;
}

RGBABufferPtr TileSet::region(const IRect& r) const {
    auto out = std::make_shared<RGBABuffer>(r.w, r.h);
    IRect clip = r.intersection(grid.bounds());
    if (clip.isEmpty()) return out;
    for (int64_t index : grid.tiles(clip)) {
        const Tile* t = tile(index);
        if (!t) continue;
        IRect part = grid.rect(index).intersection(clip);
        for (int64_t y = part.y; y < part.maxY(); ++y)
            std::memcpy(out->row(y - r.y) + (part.x - r.x) * 4,
                        t->row(y & (kTileSize - 1)) + (part.x & (kTileSize - 1)) * 4, size_t(part.w * 4));
    }
    return out;
}

void TileSet::load(const RGBABuffer& buffer) {
    KORV_REQUIRE(buffer.width() == grid.width && buffer.height() == grid.height);
    ensureCells();
    // Each iteration writes only its own entry and never an existing tile.
    parallelFor(grid.count(), [&](int64_t i) {
        IRect r = grid.rect(i);
        bool any = false;
        for (int64_t y = 0; y < r.h && !any; ++y) {
            const uint8_t* row = buffer.row(r.y + y) + r.x * 4;
            unsigned acc = 0;
            for (int64_t x = 0; x < r.w; ++x) acc |= row[x * 4 + 3];
            any = acc != 0;
        }
        if (!any) {
            tiles[size_t(i)].reset();
            return;
        }
        auto t = std::make_shared<Tile>();
        for (int64_t y = 0; y < r.h; ++y) std::memcpy(t->row(y), buffer.row(r.y + y) + r.x * 4, size_t(r.w * 4));
        tiles[size_t(i)] = std::move(t);
    });
}

void TileSet::write(const RGBABuffer& buffer, const IRect& at) {
    writeRows(buffer, at, [](uint8_t* dst, const uint8_t* src, int64_t, int64_t, int64_t n) {
        std::memcpy(dst, src, size_t(n * 4));
    });
}

std::optional<IRect> TileSet::contentBounds() const {
    IRect box;
    bool found = false;
    for (int64_t i = 0; i < int64_t(tiles.size()); ++i) {
        const Tile* t = tiles[size_t(i)].get();
        if (!t) continue;
        IRect r = grid.rect(i);
        int64_t x0 = r.w, x1 = -1, y0 = r.h, y1 = -1;
        for (int64_t y = 0; y < r.h; ++y) {
            const uint8_t* row = t->row(y);
            int64_t first = -1, last = -1;
            for (int64_t x = 0; x < r.w; ++x)
                if (row[x * 4 + 3]) {
                    if (first < 0) first = x;
                    last = x;
                }
            if (first < 0) continue;
            x0 = std::min(x0, first);
            x1 = std::max(x1, last);
            y0 = std::min(y0, y);
            y1 = y;
        }
        if (x1 < 0) continue;
        box = box.unionWith({r.x + x0, r.y + y0, x1 - x0 + 1, y1 - y0 + 1});
        found = true;
    }
    if (!found) return std::nullopt;
    return box;
}

uint64_t TileSet::fingerprint() const {
    // Tile hashes are independent, so they run in parallel; the mix is in index order.
    const int64_t n = int64_t(tiles.size());
    std::vector<uint64_t> hashes(size_t(n), 0);
    std::vector<uint8_t> present(size_t(n), 0);
    parallelFor(n, [&](int64_t i) {
        const Tile* t = tiles[size_t(i)].get();
        if (!t || t->isEmpty()) return;
        present[size_t(i)] = 1;
        hashes[size_t(i)] = fnv(t->pixels(), size_t(kTileBytes));
    });
    uint64_t h = kFnvBasis;
    for (int64_t i = 0; i < n; ++i) {
        if (!present[size_t(i)]) continue;
        h = (hashes[size_t(i)] ^ ((uint64_t(i) ^ h) * kFnvPrime)) * kFnvPrime;
    }
    return h;
}

} // namespace korv
