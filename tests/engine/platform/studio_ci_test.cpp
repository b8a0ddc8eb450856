#include "engine/platform/StudioCI.h"

#include <algorithm>
#include <cstdint>
#include <cmath>
#include <gtest/gtest.h>
#include <vector>

using namespace korv;
using namespace korv::StudioCI;

namespace {

// Premultiplied pixels with every byte different, colour never above alpha.
RGBABufferPtr noisy(int64_t w, int64_t h) {
    auto b = std::make_shared<RGBABuffer>(w, h);
    uint32_t s = 12345;
    for (int64_t i = 0; i < w * h; ++i) {
        s = s * 1664525u + 1013904223u;
        const uint8_t a = uint8_t(s >> 24);
        for (int c = 0; c < 3; ++c)
            b->data()[i * 4 + c] = uint8_t(a ? (s >> (c * 7)) % (a + 1u) : 0);
        b->data()[i * 4 + 3] = a;
    }
    return b;
}

std::vector<uint8_t> bytes(const RGBABuffer& b) {
    return {b.data(), b.data() + b.byteCount()};
}

bool colourWithinAlpha(const RGBABuffer& b) {
    for (int64_t i = 0; i < b.width() * b.height(); ++i)
        for (int c = 0; c < 3; ++c)
            if (b.data()[i * 4 + c] > b.data()[i * 4 + 3]) return false;
    return true;
}

} // namespace

TEST(StudioCI, ImageRendersBackUnchanged) {
    const RGBABufferPtr src = noisy(37, 23);
    const RGBABufferPtr out = render(*image(*src), 37, 23);
    EXPECT_EQ(bytes(*out), bytes(*src));
    EXPECT_GE(threadCount(), 1);
}

TEST(StudioCI, RenderNeverLeavesColourAboveAlpha) {
    RGBABuffer bad(4, 1);
    bad.setPixel(0, 0, {200, 10, 90, 50});
    bad.setPixel(1, 0, {255, 255, 255, 0});
    bad.setPixel(2, 0, {3, 4, 5, 255});
    const RGBABufferPtr out = render(bad, 5, 1);
    EXPECT_EQ(out->pixel(0, 0), (Pixel4{50, 10, 50, 50}));
    EXPECT_EQ(out->pixel(1, 0), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(out->pixel(2, 0), (Pixel4{3, 4, 5, 255}));
    EXPECT_EQ(out->pixel(4, 0), (Pixel4{0, 0, 0, 0}));
    // A matrix that pushes colour up is brought back under alpha by render.
    ColorMatrix up;
    up.bias = {0.5f, 0.5f, 0.5f, 0};
    const RGBABufferPtr pushed = colorMatrix(*noisy(30, 30), up);
    EXPECT_FALSE(colourWithinAlpha(*pushed));
    render(*pushed);
    EXPECT_TRUE(colourWithinAlpha(*pushed));
}

TEST(StudioCI, BlurKeepsAConstantWithClampedEdges) {
    RGBABuffer flat(40, 30);
    std::fill_n(flat.data(), flat.byteCount(), uint8_t(180));
    for (double sigma : {0.7, 3.0, 12.0}) {
        EXPECT_EQ(bytes(*gaussianBlur(flat, sigma, Edges::clamp)), bytes(flat)) << sigma;
        const Mask m(1200, 99);
        EXPECT_EQ(gaussianBlur(m, 40, 30, sigma, Edges::clamp), m) << sigma;
    }
    // With transparent edges the corner darkens.
    EXPECT_LT(gaussianBlur(flat, 3.0, Edges::transparent)->pixel(0, 0)[3], 180);
    // The sigma is taken as it stands: one sigma away a single line keeps
    // exp(-1/2) of the centre's weight.
    Mask line(41 * 1, 0);
    line[20] = 255;
    const Mask spread = gaussianBlur(line, 41, 1, 4.0, Edges::clamp);
    EXPECT_NEAR(double(spread[24]) / double(spread[20]), 0.6065, 0.03);
    EXPECT_EQ(bytes(*gaussianBlur(flat, 0, Edges::clamp)), bytes(flat));
}

TEST(StudioCI, MorphologyIsMonotoneInTheRadius) {
    Mask dot(21 * 21, 0);
    dot[10 * 21 + 10] = 255;
    int64_t last = 1;
    for (double r : {0.5, 1.0, 1.4, 1.5, 2.0, 2.5, 3.0, 4.7, 7.0}) {
        const Mask m = morphologyMaximum(dot, 21, 21, r, Edges::clamp);
        const int64_t n = std::count(m.begin(), m.end(), uint8_t(255));
        EXPECT_GE(n, last) << r;
        last = n;
        const Mask back = morphologyMinimum(m, 21, 21, r, Edges::clamp);
        EXPECT_EQ(back[10 * 21 + 10], 255) << r;
    }
    const Mask cross = morphologyMaximum(dot, 21, 21, 1.0, Edges::clamp);
    EXPECT_EQ(std::count(cross.begin(), cross.end(), uint8_t(255)), 5);
    EXPECT_EQ(last, 149); // points within 7 of the centre
    // Minimum shrinks: a 9 x 9 square loses a ring per pixel of radius.
    Mask sq(21 * 21, 0);
    for (int y = 6; y < 15; ++y)
        for (int x = 6; x < 15; ++x)
            sq[size_t(y * 21 + x)] = 255;
    const Mask s1 = morphologyMinimum(sq, 21, 21, 1, Edges::clamp);
    EXPECT_EQ(std::count(s1.begin(), s1.end(), uint8_t(255)), 49);
    // On an image, transparent edges erode the border; clamped ones don't.
    RGBABuffer opaque(10, 10);
    std::fill_n(opaque.data(), opaque.byteCount(), uint8_t(255));
    EXPECT_EQ(morphologyMinimum(opaque, 2, Edges::transparent)->pixel(0, 5)[3], 0);
    EXPECT_EQ(morphologyMinimum(opaque, 2, Edges::clamp)->pixel(0, 5)[3], 255);
}

TEST(StudioCI, MorphologyMatchesADiscEverywhere) {
    // Tall enough to be cut into bands: no seam may differ from a plain disc
    // maximum (minimum) with the edges continued.
    const int64_t w = 57, h = 700;
    const double r = 4.5;
    Mask m(size_t(w * h));
    uint32_t seed = 99;
    for (uint8_t& v : m) {
        seed = seed * 1664525u + 1013904223u;
        v = (seed >> 28) == 0 ? uint8_t(seed >> 8) : 0;
    }
    const Mask mx = morphologyMaximum(m, w, h, r, Edges::clamp);
    const Mask mn = morphologyMinimum(mx, w, h, r, Edges::clamp);
    auto at = [&](const Mask& from, int64_t x, int64_t y) {
        return from[size_t(std::clamp<int64_t>(y, 0, h - 1) * w + std::clamp<int64_t>(x, 0, w - 1))];
    };
    for (int64_t y = 0; y < h; ++y)
        for (int64_t x = 0; x < w; ++x) {
            uint8_t hi = 0, lo = 255;
            for (int dy = -4; dy <= 4; ++dy)
                for (int dx = -4; dx <= 4; ++dx)
                    if (dx * dx + dy * dy <= r * r) {
                        hi = std::max(hi, at(m, x + dx, y + dy));
                        lo = std::min(lo, at(mx, x + dx, y + dy));
                    }
            ASSERT_EQ(mx[size_t(y * w + x)], hi) << x << "," << y;
            ASSERT_EQ(mn[size_t(y * w + x)], lo) << x << "," << y;
        }
}

// Large sigmas run as box passes: they must stay within two levels of the
// true Gaussian with the edges continued, computed here in doubles.
TEST(StudioCI, LargeBlursAgreeWithTheTrueGaussian) {
    const int64_t w = 160, h = 150;
    Mask m(size_t(w * h), 0);
    for (int64_t y = 0; y < 105; ++y)
        for (int64_t x = 30; x < 120; ++x)
            m[size_t(y * w + x)] = (x * 7 + y * 3) % 5 == 0 ? 90 : 255;
    for (double sigma : {20.5, 40.0}) {
        const int64_t reach = int64_t(std::ceil(4 * sigma));
        std::vector<double> k;
        double total = 0;
        for (int64_t i = -reach; i <= reach; ++i)
            total += k.emplace_back(std::exp(-double(i * i) / (2 * sigma * sigma)));
        std::vector<double> across(m.size()), exact(m.size());
        for (int64_t y = 0; y < h; ++y)
            for (int64_t x = 0; x < w; ++x) {
                double v = 0;
                for (int64_t i = -reach; i <= reach; ++i)
                    v += k[size_t(i + reach)] * m[size_t(y * w + std::clamp<int64_t>(x + i, 0, w - 1))];
                across[size_t(y * w + x)] = v / total;
            }
        for (int64_t y = 0; y < h; ++y)
            for (int64_t x = 0; x < w; ++x) {
                double v = 0;
                for (int64_t i = -reach; i <= reach; ++i)
                    v += k[size_t(i + reach)] * across[size_t(std::clamp<int64_t>(y + i, 0, h - 1) * w + x)];
                exact[size_t(y * w + x)] = v / total;
            }
        const Mask fast = gaussianBlur(m, w, h, sigma, Edges::clamp);
        int worst = 0;
        for (size_t i = 0; i < m.size(); ++i)
            worst = std::max(worst, std::abs(int(fast[i]) - int(exact[i] + 0.5)));
        EXPECT_LE(worst, 2) << sigma;
    }
}

TEST(StudioCI, MatrixGeometryAndComposite) {
    const RGBABufferPtr src = noisy(16, 9);
    EXPECT_EQ(bytes(*colorMatrix(*src, ColorMatrix{})), bytes(*src));
    ColorMatrix swap; // R and B exchanged, alpha halved
    swap.m = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0.5f};
    const Pixel4 p = src->pixel(3, 4), q = colorMatrix(*src, swap)->pixel(3, 4);
    EXPECT_EQ(q[0], p[2]);
    EXPECT_EQ(q[2], p[0]);
    EXPECT_EQ(q[3], uint8_t(p[3] / 255.0f * 0.5f * 255.0f + 0.5f));

    const RGBABufferPtr c = crop(*src, {10, 5, 10, 10});
    EXPECT_EQ(c->pixel(0, 0), src->pixel(10, 5));
    EXPECT_EQ(c->pixel(6, 0), (Pixel4{0, 0, 0, 0}));

    const RGBABufferPtr t = translate(*src, 3, -2);
    EXPECT_EQ(t->pixel(5, 1), src->pixel(2, 3));
    EXPECT_EQ(t->pixel(1, 1), (Pixel4{0, 0, 0, 0}));
    EXPECT_EQ(t->pixel(5, 8), (Pixel4{0, 0, 0, 0}));
    RGBABuffer two(4, 1);
    two.setPixel(1, 0, {200, 200, 200, 200});
    const RGBABufferPtr half = translate(two, 0.5, 0);
    EXPECT_EQ(half->pixel(1, 0)[3], 100);
    EXPECT_EQ(half->pixel(2, 0)[3], 100);

    RGBABuffer top(1, 2), bottom(1, 2);
    top.setPixel(0, 0, {100, 0, 0, 128});
    bottom.setPixel(0, 0, {0, 0, 255, 255});
    bottom.setPixel(0, 1, {9, 8, 7, 10});
    const RGBABufferPtr over = compositeOver(top, bottom);
    EXPECT_EQ(over->pixel(0, 0), (Pixel4{100, 0, 127, 255}));
    EXPECT_EQ(over->pixel(0, 1), (Pixel4{9, 8, 7, 10}));
}
