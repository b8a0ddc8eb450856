#include "engine/render/VectorRender.h"

#include "engine/core/Constants.h"
#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

namespace korv::VectorRender {

namespace {

uint8_t byteOf(double v) {
    return uint8_t(std::clamp(std::round(v), 0.0, 255.0));
}

// A straight colour as premultiplied bytes, each rounded half away from zero.
uint32_t premultipliedWord(const RGBA& c) {
    const uint8_t px[4] = {byteOf(255 * c.a * c.r), byteOf(255 * c.a * c.g), byteOf(255 * c.a * c.b),
                           byteOf(255 * c.a)};
    uint32_t word;
    std::memcpy(&word, px, 4);
    return word;
}

// Runs body(tile, rect) on every tile of the grid on all cores, with a fresh
// tile for each: uninitialised where the canvas covers it wholly (the body
// writes every pixel), zeroed at the edges so that the padding stays empty.
template <class Body>
TileSet everyTile(const TileGrid& grid, Body&& body) {
    TileSet set(grid);
    set.ensureCells();
    parallelFor(grid.count(), [&](int64_t index) {
        const IRect r = grid.rect(index);
        const bool whole = r.w == kTileSize && r.h == kTileSize;
        TilePtr t = whole ? std::make_shared<Tile>(Tile::Uninitialized{}) : std::make_shared<Tile>();
        body(*t, r);
        t->freeze();
        set.tiles[size_t(index)] = std::move(t);
    });
    return set;
}

// The two ends of a gradient as premultiplied doubles on the byte scale, so
// that a blend towards a transparent colour carries no dark fringe.
struct Ends {
    double a[4];
    double d[4]; // b - a
};

Ends endsOf(const RGBA& from, const RGBA& to) {
    const double pa[4] = {from.a * from.r, from.a * from.g, from.a * from.b, from.a};
    const double pb[4] = {to.a * to.r, to.a * to.g, to.a * to.b, to.a};
    Ends e;
    for (int k = 0; k < 4; ++k) {
        e.a[k] = pa[k];
        e.d[k] = pb[k] - pa[k];
    }
    return e;
}

// Writes one row of gradient pixels from their positions t (0...1). Each
// pixel is packed into one little-endian word, R in the lowest byte, which
// lets the loop run on vectors.
inline void gradientRow(uint8_t* out, const double* t, int64_t n, const Ends& e) {
    auto* words = reinterpret_cast<uint32_t*>(out);
    const double a0 = e.a[0], a1 = e.a[1], a2 = e.a[2], a3 = e.a[3];
    const double d0 = e.d[0], d1 = e.d[1], d2 = e.d[2], d3 = e.d[3];
    for (int64_t i = 0; i < n; ++i) {
        const double v = t[i];
        // Non-negative after the clamp, so adding a half and truncating
        // rounds half away from zero.
        const uint32_t r = uint32_t(std::min(std::max(255 * (a0 + v * d0), 0.0), 255.0) + 0.5);
        const uint32_t g = uint32_t(std::min(std::max(255 * (a1 + v * d1), 0.0), 255.0) + 0.5);
        const uint32_t b = uint32_t(std::min(std::max(255 * (a2 + v * d2), 0.0), 255.0) + 0.5);
        const uint32_t a = uint32_t(std::min(std::max(255 * (a3 + v * d3), 0.0), 255.0) + 0.5);
        words[i] = r | g << 8 | b << 16 | a << 24;
    }
}

// The same for a row along which t only ever grows or only ever shrinks (a
// linear gradient's): equal ends mean one value all along, as floating-point
// sums and quotients keep their order, so a gradient that runs down the
// canvas converts one pixel per row and copies it.
inline void monotonicGradientRow(uint8_t* out, const double* t, int64_t n, const Ends& e) {
    if (t[0] != t[n - 1]) return gradientRow(out, t, n, e);
    gradientRow(out, t, 1, e);
    auto* words = reinterpret_cast<uint32_t*>(out);
    std::fill(words + 1, words + n, words[0]);
}

TileSet linearGradient(const FillSpec& spec, const TileGrid& grid, const Ends& ends) {
    const double theta = spec.angle * std::numbers::pi / 180;
    const double cs = std::cos(theta), sn = std::sin(theta);
    const double W = double(grid.width), H = double(grid.height);
    const double L = std::fabs(cs) * W + std::fabs(sn) * H;
    const double length = L > 0 ? L : 1;
    return everyTile(grid, [&](Tile& tile, const IRect& r) {
        double across[kTileSize]; // cos θ (x - W/2) of each column
        double t[kTileSize];
        for (int64_t i = 0; i < r.w; ++i)
            across[i] = cs * (double(r.x + i) + 0.5 - W / 2);
        for (int64_t j = 0; j < r.h; ++j) {
            const double down = sn * (double(r.y + j) + 0.5 - H / 2);
            for (int64_t i = 0; i < r.w; ++i)
                t[i] = std::min(std::max((across[i] + down) / length + 0.5, 0.0), 1.0);
            monotonicGradientRow(tile.row(j), t, r.w, ends);
        }
    });
}

TileSet radialGradient(const FillSpec& spec, const TileGrid& grid, const Ends& ends) {
    const double W = double(grid.width), H = double(grid.height);
    const double cx = spec.centerX * W, cy = spec.centerY * H;
    const double radius = std::max(1.0, spec.radius * std::max(W, H));
    return everyTile(grid, [&](Tile& tile, const IRect& r) {
        double dx2[kTileSize];
        double t[kTileSize];
        for (int64_t i = 0; i < r.w; ++i) {
            const double dx = double(r.x + i) + 0.5 - cx;
            dx2[i] = dx * dx;
        }
        for (int64_t j = 0; j < r.h; ++j) {
            const double dy = double(r.y + j) + 0.5 - cy;
            const double dy2 = dy * dy;
            for (int64_t i = 0; i < r.w; ++i)
                t[i] = std::min(std::sqrt(dx2[i] + dy2) / radius, 1.0);
            gradientRow(tile.row(j), t, r.w, ends);
        }
    });
}

// Writes A or B per pixel; inA(x, y) decides at the pixel's centre. Each
// pattern instantiates its own loop, so nothing is decided per pixel but the
// colour.
template <class InA>
TileSet patternTiles(const TileGrid& grid, uint32_t a, uint32_t b, InA inA) {
    return everyTile(grid, [&](Tile& tile, const IRect& r) {
        for (int64_t j = 0; j < r.h; ++j) {
            auto* out = reinterpret_cast<uint32_t*>(tile.row(j));
            const double y = double(r.y + j) + 0.5;
            for (int64_t i = 0; i < r.w; ++i)
                out[i] = inA(double(r.x + i) + 0.5, y) ? a : b;
        }
    });
}

// The same for patterns whose test splits into a value of the column and one
// of the row: the column values are worked out once per tile, and a pixel
// only combines two of them.
template <class Value, class Combine>
TileSet separableTiles(const TileGrid& grid, uint32_t a, uint32_t b, Value value, Combine inA) {
    return everyTile(grid, [&](Tile& tile, const IRect& r) {
        using V = decltype(value(0.0));
        V columns[kTileSize];
        for (int64_t i = 0; i < r.w; ++i)
            columns[i] = value(double(r.x + i) + 0.5);
        for (int64_t j = 0; j < r.h; ++j) {
            auto* out = reinterpret_cast<uint32_t*>(tile.row(j));
            const V row = value(double(r.y + j) + 0.5);
            for (int64_t i = 0; i < r.w; ++i)
                out[i] = inA(columns[i], row) ? a : b;
        }
    });
}

TileSet pattern(const FillSpec& spec, const TileGrid& grid, uint32_t a, uint32_t b) {
    // Below 2 pixels a period would take forever to draw and show nothing.
    const double s = std::isfinite(spec.scale) ? std::max(spec.scale, 2.0) : 2.0;
    switch (spec.pattern) {
    case PatternKind::checker:
        // floor(x / s) + floor(y / s) is even when both have the same parity.
        return separableTiles(
            grid, a, b, [s](double v) { return uint8_t(int64_t(std::floor(v / s)) & 1); },
            [](uint8_t col, uint8_t row) { return col == row; });
    case PatternKind::stripes: {
        const double theta = spec.angle * std::numbers::pi / 180;
        const double cs = std::cos(theta), sn = std::sin(theta);
        return patternTiles(grid, a, b, [=](double x, double y) {
            return int64_t(std::floor((sn * y + cs * x) / s)) % 2 == 0;
        });
    }
    case PatternKind::dots:
        return separableTiles(
            grid, a, b,
            [s](double v) {
                const double f = v / s - std::floor(v / s) - 0.5;
                return f * f;
            },
            [](double fx2, double fy2) { return fx2 + fy2 < 0.09; });
    case PatternKind::grid: {
        const double line = std::max(s / 12, 1.0);
        return separableTiles(
            grid, a, b, [=](double v) { return uint8_t(std::fmod(v, s) < line); },
            [](uint8_t col, uint8_t row) { return (col | row) != 0; });
    }
    }
    return TileSet(grid);
}

// The box of a shape with a width and height that are not negative.
Rect boxOf(const ShapeSpec& spec) {
    return Rect{spec.x, spec.y, spec.w, spec.h}.standardized();
}

AffineTransform aboutCentre(double degrees, Point centre) {
    return AffineTransform::translation(-centre.x, -centre.y)
        .then(AffineTransform::rotation(degrees * std::numbers::pi / 180))
        .then(AffineTransform::translation(centre.x, centre.y));
}

Rect grown(const Rect& r, double by) {
    return {r.x - by, r.y - by, r.w + 2 * by, r.h + 2 * by};
}

// The bounding box of a rectangle after a map.
Rect mapped(const Rect& r, const AffineTransform& t) {
    const Point corners[4] = {t.apply({r.minX(), r.minY()}), t.apply({r.maxX(), r.minY()}),
                              t.apply({r.minX(), r.maxY()}), t.apply({r.maxX(), r.maxY()})};
    double x0 = corners[0].x, x1 = x0, y0 = corners[0].y, y1 = y0;
    for (const Point& p : corners) {
        x0 = std::min(x0, p.x), x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

Rect unionOf(const Rect& a, const Rect& b) {
    const double x0 = std::min(a.minX(), b.minX()), y0 = std::min(a.minY(), b.minY());
    return {x0, y0, std::max(a.maxX(), b.maxX()) - x0, std::max(a.maxY(), b.maxY()) - y0};
}

TextLayout::Align alignOf(TextAlign a) {
    switch (a) {
    case TextAlign::center:
        return TextLayout::Align::center;
    case TextAlign::right:
        return TextLayout::Align::right;
    case TextAlign::left:
        break;
    }
    return TextLayout::Align::left;
}

Size sizeOf(const TextLayout& layout) {
    return {std::ceil(layout.width()) + 2, std::ceil(layout.height()) + 2};
}

} // namespace

TileSet fill(const FillSpec& spec, const TileGrid& grid) {
    if (grid.count() == 0) return TileSet(grid);
    const RGBA& first = spec.reverse ? spec.color2 : spec.color1;
    const RGBA& second = spec.reverse ? spec.color1 : spec.color2;
    switch (spec.kind) {
    case FillKind::solid: {
        // The padding of edge tiles too: a solid fill is the same everywhere,
        // and whole tiles let later work treat every tile alike.
        const uint32_t word = premultipliedWord(first);
        TileSet set(grid);
        set.ensureCells();
        parallelFor(grid.count(), [&](int64_t index) {
            auto t = std::make_shared<Tile>(Tile::Uninitialized{});
            auto* out = reinterpret_cast<uint32_t*>(t->pixels());
            std::fill(out, out + kTilePixels, word);
            t->freeze();
            set.tiles[size_t(index)] = std::move(t);
        });
        return set;
    }
    case FillKind::linearGradient:
        return linearGradient(spec, grid, endsOf(first, second));
    case FillKind::radialGradient:
        return radialGradient(spec, grid, endsOf(first, second));
    case FillKind::pattern:
        return pattern(spec, grid, premultipliedWord(first), premultipliedWord(second));
    }
    return TileSet(grid);
}

Path path(const ShapeSpec& spec) {
    const Rect box = boxOf(spec);
    Path p;
    switch (spec.kind) {
    case ShapeKind::rectangle:
        p.addRect(box);
        break;
    case ShapeKind::ellipse:
        p.addEllipse(box);
        break;
    case ShapeKind::roundedRectangle: {
        const double r = std::max(0.0, std::min(spec.cornerRadius, std::min(box.w, box.h) / 2));
        p.addRoundedRect(box, r, r);
        break;
    }
    case ShapeKind::line:
        // The end keeps its direction: a negative width runs to the left.
        p.moveTo({spec.x, spec.y});
        p.lineTo({spec.x + spec.w, spec.y + spec.h});
        break;
    case ShapeKind::polygon:
    case ShapeKind::star: {
        const int64_t n = std::clamp<int64_t>(spec.sides, 3, 64);
        const bool star = spec.kind == ShapeKind::star;
        const int64_t count = star ? 2 * n : n;
        std::vector<Point> points;
        points.reserve(size_t(count));
        for (int64_t i = 0; i < count; ++i) {
            const double angle = 2 * std::numbers::pi * double(i) / double(count) - std::numbers::pi / 2;
            const double k = star && i % 2 == 1 ? 0.45 : 1.0;
            points.push_back(
                {box.midX() + box.w / 2 * k * std::cos(angle), box.midY() + box.h / 2 * k * std::sin(angle)});
        }
        p.addPolygon(points);
        break;
    }
    case ShapeKind::arrow: {
        const double head = 0.35 * box.w, t = 0.36 * box.h / 2;
        p.addPolygon({{box.minX(), box.midY() - t},
                      {box.maxX() - head, box.midY() - t},
                      {box.maxX() - head, box.minY()},
                      {box.maxX(), box.midY()},
                      {box.maxX() - head, box.maxY()},
                      {box.maxX() - head, box.midY() + t},
                      {box.minX(), box.midY() + t}});
        break;
    }
    }
    if (spec.rotation != 0 && std::isfinite(spec.rotation))
        p = p.transformed(aboutCentre(spec.rotation, {box.midX(), box.midY()}));
    return p;
}

TileSet shape(const ShapeSpec& spec, const TileGrid& grid) {
    const double sw = std::isfinite(spec.strokeWidth) ? std::max(spec.strokeWidth, 0.0) : 0.0;
    const Path outline = path(spec);
    const bool isLine = spec.kind == ShapeKind::line;
    const bool fills = !isLine && spec.fillEnabled;
    const bool strokes = (spec.strokeEnabled || isLine) && sw > 0;
    if (!fills && !strokes) return TileSet(grid);
    // A line whose stroke is off still shows, in the fill colour.
    const RGBA& strokeColor = isLine && !spec.strokeEnabled ? spec.fillColor : spec.strokeColor;
    return drawIntoGrid(grid, grown(outline.boundingBox(), 2 + sw), [&](Canvas2D& canvas) {
        if (fills) {
            canvas.setColor(spec.fillColor.paint());
            canvas.fill(outline);
        }
        if (strokes) {
            canvas.setColor(strokeColor.paint());
            canvas.stroke(outline, sw);
        }
    });
}

std::unique_ptr<TextLayout> attributed(const TextSpec& spec) {
    TextLayout::Style style;
    style.family = spec.fontFamily;
    style.size = spec.size;
    style.bold = spec.bold;
    style.italic = spec.italic;
    style.align = alignOf(spec.align);
    style.tracking = std::isfinite(spec.tracking) ? spec.tracking : 0;
    style.lineSpacing = std::isfinite(spec.lineSpacing) ? std::clamp(spec.lineSpacing, 0.5, 4.0) : 1;
    style.wrapWidth = spec.boxWidth > 0 ? spec.boxWidth : 0;
    return std::make_unique<TextLayout>(spec.text, style);
}

TextLayout::Font font(const TextSpec& spec) {
    return TextLayout::resolveFont(spec.fontFamily, spec.size, spec.bold, spec.italic);
}

Size textSize(const TextSpec& spec) {
    return sizeOf(*attributed(spec));
}

Rect textBounds(const TextSpec& spec) {
    const Size s = textSize(spec);
    return {spec.x, spec.y, s.width, s.height};
}

TileSet text(const TextSpec& spec, const TileGrid& grid) {
    const std::unique_ptr<TextLayout> layout = attributed(spec);
    const Size size = sizeOf(*layout);
    const Rect box{spec.x, spec.y, size.width, size.height};
    const Point origin{spec.x, spec.y};
    // Glyphs may overhang the box (italics, swashes, accents); they are drawn
    // whole, so the area covers their ink as well.
    const Rect ink = layout->inkBounds();
    Rect area =
        ink.w > 0 && ink.h > 0 ? unionOf(box, {ink.x + origin.x, ink.y + origin.y, ink.w, ink.h}) : box;
    AffineTransform turn;
    const bool turned = spec.rotation != 0 && std::isfinite(spec.rotation);
    if (turned) {
        turn = aboutCentre(spec.rotation, {box.midX(), box.midY()});
        area = mapped(area, turn);
    }
    const PaintColor color = spec.color.paint();
    return drawIntoGrid(grid, area, [&](Canvas2D& canvas) {
        if (turned) canvas.concat(turn);
        layout->draw(canvas, origin, color);
    });
}

TileSet drawIntoGrid(const TileGrid& grid, const Rect& area, const std::function<void(Canvas2D&)>& draw) {
    TileSet set(grid);
    const IRect rect =
        IRect::covering(area.x - 2, area.y - 2, area.w + 4, area.h + 4).intersection(grid.bounds());
    if (rect.isEmpty()) return set;
    RGBABuffer buffer(rect.w, rect.h);
    {
        std::unique_ptr<Canvas2D> canvas = Canvas2D::rgba(buffer);
        if (!canvas) return set;
        canvas->setAntialias(true);
        canvas->setTransform(AffineTransform::translation(-double(rect.x), -double(rect.y)));
        draw(*canvas);
    } // the canvas flushes into the buffer as it goes
    set.write(buffer, rect);
    for (int64_t index : grid.tiles(rect)) {
        if (set.tiles[size_t(index)]->isEmpty()) set.tiles[size_t(index)].reset();
    }
    set.freeze();
    return set;
}

} // namespace korv::VectorRender
