// The whole picture's size and orientation, and moving layers: every raster
// and mask rebuilt on a new grid through one walk.
#include "engine/core/ParallelFor.h"
#include "engine/core/Require.h"
#include "engine/document/StudioDocument.h"
#include "engine/platform/Resampling.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace korv {

namespace {

bool hasVisiblePixel(const TileSet& set) {
    for (const auto& t : set.tiles) {
        if (!t) continue;
        const uint8_t* p = t->pixels();
        unsigned acc = 0;
        for (int64_t i = 3; i < kTileBytes; i += 4)
            acc |= p[i];
        if (acc) return true;
    }
    return false;
}

// Lengths that have no direction scale by the mean of the two factors.
void scaleEffects(EffectsSpec& e, double mean) {
    e.shadowDistance *= mean;
    e.shadowBlur *= mean;
    e.strokeWidth *= mean;
    e.glowSize *= mean;
}

void scaleVector(StudioLayer& l, double sx, double sy) {
    const double mean = (sx + sy) / 2;
    if (l.text) {
        l.text->x *= sx;
        l.text->y *= sy;
        l.text->boxWidth *= sx;
        l.text->size *= mean;
        l.text->tracking *= mean;
    }
    if (l.shape) {
        l.shape->x *= sx;
        l.shape->y *= sy;
        l.shape->w *= sx;
        l.shape->h *= sy;
        l.shape->cornerRadius *= mean;
        l.shape->strokeWidth *= mean;
    }
    if (l.fill) l.fill->scale *= mean;
}

void scaleAllEffects(std::vector<StudioLayer>& layers, double mean) {
    for (auto& l : layers) {
        scaleEffects(l.effects, mean);
        scaleAllEffects(l.children, mean);
    }
}

// The picture turned clockwise by quarter turns (1 to 3).
RGBABufferPtr rotated(const RGBABuffer& old, int64_t turns) {
    const int64_t w = old.width(), h = old.height();
    const bool odd = turns & 1;
    auto out = std::make_shared<RGBABuffer>(odd ? h : w, odd ? w : h, RGBABuffer::Uninitialized{});
    const int64_t nw = out->width(), nh = out->height();
    const auto* src = reinterpret_cast<const uint32_t*>(old.data());
    parallelFor(nh, [&](int64_t y) {
        auto* dst = reinterpret_cast<uint32_t*>(out->row(y));
        if (turns == 1) { // new (x, y) is old (y, h - 1 - x)
            for (int64_t x = 0; x < nw; ++x)
                dst[x] = src[(h - 1 - x) * w + y];
        } else if (turns == 2) {
            const uint32_t* row = src + (h - 1 - y) * w;
            for (int64_t x = 0; x < nw; ++x)
                dst[x] = row[w - 1 - x];
        } else { // new (x, y) is old (w - 1 - y, x)
            for (int64_t x = 0; x < nw; ++x)
                dst[x] = src[x * w + (w - 1 - y)];
        }
    });
    return out;
}

RGBABufferPtr mirrored(const RGBABuffer& old, bool horizontal) {
    const int64_t w = old.width(), h = old.height();
    auto out = std::make_shared<RGBABuffer>(w, h, RGBABuffer::Uninitialized{});
    parallelFor(h, [&](int64_t y) {
        if (horizontal) {
            const auto* src = reinterpret_cast<const uint32_t*>(old.row(y));
            auto* dst = reinterpret_cast<uint32_t*>(out->row(y));
            for (int64_t x = 0; x < w; ++x)
                dst[x] = src[w - 1 - x];
        } else {
            std::memcpy(out->row(y), old.row(h - 1 - y), size_t(w * 4));
        }
    });
    return out;
}

} // namespace

void StudioDocument::regrid(int64_t width, int64_t height,
                            const std::function<RGBABufferPtr(const RGBABuffer&)>& draw,
                            const std::function<void(StudioLayer&)>& vector) {
    const TileGrid next(std::max<int64_t>(width, 1), std::max<int64_t>(height, 1));
    auto rebuild = [&](std::optional<TileSet>& set) {
        if (!set) return;
        TileSet fresh(next);
        // An empty raster stays empty and costs nothing, whatever the size.
        if (hasVisiblePixel(*set)) {
            const RGBABufferPtr drawn = draw(*set->toBuffer());
            KORV_REQUIRE(drawn && drawn->width() == next.width && drawn->height() == next.height);
            fresh.load(*drawn);
        }
        set = std::move(fresh);
    };
    std::function<void(std::vector<StudioLayer>&)> walk = [&](std::vector<StudioLayer>& layers) {
        for (auto& l : layers) {
            rebuild(l.pixels);
            rebuild(l.mask);
            if (l.isVector()) vector(l);
            l.version += 1;
            walk(l.children);
        }
    };
    walk(layers);
    grid = next;
    selection.reset();
    if (onGridChange) onGridChange();
    markAllDirty();
}

void StudioDocument::resizeImage(int64_t width, int64_t height) {
    width = std::max<int64_t>(width, 1);
    height = std::max<int64_t>(height, 1);
    const double sx = double(width) / double(grid.width), sy = double(height) / double(grid.height);
    regrid(
        width, height,
        [&](const RGBABuffer& old) {
            auto out = resampled(old, width, height);
            KORV_REQUIRE(out);
            return out;
        },
        [&](StudioLayer& l) { scaleVector(l, sx, sy); });
    scaleAllEffects(layers, (sx + sy) / 2);
}

void StudioDocument::resizeCanvas(int64_t width, int64_t height, double anchorX, double anchorY) {
    width = std::max<int64_t>(width, 1);
    height = std::max<int64_t>(height, 1);
    anchorX = std::clamp(std::isfinite(anchorX) ? anchorX : 0.5, 0.0, 1.0);
    anchorY = std::clamp(std::isfinite(anchorY) ? anchorY : 0.5, 0.0, 1.0);
    // std::round takes ties away from zero.
    const auto dx = int64_t(std::round(double(width - grid.width) * anchorX));
    const auto dy = int64_t(std::round(double(height - grid.height) * anchorY));
    const TileGrid before = grid, after(width, height);
    regrid(
        width, height,
        [&](const RGBABuffer& old) {
            return old.cropped({-dx, -dy, width, height});
        },
        [&](StudioLayer& l) { offsetVector(l, double(dx), double(dy), before, after); });
}

void StudioDocument::crop(const IRect& rect) {
    const IRect r = rect.intersection(grid.bounds());
    if (r.w < 1 || r.h < 1) return;
    const TileGrid before = grid, after(r.w, r.h);
    regrid(
        r.w, r.h, [&](const RGBABuffer& old) { return old.cropped(r); },
        [&](StudioLayer& l) { offsetVector(l, double(-r.x), double(-r.y), before, after); });
}

void StudioDocument::rotate(int64_t quarterTurns) {
    const int64_t turns = quarterTurns & 3;
    if (turns == 0) return;
    // A text box can't follow the turn, so vector layers become pixels first.
    rasterizeAllVector();
    const bool odd = turns & 1;
    regrid(
        odd ? grid.height : grid.width, odd ? grid.width : grid.height,
        [&](const RGBABuffer& old) { return rotated(old, turns); }, [](StudioLayer&) {});
}

void StudioDocument::flip(bool horizontal) {
    rasterizeAllVector();
    regrid(
        grid.width, grid.height, [&](const RGBABuffer& old) { return mirrored(old, horizontal); },
        [](StudioLayer&) {});
}

void StudioDocument::offsetLayer(const Uuid& id, int64_t dx, int64_t dy) {
    const StudioLayer* l = find(id);
    if (!l || l->isLocked || (dx == 0 && dy == 0)) return;
    const TileGrid g = grid;
    update(id, true, [&](StudioLayer& layer) { offsetTree(layer, dx, dy, g); });
    markAllDirty();
}

void StudioDocument::offsetTree(StudioLayer& layer, int64_t dx, int64_t dy, const TileGrid& grid) {
    if (layer.kind == StudioLayerKind::pixel && layer.pixels) {
        if (const auto bounds = layer.pixels->contentBounds()) {
            const RGBABufferPtr area = layer.pixels->region(*bounds);
            TileSet moved(grid);
            // What leaves the canvas is gone; write() clips to it.
            moved.write(*area, {bounds->x + dx, bounds->y + dy, bounds->w, bounds->h});
            layer.pixels = std::move(moved);
        }
    }
    if (layer.isVector()) offsetVector(layer, double(dx), double(dy), grid, grid);
    layer.version += 1;
    for (auto& child : layer.children)
        offsetTree(child, dx, dy, grid);
}

void StudioDocument::offsetVector(StudioLayer& layer, double dx, double dy, const TileGrid& before,
                                  const TileGrid& after) {
    if (layer.text) {
        layer.text->x += dx;
        layer.text->y += dy;
    }
    if (layer.shape) {
        layer.shape->x += dx;
        layer.shape->y += dy;
    }
    // A fill's centre is a fraction of the canvas: it keeps its place on the
    // picture when the canvas around it changes.
    if (layer.fill) {
        layer.fill->centerX = (layer.fill->centerX * double(before.width) + dx) / double(after.width);
        layer.fill->centerY = (layer.fill->centerY * double(before.height) + dy) / double(after.height);
    }
}

} // namespace korv
