// HEIC through libheif with x265: 8-bit RGB(A) converted by libheif to
// YCbCr 4:2:0, tagged as sRGB, with the resolution in an EXIF block (HEIF has
// no field of its own for it).
#include "engine/formats/encoders/Encoders.h"

#include <algorithm>
#include <cmath>
#include <libheif/heif.h>
#include <new>

namespace korv::encoding {

namespace {

struct Context {
    heif_context* ctx = heif_context_alloc();
    ~Context() { heif_context_free(ctx); }
};
struct Encoder {
    heif_encoder* e = nullptr;
    ~Encoder() {
        if (e) heif_encoder_release(e);
    }
};
struct Image {
    heif_image* img = nullptr;
    ~Image() {
        if (img) heif_image_release(img);
    }
};
struct Handle {
    heif_image_handle* h = nullptr;
    ~Handle() {
        if (h) heif_image_handle_release(h);
    }
};
struct Nclx {
    heif_color_profile_nclx* p = heif_nclx_color_profile_alloc();
    ~Nclx() { heif_nclx_color_profile_free(p); }
};
struct EncodingOptions {
    heif_encoding_options* o = heif_encoding_options_alloc();
    ~EncodingOptions() { heif_encoding_options_free(o); }
};

bool ok(heif_error e) {
    return e.code == heif_error_Ok;
}

heif_error appendBytes(heif_context*, const void* data, size_t size, void* user) {
    auto* out = static_cast<Bytes*>(user);
    try {
        const auto* p = static_cast<const uint8_t*>(data);
        out->insert(out->end(), p, p + size);
    } catch (const std::bad_alloc&) {
        return {heif_error_Encoding_error, heif_suberror_Unspecified, "out of memory"};
    }
    return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

// A big-endian TIFF block holding X and Y resolution in inches.
Bytes resolutionExif(double dpi) {
    const auto denominator = uint32_t(100);
    const auto numerator = uint32_t(std::clamp(std::lround(dpi * denominator), 1l, long(UINT32_MAX / 2)));
    Bytes b(66, 0);
    size_t at = 0;
    auto u16 = [&](unsigned v) {
        b[at++] = uint8_t(v >> 8);
        b[at++] = uint8_t(v);
    };
    auto u32 = [&](uint32_t v) { u16(v >> 16), u16(v & 0xFFFF); };
    u16('M' << 8 | 'M'), u16(42);
    u32(8); // IFD0 right after the header
    u16(3); // entries
    const uint32_t rationals = 8 + 2 + 3 * 12 + 4;
    u16(0x011A), u16(5), u32(1), u32(rationals);     // XResolution
    u16(0x011B), u16(5), u32(1), u32(rationals + 8); // YResolution
    u16(0x0128), u16(3), u32(1), u16(2), u16(0);     // ResolutionUnit: inches
    u32(0);                                          // no next IFD
    u32(numerator), u32(denominator), u32(numerator), u32(denominator);
    return b;
}

} // namespace

std::optional<Bytes> encodeHeic(const RGBABuffer& image, double dpi, double quality) {
    Context c;
    if (!c.ctx) return std::nullopt;
    Encoder enc;
    if (!ok(heif_context_get_encoder_for_format(c.ctx, heif_compression_HEVC, &enc.e))) return std::nullopt;
    heif_encoder_set_logging_level(enc.e, 0);
    const int q = int(std::lround(std::clamp(quality, 0.0, 1.0) * 100.0));
    if (!ok(heif_encoder_set_lossy_quality(enc.e, q))) return std::nullopt;

    const bool opaque = isOpaque(image);
    const int w = int(image.width()), h = int(image.height());
    Image img;
    if (!ok(heif_image_create(w, h, heif_colorspace_RGB,
                              opaque ? heif_chroma_interleaved_RGB : heif_chroma_interleaved_RGBA,
                              &img.img)) ||
        !ok(heif_image_add_plane(img.img, heif_channel_interleaved, w, h, 8)))
        return std::nullopt;
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(img.img, heif_channel_interleaved, &stride);
    if (!plane) return std::nullopt;
    for (int y = 0; y < h; ++y)
        unpremultiplyRow(image.row(y), plane + int64_t(y) * stride, w, !opaque);

    Nclx nclx;
    if (!nclx.p) return std::nullopt;
    nclx.p->color_primaries = heif_color_primaries_ITU_R_BT_709_5;
    nclx.p->transfer_characteristics = heif_transfer_characteristic_IEC_61966_2_1;
    nclx.p->matrix_coefficients = heif_matrix_coefficients_ITU_R_BT_601_6;
    nclx.p->full_range_flag = 1;
    if (!ok(heif_image_set_nclx_color_profile(img.img, nclx.p))) return std::nullopt;

    EncodingOptions options;
    Handle handle;
    if (!options.o || !ok(heif_context_encode_image(c.ctx, img.img, enc.e, options.o, &handle.h)))
        return std::nullopt;
    const Bytes exif = resolutionExif(dpi);
    if (!ok(heif_context_add_exif_metadata(c.ctx, handle.h, exif.data(), int(exif.size()))))
        return std::nullopt;
    Bytes out;
    heif_writer writer{1, appendBytes};
    if (!ok(heif_context_write(c.ctx, &writer, &out)) || out.empty()) return std::nullopt;
    return out;
}

} // namespace korv::encoding
