#pragma once
// Keeps the rasters that are expensive to rebuild (vector content, effects),
// one entry per layer id, keyed by everything they depend on: a changed key
// means a stale entry, so nothing ever needs invalidating by hand.
#include "engine/core/TileSet.h"
#include "engine/core/Uuid.h"

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace korv {

class RenderCache {
public:
    struct RasterEntry {
        std::string key;
        TileSet set;
    };
    struct EffectEntry {
        std::string key;
        std::optional<TileSet> set;
    };

    std::optional<TileSet> raster(const Uuid& id, const std::string& key) const;
    void storeRaster(const Uuid& id, std::string key, TileSet set);
    // The stored effect raster if its key matches; otherwise make() is run
    // without the lock held, and its result stored and returned.
    std::optional<TileSet> effect(const Uuid& id, const std::string& key,
                                  const std::function<std::optional<TileSet>()>& make);
    void clear();
    size_t rasterCount() const;

private:
    mutable std::mutex lock_;
    std::unordered_map<Uuid, RasterEntry> rasters_;
    std::unordered_map<Uuid, EffectEntry> effects_;
};

} // namespace korv
