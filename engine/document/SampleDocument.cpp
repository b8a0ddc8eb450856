#include "engine/document/SampleDocument.h"

#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <cmath>

namespace korv {

TileSet paintTiles(const TileGrid& grid, const std::function<Pixel4(int64_t, int64_t)>& shade) {
    TileSet set(grid);
    set.ensureCells();
    parallelFor(grid.count(), [&](int64_t i) {
        auto tile = std::make_shared<Tile>();
        const IRect r = grid.rect(i);
        unsigned any = 0;
        for (int64_t y = 0; y < r.h; ++y) {
            uint8_t* row = tile->row(y);
            for (int64_t x = 0; x < r.w; ++x) {
                const Pixel4 p = shade(r.x + x, r.y + y);
                std::copy(p.begin(), p.end(), row + x * 4);
                any |= p[3];
            }
        }
        if (any) set.tiles[size_t(i)] = std::move(tile);
    });
    return set;
}

namespace {
uint8_t unit8(double v) { return uint8_t(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); }
// Premultiplied bytes of a straight colour.
Pixel4 premul(double r, double g, double b, double a) {
    a = std::clamp(a, 0.0, 1.0);
    return {unit8(r * a), unit8(g * a), unit8(b * a), unit8(a)};
}
double smooth(double e0, double e1, double v) {
    const double t = std::clamp((v - e0) / (e1 - e0), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}
} // namespace

std::unique_ptr<StudioDocument> makeSampleDocument(int64_t width, int64_t height) {
    const TileGrid grid(std::max<int64_t>(width, 1), std::max<int64_t>(height, 1));
    const double w = double(grid.width), h = double(grid.height), side = std::min(w, h);
    const double sunX = w * 0.62, sunY = h * 0.38, sunR = side * 0.22;

    StudioLayer sky = StudioLayer::pixelLayer("Sky", grid);
    sky.pixels = paintTiles(grid, [&](int64_t x, int64_t y) {
        const double t = double(y) / h, u = double(x) / w;
        return premul(0.10 + 0.55 * t, 0.25 + 0.45 * t + 0.05 * u, 0.65 + 0.25 * (1 - t), 1.0);
    });

    StudioLayer hills = StudioLayer::pixelLayer("Hills", grid);
    hills.pixels = paintTiles(grid, [&](int64_t x, int64_t y) {
        const double u = double(x) / w;
        const double ridge = h * (0.62 + 0.08 * std::sin(u * 9.0) + 0.04 * std::sin(u * 23.0 + 1.3));
        const double a = smooth(ridge - 1.5, ridge + 1.5, double(y));
        const double shade = 0.35 + 0.3 * (double(y) - ridge) / h;
        return premul(0.15 * shade, 0.55 * shade + 0.1, 0.2 * shade, a);
    });

    StudioLayer sun = StudioLayer::pixelLayer("Sun", grid);
    sun.pixels = paintTiles(grid, [&](int64_t x, int64_t y) {
        const double d = std::hypot(double(x) - sunX, double(y) - sunY);
        return premul(1.0, 0.85 - 0.3 * d / sunR, 0.3, 1.0 - smooth(sunR - 2, sunR + 2, d));
    });
    // The mask fades the sun out towards its lower left.
    sun.mask = paintTiles(grid, [&](int64_t x, int64_t y) {
        const double t = smooth(-sunR, sunR, (sunX - double(x)) + (double(y) - sunY));
        const uint8_t hidden = unit8(0.8 * t);
        return Pixel4{hidden, hidden, hidden, hidden};
    });

    StudioLayer rays = StudioLayer::pixelLayer("Rays", grid);
    rays.isClipping = true;
    rays.opacity = 0.6;
    rays.pixels = paintTiles(grid, [&](int64_t x, int64_t y) {
        const double stripe = 0.5 + 0.5 * std::sin((double(x) + double(y)) * 0.08);
        return premul(1.0, 0.45, 0.1, stripe);
    });

    StudioLayer sunGroup = StudioLayer::group("Sun", {std::move(sun), std::move(rays)});
    sunGroup.opacity = 0.9;

    StudioLayer haze = StudioLayer::pixelLayer("Haze", grid);
    haze.opacity = 0.5;
    haze.pixels = paintTiles(grid, [&](int64_t, int64_t y) {
        const double band = std::exp(-std::pow((double(y) - h * 0.6) / (h * 0.08), 2.0));
        return premul(1.0, 1.0, 1.0, 0.8 * band);
    });

    std::vector<StudioLayer> layers;
    layers.push_back(std::move(sky));
    layers.push_back(std::move(hills));
    layers.push_back(std::move(sunGroup));
    layers.push_back(std::move(haze));
    auto doc = std::make_unique<StudioDocument>(grid.width, grid.height, 72.0, std::move(layers));
    for (auto& l : doc->layers) l.freezeAll();
    return doc;
}

} // namespace korv
