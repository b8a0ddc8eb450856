// ImageImport::decode on arbitrary bytes at the real limits (30,000 pixels a
// side, half of this machine's memory). Run it under a memory ceiling, so that
// a decoder which spends memory before its data exists is reported:
//   build/fuzz/fuzz/engine/korv_fuzz_image_import_real_limits -rss_limit_mb=2560 \
//       -malloc_limit_mb=2560 corpus-pictures tests/data/corpus/images tests/data/regress
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
    const auto decoded = korv::ImageImport::decode({data, size});
    if (decoded) {
        const korv::RGBABuffer& img = *decoded->image;
        if (img.width() > 30000 || img.height() > 30000) std::abort();
    }
    return 0;
}
