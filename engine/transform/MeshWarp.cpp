#include "engine/transform/MeshWarp.h"

#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace korv::MeshWarp {

namespace {

// The affine map that takes s0, s1, s2 to d0, d1, d2; none when the source
// triangle has no area.
std::optional<AffineTransform> solve(Point s0, Point s1, Point s2, Point d0, Point d1, Point d2) {
    const double det = (s1.x - s0.x) * (s2.y - s0.y) - (s2.x - s0.x) * (s1.y - s0.y);
    if (std::fabs(det) < 1e-9) return std::nullopt;
    // The inverse of the source edge matrix, applied to the destination edges.
    const double i00 = (s2.y - s0.y) / det, i01 = -(s2.x - s0.x) / det;
    const double i10 = -(s1.y - s0.y) / det, i11 = (s1.x - s0.x) / det;
    const double ex1 = d1.x - d0.x, ey1 = d1.y - d0.y, ex2 = d2.x - d0.x, ey2 = d2.y - d0.y;
    AffineTransform t;
    t.a = ex1 * i00 + ex2 * i10;
    t.c = ex1 * i01 + ex2 * i11;
    t.b = ey1 * i00 + ey2 * i10;
    t.d = ey1 * i01 + ey2 * i11;
    t.tx = d0.x - t.a * s0.x - t.c * s0.y;
    t.ty = d0.y - t.b * s0.x - t.d * s0.y;
    return t;
}

struct Target {
    const RGBABuffer& image;
    Rect src;
    RGBABuffer& out;
    int64_t ox, oy;
    std::vector<uint8_t>& taken; // one byte per pixel of out
    int64_t rowBegin, rowEnd;    // the band of out's rows this pass may write
};

// Bilinear sample of the premultiplied image at canvas point (x, y), scaled
// by coverage; points past the edge read the edge pixels, so an enlarged
// picture keeps a crisp outline, which coverage then antialiases.
void sample(const RGBABuffer& image, const Rect& src, double x, double y, double coverage, uint8_t* to) {
    // The image may be a reduced copy of the source rectangle's pixels.
    const double sx = double(image.width()) / src.w, sy = double(image.height()) / src.h;
    const double u = std::clamp((x - src.x) * sx - 0.5, 0.0, double(image.width() - 1));
    const double v = std::clamp((y - src.y) * sy - 0.5, 0.0, double(image.height() - 1));
    const auto x0 = int64_t(u), y0 = int64_t(v);
    const int64_t x1 = std::min(x0 + 1, image.width() - 1), y1 = std::min(y0 + 1, image.height() - 1);
    const double ax = u - double(x0), ay = v - double(y0);
    const uint8_t* p00 = image.row(y0) + x0 * 4;
    const uint8_t* p10 = image.row(y0) + x1 * 4;
    const uint8_t* p01 = image.row(y1) + x0 * 4;
    const uint8_t* p11 = image.row(y1) + x1 * 4;
    double acc[4];
    for (int ch = 0; ch < 4; ++ch)
        acc[ch] = coverage *
                  ((1 - ay) * ((1 - ax) * p00[ch] + ax * p10[ch]) + ay * ((1 - ax) * p01[ch] + ax * p11[ch]));
    const auto alpha = uint8_t(std::min(255.0, acc[3] + 0.5));
    to[3] = alpha;
    for (int ch = 0; ch < 3; ++ch)
        to[ch] = std::min(alpha, uint8_t(std::min(255.0, acc[ch] + 0.5)));
}

// A stretch of the mesh's outer border: the line through p and q, with the
// mesh on the side of `inward`.
struct Border {
    Point p;
    double nx = 0, ny = 0; // unit normal pointing into the mesh
};

// The share of the pixel at (x, y) on the mesh's side of the border lines,
// from the centre's distance to each.
double coverage(const std::vector<Border>& borders, double x, double y) {
    double c = 1;
    for (const Border& b : borders)
        c *= std::clamp(0.5 + (x - b.p.x) * b.nx + (y - b.p.y) * b.ny, 0.0, 1.0);
    return c;
}

// The pixels whose centres the triangle holds, sampled through `back` and
// scaled by their share inside the mesh's border. With `exact`, a centre on
// an edge goes to just one of the two triangles that share it (by the
// direction the edge is walked); otherwise any pixel not yet taken is drawn.
void fillTriangle(Target& t, Point a, Point b, Point c, const AffineTransform& back,
                  const std::vector<Border>& borders, bool exact) {
    const double area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    if (!(std::fabs(area) > 1e-12)) return;
    if (area < 0) std::swap(b, c);
    const double minX = std::min({a.x, b.x, c.x}), maxX = std::max({a.x, b.x, c.x});
    const double minY = std::min({a.y, b.y, c.y}), maxY = std::max({a.y, b.y, c.y});
    const int64_t w = t.out.width(), h = t.out.height();
    const int64_t x0 = std::max<int64_t>(0, int64_t(std::floor(minX - 0.5)) - t.ox);
    const int64_t x1 = std::min<int64_t>(w - 1, int64_t(std::ceil(maxX - 0.5)) - t.ox);
    const int64_t y0 = std::max<int64_t>(t.rowBegin, int64_t(std::floor(minY - 0.5)) - t.oy);
    const int64_t y1 = std::min<int64_t>(std::min(h, t.rowEnd) - 1, int64_t(std::ceil(maxY - 0.5)) - t.oy);
    if (x0 > x1 || y0 > y1) return;
    const Point v[3] = {a, b, c};
    bool owns[3];
    for (int e = 0; e < 3; ++e) {
        const double dx = v[(e + 1) % 3].x - v[e].x, dy = v[(e + 1) % 3].y - v[e].y;
        owns[e] = dy > 0 || (dy == 0 && dx < 0);
    }
    auto insideAt = [&](double px, double py) {
        for (int e = 0; e < 3; ++e) {
            const Point p = v[e], q = v[(e + 1) % 3];
            const double edge = (q.x - p.x) * (py - p.y) - (q.y - p.y) * (px - p.x);
            if (!(edge > 0 || (edge == 0 && (!exact || owns[e])))) return false;
        }
        return true;
    };
    for (int64_t y = y0; y <= y1; ++y) {
        const double py = double(y + t.oy) + 0.5;
        // Each edge is a line in x along this row: the row's span inside the
        // triangle is where all three are on the inner side.
        double lo = -INFINITY, hi = INFINITY;
        bool empty = false;
        for (int e = 0; e < 3; ++e) {
            const Point p = v[e], q = v[(e + 1) % 3];
            const double slope = -(q.y - p.y), offset = (q.x - p.x) * (py - p.y) + (q.y - p.y) * p.x;
            if (slope > 0)
                lo = std::max(lo, -offset / slope);
            else if (slope < 0)
                hi = std::min(hi, -offset / slope);
            else if (offset < 0)
                empty = true;
        }
        if (empty || !(lo < hi + 1)) continue;
        // Pixels a whole pixel inside the span's ends are inside for sure; the
        // ones at the ends take the exact test, with its rule for shared edges.
        const int64_t xs = std::max(x0, int64_t(std::floor(std::max(lo, -1e9) - double(t.ox) - 0.5)));
        const int64_t xe = std::min(x1, int64_t(std::ceil(std::min(hi, 1e9) - double(t.ox) - 0.5)));
        uint8_t* row = t.out.row(y);
        uint8_t* taken = t.taken.data() + y * w;
        Point s = back.apply({double(xs + t.ox) + 0.5, py});
        for (int64_t x = xs; x <= xe; ++x, s.x += back.a, s.y += back.b) {
            if (taken[x]) continue;
            const double px = double(x + t.ox) + 0.5;
            if ((x <= xs + 1 || x >= xe - 1) && !insideAt(px, py)) continue;
            const double share = borders.empty() ? 1.0 : coverage(borders, px, py);
            if (share <= 0) continue;
            sample(t.image, t.src, s.x, s.y, share, row + x * 4);
            taken[x] = 1;
        }
    }
}

struct Piece {
    Point a, b, c;
    AffineTransform back;
    std::vector<std::pair<Point, Point>> outer; // edges on the mesh's border
    std::vector<Border> borders;
};

} // namespace

void draw(const RGBABuffer& image, const Rect& srcRect, const Lattice& lattice, RGBABuffer& out,
          int64_t originX, int64_t originY) {
    if (lattice.size() < 2 || image.width() < 1 || image.height() < 1) return;
    const size_t n = lattice.size() - 1;
    for (const auto& row : lattice)
        if (row.size() != n + 1) return;
    auto at = [&](size_t col, size_t row) {
        return Point{srcRect.x + srcRect.w * double(col) / double(n),
                     srcRect.y + srcRect.h * double(row) / double(n)};
    };
    // Each border edge's normal points to its triangle's side.
    auto withBorders = [](Piece& piece) {
        const Point centre{(piece.a.x + piece.b.x + piece.c.x) / 3, (piece.a.y + piece.b.y + piece.c.y) / 3};
        for (const auto& [p, q] : piece.outer) {
            double nx = -(q.y - p.y), ny = q.x - p.x;
            const double len = std::hypot(nx, ny);
            if (!(len > 1e-9)) continue;
            nx /= len, ny /= len;
            if ((centre.x - p.x) * nx + (centre.y - p.y) * ny < 0) nx = -nx, ny = -ny;
            piece.borders.push_back({p, nx, ny});
        }
    };
    // The two triangles of each cell, in the order they claim pixels, and
    // for the outer ones the edges on the mesh's border.
    std::vector<Piece> pieces;
    pieces.reserve(2 * n * n);
    for (size_t r = 0; r < n; ++r) {
        for (size_t c = 0; c < n; ++c) {
            const Point tl = at(c, r), tr = at(c + 1, r), br = at(c + 1, r + 1), bl = at(c, r + 1);
            const Point dtl = lattice[r][c], dtr = lattice[r][c + 1], dbr = lattice[r + 1][c + 1],
                        dbl = lattice[r + 1][c];
            const auto upper = solve(tl, tr, br, dtl, dtr, dbr);
            const auto lower = solve(tl, br, bl, dtl, dbr, dbl);
            if (const auto back = upper ? upper->inverted() : std::nullopt) {
                Piece p{dtl, dtr, dbr, *back, {}, {}};
                if (r == 0) p.outer.push_back({dtl, dtr});
                if (c == n - 1) p.outer.push_back({dtr, dbr});
                withBorders(p);
                pieces.push_back(std::move(p));
            }
            if (const auto back = lower ? lower->inverted() : std::nullopt) {
                Piece p{dtl, dbr, dbl, *back, {}, {}};
                if (r == n - 1) p.outer.push_back({dbr, dbl});
                if (c == 0) p.outer.push_back({dbl, dtl});
                withBorders(p);
                pieces.push_back(std::move(p));
            }
        }
    }
    std::vector<uint8_t> taken(size_t(out.width() * out.height()), 0);
    // Bands of rows on all cores: a band writes only its own rows, and walks
    // every triangle in the same order, so the result doesn't depend on the split.
    constexpr int64_t kBand = 32;
    const int64_t bands = (out.height() + kBand - 1) / kBand;
    parallelFor(bands, [&](int64_t band) {
        Target target{image,   srcRect, out,          originX,
                      originY, taken,   band * kBand, std::min(out.height(), (band + 1) * kBand)};
        const double top = double(originY + target.rowBegin) - 1,
                     bottom = double(originY + target.rowEnd) + 1;
        auto touches = [&](const Piece& p, double grow) {
            return std::max({p.a.y, p.b.y, p.c.y}) + grow >= top &&
                   std::min({p.a.y, p.b.y, p.c.y}) - grow <= bottom;
        };
        for (const Piece& p : pieces)
            if (touches(p, 0)) fillTriangle(target, p.a, p.b, p.c, p.back, p.borders, true);
        // Half a pixel past the border still holds part of a pixel: a
        // one-pixel band outward from each border edge, through its triangle's map.
        for (const Piece& piece : pieces) {
            if (piece.outer.empty() || !touches(piece, 1.5)) continue;
            for (size_t k = 0; k < piece.borders.size(); ++k) {
                const Border& b = piece.borders[k];
                // The edge of this border: its first point is the border's.
                for (const auto& [p, q] : piece.outer) {
                    if (p.x != b.p.x || p.y != b.p.y) continue;
                    const Point p2{p.x - b.nx, p.y - b.ny}, q2{q.x - b.nx, q.y - b.ny};
                    fillTriangle(target, p, q, q2, piece.back, piece.borders, false);
                    fillTriangle(target, p, q2, p2, piece.back, piece.borders, false);
                }
            }
        }
    });
}

} // namespace korv::MeshWarp
