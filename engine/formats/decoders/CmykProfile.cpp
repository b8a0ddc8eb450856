#include "engine/formats/decoders/CmykProfile.h"

#include "engine/core/ParallelFor.h"

#include <algorithm>
#include <lcms2.h>

namespace korv::decoding {

namespace {

// Relative colorimetric with black point compensation: paper white becomes
// screen white and the deepest ink becomes black, as print software shows a
// separation by default.
constexpr cmsUInt32Number kIntent = INTENT_RELATIVE_COLORIMETRIC;
constexpr cmsUInt32Number kFlags = cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOCACHE;

cmsHTRANSFORM makeTransform(cmsHPROFILE cmyk, bool inverted) {
    cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    if (!srgb) return nullptr;
    cmsHTRANSFORM t = cmsCreateTransform(cmyk, inverted ? TYPE_CMYK_8_REV : TYPE_CMYK_8, srgb, TYPE_RGBA_8,
                                         kIntent, kFlags);
    cmsCloseProfile(srgb);
    return t;
}

// The two transforms from the press profile, built on first use and kept for
// the life of the process. A transform made without a cache may run on many
// threads at once.
struct PressTransforms {
    cmsHTRANSFORM plain = nullptr;
    cmsHTRANSFORM inverted = nullptr;

    PressTransforms() {
        cmsHPROFILE p = cmsOpenProfileFromFile(kPressProfilePath, "r");
        if (!p) return;
        if (cmsGetColorSpace(p) == cmsSigCmykData) {
            plain = makeTransform(p, false);
            inverted = makeTransform(p, true);
        }
        cmsCloseProfile(p);
    }
};

const PressTransforms& press() {
    static const PressTransforms transforms;
    return transforms;
}

void transformRows(cmsHTRANSFORM t, const uint8_t* src, int64_t srcStride, RGBABuffer& image, int64_t rows) {
    constexpr int64_t kBand = 16;
    parallelFor((rows + kBand - 1) / kBand, [&](int64_t band) {
        const int64_t end = std::min(rows, (band + 1) * kBand);
        for (int64_t y = band * kBand; y < end; ++y)
            cmsDoTransform(t, src + y * srcStride, image.row(y), cmsUInt32Number(image.width()));
    });
}

void naiveRows(const uint8_t* cmyk, int64_t cmykStride, RGBABuffer& image, int64_t rows, bool inverted) {
    const int64_t w = image.width();
    parallelFor(rows, [&](int64_t y) {
        const uint8_t* s = cmyk + y * cmykStride;
        uint8_t* d = image.row(y);
        for (int64_t x = 0; x < w; ++x, s += 4, d += 4) {
            // White where there is no ink: the stored values count ink, or its absence when inverted.
            const unsigned k = inverted ? s[3] : 255u - s[3];
            for (int c = 0; c < 3; ++c) {
                const unsigned v = inverted ? s[c] : 255u - s[c];
                d[c] = uint8_t((v * k + 127) / 255);
            }
        }
    });
}

} // namespace

bool pressProfileAvailable() {
    return press().plain != nullptr;
}

void cmykRowsToRGBA(RGBABuffer& image, const uint8_t* cmyk, int64_t cmykStride, int64_t rows, bool inverted,
                    std::span<const uint8_t> iccProfile) {
    rows = std::min(rows, image.height());
    // Alpha first: lcms writes the three colour channels only.
    parallelFor(rows, [&](int64_t y) {
        uint8_t* p = image.row(y);
        for (int64_t x = 0; x < image.width(); ++x)
            p[x * 4 + 3] = 255;
    });
    if (iccProfile.size() >= 132 && iccProfile.size() <= (64u << 20)) {
        cmsHPROFILE own = cmsOpenProfileFromMem(iccProfile.data(), cmsUInt32Number(iccProfile.size()));
        if (own) {
            cmsHTRANSFORM t =
                cmsGetColorSpace(own) == cmsSigCmykData ? makeTransform(own, inverted) : nullptr;
            cmsCloseProfile(own);
            if (t) {
                transformRows(t, cmyk, cmykStride, image, rows);
                cmsDeleteTransform(t);
                return;
            }
        }
    }
    const PressTransforms& p = press();
    if (cmsHTRANSFORM t = inverted ? p.inverted : p.plain) {
        transformRows(t, cmyk, cmykStride, image, rows);
        return;
    }
    naiveRows(cmyk, cmykStride, image, rows, inverted);
}

} // namespace korv::decoding
