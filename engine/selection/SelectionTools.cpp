#include "engine/selection/SelectionTools.h"

#include "engine/core/ParallelFor.h"
#include "engine/core/Require.h"
#include "engine/platform/StudioCI.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace korv::SelectionTools {

namespace {

using StudioCI::Edges;

constexpr int64_t kBandRows = 64;
// In the wand's working plane: a pixel that matches but is not (yet) selected.
constexpr uint8_t kMatch = 1;

size_t areaOf(int64_t width, int64_t height) {
    KORV_REQUIRE(width >= 0 && height >= 0);
    int64_t area = 0;
    KORV_REQUIRE(!__builtin_mul_overflow(width, height, &area));
    return size_t(area);
}

void checkMask(const Mask& mask, int64_t width, int64_t height) {
    KORV_REQUIRE(mask.size() == areaOf(width, height));
}

// straight[a][c] = min(255, (c * 255 + floor(a / 2)) / a), and 0 for a = 0
// so that every transparent pixel looks alike. Made once; read only.
const std::array<std::array<uint8_t, 256>, 256>& straightTable() {
    static const auto table = [] {
        std::array<std::array<uint8_t, 256>, 256> t{};
        for (unsigned a = 1; a < 256; ++a)
            for (unsigned c = 0; c < 256; ++c)
                t[a][c] = uint8_t(std::min(255u, (c * 255u + a / 2) / a));
        return t;
    }();
    return table;
}

// `match` for every pixel within the tolerance of the seed colour, 0 elsewhere;
// the comparison is made on straight colour. For each channel a table over
// (alpha, byte) says whether that channel, and alpha, are close enough, so a
// pixel costs three look-ups.
void markMatches(const RGBABuffer& buffer, const std::array<int, 4>& seed, int tolerance, uint8_t match,
                 uint8_t* plane) {
    const auto& straight = straightTable();
    std::vector<uint8_t> close(3 * 65536);
    for (int a = 0; a < 256; ++a) {
        const bool alphaClose = std::abs(a - seed[3]) <= tolerance;
        for (int k = 0; k < 3; ++k)
            for (int c = 0; c < 256; ++c)
                close[size_t(k * 65536 + a * 256 + c)] =
                    alphaClose && std::abs(int(straight[size_t(a)][size_t(c)]) - seed[size_t(k)]) <= tolerance
                        ? match
                        : 0;
    }
    const uint8_t* closeR = close.data();
    const uint8_t* closeG = closeR + 65536;
    const uint8_t* closeB = closeG + 65536;
    const int64_t width = buffer.width(), height = buffer.height();
    const int64_t bands = (height + kBandRows - 1) / kBandRows;
    parallelFor(bands, [&](int64_t band) {
        const int64_t y1 = std::min(height, (band + 1) * kBandRows);
        for (int64_t y = band * kBandRows; y < y1; ++y) {
            const uint8_t* p = buffer.row(y);
            uint8_t* out = plane + y * width;
            for (int64_t x = 0; x < width; ++x) {
                const size_t a = size_t(p[x * 4 + 3]) << 8;
                out[x] = closeR[a + p[x * 4]] & closeG[a + p[x * 4 + 1]] & closeB[a + p[x * 4 + 2]];
            }
        }
    });
}

// Depth first from the seed over 4-neighbours; a matching pixel turns 255 as
// it is pushed, so each is pushed at most once.
void floodFrom(uint8_t* plane, int64_t width, int64_t height, int64_t seed) {
    using Index = uint32_t;
    KORV_REQUIRE(width * height <= int64_t(std::numeric_limits<Index>::max()));
    std::vector<Index> stack;
    stack.reserve(4096);
    plane[seed] = 255;
    stack.push_back(Index(seed));
    const Index w = Index(width);
    const Index last = Index(width * height) - w; // first index of the bottom row
    while (!stack.empty()) {
        const Index i = stack.back();
        stack.pop_back();
        const Index x = i % w;
        if (x > 0 && plane[i - 1] == kMatch) {
            plane[i - 1] = 255;
            stack.push_back(i - 1);
        }
        if (x + 1 < w && plane[i + 1] == kMatch) {
            plane[i + 1] = 255;
            stack.push_back(i + 1);
        }
        if (i >= w && plane[i - w] == kMatch) {
            plane[i - w] = 255;
            stack.push_back(i - w);
        }
        if (i < last && plane[i + w] == kMatch) {
            plane[i + w] = 255;
            stack.push_back(i + w);
        }
    }
}

// Matches the fill did not reach go back to 0.
void keepReached(uint8_t* plane, size_t count) {
    for (size_t i = 0; i < count; ++i)
        plane[i] = plane[i] == 255 ? 255 : 0;
}

} // namespace

std::optional<Mask> magicWand(const RGBABuffer& buffer, int64_t x, int64_t y, int64_t tolerance,
                              bool contiguous, bool antialias) {
    const int64_t width = buffer.width(), height = buffer.height();
    if (x < 0 || y < 0 || x >= width || y >= height) return std::nullopt;
    const auto& table = straightTable();
    const Pixel4 p = buffer.pixel(x, y);
    const std::array<int, 4> seed{table[p[3]][p[0]], table[p[3]][p[1]], table[p[3]][p[2]], p[3]};
    const int tol = int(std::clamp<int64_t>(tolerance, 0, 255));

    const size_t area = areaOf(width, height);
    Mask mask(area);
    markMatches(buffer, seed, tol, contiguous ? kMatch : 255, mask.data());
    if (contiguous) {
        floodFrom(mask.data(), width, height, y * width + x);
        keepReached(mask.data(), area);
    }
    if (antialias) mask = StudioCI::gaussianBlur(mask, width, height, 0.7, Edges::clamp);
    return mask;
}

SelectionRef selection(const Mask& mask, int64_t width, int64_t height, SelectionOp op,
                       const SelectionRef& existing) {
    if (width < 0 || height < 0) return nullptr;
    int64_t area = 0;
    if (__builtin_mul_overflow(width, height, &area) || mask.size() != size_t(area)) return nullptr;
    if (!existing && (op == SelectionOp::subtract || op == SelectionOp::intersect)) return nullptr;

    Mask bytes = mask;
    if (existing && op != SelectionOp::replace) {
        KORV_REQUIRE(existing->width() == width && existing->height() == height);
        Selection::combine(bytes.data(), existing->data(), bytes.size(), op);
    }
    Path path = outline(bytes.data(), width, height);
    return Selection::fromMask(std::move(bytes), width, height, std::move(path));
}

Mask grow(const Mask& mask, int64_t width, int64_t height, double pixels) {
    checkMask(mask, width, height);
    if (std::isnan(pixels) || pixels == 0) return mask;
    // Whole pixels by the disc; a fraction of a pixel more lies between the
    // disc of that size and the next one, so small and fractional amounts
    // still grow or shrink the edge, and the result is continuous in them.
    const bool out = pixels > 0;
    const double amount = std::min(std::fabs(pixels), double(width + height));
    const double whole = std::floor(amount), part = amount - whole;
    auto by = [&](double r) {
        if (r < 1) return mask;
        return out ? StudioCI::morphologyMaximum(mask, width, height, r, Edges::clamp)
                   : StudioCI::morphologyMinimum(mask, width, height, r, Edges::clamp);
    };
    Mask lower = by(whole);
    if (part <= 0) return lower;
    const Mask upper = by(whole + 1);
    const int weight = int(std::lround(part * 256.0));
    for (size_t i = 0; i < lower.size(); ++i) {
        const int a = lower[i], b = upper[i];
        lower[i] = uint8_t(a + ((b - a) * weight + (b >= a ? 128 : -128)) / 256);
    }
    return lower;
}

Mask feather(const Mask& mask, int64_t width, int64_t height, double radius) {
    checkMask(mask, width, height);
    if (!(radius > 0)) return mask;
    return StudioCI::gaussianBlur(mask, width, height, radius, Edges::clamp);
}

Mask smooth(const Mask& mask, int64_t width, int64_t height, double radius) {
    checkMask(mask, width, height);
    if (mask.empty()) return {};
    Mask out = radius > 0 ? StudioCI::gaussianBlur(mask, width, height, radius, Edges::clamp) : mask;
    uint8_t* p = out.data();
    for (size_t i = 0; i < out.size(); ++i)
        p[i] = p[i] >= 128 ? 255 : 0;
    return out;
}

Mask border(const Mask& mask, int64_t width, int64_t height, double pixels) {
    checkMask(mask, width, height);
    if (!(pixels > 0)) return Mask(mask.size(), 0);
    pixels = std::min(pixels, double(width + height));
    // The width asked for, split about the old edge with the larger whole
    // half outside: 1 gives one pixel outside the edge, 3 two outside and
    // one inside, 1.5 one outside and a half-covered pixel inside.
    const double outside = std::min(std::ceil(pixels * 0.5), pixels);
    Mask outer = grow(mask, width, height, outside);
    const Mask inner = grow(mask, width, height, -(pixels - outside));
    uint8_t* o = outer.data();
    const uint8_t* in = inner.data();
    for (size_t i = 0; i < outer.size(); ++i)
        o[i] = uint8_t(std::max(int(o[i]) - int(in[i]), 0));
    return outer;
}

Mask fromAlpha(const TileSet& tiles) {
    const TileGrid& grid = tiles.grid;
    const int64_t width = grid.width;
    Mask mask(areaOf(width, grid.height), 0);
    parallelFor(grid.count(), [&](int64_t index) {
        const Tile* tile = tiles.tile(index);
        if (!tile) return;
        const IRect r = grid.rect(index);
        for (int64_t y = 0; y < r.h; ++y) {
            const uint8_t* src = tile->row(y);
            uint8_t* dst = mask.data() + (r.y + y) * width + r.x;
            for (int64_t x = 0; x < r.w; ++x)
                dst[x] = src[x * 4 + 3];
        }
    });
    return mask;
}

Mask maskArray(const Selection& selection) {
    const size_t area = areaOf(selection.width(), selection.height());
    if (area == 0) return {};
    return Mask(selection.data(), selection.data() + area);
}

Path outline(const uint8_t* mask, int64_t width, int64_t height) {
    Path path;
    if (width <= 0 || height <= 0) return path;
    const size_t w = size_t(width);
    // Inside-ness of the rows above and below the grid line; outside the canvas is outside.
    std::vector<uint8_t> above(w, 0), below(w, 0);
    auto load = [&](std::vector<uint8_t>& row, int64_t y) {
        if (y >= height) {
            std::fill(row.begin(), row.end(), 0);
            return;
        }
        const uint8_t* m = mask + y * width;
        for (size_t x = 0; x < w; ++x)
            row[x] = m[x] >= 128;
    };

    for (int64_t y = 0; y <= height; ++y) {
        load(below, y);
        int64_t start = -1;
        for (int64_t x = 0; x <= width; ++x) {
            const bool edge = x < width && above[size_t(x)] != below[size_t(x)];
            if (edge && start < 0) start = x;
            if (!edge && start >= 0) {
                path.moveTo({double(start), double(y)});
                path.lineTo({double(x), double(y)});
                start = -1;
            }
        }
        std::swap(above, below);
    }

    // Vertical runs are found row by row (the mask is read in memory order)
    // and then put in column order; within a column they end in row order.
    struct Run {
        int64_t x, y0, y1;
    };
    std::vector<Run> runs;
    std::vector<int64_t> start(w + 1, -1);
    for (int64_t y = 0; y <= height; ++y) {
        load(below, y);
        for (int64_t x = 0; x <= width; ++x) {
            const uint8_t left = x > 0 ? below[size_t(x) - 1] : 0;
            const uint8_t right = x < width ? below[size_t(x)] : 0;
            const bool edge = y < height && left != right;
            int64_t& s = start[size_t(x)];
            if (edge && s < 0) s = y;
            if (!edge && s >= 0) {
                runs.push_back({x, s, y});
                s = -1;
            }
        }
    }
    std::stable_sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.x < b.x; });
    for (const Run& r : runs) {
        path.moveTo({double(r.x), double(r.y0)});
        path.lineTo({double(r.x), double(r.y1)});
    }
    return path;
}

} // namespace korv::SelectionTools
