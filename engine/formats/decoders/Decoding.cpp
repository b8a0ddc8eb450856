#include "engine/formats/decoders/Decoding.h"

#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <lcms2.h>
#include <new>
#include <unistd.h>
#include <vector>

namespace korv {

int64_t DecodeLimits::defaultMaxBytes() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0) return int64_t(8) << 30;
    return int64_t(pages) * int64_t(pageSize) / 2;
}

namespace decoding {

bool sizeAllowed(int64_t width, int64_t height, const DecodeLimits& limits, int workingCopies) {
    if (width < 1 || height < 1 || width > limits.maxSide || height > limits.maxSide) return false;
    const int64_t pixels = width * height; // both at most 2^31, so no overflow
    if (pixels > limits.maxPixels) return false;
    return pixels <= limits.maxBytes / (4 * int64_t(std::max(workingCopies, 1)));
}

RGBABufferPtr allocate(int64_t width, int64_t height, const DecodeLimits& limits, int workingCopies) {
    if (!sizeAllowed(width, height, limits, workingCopies)) return nullptr;
    try {
        return std::make_shared<RGBABuffer>(width, height, RGBABuffer::Uninitialized{});
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool keepsPartialPicture(int64_t width, int64_t height, int64_t rows) {
    constexpr int64_t kSmallPicture = int64_t(64) << 20; // pixels
    return rows >= 1 && (width * height <= kSmallPicture || rows * 16 >= height);
}

ExifInfo parseExif(std::span<const uint8_t> bytes) {
    ExifInfo info;
    if (bytes.size() >= 6 && std::memcmp(bytes.data(), "Exif\0\0", 6) == 0) bytes = bytes.subspan(6);
    if (bytes.size() < 8) return info;
    const uint8_t* base = bytes.data();
    const size_t size = bytes.size();
    bool little;
    if (base[0] == 'I' && base[1] == 'I')
        little = true;
    else if (base[0] == 'M' && base[1] == 'M')
        little = false;
    else
        return info;
    auto u16 = [&](size_t at) { return little ? le16(base + at) : be16(base + at); };
    auto u32 = [&](size_t at) { return little ? le32(base + at) : be32(base + at); };
    if (u16(2) != 42) return info;
    const size_t ifd = u32(4);
    if (ifd > size - 2) return info;
    const size_t count = u16(ifd);
    std::optional<double> resolution;
    int unit = 2;
    for (size_t i = 0; i < count; ++i) {
        const size_t entry = ifd + 2 + i * 12;
        if (entry + 12 > size) break;
        const uint16_t tag = u16(entry), type = u16(entry + 2);
        const uint32_t n = u32(entry + 4);
        if (tag == 0x0112 && type == 3 && n >= 1) {
            info.orientation = u16(entry + 8);
        } else if (tag == 0x0128 && type == 3 && n >= 1) {
            unit = u16(entry + 8);
        } else if (tag == 0x011A && type == 5 && n >= 1) {
            const size_t at = u32(entry + 8);
            if (at <= size - 8) {
                const uint32_t num = u32(at), den = u32(at + 4);
                if (den != 0) resolution = double(num) / double(den);
            }
        }
    }
    if (resolution && *resolution > 0) {
        if (unit == 2)
            info.dpi = *resolution;
        else if (unit == 3)
            info.dpi = *resolution * 2.54;
    }
    return info;
}

RGBABufferPtr applyOrientation(RGBABufferPtr image, int orientation, const DecodeLimits& limits) {
    if (!image || orientation < 2 || orientation > 8) return image;
    const int64_t w = image->width(), h = image->height();
    const bool swaps = orientation >= 5;
    const int64_t ow = swaps ? h : w, oh = swaps ? w : h;
    RGBABufferPtr out = allocate(ow, oh, limits, 2);
    if (!out) return nullptr;
    const auto* src = reinterpret_cast<const uint32_t*>(image->data());
    auto* dst = reinterpret_cast<uint32_t*>(out->data());
    // Each output pixel (x, y) reads the stored pixel at sx + sy * w, where sx and
    // sy move by fixed steps along a row: one table row per orientation.
    int64_t x0 = 0, y0 = 0, dxX = 1, dxY = 0, dyX = 0,
            dyY = 1; // stored position of (0,0), step in x, step in y
    switch (orientation) {
    case 2:
        x0 = w - 1, dxX = -1;
        break;
    case 3:
        x0 = w - 1, y0 = h - 1, dxX = -1, dyY = -1;
        break;
    case 4:
        y0 = h - 1, dyY = -1;
        break;
    case 5:
        dxX = 0, dxY = 1, dyX = 1, dyY = 0;
        break;
    case 6:
        y0 = h - 1, dxX = 0, dxY = -1, dyX = 1, dyY = 0;
        break;
    case 7:
        x0 = w - 1, y0 = h - 1, dxX = 0, dxY = -1, dyX = -1, dyY = 0;
        break;
    case 8:
        x0 = w - 1, dxX = 0, dxY = 1, dyX = -1, dyY = 0;
        break;
    }
    const int64_t stepX = dxX + dxY * w;
    const int64_t stepY = dyX + dyY * w;
    const int64_t origin = x0 + y0 * w;
    parallelFor(oh, [&](int64_t y) {
        const uint32_t* s = src + origin + y * stepY;
        uint32_t* d = dst + y * ow;
        for (int64_t x = 0; x < ow; ++x)
            d[x] = s[x * stepX];
    });
    return out;
}

namespace {

void premultiplyRow(uint8_t* p, int64_t pixels) {
    for (int64_t i = 0; i < pixels; ++i, p += 4) {
        const unsigned a = p[3];
        if (a == 255) continue;
        p[0] = uint8_t((p[0] * a + 127) / 255);
        p[1] = uint8_t((p[1] * a + 127) / 255);
        p[2] = uint8_t((p[2] * a + 127) / 255);
    }
}

struct Profile {
    cmsHPROFILE h = nullptr;
    explicit Profile(cmsHPROFILE p) : h(p) {}
    ~Profile() {
        if (h) cmsCloseProfile(h);
    }
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;
};
struct Transform {
    cmsHTRANSFORM h = nullptr;
    explicit Transform(cmsHTRANSFORM t) : h(t) {}
    ~Transform() {
        if (h) cmsDeleteTransform(h);
    }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;
};

cmsHPROFILE openProfile(std::span<const uint8_t> icc) {
    if (icc.size() < 132 || icc.size() > (64u << 20)) return nullptr;
    return cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size()));
}

// A transform that moves no colour by more than one step needs no pass over the pixels.
bool isNearIdentity(cmsHTRANSFORM t) {
    constexpr int kSteps = 7;
    std::array<uint8_t, kSteps * kSteps * kSteps * 4> in{}, out{};
    size_t i = 0;
    for (int r = 0; r < kSteps; ++r)
        for (int g = 0; g < kSteps; ++g)
            for (int b = 0; b < kSteps; ++b, i += 4) {
                in[i] = uint8_t(r * 255 / (kSteps - 1));
                in[i + 1] = uint8_t(g * 255 / (kSteps - 1));
                in[i + 2] = uint8_t(b * 255 / (kSteps - 1));
                in[i + 3] = 255;
            }
    cmsDoTransform(t, in.data(), out.data(), kSteps * kSteps * kSteps);
    for (size_t k = 0; k < in.size(); k += 4)
        for (int c = 0; c < 3; ++c)
            if (std::abs(int(in[k + c]) - int(out[k + c])) > 1) return false;
    return true;
}

void transformRows(cmsHTRANSFORM t, const uint8_t* src, int64_t srcStride, RGBABuffer& image) {
    const int64_t w = image.width();
    constexpr int64_t kBand = 16;
    parallelFor((image.height() + kBand - 1) / kBand, [&](int64_t band) {
        const int64_t end = std::min(image.height(), (band + 1) * kBand);
        for (int64_t y = band * kBand; y < end; ++y)
            cmsDoTransform(t, src + y * srcStride, image.row(y), cmsUInt32Number(w));
    });
}

void convertProfileToSRGB(RGBABuffer& image, cmsHPROFILE source) {
    Profile srgb(cmsCreate_sRGBProfile());
    const cmsColorSpaceSignature space = cmsGetColorSpace(source);
    if (space == cmsSigRgbData) {
        // Premultiplied in and out: lcms divides by alpha, converts and multiplies back.
        Transform t(cmsCreateTransform(source, TYPE_RGBA_8_PREMUL, srgb.h, TYPE_RGBA_8_PREMUL,
                                       INTENT_PERCEPTUAL, cmsFLAGS_COPY_ALPHA | cmsFLAGS_NOCACHE));
        if (!t.h || isNearIdentity(t.h)) return;
        const int64_t stride = image.width() * 4;
        transformRows(t.h, image.data(), stride, image);
    } else if (space == cmsSigGrayData) {
        // Grey pictures arrive as R = G = B; one table of 256 entries maps them.
        Transform t(
            cmsCreateTransform(source, TYPE_GRAY_8, srgb.h, TYPE_RGB_8, INTENT_PERCEPTUAL, cmsFLAGS_NOCACHE));
        if (!t.h) return;
        std::array<uint8_t, 256> grey{};
        std::array<uint8_t, 256 * 3> rgb{};
        for (int i = 0; i < 256; ++i)
            grey[size_t(i)] = uint8_t(i);
        cmsDoTransform(t.h, grey.data(), rgb.data(), 256);
        bool identity = true;
        for (int i = 0; i < 256 && identity; ++i)
            for (int c = 0; c < 3; ++c)
                if (std::abs(int(rgb[size_t(i * 3 + c)]) - i) > 1) identity = false;
        if (identity) return;
        parallelFor(image.height(), [&](int64_t y) {
            uint8_t* p = image.row(y);
            for (int64_t x = 0; x < image.width(); ++x, p += 4) {
                const unsigned a = p[3];
                if (a == 0) continue;
                const unsigned straight = a == 255 ? p[0] : std::min(255u, (p[0] * 255u + a / 2) / a);
                const uint8_t* m = &rgb[straight * 3];
                for (int c = 0; c < 3; ++c)
                    p[c] = a == 255 ? m[c] : uint8_t((m[c] * a + 127) / 255);
            }
        });
    }
}

} // namespace

void premultiply(uint8_t* rgba, int64_t pixels) {
    premultiplyRow(rgba, pixels);
}

void premultiplyRows(RGBABuffer& image) {
    constexpr int64_t kBand = 64;
    parallelFor((image.height() + kBand - 1) / kBand, [&](int64_t band) {
        const int64_t end = std::min(image.height(), (band + 1) * kBand);
        for (int64_t y = band * kBand; y < end; ++y)
            premultiplyRow(image.row(y), image.width());
    });
}

void convertToSRGB(RGBABuffer& image, std::span<const uint8_t> iccProfile) {
    Profile source(openProfile(iccProfile));
    if (source.h) convertProfileToSRGB(image, source.h);
}

void convertPrimariesToSRGB(RGBABuffer& image, const float (&xy)[8]) {
    for (float v : xy)
        if (!(v > 0.0f && v < 1.0f)) return;
    const cmsCIExyY white{xy[6], xy[7], 1.0};
    const cmsCIExyYTRIPLE primaries{{xy[0], xy[1], 1.0}, {xy[2], xy[3], 1.0}, {xy[4], xy[5], 1.0}};
    const cmsFloat64Number srgbCurve[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, srgbCurve);
    if (!curve) return;
    cmsToneCurve* curves[3] = {curve, curve, curve};
    Profile source(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    if (source.h) convertProfileToSRGB(image, source.h);
}

void clampToAlpha(RGBABuffer& image) {
    parallelFor(image.height(), [&](int64_t y) {
        uint8_t* p = image.row(y);
        for (int64_t x = 0; x < image.width(); ++x, p += 4) {
            p[0] = std::min(p[0], p[3]);
            p[1] = std::min(p[1], p[3]);
            p[2] = std::min(p[2], p[3]);
        }
    });
}

double dpiFromPixelsPerMeter(double ppm) {
    const double dpi = ppm * 0.0254;
    const double whole = std::round(dpi);
    if (whole >= 1 && std::round(whole / 0.0254) == std::round(ppm)) return whole;
    return dpi;
}

double dpiOrDefault(std::optional<double> dpi) {
    if (dpi && std::isfinite(*dpi) && *dpi > 0) return *dpi;
    return 72.0;
}

} // namespace decoding
} // namespace korv
