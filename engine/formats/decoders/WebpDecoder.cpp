// WebP through libwebp: lossy, lossless and extended files decode straight
// into premultiplied RGBA; an animation gives its first frame as composed on
// the canvas. EXIF orientation and resolution and the ICC profile come from
// the container's chunks.
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <cstring>
#include <webp/decode.h>
#include <webp/demux.h>

namespace korv::decoding {

namespace {

struct Demuxer {
    WebPDemuxer* d = nullptr;
    ~Demuxer() { WebPDemuxDelete(d); }
};
struct AnimDecoder {
    WebPAnimDecoder* d = nullptr;
    ~AnimDecoder() { WebPAnimDecoderDelete(d); }
};

std::span<const uint8_t> chunk(WebPDemuxer* demux, const char* fourcc, WebPChunkIterator& it) {
    if (!demux || !WebPDemuxGetChunk(demux, fourcc, 1, &it)) return {};
    return {it.chunk.bytes, it.chunk.size};
}

} // namespace

std::optional<DecodedImage> decodeWebp(Bytes bytes, const DecodeLimits& limits) {
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK) return std::nullopt;
    const WebPData data{bytes.data(), bytes.size()};
    Demuxer demux;
    demux.d = WebPDemux(&data);

    WebPChunkIterator exifIt{}, iccIt{};
    const ExifInfo exif = parseExif(chunk(demux.d, "EXIF", exifIt));
    const std::span<const uint8_t> icc = chunk(demux.d, "ICCP", iccIt);
    const int copies = exif.orientation >= 2 && exif.orientation <= 8 ? 2 : 1;

    RGBABufferPtr image;
    if (features.has_animation) {
        WebPAnimDecoderOptions options;
        if (!WebPAnimDecoderOptionsInit(&options)) return std::nullopt;
        options.color_mode = MODE_rgbA;
        options.use_threads = 0;
        WebPAnimInfo info;
        AnimDecoder anim;
        // The canvas size is checked before the decoder takes its own canvas memory.
        if (!demux.d) return std::nullopt;
        const int64_t cw = WebPDemuxGetI(demux.d, WEBP_FF_CANVAS_WIDTH);
        const int64_t ch = WebPDemuxGetI(demux.d, WEBP_FF_CANVAS_HEIGHT);
        if (!sizeAllowed(cw, ch, limits, copies + 2)) return std::nullopt;
        anim.d = WebPAnimDecoderNew(&data, &options);
        if (!anim.d || !WebPAnimDecoderGetInfo(anim.d, &info)) return std::nullopt;
        uint8_t* frame = nullptr;
        int timestamp = 0;
        if (!WebPAnimDecoderGetNext(anim.d, &frame, &timestamp) || !frame) return std::nullopt;
        image = allocate(info.canvas_width, info.canvas_height, limits, copies + 2);
        if (!image) return std::nullopt;
        std::memcpy(image->data(), frame, size_t(image->byteCount()));
    } else {
        image = allocate(features.width, features.height, limits, copies);
        if (!image) return std::nullopt;
        WebPDecoderConfig config;
        if (!WebPInitDecoderConfig(&config)) return std::nullopt;
        config.output.colorspace = MODE_rgbA;
        config.output.is_external_memory = 1;
        config.output.u.RGBA.rgba = image->data();
        config.output.u.RGBA.stride = int(image->width() * 4);
        config.output.u.RGBA.size = size_t(image->byteCount());
        const VP8StatusCode status = WebPDecode(bytes.data(), bytes.size(), &config);
        WebPFreeDecBuffer(&config.output);
        if (status != VP8_STATUS_OK) return std::nullopt;
    }
    if (exifIt.chunk.bytes) WebPDemuxReleaseChunkIterator(&exifIt);
    convertToSRGB(*image, icc);
    if (iccIt.chunk.bytes) WebPDemuxReleaseChunkIterator(&iccIt);
    image = applyOrientation(std::move(image), exif.orientation, limits);
    if (!image) return std::nullopt;
    return DecodedImage{std::move(image), dpiOrDefault(exif.dpi)};
}

} // namespace korv::decoding
