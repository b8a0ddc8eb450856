// JPEG through libjpeg-turbo: baseline, progressive and arithmetic-coded;
// grey, YCbCr and RGB straight into RGBA rows, CMYK and YCCK through their
// profile. libjpeg reports errors by longjmp, so each call into it runs in a
// stage function whose frame holds only plain data: the jump skips no destructor.
#include "engine/formats/JpegErrors.h"
#include "engine/formats/decoders/CmykProfile.h"
#include "engine/formats/decoders/Decoders.h"
#include "engine/formats/decoders/Decoding.h"

#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>
// jpeglib.h needs size_t and FILE declared first.
#include <jerror.h>
#include <jpeglib.h>

namespace korv::decoding {

namespace {

// A progressive file can ask for thousands of scans over the same
// coefficients; real encoders write a dozen or so.
constexpr int kMaxScans = 1000;

struct Session;

struct Source {
    jpeg_source_mgr mgr;
    Session* session;
    const uint8_t* data;
    size_t size;
    bool ranOut; // the decoder asked for bytes past the end
};

const JOCTET kFakeEOI[2] = {0xFF, JPEG_EOI};

void initSource(j_decompress_ptr) {}
void markLacking(Session* s);

boolean fillInput(j_decompress_ptr cinfo) {
    auto* src = reinterpret_cast<Source*>(cinfo->src);
    src->ranOut = true;
    // The arithmetic decoder pads with zeros silently: its running out is the
    // only sign. It also reads a little ahead, as far as the end marker, so in
    // the last iMCU row running out is what a file without that marker does.
    if (cinfo->arith_code && cinfo->global_state >= 203 /* DSTATE_PRELOAD */ &&
        cinfo->input_iMCU_row + 1 < cinfo->total_iMCU_rows)
        markLacking(src->session);
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
    // Set when the entropy decoder needed bits after the end of the file: from
    // there on libjpeg invents data. goodRows counts the rows decoded from real
    // data before that.
    bool lacking = false;
    JDIMENSION goodRows = 0;

    Session() = default;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() {
        if (created) jpeg_destroy_decompress(&cinfo);
        std::free(icc);
    }
};

// The rows whose data was complete when the file ran out. The scan being read
// has reached iMCU row input_iMCU_row. In a progressive file only a first DC
// scan leaves rows without any picture; a later scan ran out on rows that have
// their picture already, a little coarser. Rows at the edge of what arrived
// are drawn with help from below: smoothing of progressive blocks looks one
// block row down, and smooth upsampling of half-height colour one row down.
JDIMENSION rowsBeforeTheEnd(j_decompress_ptr cinfo) {
    const JDIMENSION perRow = JDIMENSION(cinfo->max_v_samp_factor * cinfo->min_DCT_scaled_size);
    const JDIMENSION reached = std::min<JDIMENSION>(cinfo->image_height, cinfo->input_iMCU_row * perRow);
    const JDIMENSION context = cinfo->max_v_samp_factor > 1 ? 1 : 0;
    if (cinfo->progressive_mode) {
        if (cinfo->coef_bits && cinfo->coef_bits[0][0] < 0) return 0; // no brightness anywhere
        if (cinfo->Ss != 0 || cinfo->Ah != 0) return cinfo->image_height;
        return reached > perRow ? reached - perRow : 0;
    }
    // A sequential file of several scans fills its colours one scan after the other.
    if (cinfo->input_scan_number > 1) return 0;
    return reached > context ? reached - context : 0;
}

void markLacking(Session* s) {
    if (s->lacking) return;
    s->lacking = true;
    s->goodRows = rowsBeforeTheEnd(&s->cinfo);
}

// The Huffman decoder reads a few bytes ahead, so running out alone proves
// nothing; it warns when it needs bits that aren't there. Warnings before the
// end are recoverable damage that libjpeg steps over.
void onWarning(j_common_ptr common) {
    auto* s = static_cast<Session*>(reinterpret_cast<jpeg::ErrorManager*>(common->err)->user);
    if (s->src.ranOut) markLacking(s);
}

bool readHeader(Session* s, const uint8_t* data, size_t size, long maxMemory) {
    s->cinfo.err = jpeg::install(s->err);
    s->err.onWarning = onWarning;
    s->err.user = s;
    s->src.session = s;
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
    // Cut inside the header: nothing of the picture is there.
    if (s->src.ranOut) return false;
    if (!jpeg_read_icc_profile(&s->cinfo, &s->icc, &s->iccSize)) {
        s->icc = nullptr;
        s->iccSize = 0;
    }
    return true;
}

// A multi-scan file reads all of its data here, into libjpeg's coefficient buffer.
bool startPixels(Session* s, long maxMemory) {
    if (setjmp(s->err.jump)) return false;
    s->cinfo.mem->max_memory_to_use = maxMemory;
    return jpeg_start_decompress(&s->cinfo);
}

// Up to count (at most 16) rows into out, stride bytes apart: how many came, or -1 on an error.
long readRows(Session* s, uint8_t* out, size_t stride, JDIMENSION count) {
    if (setjmp(s->err.jump)) return -1;
    JSAMPROW rows[16];
    for (JDIMENSION i = 0; i < count; ++i)
        rows[i] = out + size_t(i) * stride;
    return long(jpeg_read_scanlines(&s->cinfo, rows, count));
}

void finish(Session* s) {
    if (setjmp(s->err.jump)) return;
    jpeg_finish_decompress(&s->cinfo);
}

// Where decoded rows go: straight into the picture when its size is believable
// for the file's length, otherwise into memory that grows with the rows that
// actually arrive, so that a header that lies costs nothing.
class RowStore {
public:
    RowStore(uint8_t* direct, size_t stride, JDIMENSION height)
        : direct_(direct), stride_(stride), height_(height) {}
    // Room for rows [first, first + count); null when memory is short.
    uint8_t* rows(JDIMENSION first, JDIMENSION count) {
        if (direct_) return direct_ + size_t(first) * stride_;
        const size_t need = size_t(first + count) * stride_;
        if (need > grown_.size()) {
            try {
                grown_.resize(std::min(std::max(need, grown_.size() * 2), size_t(height_) * stride_));
            } catch (const std::bad_alloc&) {
                return nullptr;
            }
        }
        return grown_.data() + size_t(first) * stride_;
    }
    void reserveAll() {
        if (!direct_) grown_.reserve(size_t(height_) * stride_);
    }
    const uint8_t* data() const { return direct_ ? direct_ : grown_.data(); }

private:
    uint8_t* direct_;
    size_t stride_;
    JDIMENSION height_;
    std::vector<uint8_t> grown_;
};

// Decodes rows until the picture ends or its data does. Gives the number of
// rows decoded from real data; rows after them hold nothing of use.
JDIMENSION decodeRows(Session* s, RowStore& store, size_t stride) {
    jpeg_decompress_struct& cinfo = s->cinfo;
    const JDIMENSION height = cinfo.output_height;
    for (;;) {
        const JDIMENSION first = cinfo.output_scanline;
        const JDIMENSION limit = s->lacking ? std::min(s->goodRows, height) : height;
        if (first >= limit) break;
        const JDIMENSION n = std::min<JDIMENSION>(limit - first, 16);
        uint8_t* out = store.rows(first, n);
        if (!out) return 0;
        const long got = readRows(s, out, stride, n);
        // A fatal error keeps what was decoded before it.
        if (got <= 0) return first;
    }
    if (s->lacking) return std::min(s->goodRows, cinfo.output_scanline);
    finish(s);
    return height;
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
    if (!sizeAllowed(w, h, limits, copies + (cmyk ? 1 : 0))) return std::nullopt;
    if (cmyk)
        cinfo.out_color_space = JCS_CMYK;
    else if (cinfo.jpeg_color_space == JCS_GRAYSCALE || cinfo.jpeg_color_space == JCS_YCbCr ||
             cinfo.jpeg_color_space == JCS_RGB)
        cinfo.out_color_space = JCS_EXT_RGBA;
    else
        return std::nullopt;

    // Even a flat colour costs a Huffman coder a bit or more per 8 x 8 block,
    // so a file of n bytes rarely holds more than about 2048 n pixels; a header
    // that claims more is not believed until its rows arrive, and they go into
    // memory that grows with them. Multi-scan files hold every coefficient in
    // libjpeg's own buffer, so that buffer is held to the same bound.
    constexpr int64_t kPixelsPerByte = 2048;
    constexpr int64_t kAlwaysBelievable = int64_t(16) << 20; // pixels
    const bool believable = w * h <= std::max(kAlwaysBelievable, int64_t(bytes.size()) * kPixelsPerByte);
    if (!startPixels(&s, believable ? maxMemory : long(kAlwaysBelievable * 8))) return std::nullopt;

    RGBABufferPtr image;
    if (!cmyk && believable) {
        image = allocate(w, h, limits, copies);
        if (!image) return std::nullopt;
    }
    const size_t stride = size_t(w) * 4;
    RowStore store(image ? image->data() : nullptr, stride, JDIMENSION(h));
    if (believable) store.reserveAll();
    const int64_t rows = decodeRows(&s, store, stride);
    if (rows < h && !keepsPartialPicture(w, h, rows)) return std::nullopt;
    if (!image) {
        image = allocate(w, h, limits, copies);
        if (!image) return std::nullopt;
        if (!cmyk) std::memcpy(image->data(), store.data(), size_t(rows) * stride);
    }
    const std::span<const uint8_t> icc(s.icc, s.iccSize);
    if (cmyk) {
        // Photoshop writes CMYK inverted and says so with its Adobe marker.
        cmykRowsToRGBA(*image, store.data(), int64_t(stride), rows, cinfo.saw_Adobe_marker, icc);
    }
    if (rows < h) std::memset(image->row(rows), 0, size_t(h - rows) * stride);
    if (!cmyk) convertToSRGB(*image, icc);

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
