#include "engine/render/StudioRenderer.h"

#include "engine/core/Fnv.h"
#include "engine/core/ParallelFor.h"
#include "engine/document/RecordCoding.h"
#include "engine/document/StudioDocument.h"
#include "engine/render/AdjustmentProgram.h"
#include "engine/render/Compositor.h"
#include "engine/render/PixelMath.h"
#include "engine/render/TileLoops.h"
#include "engine/render/VectorRender.h"
#include "engine/render/WorkBuffers.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace korv::StudioRenderer {

namespace {

// A tile is rendered in horizontal strips: every step of the pipeline is per
// pixel, so a strip gives the same bytes as the whole tile while the working
// buffers of all layers stay in the cache.
constexpr int64_t kStripRows = 32;
constexpr int64_t kStripPixels = kStripRows * kTileSize;

// Pixels [first, first + count) of one tile.
struct Span {
    int64_t tile;
    int64_t first;
    int64_t count;
};

struct Tables {
    float unit[256];    // byte / 255
    float visible[256]; // (255 - h) / 255, the share a mask byte h lets through
    Tables() {
        for (int i = 0; i < 256; ++i) {
            unit[i] = float(i) / 255.0f;
            visible[i] = float(255 - i) / 255.0f;
        }
    }
};
const Tables kTables;

void clear(float* b, int64_t pixels) { std::memset(b, 0, size_t(pixels) * 4 * sizeof(float)); }

const Tile* tileOf(const std::optional<TileSet>& set, int64_t index) {
    return set ? set->tile(index) : nullptr;
}

bool renderNodesSpan(const RenderPlan& nodes, const Span& s, float* acc);

// The layer's own pixels, faded by fill opacity, with the colour overlay if any.
KORV_PIXEL_LOOP void pixelsSpan(const PlanNode& node, const Tile& t, const Span& s, float* out) {
    const uint8_t* px = t.pixels() + s.first * 4;
    const float f = node.fill;
    if (!node.overlay) {
        const float k = f / 255.0f;
        for (int64_t i = 0; i < s.count * 4; ++i) out[i] = float(px[i]) * k;
        return;
    }
    const auto [ro, go, bo, oo] = *node.overlay;
    const float* unit = kTables.unit;
    for (int64_t i = 0; i < s.count; ++i) {
        const uint8_t* p = px + i * 4;
        float* o = out + i * 4;
        const float a = unit[p[3]];
        const float cr = unit[p[0]], cg = unit[p[1]], cb = unit[p[2]];
        const bool on = p[3] != 0;
        o[0] = selectFloat(on, f * (cr + (a * ro - cr) * oo), 0.0f);
        o[1] = selectFloat(on, f * (cg + (a * go - cg) * oo), 0.0f);
        o[2] = selectFloat(on, f * (cb + (a * bo - cb) * oo), 0.0f);
        o[3] = selectFloat(on, f * a, 0.0f);
    }
}

// Effects that lie under the layer (shadow, stroke, glow), not touched by fill.
KORV_PIXEL_LOOP void underSpan(const Tile& t, const Span& s, float* out) {
    const uint8_t* px = t.pixels() + s.first * 4;
    const float* unit = kTables.unit;
    for (int64_t i = 0; i < s.count; ++i) {
        const uint8_t* u = px + i * 4;
        float* o = out + i * 4;
        const bool on = u[3] != 0;
        const float k = 1.0f - o[3];
        o[0] = selectFloat(on, o[0] + k * unit[u[0]], o[0]);
        o[1] = selectFloat(on, o[1] + k * unit[u[1]], o[1]);
        o[2] = selectFloat(on, o[2] + k * unit[u[2]], o[2]);
        o[3] = selectFloat(on, o[3] + unit[u[3]] * k, o[3]);
    }
}

// A mask byte h of 0 multiplies by exactly 1, so no pixel needs a test.
KORV_PIXEL_LOOP void maskSpan(const Tile& t, const Span& s, float* out) {
    const uint8_t* px = t.pixels() + s.first * 4;
    const float* visible = kTables.visible;
    for (int64_t i = 0; i < s.count; ++i) {
        const float m = visible[px[i * 4 + 3]];
        float* o = out + i * 4;
        o[0] *= m;
        o[1] *= m;
        o[2] *= m;
        o[3] *= m;
    }
}

bool contentSpan(const PlanNode& node, const Span& s, float* out) {
    bool has;
    if (node.kind == StudioLayerKind::group) {
        clear(out, s.count);
        has = renderNodesSpan(node.children, s, out);
    } else if (const Tile* t = tileOf(node.raster, s.tile)) {
        pixelsSpan(node, *t, s, out);
        has = true;
    } else {
        clear(out, s.count);
        has = false;
    }
    if (const Tile* u = tileOf(node.under, s.tile)) {
        underSpan(*u, s, out);
        has = true;
    }
    if (!has) return false;
    if (const Tile* m = tileOf(node.mask, s.tile)) maskSpan(*m, s, out);
    return true;
}

void blendSpan(float* dst, const float* src, int64_t pixels, float opacity, BlendMode mode, bool atop,
               bool accEmpty) {
    Compositor::blendSpan(dst, src, pixels, opacity, mode, atop, accEmpty);
}

// An adjustment works through its span in chunks small enough that the
// colours before and after stay in the first-level cache.
constexpr int64_t kAdjustChunk = 256;

// Straight colours of a chunk, and the share w of the change that each pixel
// takes. A pixel that stays (no alpha, or nothing let through) gets w = 0 and
// the colour 0, so neither inf nor NaN reaches the program.
template <bool Masked>
KORV_PIXEL_LOOP void adjustInputs(const float* px, const uint8_t* mask, float o, int64_t count,
                                  float* __restrict r, float* __restrict g, float* __restrict b,
                                  float* __restrict w) {
    for (int64_t i = 0; i < count; ++i) {
        const float* p = px + i * 4;
        const float a = p[3];
        float share = o;
        if constexpr (Masked) share = o * float(255 - mask[i * 4 + 3]) / 255.0f;
        const bool on = (a > 0.0001f) & (share > 0.0f);
        const float sr = p[0] / a, sg = p[1] / a, sb = p[2] / a;
        w[i] = selectFloat(on, share, 0.0f);
        r[i] = selectFloat(on, sr < 1.0f ? sr : 1.0f, 0.0f);
        g[i] = selectFloat(on, sg < 1.0f ? sg : 1.0f, 0.0f);
        b[i] = selectFloat(on, sb < 1.0f ? sb : 1.0f, 0.0f);
    }
}

// Each colour moves by its share from before to after; alpha is not written.
KORV_PIXEL_LOOP void adjustOutputs(float* __restrict px, int64_t count, const float* __restrict w,
                                   const float* __restrict r, const float* __restrict g,
                                   const float* __restrict b, const float* __restrict r2,
                                   const float* __restrict g2, const float* __restrict b2) {
    for (int64_t i = 0; i < count; ++i) {
        float* p = px + i * 4;
        const float a = p[3];
        const bool on = w[i] > 0.0f;
        p[0] = selectFloat(on, a * (r[i] + w[i] * (r2[i] - r[i])), p[0]);
        p[1] = selectFloat(on, a * (g[i] + w[i] * (g2[i] - g[i])), p[1]);
        p[2] = selectFloat(on, a * (b[i] + w[i] * (b2[i] - b[i])), p[2]);
    }
}

// The adjusted colours blended in the layer's mode onto the colours before.
// Both go in opaque, where the compositing of a span reduces to the mode's
// formula on straight colours, so the mode is chosen once per chunk.
void blendAdjusted(BlendMode mode, const float* const before[3], float* const after[3], int64_t count) {
    alignas(64) float backdrop[kAdjustChunk * 4], source[kAdjustChunk * 4];
    for (int64_t i = 0; i < count; ++i) {
        for (int c = 0; c < 3; ++c) {
            backdrop[i * 4 + c] = before[c][i];
            source[i * 4 + c] = after[c][i];
        }
        backdrop[i * 4 + 3] = 1.0f;
        source[i * 4 + 3] = 1.0f;
    }
    Compositor::blendSpan(backdrop, source, count, 1.0f, mode, false, false);
    for (int64_t i = 0; i < count; ++i)
        for (int c = 0; c < 3; ++c)
            after[c][i] = backdrop[i * 4 + c];
}

void adjustSpan(const PlanNode& node, const Span& s, float* buffer) {
    if (!node.program || !(node.opacity > 0.0f)) return;
    const AdjustmentProgram& program = *node.program;
    const Tile* mask = tileOf(node.mask, s.tile);
    alignas(64) float planes[7][kAdjustChunk];
    float* const before[3] = {planes[0], planes[1], planes[2]};
    float* const after[3] = {planes[3], planes[4], planes[5]};
    float* const share = planes[6];
    for (int64_t first = 0; first < s.count; first += kAdjustChunk) {
        const int64_t n = std::min(kAdjustChunk, s.count - first);
        float* px = buffer + first * 4;
        if (mask)
            adjustInputs<true>(px, mask->pixels() + (s.first + first) * 4, node.opacity, n, before[0],
                               before[1], before[2], share);
        else
            adjustInputs<false>(px, nullptr, node.opacity, n, before[0], before[1], before[2], share);
        for (int c = 0; c < 3; ++c)
            std::memcpy(after[c], before[c], size_t(n) * sizeof(float));
        program.apply(after[0], after[1], after[2], n);
        if (node.mode != BlendMode::normal) blendAdjusted(node.mode, before, after, n);
        adjustOutputs(px, n, share, before[0], before[1], before[2], after[0], after[1], after[2]);
    }
}

bool renderNodesSpan(const RenderPlan& nodes, const Span& s, float* acc) {
    WorkBuffer layerBuffer;
    std::optional<WorkBuffer> clipBuffer;
    float* layer = layerBuffer.get();
    bool accEmpty = true;
    const size_t count = nodes.size();
    size_t i = 0;
    while (i < count) {
        const PlanNode& base = nodes[i];
        size_t runEnd = i + 1;
        while (runEnd < count && nodes[runEnd].clipping) ++runEnd;
        const size_t runStart = i + 1;
        i = runEnd;
        if (!base.visible) continue;
        if (base.kind == StudioLayerKind::adjustment) {
            // With nothing below, there is nothing to change. The plan gave it no run.
            if (!accEmpty) adjustSpan(base, s, acc);
            continue;
        }
        if (!contentSpan(base, s, layer)) continue;
        for (size_t r = runStart; r < runEnd; ++r) {
            const PlanNode& node = nodes[r];
            if (!node.visible) continue;
            if (node.kind == StudioLayerKind::adjustment) {
                adjustSpan(node, s, layer);
                continue;
            }
            if (!clipBuffer) clipBuffer.emplace();
            if (contentSpan(node, s, clipBuffer->get()))
                blendSpan(layer, clipBuffer->get(), s.count, node.opacity, node.mode, true, false);
        }
        if (base.opacity > 0.0f) {
            blendSpan(acc, layer, s.count, base.opacity, base.mode, false, accEmpty);
            accEmpty = false;
        }
    }
    return !accEmpty;
}

// Float pixels back to valid premultiplied bytes: colour never above alpha.
KORV_PIXEL_LOOP void toBytes(const float* src, uint8_t* out, int64_t pixels) {
    for (int64_t i = 0; i < pixels; ++i) {
        const float* p = src + i * 4;
        const float a = std::max(0.0f, std::min(p[3], 1.0f));
        const float ta = a * 255.0f + 0.5f;
        const int A = ta >= 255.0f ? 255 : int(ta);
        for (int c = 0; c < 3; ++c) {
            const float v = std::max(0.0f, std::min(p[c], a));
            out[i * 4 + c] = uint8_t(std::min(int(v * 255.0f + 0.5f), A));
        }
        out[i * 4 + 3] = uint8_t(A);
    }
}

Span fullTile(int64_t tile) { return {tile, 0, kTilePixels}; }

RGBABufferPtr sampleNearest(int64_t width, int64_t height, int64_t maxSide,
                            const std::function<Pixel4(int64_t, int64_t)>& source) {
    const double scale = double(maxSide) / double(std::max(width, height));
    const int64_t tw = std::max<int64_t>(int64_t(scale * double(width)), 1);
    const int64_t th = std::max<int64_t>(int64_t(scale * double(height)), 1);
    auto out = std::make_shared<RGBABuffer>(tw, th);
    for (int64_t j = 0; j < th; ++j) {
        const int64_t sy = std::min(int64_t((double(j) + 0.5) / scale), height - 1);
        for (int64_t i = 0; i < tw; ++i) {
            const int64_t sx = std::min(int64_t((double(i) + 0.5) / scale), width - 1);
            out->setPixel(i, j, source(sx, sy));
        }
    }
    return out;
}

} // namespace

std::string specKeyOfJSON(const nlohmann::json& j) {
    // The same canonical bytes as the layer fingerprint hashes.
    const std::optional<uint64_t> h = canonicalHash(j);
    if (!h) return "?";
    char buf[24];
    std::snprintf(buf, sizeof buf, "%llx", static_cast<unsigned long long>(*h));
    return buf;
}

namespace {

// Vector content is drawn once per record and canvas size: the key holds
// those and nothing else, so changing the layer's opacity or mode doesn't
// redraw it.
template <class Spec, class Draw>
std::optional<TileSet> cachedVector(const StudioLayer& layer, const std::optional<Spec>& spec, char letter,
                                    const TileGrid& grid, RenderCache& cache, Draw&& draw) {
    if (!spec) return std::nullopt;
    const std::string key = std::string(1, letter) + std::to_string(grid.width) + "x" +
                            std::to_string(grid.height) + specKey(*spec);
    if (std::optional<TileSet> hit = cache.raster(layer.id, key)) return hit;
    // Drawn without the lock: two threads that miss at once both draw, and
    // the results are equal.
    TileSet set = draw(*spec, grid);
    cache.storeRaster(layer.id, key, set);
    return set;
}

} // namespace

std::optional<TileSet> contentRaster(const StudioLayer& layer, const TileGrid& grid, RenderCache& cache) {
    switch (layer.kind) {
    case StudioLayerKind::pixel:
        return layer.pixels;
    case StudioLayerKind::text:
        return cachedVector(layer, layer.text, 't', grid, cache, VectorRender::text);
    case StudioLayerKind::shape:
        return cachedVector(layer, layer.shape, 's', grid, cache, VectorRender::shape);
    case StudioLayerKind::fill:
        return cachedVector(layer, layer.fill, 'f', grid, cache, VectorRender::fill);
    case StudioLayerKind::adjustment:
    case StudioLayerKind::group:
        break;
    }
    return std::nullopt;
}

RenderPlan plan(const std::vector<StudioLayer>& layers, const TileGrid& grid, RenderCache& cache) {
    RenderPlan nodes;
    nodes.reserve(layers.size());
    for (const StudioLayer& layer : layers) {
        PlanNode node;
        node.kind = layer.kind;
        node.opacity = float(layer.opacity);
        node.fill = float(layer.fillOpacity);
        node.mode = layer.blendMode;
        node.visible = layer.isVisible;
        node.clipping = layer.isClipping;
        node.raster = contentRaster(layer, grid, cache);
        // The overlay needs no raster of its own, so it holds for every kind.
        if (const EffectsSpec& fx = layer.effects; fx.overlayOn)
            node.overlay = std::array<float, 4>{float(fx.overlayColor.r), float(fx.overlayColor.g),
                                                float(fx.overlayColor.b), float(fx.overlayOpacity)};
        if (layer.maskEnabled) node.mask = layer.mask;
        if (layer.adjustment) node.program = std::make_shared<const AdjustmentProgram>(*layer.adjustment);
        if (layer.isGroup()) node.children = plan(layer.children, grid, cache);
        nodes.push_back(std::move(node));
    }
    // A clipped layer needs an unclipped base below it that is not an adjustment.
    const PlanNode* base = nullptr;
    for (PlanNode& node : nodes) {
        if (!node.clipping) base = &node;
        else if (!base || base->kind == StudioLayerKind::adjustment) node.clipping = false;
    }
    return nodes;
}

bool renderNodes(const RenderPlan& nodes, int64_t tile, float* acc) {
    return renderNodesSpan(nodes, fullTile(tile), acc);
}

bool content(const PlanNode& node, int64_t tile, float* out) { return contentSpan(node, fullTile(tile), out); }

void adjust(const PlanNode& node, int64_t tile, float* buffer) {
    adjustSpan(node, fullTile(tile), buffer);
}

void blend(float* dst, const float* src, float opacity, BlendMode mode, bool atop, bool accEmpty) {
    blendSpan(dst, src, kTilePixels, opacity, mode, atop, accEmpty);
}

void renderTile(int64_t tile, const RenderPlan& plan, uint8_t* out) {
    WorkBuffer acc;
    for (int64_t first = 0; first < kTilePixels; first += kStripPixels) {
        const Span s{tile, first, kStripPixels};
        clear(acc.get(), s.count);
        renderNodesSpan(plan, s, acc.get());
        toBytes(acc.get(), out + first * 4, s.count);
    }
}

RGBABufferPtr flatten(const RenderPlan& plan, const TileGrid& grid) {
    return renderCanvas(grid, [&](int64_t index, uint8_t* out) { renderTile(index, plan, out); });
}

RGBABufferPtr flatten(const std::vector<StudioLayer>& layers, const StudioDocument& doc) {
    return flatten(plan(layers, doc.grid, doc.cache()), doc.grid);
}

RGBABufferPtr flatten(const StudioDocument& doc) { return flatten(doc.layers, doc); }

std::map<int64_t, RGBABufferPtr> tileImages(const StudioDocument& doc, const std::vector<int64_t>& tiles) {
    if (tiles.empty()) return {};
    const RenderPlan p = plan(doc.layers, doc.grid, doc.cache());
    return renderTilePictures(doc.grid, tiles, [&](int64_t index, uint8_t* out) { renderTile(index, p, out); });
}

Pixel4 pixel(const StudioDocument& doc, int64_t x, int64_t y) {
    if (x < 0 || y < 0 || x >= doc.width() || y >= doc.height()) return {0, 0, 0, 0};
    const RenderPlan p = plan(doc.layers, doc.grid, doc.cache());
    ByteTileBuffer bytes;
    renderTile(doc.grid.indexAt(x, y), p, bytes.get());
    const uint8_t* px = bytes.get() + (y & (kTileSize - 1)) * kTileStride + (x & (kTileSize - 1)) * 4;
    return {px[0], px[1], px[2], px[3]};
}

RGBABufferPtr thumbnail(const StudioLayer& layer, const StudioDocument& doc, int64_t maxSide) {
    if (layer.isAdjustment()) return nullptr;
    if (layer.isGroup()) {
        RGBABufferPtr flat = flatten(plan(layer.children, doc.grid, doc.cache()), doc.grid);
        return sampleNearest(doc.width(), doc.height(), maxSide,
                             [&](int64_t x, int64_t y) { return flat->pixel(x, y); });
    }
    std::optional<TileSet> set = contentRaster(layer, doc.grid, doc.cache());
    if (!set) return nullptr;
    return sampleNearest(doc.width(), doc.height(), maxSide, [&](int64_t x, int64_t y) { return set->pixel(x, y); });
}

RGBABufferPtr maskThumbnail(const StudioLayer& layer, const StudioDocument& doc, int64_t maxSide) {
    if (!layer.mask) return nullptr;
    const TileSet& mask = *layer.mask;
    return sampleNearest(doc.width(), doc.height(), maxSide, [&](int64_t x, int64_t y) -> Pixel4 {
        const uint8_t v = uint8_t(255 - mask.alpha(x, y));
        return {v, v, v, 255};
    });
}

} // namespace korv::StudioRenderer
