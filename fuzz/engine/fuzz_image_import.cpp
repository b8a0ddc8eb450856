// ImageImport::decode on arbitrary bytes with lowered limits (see
// fuzz_image_import_real_limits.cpp for the real ones): every decoder must give a picture or
// nothing, never crash, leak or read out of bounds. The limits are lowered so
// that a header claiming a huge canvas is refused instead of exhausting the
// fuzzer's memory; the size checks themselves are the same code.
#include "engine/formats/ImageImport.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// libheif 1.15 (Debian 12) drops a 40-byte dav1d data buffer when dav1d
// refuses a damaged AV1 stream; the leak is in that library pair, not here.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libdav1d.so\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const korv::DecodeLimits limits{
        .maxSide = 8192, .maxPixels = 4096 * 4096, .maxBytes = int64_t(512) << 20};
    const auto decoded = korv::ImageImport::decode({data, size}, limits);
    if (decoded) {
        const korv::RGBABuffer& img = *decoded->image;
        if (img.width() > limits.maxSide || img.height() > limits.maxSide) std::abort();
        // Premultiplied: no colour byte above its alpha.
        const uint8_t* p = img.data();
        for (int64_t i = 0; i < img.width() * img.height(); ++i, p += 4)
            if (p[0] > p[3] || p[1] > p[3] || p[2] > p[3]) std::abort();
    }
    return 0;
}
