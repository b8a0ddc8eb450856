// HEIC and AVIF through libheif: the primary image, with the file's own
// rotation, mirroring and crop boxes applied (they, not the EXIF orientation
// tag, say which way is up in HEIF), 10 and 12 bits brought to 8, alpha
// premultiplied, the colour profile or colour box converted to sRGB.
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <cstring>
#include <libheif/heif.h>
#include <vector>

namespace korv::decoding {

namespace {

struct Context {
    heif_context* ctx = heif_context_alloc();
    ~Context() { heif_context_free(ctx); }
};
struct ImageHandle {
    heif_image_handle* h = nullptr;
    ~ImageHandle() {
        if (h) heif_image_handle_release(h);
    }
};
struct Image {
    heif_image* img = nullptr;
    ~Image() {
        if (img) heif_image_release(img);
    }
};
struct DecodingOptions {
    heif_decoding_options* o = heif_decoding_options_alloc();
    ~DecodingOptions() { heif_decoding_options_free(o); }
};

std::optional<double> exifResolution(const heif_image_handle* handle) {
    heif_item_id id = 0;
    if (heif_image_handle_get_list_of_metadata_block_IDs(handle, "Exif", &id, 1) < 1) return std::nullopt;
    const size_t size = heif_image_handle_get_metadata_size(handle, id);
    if (size < 4 || size > (16u << 20)) return std::nullopt;
    std::vector<uint8_t> block(size);
    if (heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok) return std::nullopt;
    // The block starts with the offset of the TIFF header past these four bytes.
    const uint32_t skip = be32(block.data());
    if (skip > size - 4) return std::nullopt;
    return parseExif(std::span(block).subspan(4 + skip)).dpi;
}

void convertColours(RGBABuffer& image, const heif_image_handle* handle) {
    const heif_color_profile_type type = heif_image_handle_get_color_profile_type(handle);
    if (type == heif_color_profile_type_prof || type == heif_color_profile_type_rICC) {
        const size_t size = heif_image_handle_get_raw_color_profile_size(handle);
        if (size == 0 || size > (64u << 20)) return;
        std::vector<uint8_t> icc(size);
        if (heif_image_handle_get_raw_color_profile(handle, icc.data()).code == heif_error_Ok)
            convertToSRGB(image, icc);
    } else if (type == heif_color_profile_type_nclx) {
        heif_color_profile_nclx* nclx = nullptr;
        if (heif_image_handle_get_nclx_color_profile(handle, &nclx).code != heif_error_Ok || !nclx) return;
        const auto primaries = nclx->color_primaries;
        const auto transfer = nclx->transfer_characteristics;
        // BT.709 primaries are sRGB's; PQ and HLG are high dynamic range, left for now.
        const bool srgbLikeCurve = transfer == heif_transfer_characteristic_ITU_R_BT_709_5 ||
                                   transfer == heif_transfer_characteristic_unspecified ||
                                   transfer == heif_transfer_characteristic_IEC_61966_2_1 ||
                                   transfer == heif_transfer_characteristic_ITU_R_BT_601_6 ||
                                   transfer == heif_transfer_characteristic_ITU_R_BT_2020_2_10bit ||
                                   transfer == heif_transfer_characteristic_ITU_R_BT_2020_2_12bit;
        if (primaries != heif_color_primaries_ITU_R_BT_709_5 &&
            primaries != heif_color_primaries_unspecified && srgbLikeCurve) {
            const float xy[8] = {nclx->color_primary_red_x,   nclx->color_primary_red_y,
                                 nclx->color_primary_green_x, nclx->color_primary_green_y,
                                 nclx->color_primary_blue_x,  nclx->color_primary_blue_y,
                                 nclx->color_primary_white_x, nclx->color_primary_white_y};
            convertPrimariesToSRGB(image, xy);
        }
        heif_nclx_color_profile_free(nclx);
    }
}

} // namespace

std::optional<DecodedImage> decodeHeif(Bytes bytes, const DecodeLimits& limits) {
    Context c;
    if (!c.ctx) return std::nullopt;
    heif_context_set_maximum_image_size_limit(c.ctx, int(std::min<int64_t>(limits.maxSide, 1 << 30)));
    if (heif_context_read_from_memory_without_copy(c.ctx, bytes.data(), bytes.size(), nullptr).code !=
        heif_error_Ok)
        return std::nullopt;
    ImageHandle handle;
    if (heif_context_get_primary_image_handle(c.ctx, &handle.h).code != heif_error_Ok) return std::nullopt;
    const int64_t w = heif_image_handle_get_width(handle.h), h = heif_image_handle_get_height(handle.h);
    // libheif holds its own planes beside ours.
    if (!sizeAllowed(w, h, limits, 3)) return std::nullopt;

    DecodingOptions options;
    if (!options.o) return std::nullopt;
    options.o->convert_hdr_to_8bit = 1;
    Image decoded;
    if (heif_decode_image(handle.h, &decoded.img, heif_colorspace_RGB, heif_chroma_interleaved_RGBA,
                          options.o)
            .code != heif_error_Ok)
        return std::nullopt;
    const int64_t dw = heif_image_get_width(decoded.img, heif_channel_interleaved);
    const int64_t dh = heif_image_get_height(decoded.img, heif_channel_interleaved);
    int stride = 0;
    const uint8_t* plane = heif_image_get_plane_readonly(decoded.img, heif_channel_interleaved, &stride);
    if (!plane || dw < 1 || dh < 1 || stride < dw * 4 ||
        heif_image_get_bits_per_pixel_range(decoded.img, heif_channel_interleaved) != 8)
        return std::nullopt;
    RGBABufferPtr image = allocate(dw, dh, limits, 3);
    if (!image) return std::nullopt;
    for (int64_t y = 0; y < dh; ++y)
        std::memcpy(image->row(y), plane + y * int64_t(stride), size_t(dw * 4));
    heif_image_release(decoded.img); // its planes are no longer needed
    decoded.img = nullptr;
    if (heif_image_handle_has_alpha_channel(handle.h)) {
        if (heif_image_handle_is_premultiplied_alpha(handle.h))
            clampToAlpha(*image);
        else
            premultiplyRows(*image);
    }
    convertColours(*image, handle.h);
    return DecodedImage{std::move(image), dpiOrDefault(exifResolution(handle.h))};
}

} // namespace korv::decoding
