#include "engine/paint/BrushStroke.h"

#include "engine/core/Require.h"
#include "engine/core/Selection.h"
#include "engine/paint/CoverageProfile.h"
#include "engine/paint/PaintDocument.h"
#include "engine/paint/PaperGrain.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace korv {

namespace {

// Input further out than this is held at it: it lies well beyond the largest
// canvas, and a path to it stays a bounded number of dabs.
constexpr double kFarAway = 65536;

// A hostile sample must not poison the path: positions are held finite and
// near, pressure in 0...1.
StrokePoint tamed(StrokePoint p) {
    p.x = std::clamp(p.x, -kFarAway, kFarAway);
    p.y = std::clamp(p.y, -kFarAway, kFarAway);
    p.pressure = std::isfinite(p.pressure) ? std::clamp(p.pressure, 0.0, 1.0) : 1.0;
    if (!std::isfinite(p.time)) p.time = 0;
    if (!std::isfinite(p.tiltX)) p.tiltX = 0;
    if (!std::isfinite(p.tiltY)) p.tiltY = 0;
    return p;
}

enum class StampMode { erase, paint, paintAlphaLocked };

const uint8_t kZeroRow[kTileStride] = {};

struct StampArgs {
    double cx, cy, r, limit, ceiling, sinA, cosA, invRound, textureScale, texture;
    float flow, cr, cg, cb;
    CoverageProfile profile;
    const float* grain;
    const Selection* selection;
};

// One tile's part of a dab. The decisions that hold for the whole dab are
// template arguments, so the pixel loop carries none of them.
template <StampMode M, bool Hard, bool Rotated, bool Textured, bool Selected>
void stampPart(const StampArgs& a, const IRect& part, float* mask, uint8_t* tile, const uint8_t* before) {
    const double r = a.profile.r, inner = a.profile.inner, span = a.profile.span;
    for (int64_t y = part.y; y < part.maxY(); ++y) {
        const int64_t ty = y & (kTileSize - 1);
        const double dy = double(y) + 0.5 - a.cy;
        float* mrow = mask + ty * kTileSize;
        uint8_t* out = tile + ty * kTileStride;
        const uint8_t* in = before ? before + ty * kTileStride : kZeroRow;
        const uint8_t* sel = Selected ? a.selection->row(y) : nullptr;
        const float* grainRow = nullptr;
        if constexpr (Textured) grainRow = a.grain + ((int64_t(double(y) / a.textureScale) & 255) << 8);
        for (int64_t x = part.x; x < part.maxX(); ++x) {
            const double dx = double(x) + 0.5 - a.cx;
            double d2;
            if constexpr (Rotated) {
                const double u = a.cosA * dx + a.sinA * dy;
                const double v = a.invRound * (a.cosA * dy - a.sinA * dx);
                d2 = u * u + v * v;
            } else {
                d2 = dx * dx + dy * dy;
            }
            if (d2 > a.limit) continue;
            const double d = std::sqrt(d2);
            double cov = Hard ? CoverageProfile::hardAt(r, d) : CoverageProfile::softAt(r, inner, span, d);
            if (!(cov > 0)) continue;
            if constexpr (Textured) {
                const float g = grainRow[int64_t(double(x) / a.textureScale) & 255];
                cov *= 1 - (1 - double(g)) * a.texture;
                if (!(cov > 0)) continue;
            }
            if constexpr (Selected) {
                cov *= double(sel[x]) / 255;
                if (!(cov > 0)) continue;
            }
            const float target = float(cov * a.ceiling);
            const int64_t tx = x & (kTileSize - 1);
            float m = mrow[tx];
            if (m >= target) continue;
            m = m + (target - m) * a.flow;
            mrow[tx] = m;
            const uint8_t* p0 = in + tx * 4;
            uint8_t* p = out + tx * 4;
            if constexpr (M == StampMode::erase) {
                const float keep = 1 - m;
                for (int k = 0; k < 4; ++k)
                    p[k] = uint8_t(float(p0[k]) * keep + 0.5f);
            } else if constexpr (M == StampMode::paint) {
                const float keep = 1 - m;
                const float aOut = 255 * m + keep * float(p0[3]);
                p[0] = uint8_t(std::min(keep * float(p0[0]) + m * a.cr * 255, aOut) + 0.5f);
                p[1] = uint8_t(std::min(keep * float(p0[1]) + m * a.cg * 255, aOut) + 0.5f);
                p[2] = uint8_t(std::min(keep * float(p0[2]) + m * a.cb * 255, aOut) + 0.5f);
                p[3] = uint8_t(std::min(aOut + 0.5f, 255.0f));
            } else {
                const float a0 = float(p0[3]);
                if (p0[3] == 0) continue;
                p[0] = uint8_t(std::min(float(p0[0]) + m * (a0 * a.cr - float(p0[0])), a0) + 0.5f);
                p[1] = uint8_t(std::min(float(p0[1]) + m * (a0 * a.cg - float(p0[1])), a0) + 0.5f);
                p[2] = uint8_t(std::min(float(p0[2]) + m * (a0 * a.cb - float(p0[2])), a0) + 0.5f);
                p[3] = p0[3];
            }
        }
    }
}

using StampFn = void (*)(const StampArgs&, const IRect&, float*, uint8_t*, const uint8_t*);

template <StampMode M, bool Hard, bool Rotated, bool Textured>
StampFn pickSelected(bool selected) {
    return selected ? &stampPart<M, Hard, Rotated, Textured, true>
                    : &stampPart<M, Hard, Rotated, Textured, false>;
}
template <StampMode M, bool Hard, bool Rotated>
StampFn pickTextured(bool textured, bool selected) {
    return textured ? pickSelected<M, Hard, Rotated, true>(selected)
                    : pickSelected<M, Hard, Rotated, false>(selected);
}
template <StampMode M, bool Hard>
StampFn pickRotated(bool rotated, bool textured, bool selected) {
    return rotated ? pickTextured<M, Hard, true>(textured, selected)
                   : pickTextured<M, Hard, false>(textured, selected);
}
template <StampMode M>
StampFn pickHard(bool hard, bool rotated, bool textured, bool selected) {
    return hard ? pickRotated<M, true>(rotated, textured, selected)
                : pickRotated<M, false>(rotated, textured, selected);
}
StampFn pickStamp(StampMode mode, bool hard, bool rotated, bool textured, bool selected) {
    switch (mode) {
    case StampMode::erase:
        return pickHard<StampMode::erase>(hard, rotated, textured, selected);
    case StampMode::paint:
        return pickHard<StampMode::paint>(hard, rotated, textured, selected);
    case StampMode::paintAlphaLocked:
        break;
    }
    return pickHard<StampMode::paintAlphaLocked>(hard, rotated, textured, selected);
}

} // namespace

BrushStroke::BrushStroke(PaintDocument& document, LayerPtr layer, const BrushSettings& brush,
                         const PaintColor& color, uint64_t seed)
    : document_(document), layer_(std::move(layer)), brush_(brush), color_(color), rng_(seed),
      grain_(PaperGrain::values()), cr_(float(color.r)), cg_(float(color.g)), cb_(float(color.b)),
      W_(document.grid.width), H_(document.grid.height) {
    KORV_REQUIRE(layer_ && layer_->grid == document.grid);
    brush_.sanitize();
    layer_->freeze();
}

void BrushStroke::add(const StrokePoint& input) {
    if (ended_ || std::isnan(input.x) || std::isnan(input.y)) return;
    const StrokePoint p = tamed(input);
    lastRaw_ = p;
    if (brush_.stabilizer <= 0) {
        place(p);
        return;
    }
    if (!smoothed_) {
        smoothed_ = p;
        place(p);
        return;
    }
    const double k = 1 - 0.95 * std::sqrt(brush_.stabilizer / 100);
    const double kp = std::max(k, 0.3);
    const StrokePoint& s = *smoothed_;
    StrokePoint n{s.x + (p.x - s.x) * k,
                  s.y + (p.y - s.y) * k,
                  s.pressure + (p.pressure - s.pressure) * kp,
                  s.tiltX,
                  s.tiltY,
                  p.time};
    smoothed_ = n;
    place(n);
}

double BrushStroke::step(double pressure) const {
    double s = brush_.size;
    if (brush_.pressureSize) s *= brush_.minSize + (1 - brush_.minSize) * pressure;
    return std::max(s * brush_.spacing, 0.5);
}

void BrushStroke::place(const StrokePoint& p) {
    if (!lastPlaced_) {
        lastPlaced_ = p;
        dab(p);
        need_ = step(p.pressure);
        return;
    }
    const StrokePoint a = *lastPlaced_;
    const double ex = p.x - a.x, ey = p.y - a.y;
    const double dist = std::sqrt(ex * ex + ey * ey);
    if (!(dist > 0)) return;
    double travelled = 0;
    while (need_ <= dist - travelled) {
        travelled += need_;
        const double t = travelled / dist;
        const StrokePoint q{
            a.x + ex * t, a.y + ey * t, std::clamp(a.pressure + (p.pressure - a.pressure) * t, 0.0, 1.0),
            p.tiltX,      p.tiltY,      a.time + (p.time - a.time) * t};
        dab(q);
        need_ = step(q.pressure);
    }
    need_ -= dist - travelled;
    lastPlaced_ = p;
}

void BrushStroke::hold(double seconds) {
    if (ended_ || !(brush_.airbrush || brush_.spray) || !lastPlaced_ || !(seconds > 0)) return;
    // An hour at the highest rate; a longer rest adds nothing visible.
    holdCarry_ += brush_.airbrushRate * std::min(seconds, 3600.0);
    while (holdCarry_ >= 1) {
        holdCarry_ -= 1;
        dab(*lastPlaced_);
    }
}

void BrushStroke::end() {
    if (ended_) return;
    if (brush_.stabilizer > 0 && smoothed_ && lastRaw_) {
        const StrokePoint s = *smoothed_;
        const double ex = lastRaw_->x - s.x, ey = lastRaw_->y - s.y;
        const int64_t n = std::max<int64_t>(int64_t(std::sqrt(ex * ex + ey * ey) / 2), 1);
        double qx = s.x, qy = s.y;
        for (int64_t i = 1; i <= n; ++i) {
            const double f = double(i) / double(n);
            qx += (lastRaw_->x - qx) * f;
            qy += (lastRaw_->y - qy) * f;
            place({qx, qy, s.pressure, s.tiltX, s.tiltY, s.time});
        }
    }
    masks_.clear();
    ended_ = true;
}

void BrushStroke::dab(const StrokePoint& p) {
    ++dabCount_;
    double size = brush_.size;
    if (brush_.pressureSize) size *= brush_.minSize + (1 - brush_.minSize) * p.pressure;
    if (brush_.sizeJitter > 0) {
        const double j = rng_.signedUnit();
        size *= std::max(1 + brush_.sizeJitter * j, 0.05);
    }
    double cx = p.x, cy = p.y;
    if (brush_.scatter > 0) {
        const double jx = rng_.signedUnit();
        const double jy = rng_.signedUnit();
        cx += jx * size * brush_.scatter;
        cy += jy * size * brush_.scatter;
    }
    double opacity = brush_.opacity;
    if (brush_.pressureOpacity) opacity *= p.pressure;
    if (brush_.opacityJitter > 0) {
        const double u = rng_.unit();
        opacity *= 1 - brush_.opacityJitter * u;
    }
    double flowFactor = 1;
    if (brush_.pressureFlow) flowFactor = std::max(p.pressure, 0.02);
    double angle = brush_.angle;
    if (brush_.angleJitter > 0) {
        const double j = rng_.signedUnit();
        angle += brush_.angleJitter * 180 * j;
    }
    switch (brush_.kind) {
    case BrushKind::smudge:
        smudgeDab(cx, cy, size);
        return;
    case BrushKind::blur:
        blurDab(cx, cy, size);
        return;
    case BrushKind::paint:
    case BrushKind::erase:
        break;
    }
    const double flow = brush_.flow * flowFactor;
    if (!brush_.spray) {
        stamp(brush_.texture > 0, cx, cy, size * 0.5, brush_.hardness, opacity, flow, angle,
              brush_.roundness);
        return;
    }
    const int64_t n = std::max<int64_t>(std::llround(brush_.sprayDensity * std::max(p.pressure, 0.05)), 1);
    for (int64_t i = 0; i < n; ++i) {
        const double u1 = rng_.unit();
        const double u2 = rng_.unit();
        const double u3 = rng_.unit();
        const double distance = size * 0.5 * std::sqrt(u1);
        const double theta = 2 * std::numbers::pi * u2;
        const double diameter = brush_.particleSize * (0.6 + 0.8 * u3);
        stamp(false, cx + distance * std::cos(theta), cy + distance * std::sin(theta), diameter * 0.5, 0.8,
              opacity, flow, 0, 1);
    }
}

void BrushStroke::stamp(bool textured, double cx, double cy, double radius, double hardness, double ceiling,
                        double flow, double angle, double roundness) {
    const double r = std::max(radius, 0.5);
    const double side = std::ceil(2 * r + 3);
    const double fx = std::floor(cx - r - 1), fy = std::floor(cy - r - 1);
    // Whole dabs beyond the canvas stop here, before any integer conversion.
    if (!(ceiling > 0) || fx >= double(W_) || fy >= double(H_) || fx + side <= 0 || fy + side <= 0) return;
    const IRect rect =
        IRect{int64_t(fx), int64_t(fy), int64_t(side), int64_t(side)}.intersection({0, 0, W_, H_});
    if (rect.isEmpty()) return;
    const double radians = angle * std::numbers::pi / 180;
    const Selection* selection = document_.selection().get();
    if (selection && (selection->width() != W_ || selection->height() != H_)) selection = nullptr;
    StampArgs a{cx,
                cy,
                r,
                (r + 1) * (r + 1),
                ceiling,
                std::sin(radians),
                std::cos(radians),
                1 / std::max(roundness, 0.05),
                brush_.textureScale,
                brush_.texture,
                float(flow),
                cr_,
                cg_,
                cb_,
                CoverageProfile(r, hardness),
                grain_,
                selection};
    const StampMode mode = brush_.kind == BrushKind::erase
                               ? StampMode::erase
                               : (layer_->alphaLocked ? StampMode::paintAlphaLocked : StampMode::paint);
    const StampFn fn = pickStamp(mode, a.profile.hard, roundness < 0.999, textured, selection != nullptr);
    // The tiles under the rectangle, walked without building a list: a spray
    // dab stamps dozens of particles.
    const TileGrid& grid = layer_->grid;
    const int64_t c0 = rect.x / kTileSize, c1 = (rect.maxX() - 1) / kTileSize;
    const int64_t r0 = rect.y / kTileSize, r1 = (rect.maxY() - 1) / kTileSize;
    for (int64_t row = r0; row <= r1; ++row)
        for (int64_t col = c0; col <= c1; ++col) {
            const int64_t index = row * grid.cols + col;
            auto [it, fresh] = masks_.try_emplace(index);
            Plane& plane = it->second;
            if (fresh) {
                plane.mask.reset(new float[size_t(kTileSize * kTileSize)]());
                plane.before = layer_->tiles[size_t(index)];
            }
            Tile& out = layer_->writableTile(index);
            const IRect part = layer_->grid.rect(index).intersection(rect);
            fn(a, part, plane.mask.get(), out.pixels(), plane.before ? plane.before->pixels() : nullptr);
        }
    touch(rect);
}

void BrushStroke::touch(const IRect& rect) {
    if (rect.isEmpty()) return;
    dirty_ = dirty_.isEmpty() ? rect : dirty_.unionWith(rect);
    document_.markDirty(rect);
}

} // namespace korv
