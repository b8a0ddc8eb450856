#pragma once
// One 256 x 256 block of premultiplied RGBA pixels. A tile that may be reached
// by more than one holder is frozen, and a frozen tile is never written again:
// writers copy it first (see TileSet::writable).
#include "engine/core/Constants.h"

#include <cstdint>
#include <memory>

namespace korv {

class Tile {
public:
    struct Copying {};
    struct Uninitialized {};
    Tile(); // all zero, not frozen
    // For readers that write all 262144 bytes themselves.
    explicit Tile(Uninitialized);
    // A private, unfrozen copy of the other tile's bytes.
    Tile(Copying, const Tile& other);
    Tile(const Tile&) = delete;
    Tile& operator=(const Tile&) = delete;
    static std::shared_ptr<Tile> copying(const Tile& other) { return std::make_shared<Tile>(Copying{}, other); }
    ~Tile();

    uint8_t* pixels() { return pixels_; }
    const uint8_t* pixels() const { return pixels_; }
    uint8_t* row(int64_t py) { return pixels_ + py * kTileStride; }
    const uint8_t* row(int64_t py) const { return pixels_ + py * kTileStride; }

    bool frozen() const { return frozen_; }
    void freeze() { frozen_ = true; }
    // True when all 65536 alpha bytes are zero.
    bool isEmpty() const;

private:
    uint8_t* pixels_;
    bool frozen_ = false;
};

using TilePtr = std::shared_ptr<Tile>;

} // namespace korv
