// GIF through giflib, read record by record: the first frame only, placed on
// a transparent canvas of the logical screen's size, with its transparent
// index honoured. Later frames are never read.
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <algorithm>
#include <cstring>
#include <gif_lib.h>
#include <vector>

namespace korv::decoding {

namespace {

struct Reader {
    const uint8_t* data;
    size_t size;
    size_t at;
};

int readBytes(GifFileType* gif, GifByteType* out, int length) {
    auto* r = static_cast<Reader*>(gif->UserData);
    if (length <= 0) return 0;
    const size_t n = std::min(size_t(length), r->size - r->at);
    std::memcpy(out, r->data + r->at, n);
    r->at += n;
    return int(n);
}

struct File {
    GifFileType* gif = nullptr;
    ~File() {
        int error = 0;
        if (gif) DGifCloseFile(gif, &error);
    }
};

} // namespace

std::optional<DecodedImage> decodeGif(Bytes bytes, const DecodeLimits& limits) {
    Reader reader{bytes.data(), bytes.size(), 0};
    File f;
    int error = 0;
    f.gif = DGifOpen(&reader, readBytes, &error);
    if (!f.gif) return std::nullopt;
    GifFileType* gif = f.gif;

    int transparent = NO_TRANSPARENT_COLOR;
    for (;;) {
        GifRecordType record;
        if (DGifGetRecordType(gif, &record) == GIF_ERROR) return std::nullopt;
        if (record == TERMINATE_RECORD_TYPE) return std::nullopt; // no image at all
        if (record == EXTENSION_RECORD_TYPE) {
            int code = 0;
            GifByteType* block = nullptr;
            if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) return std::nullopt;
            if (code == GRAPHICS_EXT_FUNC_CODE && block && block[0] >= 4) {
                GraphicsControlBlock gcb;
                if (DGifExtensionToGCB(block[0], block + 1, &gcb) == GIF_OK)
                    transparent = gcb.TransparentColor;
            }
            while (block) {
                if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) return std::nullopt;
            }
            continue;
        }
        if (record != IMAGE_DESC_RECORD_TYPE) return std::nullopt;
        if (DGifGetImageDesc(gif) == GIF_ERROR) return std::nullopt;
        break;
    }

    const GifImageDesc& desc = gif->Image;
    const ColorMapObject* map = desc.ColorMap ? desc.ColorMap : gif->SColorMap;
    if (!map || !map->Colors || map->ColorCount < 1 || desc.Width < 1 || desc.Height < 1) return std::nullopt;
    // A logical screen of 0 (some writers) means the frame's own size.
    const int64_t w = gif->SWidth > 0 ? gif->SWidth : desc.Left + desc.Width;
    const int64_t h = gif->SHeight > 0 ? gif->SHeight : desc.Top + desc.Height;
    if (desc.Width > limits.maxSide || desc.Height > limits.maxSide) return std::nullopt;
    if (!sizeAllowed(w, h, limits, 1)) return std::nullopt;

    // The frame's rows are decoded first, as palette indices in the order
    // they arrive; the canvas is made only once the file has delivered them,
    // so a few bytes claiming a huge screen cost no more than those bytes.
    // Interlaced rows arrive in four passes: every 8th from 0, every 8th from
    // 4, every 4th from 2, every 2nd from 1.
    static constexpr int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    const int passes = desc.Interlace ? 4 : 1;
    std::vector<int> order;
    for (int pass = 0; pass < passes; ++pass) {
        const int start = desc.Interlace ? kStart[pass] : 0, step = desc.Interlace ? kStep[pass] : 1;
        for (int row = start; row < desc.Height; row += step)
            order.push_back(row);
    }
    std::vector<GifPixelType> indices;
    int64_t arrived = 0;
    for (; arrived < int64_t(order.size()); ++arrived) {
        indices.resize(size_t(arrived + 1) * size_t(desc.Width));
        if (DGifGetLine(gif, indices.data() + arrived * desc.Width, desc.Width) == GIF_ERROR) break;
    }
    // A cut frame opens with the rows that arrived when they are its top; a
    // cut interlaced frame would be stripes scattered over it, and gives nothing.
    const bool whole = arrived == int64_t(order.size());
    if (!whole && (desc.Interlace || arrived == 0 || !keepsPartialPicture(w, h, desc.Top + arrived)))
        return std::nullopt;

    RGBABufferPtr image = allocate(w, h, limits, 1);
    if (!image) return std::nullopt;
    std::memset(image->data(), 0, size_t(image->byteCount()));

    // Colours as premultiplied words, index by index; the transparent one stays zero.
    uint32_t palette[256] = {};
    for (int i = 0; i < std::min(map->ColorCount, 256); ++i) {
        if (i == transparent) continue;
        const GifColorType& c = map->Colors[i];
        const uint8_t px[4] = {c.Red, c.Green, c.Blue, 255};
        std::memcpy(&palette[i], px, 4);
    }
    const int64_t x0 = std::max<int64_t>(0, -int64_t(desc.Left));
    const int64_t x1 = std::min<int64_t>(desc.Width, w - desc.Left);
    for (int64_t i = 0; i < arrived; ++i) {
        const int64_t y = int64_t(desc.Top) + order[size_t(i)];
        if (y < 0 || y >= h) continue;
        auto* out = reinterpret_cast<uint32_t*>(image->row(y));
        const GifPixelType* line = indices.data() + i * desc.Width;
        for (int64_t x = x0; x < x1; ++x)
            out[desc.Left + x] = palette[line[x]];
    }
    return DecodedImage{std::move(image), 72.0};
}

} // namespace korv::decoding
