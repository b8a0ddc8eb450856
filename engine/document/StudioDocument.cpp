#include "engine/document/StudioDocument.h"

#include "engine/core/Fnv.h"
#include "engine/core/Require.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <unordered_set>

namespace korv {

namespace {
TileGrid clampedGrid(int64_t w, int64_t h) {
    return TileGrid(std::max<int64_t>(w, 1), std::max<int64_t>(h, 1));
}

bool pathIn(const std::vector<StudioLayer>& layers, const Uuid& id, LayerPath& prefix) {
    for (size_t i = 0; i < layers.size(); ++i) {
        prefix.push_back(int64_t(i));
        if (layers[i].id == id || pathIn(layers[i].children, id, prefix)) return true;
        prefix.pop_back();
    }
    return false;
}

void rowsOf(const std::vector<StudioLayer>& layers, int64_t depth, std::vector<LayerRow>& out) {
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        out.push_back({it->id, depth, *it});
        if (it->isGroup() && it->isExpanded) rowsOf(it->children, depth + 1, out);
    }
}

void preorder(const std::vector<StudioLayer>& layers, std::vector<StudioLayer>& out) {
    for (const auto& l : layers) {
        out.push_back(l);
        preorder(l.children, out);
    }
}

const StudioLayer* findConst(const std::vector<StudioLayer>& layers, const Uuid& id) {
    for (const auto& l : layers) {
        if (l.id == id) return &l;
        if (auto* found = findConst(l.children, id)) return found;
    }
    return nullptr;
}
} // namespace

StudioDocument::StudioDocument(int64_t width, int64_t height, double dpi_,
                               std::optional<PaintColor> background)
    : grid(clampedGrid(width, height)), dpi(dpi_) {
    StudioLayer base = StudioLayer::pixelLayer(background ? "Background" : "Layer 1", grid);
    if (background && background->a > 0) {
        auto px = background->premultipliedBytes();
        base.pixels->fillAll(px[0], px[1], px[2], px[3]);
    }
    activeID = base.id;
    layers.push_back(std::move(base));
    resetHistory();
}

StudioDocument::StudioDocument(int64_t width, int64_t height, double dpi_, std::vector<StudioLayer> tree,
                               std::optional<Uuid> active)
    : grid(clampedGrid(width, height)), dpi(dpi_), layers(std::move(tree)) {
    if (layers.empty()) layers.push_back(StudioLayer::pixelLayer("Layer 1", grid));
    activeID = active ? active : std::optional<Uuid>(layers.back().id);
    resetHistory();
}

StudioDocument::StudioDocument(const RGBABuffer& image, double dpi_, std::string name)
    : grid(image.width(), image.height()), dpi(dpi_) {
    StudioLayer base(Uuid::random(), std::move(name), StudioLayerKind::pixel);
    base.pixels = TileSet::from(image);
    activeID = base.id;
    layers.push_back(std::move(base));
    resetHistory();
}

std::optional<LayerPath> StudioDocument::path(const Uuid& id) const {
    LayerPath p;
    if (pathIn(layers, id, p)) return p;
    return std::nullopt;
}

const StudioLayer& StudioDocument::layer(const LayerPath& p) const {
    KORV_REQUIRE(!p.empty());
    const std::vector<StudioLayer>* level = &layers;
    const StudioLayer* l = nullptr;
    for (int64_t i : p) {
        KORV_REQUIRE(i >= 0 && i < int64_t(level->size()));
        l = &(*level)[size_t(i)];
        level = &l->children;
    }
    return *l;
}

const StudioLayer* StudioDocument::find(const Uuid& id) const {
    return findConst(layers, id);
}

StudioLayer* StudioDocument::findMutable(const Uuid& id) {
    return const_cast<StudioLayer*>(findConst(layers, id));
}

std::optional<StudioLayer> StudioDocument::layer(const std::optional<Uuid>& id) const {
    if (!id) return std::nullopt;
    if (const StudioLayer* l = find(*id)) return *l;
    return std::nullopt;
}

std::optional<StudioDocument::Container> StudioDocument::container(const Uuid& id) const {
    auto p = path(id);
    if (!p) return std::nullopt;
    int64_t index = p->back();
    p->pop_back();
    return Container{*p, index};
}

void StudioDocument::withSiblings(const LayerPath& p,
                                  const std::function<void(std::vector<StudioLayer>&)>& body) {
    std::vector<StudioLayer>* level = &layers;
    for (int64_t i : p) {
        KORV_REQUIRE(i >= 0 && i < int64_t(level->size()));
        level = &(*level)[size_t(i)].children;
    }
    body(*level);
}

bool StudioDocument::update(const Uuid& id, bool bumpVersion, const std::function<void(StudioLayer&)>& body) {
    StudioLayer* l = findMutable(id);
    if (!l) return false;
    body(*l);
    if (bumpVersion) l->version += 1;
    return true;
}

std::vector<LayerRow> StudioDocument::rows() const {
    std::vector<LayerRow> out;
    rowsOf(layers, 0, out);
    return out;
}

std::vector<StudioLayer> StudioDocument::allLayers() const {
    std::vector<StudioLayer> out;
    preorder(layers, out);
    return out;
}

std::string StudioDocument::uniqueName(const std::string& base) const {
    std::unordered_set<std::string> names;
    std::function<void(const std::vector<StudioLayer>&)> collect =
        [&](const std::vector<StudioLayer>& level) {
            for (const auto& l : level) {
                names.insert(l.name);
                collect(l.children);
            }
        };
    collect(layers);
    for (int64_t n = 1;; ++n) {
        std::string candidate = base + " " + std::to_string(n);
        if (!names.count(candidate)) return candidate;
    }
}

uint64_t StudioDocument::fingerprint() const {
    FnvMixer m;
    m.mix(uint64_t(width()));
    m.mix(uint64_t(height()));
    for (const auto& l : layers)
        m.mix(l.fingerprint());
    return m.h;
}

RGBABufferPtr StudioDocument::flattened() const {
    return StudioRenderer::flatten(*this);
}

} // namespace korv
