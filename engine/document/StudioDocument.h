#pragma once
// A picture: the layer tree on one canvas, with its selection, render cache
// and the set of tiles the canvas must redraw. Used from one thread at a time.
#include "engine/core/PaintColor.h"
#include "engine/core/RGBABuffer.h"
#include "engine/core/SelectionRef.h"
#include "engine/document/StudioLayer.h"
#include "engine/render/RenderCache.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace korv {

// Indices from the top level down to a layer.
using LayerPath = std::vector<int64_t>;

class StudioDocument {
public:
    struct Container {
        LayerPath parent; // empty at the top level
        int64_t index = 0;
    };

    // One layer "Background" filled with the colour, or a transparent "Layer 1" without one.
    StudioDocument(int64_t width, int64_t height, double dpi = 72.0,
                   std::optional<PaintColor> background = std::nullopt);
    // Takes the tree as given; no active id means the topmost layer.
    StudioDocument(int64_t width, int64_t height, double dpi, std::vector<StudioLayer> layers,
                   std::optional<Uuid> active = std::nullopt);
    // A one-layer document of the picture's size.
    StudioDocument(const RGBABuffer& image, double dpi, std::string name);
    StudioDocument(const StudioDocument&) = delete;
    StudioDocument& operator=(const StudioDocument&) = delete;

    TileGrid grid;
    double dpi = 72.0;
    std::vector<StudioLayer> layers; // bottom first
    std::optional<Uuid> activeID;
    SelectionRef selection;
    std::set<int64_t> dirtyTiles;
    std::function<void()> onGridChange;

    int64_t width() const { return grid.width; }
    int64_t height() const { return grid.height; }
    RenderCache& cache() const { return *cache_; }

    std::optional<LayerPath> path(const Uuid& id) const;
    // A path that does not exist is a programming fault.
    const StudioLayer& layer(const LayerPath& path) const;
    std::optional<StudioLayer> layer(const std::optional<Uuid>& id) const;
    const StudioLayer* find(const Uuid& id) const;
    std::optional<StudioLayer> activeLayer() const { return layer(activeID); }
    std::optional<Container> container(const Uuid& id) const;
    // Runs body on the array at that place: the top level for an empty path,
    // otherwise the children of the layer there.
    void withSiblings(const LayerPath& path, const std::function<void(std::vector<StudioLayer>&)>& body);
    // Runs body on the layer in place; false (and nothing done) for an unknown id.
    bool update(const Uuid& id, bool bumpVersion, const std::function<void(StudioLayer&)>& body);

    std::vector<LayerRow> rows() const;
    std::vector<StudioLayer> allLayers() const;
    std::string uniqueName(const std::string& base) const;
    uint64_t fingerprint() const;
    RGBABufferPtr flattened() const;

private:
    StudioLayer* findMutable(const Uuid& id);
    std::unique_ptr<RenderCache> cache_ = std::make_unique<RenderCache>();
};

} // namespace korv
