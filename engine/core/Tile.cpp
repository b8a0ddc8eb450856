#include "engine/core/Tile.h"

#include "engine/core/Require.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace korv {

namespace {
uint8_t* allocateTileBytes() {
    void* p = std::aligned_alloc(64, size_t(kTileBytes));
    if (!p) throw std::bad_alloc();
    return static_cast<uint8_t*>(p);
}
} // namespace

Tile::Tile() : pixels_(allocateTileBytes()) { std::memset(pixels_, 0, size_t(kTileBytes)); }

Tile::Tile(Uninitialized) : pixels_(allocateTileBytes()) {}

Tile::Tile(Copying, const Tile& other) : pixels_(allocateTileBytes()) {
    std::memcpy(pixels_, other.pixels_, size_t(kTileBytes));
}

Tile::~Tile() { std::free(pixels_); }

bool Tile::isEmpty() const {
    // Check in blocks so the inner loop has no early exit and vectorises.
    const uint8_t* p = pixels_;
    for (int64_t block = 0; block < kTilePixels; block += 1024) {
        unsigned acc = 0;
        for (int64_t i = block; i < block + 1024; ++i) acc |= p[i * 4 + 3];
        if (acc) return false;
    }
    return true;
}

} // namespace korv
