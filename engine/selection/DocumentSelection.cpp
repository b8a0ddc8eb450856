// The document's selection commands. They change `selection` only; naming
// and committing the step is the caller's.
#include "engine/core/ParallelFor.h"
#include "engine/core/Selection.h"
#include "engine/document/StudioDocument.h"
#include "engine/render/StudioRenderer.h"
#include "engine/selection/SelectionTools.h"

#include <algorithm>
#include <exception>

namespace korv {

void StudioDocument::selectAll() {
    selection = Selection::all(grid.width, grid.height);
}

void StudioDocument::deselect() {
    selection.reset();
}

void StudioDocument::invertSelection() {
    if (selection) selection = selection->inverted();
}

void StudioDocument::setSelection(SelectionRef newSelection) {
    selection = std::move(newSelection);
}

void StudioDocument::selectLayerShape(const Uuid& id) {
    const StudioLayer* layer = find(id);
    if (!layer) return;
    try {
        const std::optional<TileSet> raster = StudioRenderer::contentRaster(*layer, grid, cache());
        if (!raster) return;
        const SelectionTools::Mask mask = SelectionTools::fromAlpha(*raster);
        selection = SelectionTools::selection(mask, grid.width, grid.height, SelectionOp::replace, nullptr);
    } catch (const std::exception&) {
        // Out of memory while drawing the content: the selection stays as it was.
    }
}

void StudioDocument::selectMask(const Uuid& id) {
    const StudioLayer* layer = find(id);
    if (!layer || !layer->mask) return;
    try {
        const TileSet& stored = *layer->mask;
        const int64_t width = grid.width;
        // Where the mask has no tile, or the canvas reaches past the mask, everything is revealed.
        SelectionTools::Mask mask(size_t(width) * size_t(grid.height), 255);
        const IRect within = stored.grid.bounds().intersection(grid.bounds());
        const TileGrid& mg = stored.grid;
        parallelFor(mg.count(), [&](int64_t index) {
            const Tile* tile = stored.tile(index);
            if (!tile) return;
            const IRect tileRect = mg.rect(index);
            const IRect r = tileRect.intersection(within);
            if (r.isEmpty()) return;
            for (int64_t y = r.y; y < r.maxY(); ++y) {
                const uint8_t* src = tile->row(y - tileRect.y) + (r.x - tileRect.x) * 4;
                uint8_t* dst = mask.data() + y * width + r.x;
                for (int64_t x = 0; x < r.w; ++x)
                    dst[x] = uint8_t(255 - src[x * 4 + 3]);
            }
        });
        selection = SelectionTools::selection(mask, width, grid.height, SelectionOp::replace, nullptr);
    } catch (const std::exception&) {
        // Out of memory: the selection stays as it was.
    }
}

} // namespace korv
