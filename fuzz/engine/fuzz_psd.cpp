// StudioPSD::read and PSDFile::read on arbitrary bytes at the real limits
// (30,000 pixels a side). Run it under a memory ceiling, so that a count or
// length that is believed before its data exists is reported:
//   build/fuzz/fuzz/engine/korv_fuzz_psd -rss_limit_mb=2048 -malloc_limit_mb=1024 \
//       corpus-psd tests/data/psd
// A small document that opens must also write again and reopen; a large canvas
// is cheap to declare, but its merged picture is not, so it is only read.
#include "engine/formats/PSDFile.h"
#include "engine/formats/StudioPSD.h"
#include "engine/paint/PaintDocument.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::span<const uint8_t> bytes{data, size};
    try {
        const auto doc = korv::StudioPSD::read(bytes);
        if (doc->width() > 30000 || doc->height() > 30000) std::abort();
        if (doc->width() * doc->height() > 4000000) return 0;
        const auto again = korv::StudioPSD::read(korv::StudioPSD::write(*doc));
        if (again->width() != doc->width() || again->layers.size() != doc->layers.size()) std::abort();
    } catch (const std::exception&) {
    }
    try {
        const auto paint = korv::PSDFile::read(bytes);
        if (paint->layers.empty()) std::abort();
    } catch (const std::exception&) {
    }
    return 0;
}
