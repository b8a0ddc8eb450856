#include "engine/render/Compositor.h"

#include "engine/render/PixelMath.h"
#include "engine/render/TileLoops.h"

#include "engine/core/ParallelFor.h"
#include "engine/render/WorkBuffers.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <type_traits>

#if defined(__SSE__)
#include <immintrin.h>
#endif

namespace korv::Compositor {

namespace {

// A tile is composited in strips of rows, like the renderer's, so that the
// working buffers of a stack stay in the cache.
constexpr int64_t kStripPixels = 32 * kTileSize;

// The pixel kernels must melt into their loops, or nothing vectorises.
#define KORV_INLINE [[gnu::always_inline]] inline

struct RGB {
    float r, g, b;
};

// std::min and std::max by value: through references the choice becomes a
// load from a chosen address, which GCC does not if-convert.
KORV_INLINE float lesser(float a, float b) {
    return b < a ? b : a;
}
KORV_INLINE float greater(float a, float b) {
    return a < b ? b : a;
}

KORV_INLINE float lum(float r, float g, float b) {
    return 0.3f * r + 0.59f * g + 0.11f * b;
}
KORV_INLINE float minOf(const RGB& c) {
    return lesser(lesser(c.r, c.g), c.b);
}
KORV_INLINE float maxOf(const RGB& c) {
    return greater(greater(c.r, c.g), c.b);
}

// Pulls a colour back into 0...1 around its luminosity. lum(v, v, v) is not
// exactly v in floats, so l - n or x - l can be 0 where the colour has no
// room to move: such a step is skipped rather than computing 0/0. The
// quotients are formed unconditionally and selected, and conditions combine
// with & rather than &&, which keeps the pixel loops free of branches.
KORV_INLINE RGB clipColor(RGB c) {
    const float l = lum(c.r, c.g, c.b);
    const float n = minOf(c), x = maxOf(c);
    const float below = l - n;
    const bool lift = (n < 0.0f) & (below > 0.0f);
    const float f = l / below;
    c.r = selectFloat(lift, l + (c.r - l) * f, c.r);
    c.g = selectFloat(lift, l + (c.g - l) * f, c.g);
    c.b = selectFloat(lift, l + (c.b - l) * f, c.b);
    const float above = x - l;
    const bool lower = (x > 1.0f) & (above > 0.0f);
    const float q = (1.0f - l) / above;
    c.r = selectFloat(lower, l + q * (c.r - l), c.r);
    c.g = selectFloat(lower, l + q * (c.g - l), c.g);
    c.b = selectFloat(lower, l + q * (c.b - l), c.b);
    return c;
}

KORV_INLINE RGB setLum(RGB c, float l) {
    const float d = l - lum(c.r, c.g, c.b);
    return clipColor({c.r + d, c.g + d, c.b + d});
}

// Sorting the channels with ties kept in r, g, b order makes the maximum the
// last channel holding the largest value and the minimum the first holding
// the smallest; the remaining one is the middle. Written as selects so the
// non-separable modes vectorise like the others.
KORV_INLINE RGB saturate(const RGB& c, float s) {
    const float mn = minOf(c), mx = maxOf(c);
    const bool spread = mx > mn;
    const bool maxB = c.b == mx, maxG = !maxB & (c.g == mx), maxR = !maxB & !maxG;
    const bool minR = c.r == mn, minG = !minR & (c.g == mn), minB = !minR & !minG;
    const float range = mx - mn;
    auto place = [&](float v, bool isMax, bool isMin) {
        const float mid = (v - mn) * s / range;
        return selectFloat(spread, selectFloat(isMax, s, selectFloat(isMin, 0.0f, mid)), 0.0f);
    };
    return {place(c.r, maxR, minR), place(c.g, maxG, minG), place(c.b, maxB, minB)};
}

KORV_INLINE float sat(const RGB& c) {
    return maxOf(c) - minOf(c);
}

// One channel of a separable mode; b is the backdrop, s the source.
// root is the square root of b, wanted by softLight alone (see blendRun).
template <BlendMode M>
KORV_INLINE float channel(float b, float s, float root) {
    using enum BlendMode;
    if constexpr (M == normal) {
        return s;
    } else if constexpr (M == multiply) {
        return s * b;
    } else if constexpr (M == screen) {
        return s + b - s * b;
    } else if constexpr (M == overlay) {
        const float t = 2.0f * b - 1.0f;
        return selectFloat(b <= 0.5f, 2.0f * s * b, s + t - s * t);
    } else if constexpr (M == darken) {
        return s < b ? s : b;
    } else if constexpr (M == lighten) {
        return b <= s ? s : b;
    } else if constexpr (M == colorDodge) {
        // The tests run in this order: black stays black even under a white source.
        const float q = lesser(b / (1.0f - s), 1.0f);
        return selectFloat(b <= 0.0f, 0.0f, selectFloat(s >= 1.0f, 1.0f, q));
    } else if constexpr (M == colorBurn) {
        // And white stays white even under a black source.
        // selectFloat, not lesser: GCC would move the subtraction into a branch of the minimum.
        const float x = (1.0f - b) / s;
        const float q = 1.0f - selectFloat(1.0f < x, 1.0f, x);
        return selectFloat(b >= 1.0f, 1.0f, selectFloat(s <= 0.0f, 0.0f, q));
    } else if constexpr (M == hardLight) {
        const float t = 2.0f * s - 1.0f;
        return selectFloat(s <= 0.5f, s * (2.0f * b), t + b - t * b);
    } else if constexpr (M == softLight) {
        const float d = selectFloat(b <= 0.25f, b * (b * (16.0f * b - 12.0f) + 4.0f), root);
        return selectFloat(s <= 0.5f, b - (1.0f - 2.0f * s) * b * (1.0f - b), b + (2.0f * s - 1.0f) * (d - b));
    } else if constexpr (M == difference) {
        return std::fabs(b - s);
    } else if constexpr (M == exclusion) {
        return s + b - s * (2.0f * b);
    } else if constexpr (M == add) {
        return lesser(s + b, 1.0f);
    } else if constexpr (M == subtract) {
        return greater(b - s, 0.0f);
    } else {
        static_assert(M == linearBurn);
        (void)root;
        return greater(s + b - 1.0f, 0.0f);
    }
}

template <BlendMode M>
KORV_INLINE RGB mix(const RGB& b, const RGB& s, const RGB& root) {
    using enum BlendMode;
    if constexpr (M == hue) {
        return setLum(saturate(s, sat(b)), lum(b.r, b.g, b.b));
    } else if constexpr (M == saturation) {
        return setLum(saturate(b, sat(s)), lum(b.r, b.g, b.b));
    } else if constexpr (M == color) {
        return setLum(s, lum(b.r, b.g, b.b));
    } else if constexpr (M == luminosity) {
        return setLum(b, lum(s.r, s.g, s.b));
    } else {
        return {channel<M>(b.r, s.r, root.r), channel<M>(b.g, s.g, root.g), channel<M>(b.b, s.b, root.b)};
    }
}

// The premultiplied source (sr, sg, sb, sa) onto the pixel d. Every case is
// computed and the right one selected, so a loop over pixels has no branch
// and vectorises; the lanes that are not selected may hold inf or NaN from
// the divisions by a zero alpha, and never reach the pixel.
template <BlendMode M, bool Atop>
KORV_INLINE void composite(float* d, float sr, float sg, float sb, float sa, const RGB& root = {}) {
    const float dr = d[0], dg = d[1], db = d[2], ab = d[3];
    const bool on = sa > 0.0f;
    const float ks = 1.0f - sa;
    if constexpr (M == BlendMode::normal) {
        if constexpr (Atop) {
            d[0] = selectFloat(on, sr * ab + ks * dr, dr);
            d[1] = selectFloat(on, sg * ab + ks * dg, dg);
            d[2] = selectFloat(on, sb * ab + ks * db, db);
        } else {
            d[0] = selectFloat(on, sr + ks * dr, dr);
            d[1] = selectFloat(on, sg + ks * dg, dg);
            d[2] = selectFloat(on, sb + ks * db, db);
            d[3] = selectFloat(on, sa + ks * ab, ab);
        }
    } else {
        const RGB B = mix<M>({dr / ab, dg / ab, db / ab}, {sr / sa, sg / sa, sb / sa}, root);
        const float w = ab * sa;
        // An empty backdrop: the source itself, or nothing when kept inside it.
        const bool has = ab > 0.0f;
        if constexpr (Atop) {
            const bool blends = on & has;
            d[0] = selectFloat(blends, B.r * w + ks * dr, dr);
            d[1] = selectFloat(blends, B.g * w + ks * dg, dg);
            d[2] = selectFloat(blends, B.b * w + ks * db, db);
        } else {
            const float kb = 1.0f - ab;
            d[0] = selectFloat(on, selectFloat(has, B.r * w + (kb * sr + ks * dr), sr), dr);
            d[1] = selectFloat(on, selectFloat(has, B.g * w + (kb * sg + ks * dg), sg), dg);
            d[2] = selectFloat(on, selectFloat(has, B.b * w + (kb * sb + ks * db), sb), db);
            d[3] = selectFloat(on, selectFloat(has, ks * ab + sa, sa), ab);
        }
    }
}

template <BlendMode M>
struct Mode {
    static constexpr BlendMode value = M;
};

// Calls fn with the mode as a compile-time constant: the one switch, taken
// once per call and never inside a pixel loop.
template <class Fn>
decltype(auto) withMode(BlendMode mode, Fn&& fn) {
    using enum BlendMode;
    switch (mode) {
    case normal:
        return fn(Mode<normal>{});
    case multiply:
        return fn(Mode<multiply>{});
    case screen:
        return fn(Mode<screen>{});
    case overlay:
        return fn(Mode<overlay>{});
    case darken:
        return fn(Mode<darken>{});
    case lighten:
        return fn(Mode<lighten>{});
    case colorDodge:
        return fn(Mode<colorDodge>{});
    case colorBurn:
        return fn(Mode<colorBurn>{});
    case hardLight:
        return fn(Mode<hardLight>{});
    case softLight:
        return fn(Mode<softLight>{});
    case difference:
        return fn(Mode<difference>{});
    case exclusion:
        return fn(Mode<exclusion>{});
    case add:
        return fn(Mode<add>{});
    case subtract:
        return fn(Mode<subtract>{});
    case linearBurn:
        return fn(Mode<linearBurn>{});
    case hue:
        return fn(Mode<hue>{});
    case saturation:
        return fn(Mode<saturation>{});
    case color:
        return fn(Mode<color>{});
    case luminosity:
        return fn(Mode<luminosity>{});
    }
    return fn(Mode<normal>{});
}

struct Source {
    float r, g, b, a;
};

// Square roots in place. sqrtf may set errno, so GCC keeps each call scalar
// behind a branch, and a loop holding one does not vectorise; sqrtps rounds
// exactly as sqrtf does and has no such duty.
void rootsInPlace(float* v, int64_t n) {
    int64_t i = 0;
#if defined(__SSE__)
    for (; i + 4 <= n; i += 4)
        _mm_storeu_ps(v + i, _mm_sqrt_ps(_mm_loadu_ps(v + i)));
#endif
    for (; i < n; ++i)
        v[i] = std::sqrt(v[i]);
}

// The pixel loop of every compositing form: source(i) gives pixel i of the
// source, premultiplied and faded. Pixels go in runs: a run without any
// source alpha costs one test a pixel, the others run the branch-free kernel.
// softLight first takes the square roots of the run's straight backdrops,
// from the same quotients the kernel forms.
template <BlendMode M, bool Atop, class SourceFn>
KORV_INLINE void blendRun(float* dst, int64_t pixels, SourceFn source) {
    constexpr int64_t kRun = 32;
    for (int64_t first = 0; first < pixels; first += kRun) {
        const int64_t n = std::min(kRun, pixels - first);
        unsigned any = 0;
        for (int64_t i = 0; i < n; ++i)
            any |= unsigned(source(first + i).a > 0.0f);
        if (!any) continue;
        float* d = dst + first * 4;
        if constexpr (M == BlendMode::softLight) {
            // Four to a pixel, alpha's lane unused, so the loops keep the working format's stride.
            float roots[kRun * 4];
            for (int64_t i = 0; i < n; ++i) {
                const float ab = d[i * 4 + 3];
                for (int c = 0; c < 4; ++c)
                    roots[i * 4 + c] = d[i * 4 + c] / ab;
            }
            rootsInPlace(roots, n * 4);
            for (int64_t i = 0; i < n; ++i) {
                const Source p = source(first + i);
                const float* r = roots + i * 4;
                composite<M, Atop>(d + i * 4, p.r, p.g, p.b, p.a, {r[0], r[1], r[2]});
            }
        } else {
            for (int64_t i = 0; i < n; ++i) {
                const Source p = source(first + i);
                composite<M, Atop>(d + i * 4, p.r, p.g, p.b, p.a);
            }
        }
    }
}

// Working-buffer pixels faded by opacity.
template <BlendMode M, bool Atop>
KORV_INLINE void floatLoop(float* dst, const float* src, int64_t pixels, float opacity) {
    blendRun<M, Atop>(dst, pixels, [=](int64_t i) [[gnu::always_inline]] {
        const float* s = src + i * 4;
        return Source{s[0] * opacity, s[1] * opacity, s[2] * opacity, s[3] * opacity};
    });
}

// Tile bytes times k = opacity / 255.
template <BlendMode M, bool Atop>
KORV_INLINE void byteLoop(float* dst, const uint8_t* src, int64_t pixels, float k) {
    blendRun<M, Atop>(dst, pixels, [=](int64_t i) [[gnu::always_inline]] {
        const uint8_t* p = src + i * 4;
        return Source{float(p[0]) * k, float(p[1]) * k, float(p[2]) * k, float(p[3]) * k};
    });
}

// The same, with the colour pulled towards the tint inside the pixel's alpha.
template <BlendMode M, bool Atop>
KORV_INLINE void tintedByteLoop(float* dst, const uint8_t* src, int64_t pixels, float k,
                    const std::array<float, 4>& tint) {
    // Plain copies: clang 14 can't capture structured bindings.
    const float tr = tint[0], tg = tint[1], tb = tint[2], tk = tint[3];
    blendRun<M, Atop>(dst, pixels, [=](int64_t i) [[gnu::always_inline]] {
        const uint8_t* p = src + i * 4;
        const float a = float(p[3]) * k;
        const float r = float(p[0]) * k, g = float(p[1]) * k, b = float(p[2]) * k;
        return Source{r + (tr * a - r) * tk, g + (tg * a - g) * tk, b + (tb * a - b) * tk, a};
    });
}

uint8_t toByte(float v) {
    const float t = v * 255.0f + 0.5f;
    return t <= 0.0f ? 0 : t >= 255.0f ? 255 : uint8_t(int(t));
}

// Float pixels to bytes, colour lowered to alpha so the result is valid premultiplied.
KORV_PIXEL_LOOP void toBytes(const float* src, uint8_t* out, int64_t pixels) {
    for (int64_t i = 0; i < pixels * 4; ++i) {
        const float t = src[i] * 255.0f + 0.5f;
        out[i] = uint8_t(int(t <= 0.0f ? 0.0f : t >= 255.0f ? 255.0f : t));
    }
    for (int64_t i = 0; i < pixels; ++i) {
        uint8_t* p = out + i * 4;
        p[0] = std::min(p[0], p[3]);
        p[1] = std::min(p[1], p[3]);
        p[2] = std::min(p[2], p[3]);
    }
}

const Tile* tileAt(const CompositeInput& layer, int64_t index) {
    return index >= 0 && index < int64_t(layer.tiles.size()) ? layer.tiles[size_t(index)].get() : nullptr;
}

bool shows(const CompositeInput& layer, int64_t index) {
    return layer.visible && layer.opacity > 0.0f && tileAt(layer, index) != nullptr;
}

// Pixels [first, first + count) of one tile of the stack into acc; true if
// anything was drawn. accEmpty depends only on which tiles exist, so every
// strip of a tile comes to the same answer.
bool compositeStrip(int64_t tile, const std::vector<CompositeInput>& layers, int64_t first, int64_t count,
                    float* acc, float* layer) {
    bool accEmpty = true;
    const size_t n = layers.size();
    size_t i = 0;
    while (i < n) {
        const CompositeInput& base = layers[i];
        size_t runEnd = i + 1;
        while (runEnd < n && layers[runEnd].clipping)
            ++runEnd;
        const size_t runStart = i + 1;
        i = runEnd;
        if (!shows(base, tile)) continue;
        const uint8_t* basePixels = tileAt(base, tile)->pixels() + first * 4;
        bool clipped = false;
        for (size_t r = runStart; r < runEnd && !clipped; ++r)
            clipped = shows(layers[r], tile);
        if (!clipped) {
            // A tinted layer blends pixel by pixel, so the first one needs a clear backdrop.
            if (accEmpty && base.tint) std::memset(acc, 0, size_t(count) * 4 * sizeof(float));
            blendByteSpan(acc, basePixels, count, base.opacity, base.mode, false, base.tint, accEmpty);
        } else {
            if (base.tint) std::memset(layer, 0, size_t(count) * 4 * sizeof(float));
            blendByteSpan(layer, basePixels, count, 1.0f, BlendMode::normal, false, base.tint, true);
            for (size_t r = runStart; r < runEnd; ++r) {
                const CompositeInput& c = layers[r];
                if (!shows(c, tile)) continue;
                blendByteSpan(layer, tileAt(c, tile)->pixels() + first * 4, count, c.opacity, c.mode, true,
                              c.tint, false);
            }
            blendSpan(acc, layer, count, base.opacity, base.mode, false, accEmpty);
        }
        accEmpty = false;
    }
    return !accEmpty;
}

} // namespace

Color3 blend(BlendMode mode, const Color3& backdrop, const Color3& source) {
    const RGB b{backdrop[0], backdrop[1], backdrop[2]}, s{source[0], source[1], source[2]};
    const RGB root{std::sqrt(b.r), std::sqrt(b.g), std::sqrt(b.b)};
    const RGB out = withMode(mode, [&](auto m) { return mix<decltype(m)::value>(b, s, root); });
    return {out.r, out.g, out.b};
}

Color3 setSat(float r, float g, float b, float s) {
    const RGB out = saturate({r, g, b}, s);
    return {out.r, out.g, out.b};
}

void blendPixel(float* dst, float r, float g, float b, float a, BlendMode mode, bool atop) {
    withMode(mode, [&](auto m) {
        constexpr BlendMode M = decltype(m)::value;
        const float ab = dst[3];
        const RGB root{std::sqrt(dst[0] / ab), std::sqrt(dst[1] / ab), std::sqrt(dst[2] / ab)};
        if (atop)
            composite<M, true>(dst, r, g, b, a, root);
        else
            composite<M, false>(dst, r, g, b, a, root);
    });
}

Pixel4 blendBytes(const Pixel4& backdrop, const Pixel4& source, BlendMode mode, float opacity) {
    float d[4] = {float(backdrop[0]) / 255.0f, float(backdrop[1]) / 255.0f, float(backdrop[2]) / 255.0f,
                  float(backdrop[3]) / 255.0f};
    const float k = opacity / 255.0f;
    const float sa = k * float(source[3]);
    if (!(sa > 0.0f)) return backdrop;
    blendPixel(d, float(source[0]) * k, float(source[1]) * k, float(source[2]) * k, sa, mode, false);
    return {toByte(d[0]), toByte(d[1]), toByte(d[2]), toByte(d[3])};
}

KORV_PIXEL_LOOP void blendSpan(float* dst, const float* src, int64_t pixels, float opacity, BlendMode mode, bool atop,
               bool accEmpty) {
    const int64_t n = pixels * 4;
    // Nothing lies under the first layer, so its mode plays no part.
    if (accEmpty && !atop) {
        if (opacity >= 1.0f) {
            if (dst != src) std::memcpy(dst, src, size_t(n) * sizeof(float));
        } else {
            for (int64_t i = 0; i < n; ++i)
                dst[i] = src[i] * opacity;
        }
        return;
    }
    withMode(mode, [&](auto m) {
        constexpr BlendMode M = decltype(m)::value;
        if (atop)
            floatLoop<M, true>(dst, src, pixels, opacity);
        else
            floatLoop<M, false>(dst, src, pixels, opacity);
    });
}

KORV_PIXEL_LOOP void blendByteSpan(float* dst, const uint8_t* src, int64_t pixels, float opacity, BlendMode mode, bool atop,
                   const Tint& tint, bool accEmpty) {
    const float k = opacity / 255.0f;
    if (!tint && !atop && accEmpty) {
        for (int64_t i = 0; i < pixels * 4; ++i)
            dst[i] = float(src[i]) * k;
        return;
    }
    withMode(mode, [&](auto m) {
        constexpr BlendMode M = decltype(m)::value;
        if (tint) {
            if (atop)
                tintedByteLoop<M, true>(dst, src, pixels, k, *tint);
            else
                tintedByteLoop<M, false>(dst, src, pixels, k, *tint);
        } else {
            if (atop)
                byteLoop<M, true>(dst, src, pixels, k);
            else
                byteLoop<M, false>(dst, src, pixels, k);
        }
    });
}

void blendTile(float* dst, const Tile& tile, float opacity, BlendMode mode, bool atop, const Tint& tint,
               bool accEmpty) {
    blendByteSpan(dst, tile.pixels(), kTilePixels, opacity, mode, atop, tint, accEmpty);
}

void compositeTile(int64_t tile, const std::vector<CompositeInput>& layers, uint8_t* out) {
    if (layers.empty()) {
        std::memset(out, 0, size_t(kTileBytes));
        return;
    }
    WorkBuffer acc, layer;
    for (int64_t first = 0; first < kTilePixels; first += kStripPixels) {
        if (compositeStrip(tile, layers, first, kStripPixels, acc.get(), layer.get()))
            toBytes(acc.get(), out + first * 4, kStripPixels);
        else
            std::memset(out + first * 4, 0, size_t(kStripPixels) * 4);
    }
}

std::map<int64_t, RGBABufferPtr> compositeImages(const std::vector<int64_t>& tiles,
                                                 const std::vector<CompositeInput>& layers,
                                                 const TileGrid& grid) {
    return renderTilePictures(grid, tiles, [&](int64_t index, uint8_t* out) { compositeTile(index, layers, out); });
}

RGBABufferPtr flatten(const std::vector<CompositeInput>& layers, const TileGrid& grid) {
    return renderCanvas(grid, [&](int64_t index, uint8_t* out) { compositeTile(index, layers, out); });
}

} // namespace korv::Compositor
