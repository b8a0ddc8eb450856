// Feeds arbitrary bytes to the native document reader: decode, manifest and
// the preview must reject or accept, never crash.
#include "engine/document/StudioDocument.h"
#include "engine/formats/StudioFile.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::span<const uint8_t> bytes(data, size);
    try {
        auto doc = korv::StudioFile::decode(bytes);
        (void)doc->fingerprint();
    } catch (const korv::StudioFileError&) {
    }
    try {
        (void)korv::StudioFile::manifest(bytes);
    } catch (const korv::StudioFileError&) {
    }
    (void)korv::StudioFile::thumbnailData(bytes);
    return 0;
}
