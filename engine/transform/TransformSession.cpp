#include "engine/transform/TransformSession.h"

#include "engine/core/ParallelFor.h"
#include "engine/core/Selection.h"
#include "engine/document/StudioDocument.h"
#include "engine/platform/StudioCI.h"
#include "engine/transform/Homography.h"
#include "engine/transform/MeshWarp.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace korv {

std::string_view toString(TransformMode m) {
    switch (m) {
    case TransformMode::perspective:
        return "perspective";
    case TransformMode::warp:
        return "warp";
    case TransformMode::free:
        break;
    }
    return "free";
}

std::optional<TransformMode> transformModeFromString(std::string_view text) {
    for (TransformMode m : {TransformMode::free, TransformMode::perspective, TransformMode::warp})
        if (toString(m) == text) return m;
    return std::nullopt;
}

namespace {

std::vector<Point> rectCorners(const IRect& r) {
    const double x0 = double(r.x), y0 = double(r.y), x1 = double(r.maxX()), y1 = double(r.maxY());
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

// Each level half the size of the one before, by averaging 2 x 2 pixels.
std::vector<std::shared_ptr<const RGBABuffer>> levelsOf(std::shared_ptr<const RGBABuffer> image) {
    std::vector<std::shared_ptr<const RGBABuffer>> out;
    if (!image) return out;
    out.push_back(image);
    while (out.back()->width() >= 64 && out.back()->height() >= 64) {
        const RGBABuffer& from = *out.back();
        auto half =
            std::make_shared<RGBABuffer>(from.width() / 2, from.height() / 2, RGBABuffer::Uninitialized{});
        parallelFor(half->height(), [&](int64_t y) {
            const uint8_t* a = from.row(2 * y);
            const uint8_t* b = from.row(2 * y + 1);
            uint8_t* o = half->row(y);
            for (int64_t x = 0; x < half->width() * 4; ++x) {
                const int64_t c = (x / 4) * 8 + x % 4;
                o[x] = uint8_t((a[c] + a[c + 4] + b[c] + b[c + 4] + 2) / 4);
            }
        });
        out.push_back(std::move(half));
    }
    return out;
}

// 1 - a / 255 for every alpha byte, as the compositing of a render uses it.
const std::array<float, 256> kKeep = [] {
    std::array<float, 256> t{};
    for (int a = 0; a < 256; ++a)
        t[size_t(a)] = 1.0f - float(a) / 255.0f;
    return t;
}();

// Keeps what lies inside the convex outline, each pixel scaled by its share
// of the inside (from its centre's distance to each edge), and clears the rest.
void clipToOutline(RGBABuffer& drawn, const IRect& at, const std::vector<Point>& corners) {
    struct Edge {
        double nx, ny, c; // inward normal; distance = nx x + ny y + c
    };
    double area = 0;
    for (size_t i = 0; i < corners.size(); ++i) {
        const Point p = corners[i], q = corners[(i + 1) % corners.size()];
        area += p.x * q.y - q.x * p.y;
    }
    std::vector<Edge> edges;
    for (size_t i = 0; i < corners.size(); ++i) {
        const Point p = corners[i], q = corners[(i + 1) % corners.size()];
        double nx = -(q.y - p.y), ny = q.x - p.x;
        const double len = std::hypot(nx, ny);
        if (!(len > 1e-12)) continue;
        if (area < 0) nx = -nx, ny = -ny;
        nx /= len, ny /= len;
        edges.push_back({nx, ny, -(nx * p.x + ny * p.y)});
    }
    const int64_t w = drawn.width();
    parallelFor(drawn.height(), [&](int64_t row) {
        const double py = double(at.y + row) + 0.5;
        // Along the row each edge's distance is linear in x: the span where
        // any part of a pixel is inside, and the span where all of it is.
        double partLo = -INFINITY, partHi = INFINITY, fullLo = -INFINITY, fullHi = INFINITY;
        for (const Edge& e : edges) {
            const double base = e.ny * py + e.c;
            if (e.nx > 0) {
                partLo = std::max(partLo, (-0.5 - base) / e.nx);
                fullLo = std::max(fullLo, (0.5 - base) / e.nx);
            } else if (e.nx < 0) {
                partHi = std::min(partHi, (-0.5 - base) / e.nx);
                fullHi = std::min(fullHi, (0.5 - base) / e.nx);
            } else if (base <= -0.5) {
                partLo = INFINITY;
            } else if (base < 0.5) {
                fullLo = INFINITY;
            }
        }
        auto index = [&](double px) {
            return std::clamp<int64_t>(int64_t(std::floor(std::clamp(px, -1e9, 1e9) - double(at.x) - 0.5)),
                                       -1, w);
        };
        uint8_t* out = drawn.row(row);
        const int64_t p0 = std::max<int64_t>(index(partLo), 0),
                      p1 = std::min<int64_t>(index(partHi) + 1, w - 1);
        const int64_t f0 = index(fullLo) + 2, f1 = index(fullHi) - 1;
        if (p0 > p1) {
            std::memset(out, 0, size_t(w) * 4);
            return;
        }
        std::memset(out, 0, size_t(p0) * 4);
        std::memset(out + (p1 + 1) * 4, 0, size_t(w - 1 - p1) * 4);
        for (int64_t x = p0; x <= p1; ++x) {
            if (x >= f0 && x <= f1) {
                x = f1;
                continue;
            }
            const double px = double(at.x + x) + 0.5;
            double share = 1;
            for (const Edge& e : edges)
                share *= std::clamp(0.5 + e.nx * px + e.ny * py + e.c, 0.0, 1.0);
            uint8_t* p = out + x * 4;
            for (int ch = 0; ch < 4; ++ch)
                p[ch] = uint8_t(double(p[ch]) * share + 0.5);
        }
    });
}

std::vector<Point> evenWarp(const IRect& r) {
    std::vector<Point> out(16);
    for (size_t i = 0; i < 16; ++i)
        out[i] = {double(r.x) + double(r.w) * double(i & 3) / 3,
                  double(r.y) + double(r.h) * double(i >> 2) / 3};
    return out;
}

} // namespace

TransformSession::TransformSession(Uuid layerID, bool editingMask, IRect source,
                                   std::shared_ptr<const RGBABuffer> floating, TileSet base)
    : layerID(layerID), editingMask(editingMask), source(source), floating(floating),
      floatingLevels(levelsOf(floating)), base(std::move(base)) {
    reset();
}

void TransformSession::reset() {
    affine = AffineTransform{};
    corners = rectCorners(source);
    warp = evenWarp(source);
}

std::vector<Point> TransformSession::shownCorners() const {
    switch (mode) {
    case TransformMode::perspective:
        return corners;
    case TransformMode::warp:
        return {warp[0], warp[3], warp[15], warp[12]};
    case TransformMode::free:
        break;
    }
    std::vector<Point> out = rectCorners(source);
    for (Point& p : out)
        p = affine.apply(p);
    return out;
}

std::vector<std::vector<Point>> TransformSession::lattice(int n) const {
    n = std::max(n, 1);
    const Homography h = Homography::unitSquare(corners);
    std::vector<std::vector<Point>> rows(size_t(n + 1), std::vector<Point>(size_t(n + 1)));
    for (int r = 0; r <= n; ++r)
        for (int c = 0; c <= n; ++c) {
            const double u = double(c) / n, v = double(r) / n;
            Point& p = rows[size_t(r)][size_t(c)];
            switch (mode) {
            case TransformMode::free:
                p = affine.apply(
                    {double(source.x) + u * double(source.w), double(source.y) + v * double(source.h)});
                break;
            case TransformMode::perspective:
                p = h.map(u, v);
                break;
            case TransformMode::warp:
                p = Bezier::patch(warp, u, v);
                break;
            }
        }
    return rows;
}

TileSet TransformSession::render() const {
    if (floatingLevels.empty()) return base;
    const TileGrid& grid = base.grid;
    // Free mode is one affine map, so one cell covers it exactly.
    const std::vector<std::vector<Point>> mesh = lattice(mode == TransformMode::perspective ? 16
                                                         : mode == TransformMode::warp      ? 24
                                                                                            : 1);

    double x0 = INFINITY, y0 = INFINITY, x1 = -INFINITY, y1 = -INFINITY;
    auto include = [&](const Point& p) {
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    };
    for (const Point& p : shownCorners())
        include(p);
    for (const auto& row : mesh)
        for (const Point& p : row)
            include(p);
    const IRect bounds =
        IRect::covering(x0 - 2, y0 - 2, x1 - x0 + 4, y1 - y0 + 4).intersection(grid.bounds());
    if (bounds.isEmpty()) return base;

    // How much the picture shrinks overall: the outline's area against the
    // source's. Bilinear sampling holds up to halving; past it a smaller
    // copy is read, so no detail aliases.
    const std::vector<Point> c = shownCorners();
    const double area =
        std::fabs((c[2].x - c[0].x) * (c[3].y - c[1].y) - (c[3].x - c[1].x) * (c[2].y - c[0].y)) / 2;
    const double scale = std::sqrt(area / (double(source.w) * double(source.h)));
    size_t level = 0;
    while (level + 1 < floatingLevels.size() && scale * double(size_t(1) << (level + 1)) <= 1.0)
        ++level;

    RGBABuffer drawn(bounds.w, bounds.h, RGBABuffer::Uninitialized{});
    const RGBABuffer& picture = *floatingLevels[level];
    if (mode == TransformMode::free) {
        // One affine map: each pixel of the bounds sampled through its
        // inverse on all cores, then cut to the outline with antialiased edges.
        const auto back = affine.inverted();
        if (!back) return base;
        const double fx = double(picture.width()) / double(source.w);
        const double fy = double(picture.height()) / double(source.h);
        const double cx = double(bounds.x) + 0.5, cy = double(bounds.y) + 0.5;
        const AffineTransform toPicture{
            fx * back->a,
            fy * back->b,
            fx * back->c,
            fy * back->d,
            fx * (back->a * cx + back->c * cy + back->tx - double(source.x)) - 0.5,
            fy * (back->b * cx + back->d * cy + back->ty - double(source.y)) - 0.5};
        StudioCI::warpAffine(picture, drawn, toPicture);
        clipToOutline(drawn, bounds, shownCorners());
    } else {
        std::memset(drawn.data(), 0, size_t(drawn.byteCount()));
        const Rect src{double(source.x), double(source.y), double(source.w), double(source.h)};
        MeshWarp::draw(picture, src, mesh, drawn, bounds.x, bounds.y);
    }

    // The drawing over a copy of the base; a transparent pixel leaves the base
    // alone, so no tile comes into being where nothing was drawn.
    TileSet out = base;
    out.ensureCells();
    const std::vector<int64_t> indices = grid.tiles(bounds);
    parallelFor(int64_t(indices.size()), [&](int64_t k) {
        const int64_t index = indices[size_t(k)];
        const IRect tr = grid.rect(index);
        const IRect part = tr.intersection(bounds);
        unsigned any = 0;
        for (int64_t y = part.y; y < part.maxY() && !any; ++y) {
            const uint8_t* s = drawn.row(y - bounds.y) + (part.x - bounds.x) * 4;
            for (int64_t x = 0; x < part.w; ++x)
                any |= s[x * 4 + 3];
        }
        if (!any) return;
        // Where the drawing is transparent its colour is 0 too, so the same
        // sum keeps the base there: no branch per pixel.
        Tile& tile = out.writable(index);
        for (int64_t y = part.y; y < part.maxY(); ++y) {
            const uint8_t* s = drawn.row(y - bounds.y) + (part.x - bounds.x) * 4;
            uint8_t* d = tile.row(y - tr.y) + (part.x - tr.x) * 4;
            for (int64_t x = 0; x < part.w; ++x, s += 4, d += 4) {
                const float keep = kKeep[s[3]];
                for (int ch = 0; ch < 4; ++ch)
                    d[ch] = uint8_t(std::min(255.0f, float(s[ch]) + keep * float(d[ch]) + 0.5f));
            }
        }
    });
    return out;
}

std::shared_ptr<TransformSession> beginTransform(const StudioDocument& doc, const Uuid& layerID, bool mask) {
    const std::optional<TileSet> raster = doc.editableRaster(layerID, mask);
    if (!raster) return nullptr;
    const Selection* selection = doc.selection.get();
    std::optional<IRect> area;
    if (selection)
        area = selection->bounds();
    else
        area = raster->contentBounds();
    if (!area || area->w < 1 || area->h < 1) return nullptr;

    auto floating = std::make_shared<RGBABuffer>(area->w, area->h);
    TileSet base = *raster;
    base.freeze(); // the session's base is shared by every render, never written
    TileSet working = base;
    const TileGrid& grid = raster->grid;
    for (int64_t index : grid.tiles(*area)) {
        const IRect part = grid.rect(index).intersection(*area);
        const Tile* from = raster->tile(index);
        if (!from) continue; // an absent tile lifts nothing and leaves nothing
        Tile* to = nullptr;
        const IRect tr = grid.rect(index);
        for (int64_t y = part.y; y < part.maxY(); ++y) {
            const uint8_t* p = from->row(y - tr.y) + (part.x - tr.x) * 4;
            uint8_t* f = floating->row(y - area->y) + (part.x - area->x) * 4;
            for (int64_t x = part.x; x < part.maxX(); ++x, p += 4, f += 4) {
                const uint8_t c = selection ? selection->value(x, y) : 255;
                if (c == 0) continue;
                if (!to) to = &working.writable(index);
                uint8_t* b = to->row(y - tr.y) + (x - tr.x) * 4;
                for (int ch = 0; ch < 4; ++ch) {
                    f[ch] = mulBytes(p[ch], c);
                    b[ch] = mulBytes(p[ch], uint8_t(255 - c));
                }
            }
        }
    }
    working.freeze();
    return std::make_shared<TransformSession>(layerID, mask, *area, std::move(floating), std::move(working));
}

namespace {

void store(StudioDocument& doc, const TransformSession& session, bool bumpVersion) {
    TileSet rendered = session.render();
    const bool found = doc.update(session.layerID, bumpVersion, [&](StudioLayer& l) {
        if (session.editingMask)
            l.mask = std::move(rendered);
        else
            l.pixels = std::move(rendered);
    });
    if (found) doc.markAllDirty();
}

} // namespace

void previewTransform(StudioDocument& doc, const TransformSession& session) {
    store(doc, session, false);
}

void applyTransform(StudioDocument& doc, const TransformSession& session) {
    store(doc, session, true);
    doc.setSelection(nullptr);
}

} // namespace korv
