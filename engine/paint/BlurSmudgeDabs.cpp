// The two dabs of BrushStroke that move pixels rather than lay colour: the
// blur dab, which softens the layer as it stands, and the smudge dab, which
// carries a load picked up from the picture.
#include "engine/core/Selection.h"
#include "engine/paint/BrushStroke.h"
#include "engine/paint/CoverageProfile.h"
#include "engine/paint/PaintDocument.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <type_traits>

namespace korv {

namespace {

// A selection that doesn't match the canvas is treated as none.
const Selection* canvasSelection(const PaintDocument& doc, int64_t w, int64_t h) {
    const Selection* s = doc.selection().get();
    return s && s->width() == w && s->height() == h ? s : nullptr;
}

// A box filter of width 2b + 1 along n values spaced `stride` apart, with
// indices held inside the run; cost independent of b.
void boxRun(const float* in, float* out, int64_t n, int64_t stride, int64_t b) {
    const float width = float(2 * b + 1);
    for (int c = 0; c < 4; ++c) {
        auto at = [&](int64_t i) { return in[std::clamp<int64_t>(i, 0, n - 1) * stride + c]; };
        float sum = 0;
        for (int64_t k = -b; k <= b; ++k)
            sum += at(k);
        for (int64_t i = 0; i < n; ++i) {
            out[i * stride + c] = sum / width;
            sum += at(i + b + 1) - at(i - b);
        }
    }
}

const uint8_t kZeroRow[kTileStride] = {};

// Calls body with the three flags as compile-time constants, so that the
// pixel loops inside carry none of these per-dab decisions.
template <class Body>
void withFlags(bool a, bool b, bool c, Body&& body) {
    using T = std::true_type;
    using F = std::false_type;
    auto third = [&](auto A, auto B) { c ? body(A, B, T{}) : body(A, B, F{}); };
    auto second = [&](auto A) { b ? third(A, T{}) : third(A, F{}); };
    a ? second(T{}) : second(F{});
}

template <bool Hard>
double coverageAt(const CoverageProfile& p, double d) {
    if constexpr (Hard)
        return CoverageProfile::hardAt(p.r, d);
    else
        return CoverageProfile::softAt(p.r, p.inner, p.span, d);
}

} // namespace

void BrushStroke::blurDab(double cx, double cy, double size) {
    const double r = std::max(size * 0.5, 1.0);
    const int64_t B = std::clamp<int64_t>(int64_t(r * 0.2), 1, 12);
    const double fx = std::floor(cx - r), fy = std::floor(cy - r), side = std::ceil(2 * r) + 1;
    if (fx >= double(W_) || fy >= double(H_) || fx + side <= 0 || fy + side <= 0) return;
    const IRect rect =
        IRect{int64_t(fx), int64_t(fy), int64_t(side), int64_t(side)}.intersection({0, 0, W_, H_});
    if (rect.isEmpty()) return;

    // The rectangle grown by B, with positions beyond the canvas held at its edge.
    const int64_t rw = rect.w + 2 * B, rh = rect.h + 2 * B, rx = rect.x - B, ry = rect.y - B;
    region_.resize(size_t(rw * rh * 4));
    pass_.resize(region_.size());
    const TileGrid& grid = layer_->grid;
    for (int64_t y = 0; y < rh; ++y) {
        const int64_t sy = std::clamp<int64_t>(ry + y, 0, H_ - 1);
        const Tile* tile = nullptr;
        int64_t tileCol = -1;
        float* o = &region_[size_t(y * rw * 4)];
        for (int64_t x = 0; x < rw; ++x, o += 4) {
            const int64_t sx = std::clamp<int64_t>(rx + x, 0, W_ - 1);
            if (sx / kTileSize != tileCol) {
                tileCol = sx / kTileSize;
                tile = layer_->tiles[size_t((sy / kTileSize) * grid.cols + tileCol)].get();
            }
            const uint8_t* p = tile ? tile->row(sy & (kTileSize - 1)) + (sx & (kTileSize - 1)) * 4 : kZeroRow;
            for (int k = 0; k < 4; ++k)
                o[k] = float(p[k]);
        }
    }
    for (int64_t y = 0; y < rh; ++y)
        boxRun(&region_[size_t(y * rw * 4)], &pass_[size_t(y * rw * 4)], rw, 4, B);
    // The vertical pass goes to a buffer of its own: the mix below still needs
    // the unfiltered values in region_.
    std::vector<float>& blurred = blurScratch_;
    blurred.resize(region_.size());
    for (int64_t x = 0; x < rw; ++x)
        boxRun(&pass_[size_t(x * 4)], &blurred[size_t(x * 4)], rh, rw * 4, B);

    const CoverageProfile profile(r, brush_.hardness);
    const Selection* selection = canvasSelection(document_, W_, H_);
    const float strength = float(brush_.strength);
    const bool locked = layer_->alphaLocked;
    withFlags(profile.hard, selection != nullptr, locked, [&](auto hardC, auto selectedC, auto lockedC) {
        constexpr bool Hard = decltype(hardC)::value, Selected = decltype(selectedC)::value,
                       Locked = decltype(lockedC)::value;
        for (int64_t index : layer_->grid.tiles(rect)) {
            const IRect part = layer_->grid.rect(index).intersection(rect);
            Tile* out = nullptr;
            for (int64_t y = part.y; y < part.maxY(); ++y) {
                const double dy = double(y) + 0.5 - cy;
                const uint8_t* sel = Selected ? selection->row(y) : nullptr;
                const float* v = &region_[size_t(((y - ry) * rw + (part.x - rx)) * 4)];
                const float* bl = &blurred[size_t(((y - ry) * rw + (part.x - rx)) * 4)];
                for (int64_t x = part.x; x < part.maxX(); ++x, v += 4, bl += 4) {
                    const double dx = double(x) + 0.5 - cx;
                    double cov = coverageAt<Hard>(profile, std::sqrt(dx * dx + dy * dy));
                    if (!(cov > 0)) continue;
                    if constexpr (Selected) {
                        cov *= double(sel[x]) / 255;
                        if (!(cov > 0)) continue;
                    }
                    const float mix = float(cov) * strength;
                    float n[4];
                    for (int k = 0; k < 4; ++k)
                        n[k] = v[k] + mix * (bl[k] - v[k]);
                    if constexpr (Locked) n[3] = v[3];
                    const float af = std::clamp(n[3], 0.0f, 255.0f);
                    uint8_t bytes[4];
                    for (int k = 0; k < 3; ++k)
                        bytes[k] = uint8_t(std::max(std::min(n[k], af), 0.0f) + 0.5f);
                    bytes[3] = uint8_t(af + 0.5f);
                    if (bytes[0] == uint8_t(v[0]) && bytes[1] == uint8_t(v[1]) && bytes[2] == uint8_t(v[2]) &&
                        bytes[3] == uint8_t(v[3]))
                        continue;
                    if (!out) out = &layer_->writableTile(index);
                    std::copy(bytes, bytes + 4, out->row(y & (kTileSize - 1)) + (x & (kTileSize - 1)) * 4);
                }
            }
        }
    });
    touch(rect);
}

void BrushStroke::smudgeDab(double cx, double cy, double size) {
    const int64_t R = int64_t(std::ceil(brush_.size * 0.5)) + 1;
    if (!loadReady_) {
        loadR_ = R;
        load_.assign(size_t((2 * R + 1) * (2 * R + 1) * 4), 0.0f);
    }
    const int64_t L = loadR_;
    const int64_t ix = std::llround(cx), iy = std::llround(cy);
    const double r = std::max(size * 0.5, 1.0);
    const float rate = float((1 - brush_.strength) * 0.6 + 0.15);
    const CoverageProfile profile(r, brush_.hardness);
    const Selection* selection = canvasSelection(document_, W_, H_);
    const float strength = float(brush_.strength);
    const bool locked = layer_->alphaLocked;
    const IRect area = IRect{ix - L, iy - L, 2 * L + 1, 2 * L + 1}.intersection({0, 0, W_, H_});
    const int64_t side = 2 * L + 1;
    int64_t minX = INT64_MAX, minY = INT64_MAX, maxX = INT64_MIN, maxY = INT64_MIN;
    const bool pickUp = !loadReady_;
    withFlags(profile.hard, selection != nullptr, locked, [&](auto hardC, auto selectedC, auto lockedC) {
        constexpr bool Hard = decltype(hardC)::value, Selected = decltype(selectedC)::value,
                       Locked = decltype(lockedC)::value;
        for (int64_t index : layer_->grid.tiles(area)) {
            const IRect part = layer_->grid.rect(index).intersection(area);
            // Held here so the pixels read stay alive if the write below copies the tile.
            const TilePtr source = layer_->tiles[size_t(index)];
            Tile* out = nullptr;
            for (int64_t y = part.y; y < part.maxY(); ++y) {
                const int64_t dy = y - iy, ty = y & (kTileSize - 1);
                const uint8_t* in = source ? source->row(ty) : kZeroRow;
                const uint8_t* sel = Selected ? selection->row(y) : nullptr;
                for (int64_t x = part.x; x < part.maxX(); ++x) {
                    const int64_t dx = x - ix, tx = x & (kTileSize - 1);
                    double cov = coverageAt<Hard>(profile, std::sqrt(double(dx * dx + dy * dy)));
                    if (!(cov > 0)) continue;
                    const uint8_t* s = in + tx * 4;
                    const float v[4] = {float(s[0]), float(s[1]), float(s[2]), float(s[3])};
                    float* ld = &load_[size_t(((dy + L) * side + (dx + L)) * 4)];
                    if (pickUp) {
                        std::copy(v, v + 4, ld);
                        continue;
                    }
                    if constexpr (Selected) {
                        cov *= double(sel[x]) / 255;
                        if (!(cov > 0)) continue;
                    }
                    if constexpr (Locked)
                        if (s[3] == 0) continue;
                    const float mix = float(cov) * strength;
                    float n[4];
                    for (int k = 0; k < 4; ++k)
                        n[k] = v[k] + mix * (ld[k] - v[k]);
                    if constexpr (Locked) n[3] = v[3];
                    if (!out) out = &layer_->writableTile(index);
                    uint8_t* p = out->row(ty) + tx * 4;
                    for (int k = 0; k < 3; ++k)
                        p[k] = uint8_t(std::clamp(std::min(n[k], n[3]) + 0.5f, 0.0f, 255.0f));
                    p[3] = uint8_t(std::clamp(n[3] + 0.5f, 0.0f, 255.0f));
                    const float f = float(cov) * rate;
                    for (int k = 0; k < 4; ++k)
                        ld[k] += (v[k] - ld[k]) * f;
                    minX = std::min(minX, x), maxX = std::max(maxX, x);
                    minY = std::min(minY, y), maxY = std::max(maxY, y);
                }
            }
        }
    });
    const IRect written = minX <= maxX ? IRect{minX, minY, maxX - minX + 1, maxY - minY + 1} : IRect::zero();
    loadReady_ = true;
    touch(written);
}

} // namespace korv
