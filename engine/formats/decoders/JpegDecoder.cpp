// JPEG through libjpeg-turbo: baseline, progressive and arithmetic-coded;
// grey, YCbCr and RGB straight into RGBA rows, CMYK and YCCK through their
// profile. libjpeg reports errors by longjmp, so each call into it runs in a
// stage function whose frame holds only plain data: the jump skips no destructor.
#include "engine/formats/JpegErrors.h"
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>
// jpeglib.h needs size_t and FILE declared first.
#include <jerror.h>
#include <jpeglib.h>

namespace korv::decoding {

namespace {

// A progressive file can ask for thousands of scans over the same
// coefficients; real encoders write a dozen or so.
constexpr int kMaxScans = 1000;

struct Source {
    jpeg_source_mgr mgr;
    const uint8_t* data;
    size_t size;
    bool ranOut; // the decoder asked for bytes past the end: the file is cut short
};

const JOCTET kFakeEOI[2] = {0xFF, JPEG_EOI};

void initSource(j_decompress_ptr) {}
boolean fillInput(j_decompress_ptr cinfo) {
    auto* src = reinterpret_cast<Source*>(cinfo->src);
    src->ranOut = true;
    src->mgr.next_input_byte = kFakeEOI;
    src->mgr.bytes_in_buffer = 2;
    return TRUE;
}
void skipInput(j_decompress_ptr cinfo, long count) {
    auto* src = reinterpret_cast<Source*>(cinfo->src);
    if (count <= 0) return;
    if (size_t(count) > src->mgr.bytes_in_buffer) {
        fillInput(cinfo);
        return;
    }
    src->mgr.next_input_byte += count;
    src->mgr.bytes_in_buffer -= size_t(count);
}
void termSource(j_decompress_ptr) {}

void onProgress(j_common_ptr cinfo) {
    auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    if (d->is_decompressor && d->input_scan_number > kMaxScans) ERREXIT(cinfo, JERR_NOT_COMPILED);
}

// Lives in the calling C++ frame; the stages get a pointer to it.
struct Session {
    jpeg_decompress_struct cinfo;
    jpeg::ErrorManager err;
    Source src;
    jpeg_progress_mgr progress;
    bool created = false;
    JOCTET* icc = nullptr;
    unsigned iccSize = 0;

    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (created) jpeg_destroy_decompress(&cinfo);
        std::free(icc);
    }
};

bool readHeader(Session* s, const uint8_t* data, size_t size, long maxMemory) {
    s->cinfo.err = jpeg::install(s->err);
    if (setjmp(s->err.jump)) return false;
    jpeg_create_decompress(&s->cinfo);
    s->created = true;
    s->cinfo.mem->max_memory_to_use = maxMemory;
    s->src.mgr.init_source = initSource;
    s->src.mgr.fill_input_buffer = fillInput;
    s->src.mgr.skip_input_data = skipInput;
    s->src.mgr.resync_to_restart = jpeg_resync_to_restart;
    s->src.mgr.term_source = termSource;
    s->src.mgr.next_input_byte = data;
    s->src.mgr.bytes_in_buffer = size;
    s->src.data = data;
    s->src.size = size;
    s->src.ranOut = false;
    s->cinfo.src = &s->src.mgr;
    s->progress.progress_monitor = onProgress;
    s->cinfo.progress = &s->progress;
    jpeg_save_markers(&s->cinfo, JPEG_APP0 + 1, 0xFFFF);
    jpeg_save_markers(&s->cinfo, JPEG_APP0 + 2, 0xFFFF);
    if (jpeg_read_header(&s->cinfo, TRUE) != JPEG_HEADER_OK) return false;
    if (!jpeg_read_icc_profile(&s->cinfo, &s->icc, &s->iccSize)) {
        s->icc = nullptr;
        s->iccSize = 0;
    }
    return true;
}

// Decodes every row into out (stride bytes apart); the output colour space is set by the caller.
bool readPixels(Session* s, uint8_t* out, size_t stride) {
    if (setjmp(s->err.jump)) return false;
    if (!jpeg_start_decompress(&s->cinfo)) return false;
    JSAMPROW rows[16];
    while (s->cinfo.output_scanline < s->cinfo.output_height) {
        const JDIMENSION first = s->cinfo.output_scanline;
        const JDIMENSION n = s->cinfo.output_height - first < 16 ? s->cinfo.output_height - first : 16;
        for (JDIMENSION i = 0; i < n; ++i)
            rows[i] = out + size_t(first + i) * stride;
        if (jpeg_read_scanlines(&s->cinfo, rows, n) == 0) return false;
    }
    jpeg_finish_decompress(&s->cinfo);
    return !s->src.ranOut;
}

std::span<const uint8_t> exifOf(const jpeg_decompress_struct& cinfo) {
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 && std::memcmp(m->data, "Exif\0\0", 6) == 0)
            return {m->data, m->data_length};
    return {};
}

} // namespace

std::optional<DecodedImage> decodeJpeg(Bytes bytes, const DecodeLimits& limits) {
    Session s;
    const long maxMemory = long(std::min<int64_t>(limits.maxBytes, int64_t(1) << 40));
    if (!readHeader(&s, bytes.data(), bytes.size(), maxMemory)) return std::nullopt;
    jpeg_decompress_struct& cinfo = s.cinfo;
    const int64_t w = cinfo.image_width, h = cinfo.image_height;
    const ExifInfo exif = parseExif(exifOf(cinfo));
    const int orientation = exif.orientation;
    // A turned picture needs a second buffer.
    const int copies = orientation >= 2 && orientation <= 8 ? 2 : 1;
    const bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    RGBABufferPtr image = allocate(w, h, limits, copies + (cmyk ? 1 : 0));
    if (!image) return std::nullopt;

    const std::span<const uint8_t> icc(s.icc, s.iccSize);
    if (cmyk) {
        cinfo.out_color_space = JCS_CMYK;
        std::vector<uint8_t> plane;
        try {
            plane.resize(size_t(w * h * 4));
        } catch (const std::bad_alloc&) {
            return std::nullopt;
        }
        if (!readPixels(&s, plane.data(), size_t(w * 4))) return std::nullopt;
        // Photoshop writes CMYK inverted and says so with its Adobe marker.
        cmykToRGBA(*image, plane.data(), w * 4, cinfo.saw_Adobe_marker, icc);
    } else if (cinfo.jpeg_color_space == JCS_GRAYSCALE || cinfo.jpeg_color_space == JCS_YCbCr ||
               cinfo.jpeg_color_space == JCS_RGB) {
        cinfo.out_color_space = JCS_EXT_RGBA;
        if (!readPixels(&s, image->data(), size_t(w * 4))) return std::nullopt;
        convertToSRGB(*image, icc);
    } else {
        return std::nullopt;
    }

    std::optional<double> dpi;
    if (cinfo.saw_JFIF_marker && cinfo.X_density > 0 && (cinfo.density_unit == 1 || cinfo.density_unit == 2))
        dpi = cinfo.density_unit == 1 ? double(cinfo.X_density) : cinfo.X_density * 2.54;
    else
        dpi = exif.dpi;
    image = applyOrientation(std::move(image), orientation, limits);
    if (!image) return std::nullopt;
    return DecodedImage{std::move(image), dpiOrDefault(dpi)};
}

} // namespace korv::decoding
