#include "engine/render/TileLoops.h"

#include "engine/core/ParallelFor.h"
#include "engine/render/WorkBuffers.h"

#include <cstring>

namespace korv {

RGBABufferPtr renderCanvas(const TileGrid& grid, const TileRenderer& renderTile) {
    // Every tile writes all of its rows, so a canvas with tiles needs no zero fill.
    auto out = grid.count() > 0
                   ? std::make_shared<RGBABuffer>(grid.width, grid.height, RGBABuffer::Uninitialized{})
                   : std::make_shared<RGBABuffer>(grid.width, grid.height);
    parallelFor(grid.count(), [&](int64_t index) {
        ByteTileBuffer bytes;
        renderTile(index, bytes.get());
        const IRect r = grid.rect(index);
        for (int64_t y = 0; y < r.h; ++y)
            std::memcpy(out->row(r.y + y) + r.x * 4, bytes.get() + y * kTileStride, size_t(r.w * 4));
    });
    return out;
}

std::map<int64_t, RGBABufferPtr> renderTilePictures(const TileGrid& grid, const std::vector<int64_t>& tiles,
                                                    const TileRenderer& renderTile) {
    std::vector<RGBABufferPtr> images(tiles.size());
    parallelFor(int64_t(tiles.size()), [&](int64_t k) {
        const int64_t index = tiles[size_t(k)];
        if (index < 0 || index >= grid.count()) return;
        ByteTileBuffer bytes;
        renderTile(index, bytes.get());
        const IRect r = grid.rect(index);
        auto image = std::make_shared<RGBABuffer>(r.w, r.h, RGBABuffer::Uninitialized{});
        for (int64_t y = 0; y < r.h; ++y)
            std::memcpy(image->row(y), bytes.get() + y * kTileStride, size_t(r.w * 4));
        images[size_t(k)] = std::move(image);
    });
    std::map<int64_t, RGBABufferPtr> result;
    for (size_t k = 0; k < tiles.size(); ++k)
        if (images[k]) result[tiles[k]] = std::move(images[k]);
    return result;
}

} // namespace korv
