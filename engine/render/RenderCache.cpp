#include "engine/render/RenderCache.h"

namespace korv {

std::optional<TileSet> RenderCache::raster(const Uuid& id, const std::string& key) const {
    std::lock_guard g(lock_);
    auto it = rasters_.find(id);
    if (it == rasters_.end() || it->second.key != key) return std::nullopt;
    return it->second.set;
}

void RenderCache::storeRaster(const Uuid& id, std::string key, TileSet set) {
    set.freeze(); // shared with every plan that reads it
    std::lock_guard g(lock_);
    rasters_[id] = RasterEntry{std::move(key), std::move(set)};
}

std::optional<TileSet> RenderCache::effect(const Uuid& id, const std::string& key,
                                           const std::function<std::optional<TileSet>()>& make) {
    {
        std::lock_guard g(lock_);
        auto it = effects_.find(id);
        if (it != effects_.end() && it->second.key == key) return it->second.set;
    }
    std::optional<TileSet> made = make();
    if (made) made->freeze();
    std::lock_guard g(lock_);
    effects_[id] = EffectEntry{key, made};
    return made;
}

void RenderCache::clear() {
    std::lock_guard g(lock_);
    rasters_.clear();
    effects_.clear();
}

size_t RenderCache::rasterCount() const {
    std::lock_guard g(lock_);
    return rasters_.size();
}

} // namespace korv
