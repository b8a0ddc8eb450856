// The edits of the layer tree: adding, arranging, merging, rasterizing and
// the mask commands. Pixel work runs tile by tile on all cores; everything
// else moves layer values and tile references only.
#include "engine/core/ParallelFor.h"
#include "engine/core/Selection.h"
#include "engine/document/StudioDocument.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <unordered_set>

namespace korv {

namespace {

constexpr size_t kMaxTextNameChars = 24;

void renewIds(StudioLayer& layer) {
    layer.id = Uuid::random();
    for (auto& c : layer.children)
        renewIds(c);
}

// Whether p lies inside the subtree at prefix (or is prefix itself).
bool startsWith(const LayerPath& p, const LayerPath& prefix) {
    return p.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), p.begin());
}

bool isBlank(unsigned char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// The first characters of the text with line breaks as blanks; a CR LF pair
// is one character, as a reader sees it.
std::string textName(const std::string& text) {
    std::string out;
    size_t chars = 0;
    for (size_t i = 0; i < text.size() && chars < kMaxTextNameChars; ++chars) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\r' || c == '\n') {
            out += ' ';
            i += (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ? 2 : 1;
            continue;
        }
        size_t n = 1;
        while (i + n < text.size() && (static_cast<unsigned char>(text[i + n]) & 0xC0) == 0x80)
            ++n;
        out.append(text, i, n);
        i += n;
    }
    return out;
}

// A frozen tile of 255 in every byte. One serves every place of a mask that
// hides all: a writer copies it first, so a hidden canvas costs one tile.
TilePtr hidingTile() {
    auto t = std::make_shared<Tile>(Tile::Uninitialized{});
    std::memset(t->pixels(), 255, size_t(kTileBytes));
    t->freeze();
    return t;
}

// The hidden amount from a selection, one tile: h = s XOR flip, which is
// 255 - s when flip is 255. Gives no tile where every h is zero.
TilePtr maskTileFromSelection(const Selection& selection, uint8_t flip, const TileGrid& grid, int64_t index) {
    const IRect r = grid.rect(index);
    // Pixels beyond the selection's plane count as unselected.
    const int64_t selW = std::clamp<int64_t>(selection.width() - r.x, 0, r.w);
    const int64_t selH = std::clamp<int64_t>(selection.height() - r.y, 0, r.h);
    if (flip == 0) {
        // Hiding the selection: only selected pixels need a tile.
        bool any = false;
        for (int64_t y = 0; y < selH && !any; ++y) {
            const uint8_t* s = selection.row(r.y + y) + r.x;
            unsigned acc = 0;
            for (int64_t x = 0; x < selW; ++x)
                acc |= s[x];
            any = acc != 0;
        }
        if (!any) return nullptr;
    } else if (selW == r.w && selH == r.h) {
        // Revealing the selection: a tile fully selected hides nothing.
        bool any = false;
        for (int64_t y = 0; y < selH && !any; ++y) {
            const uint8_t* s = selection.row(r.y + y) + r.x;
            unsigned acc = 255;
            for (int64_t x = 0; x < selW; ++x)
                acc &= s[x];
            any = acc != 255;
        }
        if (!any) return nullptr;
    }
    auto t = std::make_shared<Tile>();
    for (int64_t y = 0; y < r.h; ++y) {
        auto* out = reinterpret_cast<uint32_t*>(t->row(y));
        const int64_t w = y < selH ? selW : 0;
        const uint8_t* s = w > 0 ? selection.row(r.y + y) + r.x : nullptr;
        for (int64_t x = 0; x < w; ++x)
            out[x] = uint32_t(uint8_t(s[x] ^ flip)) * 0x01010101u;
        for (int64_t x = w; x < r.w; ++x)
            out[x] = uint32_t(flip) * 0x01010101u;
    }
    return t;
}

// Where a pixel layer's pixels and mask meet, the pixels fade by what the
// mask hides; h = 0 leaves a byte exactly as it was.
void applyMaskTile(Tile& pixels, const Tile& mask) {
    uint8_t* p = pixels.pixels();
    const uint8_t* m = mask.pixels();
    for (int64_t i = 0; i < kTilePixels; ++i) {
        const uint8_t keep = uint8_t(255 - m[i * 4 + 3]);
        for (int k = 0; k < 4; ++k)
            p[i * 4 + k] = mulBytes(p[i * 4 + k], keep);
    }
}

// The inverted mask tile, or none where the canvas part of the result would
// hide nothing (the old tile hid everything there).
TilePtr invertedMaskTile(const Tile* old, const IRect& r, const TilePtr& hiding) {
    if (!old) return hiding;
    bool any = false;
    for (int64_t y = 0; y < r.h && !any; ++y) {
        const uint8_t* row = old->row(y);
        unsigned acc = 255;
        for (int64_t x = 0; x < r.w; ++x)
            acc &= row[x * 4 + 3];
        any = acc != 255;
    }
    if (!any) return nullptr;
    auto t = std::make_shared<Tile>(Tile::Uninitialized{});
    const uint8_t* src = old->pixels();
    uint8_t* dst = t->pixels();
    for (int64_t i = 0; i < kTileBytes; ++i)
        dst[i] = uint8_t(255 - src[i]);
    return t;
}

// The merged or rasterized look as a layer's new pixels.
TileSet rasterOf(const std::vector<StudioLayer>& layers, const StudioDocument& doc) {
    return TileSet::from(*StudioRenderer::flatten(layers, doc));
}

} // namespace

Uuid StudioDocument::insert(StudioLayer layer, bool aboveActive) {
    const Uuid id = layer.id;
    std::optional<Container> place;
    if (aboveActive && activeID) place = container(*activeID);
    if (place) {
        withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
            siblings.insert(siblings.begin() + place->index + 1, std::move(layer));
        });
    } else {
        layers.push_back(std::move(layer));
    }
    activeID = id;
    markAllDirty();
    return id;
}

Uuid StudioDocument::addPixelLayer(std::optional<std::string> name) {
    std::string n = name ? std::move(*name) : uniqueName("Layer");
    return insert(StudioLayer::pixelLayer(std::move(n), grid), true);
}

Uuid StudioDocument::addAdjustment(AdjustmentType type) {
    StudioLayer l(Uuid::random(), uniqueName(std::string(displayName(type))), StudioLayerKind::adjustment);
    l.adjustment = AdjustmentSpec(type);
    return insert(std::move(l), true);
}

Uuid StudioDocument::addFill(const FillSpec& spec) {
    const char* base = "Color Fill";
    switch (spec.kind) {
    case FillKind::solid:
        base = "Color Fill";
        break;
    case FillKind::linearGradient:
    case FillKind::radialGradient:
        base = "Gradient Fill";
        break;
    case FillKind::pattern:
        base = "Pattern Fill";
        break;
    }
    StudioLayer l(Uuid::random(), uniqueName(base), StudioLayerKind::fill);
    l.fill = spec;
    return insert(std::move(l), true);
}

Uuid StudioDocument::addText(const TextSpec& spec) {
    std::string name = textName(spec.text);
    if (std::all_of(name.begin(), name.end(), [](char c) { return isBlank(static_cast<unsigned char>(c)); }))
        name = uniqueName("Text");
    StudioLayer l(Uuid::random(), std::move(name), StudioLayerKind::text);
    l.text = spec;
    return insert(std::move(l), true);
}

Uuid StudioDocument::addShape(const ShapeSpec& spec) {
    std::string base(toString(spec.kind));
    if (!base.empty()) base[0] = char(std::toupper(static_cast<unsigned char>(base[0])));
    StudioLayer l(Uuid::random(), uniqueName(base), StudioLayerKind::shape);
    l.shape = spec;
    return insert(std::move(l), true);
}

std::optional<Uuid> StudioDocument::group(const std::vector<Uuid>& ids, std::optional<std::string> name) {
    if (ids.empty()) return std::nullopt;
    auto place = container(ids.front());
    if (!place) return std::nullopt;
    StudioLayer g = StudioLayer::group(name ? std::move(*name) : uniqueName("Group"), {});
    const Uuid groupID = g.id;
    const std::unordered_set<Uuid> wanted(ids.begin(), ids.end());
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        std::vector<size_t> picked;
        for (size_t i = 0; i < siblings.size(); ++i)
            if (wanted.count(siblings[i].id)) picked.push_back(i);
        for (size_t i : picked)
            g.children.push_back(std::move(siblings[i]));
        for (auto it = picked.rbegin(); it != picked.rend(); ++it)
            siblings.erase(siblings.begin() + std::ptrdiff_t(*it));
        const size_t at = picked.empty() ? 0 : picked.front();
        siblings.insert(siblings.begin() + std::ptrdiff_t(at), std::move(g));
    });
    activeID = groupID;
    markAllDirty();
    return groupID;
}

void StudioDocument::ungroup(const Uuid& id) {
    const StudioLayer* g = find(id);
    if (!g || !g->isGroup()) return;
    auto place = container(id);
    std::optional<Uuid> top;
    if (!g->children.empty()) top = g->children.back().id;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        const auto at = siblings.begin() + place->index;
        std::vector<StudioLayer> members = std::move(at->children);
        siblings.erase(at);
        siblings.insert(siblings.begin() + place->index, std::make_move_iterator(members.begin()),
                        std::make_move_iterator(members.end()));
    });
    activeID = top;
    markAllDirty();
}

std::optional<Uuid> StudioDocument::duplicate(const Uuid& id) {
    auto place = container(id);
    if (!place) return std::nullopt;
    StudioLayer copy = *find(id);
    // The copy shares every tile with the source, so both must copy before writing.
    copy.freezeAll();
    renewIds(copy);
    copy.name += " copy";
    const Uuid copyID = copy.id;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        siblings.insert(siblings.begin() + place->index + 1, std::move(copy));
    });
    activeID = copyID;
    markAllDirty();
    return copyID;
}

void StudioDocument::deleteLayer(const Uuid& id) {
    auto place = container(id);
    if (!place) return;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        siblings.erase(siblings.begin() + place->index);
    });
    if (layers.empty()) layers.push_back(StudioLayer::pixelLayer("Layer 1", grid));
    if (!activeID || !find(*activeID)) {
        std::optional<Uuid> next;
        withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
            const int64_t n = int64_t(siblings.size());
            if (n > 0) next = siblings[size_t(std::max<int64_t>(std::min(place->index, n) - 1, 0))].id;
        });
        activeID = next ? next : std::optional<Uuid>(layers.back().id);
    }
    markAllDirty();
}

void StudioDocument::move(const Uuid& id, int64_t by) {
    auto place = container(id);
    if (!place) return;
    bool moved = false;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        const int64_t n = int64_t(siblings.size());
        const int64_t i = place->index;
        // Clamped before adding, so a huge count can't overflow.
        int64_t t = std::min(i + std::clamp<int64_t>(by, -n, n), n - 1);
        if (t < 0) t = 0;
        if (t == i) return;
        StudioLayer l = std::move(siblings[size_t(i)]);
        siblings.erase(siblings.begin() + i);
        siblings.insert(siblings.begin() + t, std::move(l));
        moved = true;
    });
    if (moved) markAllDirty();
}

void StudioDocument::move(const Uuid& id, const std::optional<Uuid>& intoGroup) {
    auto from = path(id);
    if (!from) return;
    if (intoGroup) {
        if (*intoGroup == id) return;
        auto to = path(*intoGroup);
        // Unknown or not a group: the layer would have nowhere to go.
        if (!to || !layer(*to).isGroup() || startsWith(*to, *from)) return;
    }
    auto place = container(id);
    StudioLayer moving;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        moving = std::move(siblings[size_t(place->index)]);
        siblings.erase(siblings.begin() + place->index);
    });
    if (intoGroup)
        update(*intoGroup, true, [&](StudioLayer& g) { g.children.push_back(std::move(moving)); });
    else
        layers.push_back(std::move(moving));
    activeID = id;
    markAllDirty();
}

const StudioLayer* StudioDocument::hiddenOfMergePair(const Uuid& id) const {
    auto place = container(id);
    if (!place || place->index == 0) return nullptr;
    const std::vector<StudioLayer>& siblings = place->parent.empty() ? layers : layer(place->parent).children;
    const StudioLayer& upper = siblings[size_t(place->index)];
    const StudioLayer& lower = siblings[size_t(place->index - 1)];
    if (!upper.isVisible) return &upper;
    if (!lower.isVisible) return &lower;
    return nullptr;
}

void StudioDocument::mergeDown(const Uuid& id) {
    auto place = container(id);
    if (!place || place->index == 0) return;
    // Merging with a hidden layer would change the picture or drop content.
    if (hiddenOfMergePair(id)) return;
    StudioLayer lower, upper;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        lower = siblings[size_t(place->index - 1)];
        upper = siblings[size_t(place->index)];
    });
    if (lower.isAdjustment() || lower.isGroup()) return;

    StudioLayer base = lower;
    if (lower.blendMode == BlendMode::normal) {
        lower.opacity = 1.0;
    } else {
        // The pair is joined in normal mode at full strength; the merged layer
        // keeps lower's mode and opacity, so it meets the backdrop as before.
        base.opacity = 1.0;
        base.blendMode = BlendMode::normal;
    }
    StudioLayer merged = std::move(lower);
    merged.kind = StudioLayerKind::pixel;
    merged.pixels = rasterOf({std::move(base), std::move(upper)}, *this);
    merged.mask.reset();
    merged.text.reset();
    merged.shape.reset();
    merged.fill.reset();
    merged.effects = EffectsSpec{};
    merged.fillOpacity = 1.0;
    merged.isClipping = false;
    merged.version += 1;
    const Uuid mergedID = merged.id;
    withSiblings(place->parent, [&](std::vector<StudioLayer>& siblings) {
        siblings[size_t(place->index - 1)] = std::move(merged);
        siblings.erase(siblings.begin() + place->index);
    });
    activeID = mergedID;
    markAllDirty();
}

void StudioDocument::flattenImage() {
    StudioLayer background(Uuid::random(), "Background", StudioLayerKind::pixel);
    background.pixels = rasterOf(layers, *this);
    activeID = background.id;
    layers.clear();
    layers.push_back(std::move(background));
    markAllDirty();
}

Uuid StudioDocument::stampVisible() {
    StudioLayer stamp(Uuid::random(), uniqueName("Stamp"), StudioLayerKind::pixel);
    stamp.pixels = rasterOf(layers, *this);
    return insert(std::move(stamp), false);
}

void StudioDocument::rasterize(const Uuid& id) {
    const StudioLayer* found = find(id);
    if (!found || !(found->isVector() || found->isGroup())) return;
    StudioLayer alone = *found;
    alone.opacity = 1.0;
    alone.blendMode = BlendMode::normal;
    alone.isClipping = false;
    alone.mask.reset();
    if (alone.isVector()) alone.fillOpacity = 1.0;
    // A hidden layer keeps its content: visibility stays on the layer, not in its pixels.
    alone.isVisible = true;
    TileSet raster = rasterOf({std::move(alone)}, *this);
    update(id, true, [&](StudioLayer& l) {
        l.kind = StudioLayerKind::pixel;
        l.pixels = std::move(raster);
        l.text.reset();
        l.shape.reset();
        l.fill.reset();
        l.children.clear();
        l.effects = EffectsSpec{};
    });
    markAllDirty();
}

void StudioDocument::rasterizeAllVector() {
    for (const StudioLayer& l : allLayers())
        if (l.isVector()) rasterize(l.id);
}

void StudioDocument::addMask(const Uuid& id, NewMask kind) {
    if (!find(id)) return;
    TileSet mask(grid);
    mask.ensureCells();
    if (kind == NewMask::hideAll) {
        std::fill(mask.tiles.begin(), mask.tiles.end(), hidingTile());
    } else if (kind != NewMask::revealAll && selection) {
        const uint8_t flip = kind == NewMask::revealSelection ? 255 : 0;
        const Selection& sel = *selection;
        parallelFor(grid.count(),
                    [&](int64_t i) { mask.tiles[size_t(i)] = maskTileFromSelection(sel, flip, grid, i); });
    }
    update(id, true, [&](StudioLayer& l) {
        l.mask = std::move(mask);
        l.maskEnabled = true;
    });
    markAllDirty();
}

void StudioDocument::deleteMask(const Uuid& id) {
    const StudioLayer* l = find(id);
    if (!l || !l->mask) return;
    update(id, true, [](StudioLayer& layer) { layer.mask.reset(); });
    markAllDirty();
}

void StudioDocument::applyMask(const Uuid& id) {
    const StudioLayer* l = find(id);
    if (!l || l->kind != StudioLayerKind::pixel || !l->pixels || !l->mask) return;
    const TileSet& mask = *l->mask;
    if (mask.grid != l->pixels->grid) return;
    TileSet result = *l->pixels;
    // Each index writes only its own entry; a shared tile is copied by writable().
    // A transparent tile stays transparent, so an absent one stays absent.
    parallelFor(result.grid.count(), [&](int64_t i) {
        const Tile* m = mask.tile(i);
        if (m && result.tile(i)) applyMaskTile(result.writable(i), *m);
    });
    update(id, true, [&](StudioLayer& layer) {
        layer.pixels = std::move(result);
        layer.mask.reset();
    });
    markAllDirty();
}

void StudioDocument::invertMask(const Uuid& id) {
    const StudioLayer* l = find(id);
    if (!l || !l->mask) return;
    const TileSet& old = *l->mask;
    TileSet inverted(old.grid);
    inverted.ensureCells();
    const bool anyAbsent = old.tiles.empty() ||
                           std::any_of(old.tiles.begin(), old.tiles.end(), [](const TilePtr& t) { return !t; });
    const TilePtr hiding = anyAbsent ? hidingTile() : nullptr;
    parallelFor(old.grid.count(), [&](int64_t i) {
        inverted.tiles[size_t(i)] = invertedMaskTile(old.tile(i), old.grid.rect(i), hiding);
    });
    update(id, true, [&](StudioLayer& layer) { layer.mask = std::move(inverted); });
    markAllDirty();
}

RGBABufferPtr StudioDocument::grayToMask(const RGBABuffer& buffer) {
    auto out = std::make_shared<RGBABuffer>(buffer.width(), buffer.height(), RGBABuffer::Uninitialized{});
    constexpr int64_t kBand = 64;
    const int64_t bands = (buffer.height() + kBand - 1) / kBand;
    parallelFor(bands, [&](int64_t b) {
        const int64_t y1 = std::min(buffer.height(), (b + 1) * kBand);
        for (int64_t y = b * kBand; y < y1; ++y) {
            const uint8_t* src = buffer.row(y);
            auto* dst = reinterpret_cast<uint32_t*>(out->row(y));
            for (int64_t x = 0; x < buffer.width(); ++x)
                dst[x] = uint32_t(uint8_t(255 - src[x * 4])) * 0x01010101u;
        }
    });
    return out;
}

std::optional<TileSet> StudioDocument::editableRaster(const Uuid& id, bool mask) const {
    const StudioLayer* l = find(id);
    if (!l || l->isLocked) return std::nullopt;
    if (mask) return l->mask;
    if (l->kind != StudioLayerKind::pixel) return std::nullopt;
    return l->pixels;
}

void StudioDocument::setRaster(const Uuid& id, bool mask, TileSet tiles, bool version) {
    update(id, version, [&](StudioLayer& l) {
        if (mask)
            l.mask = std::move(tiles);
        else
            l.pixels = std::move(tiles);
    });
}

} // namespace korv
