#pragma once
// libtiff over bytes in memory, for the TIFF reader and writer. Handles opened
// here report nothing on stderr: errors reach the caller as failed calls.
#include <cstdint>
#include <span>
#include <tiffio.h>
#include <vector>

namespace korv::tiffio {

struct MemoryReader {
    const uint8_t* data = nullptr;
    uint64_t size = 0;
    uint64_t at = 0;
    // Set when libtiff reported an error, also one it went on after (a cut strip).
    bool sawError = false;
};

struct MemoryWriter {
    std::vector<uint8_t> bytes;
    uint64_t at = 0;
};

// No single allocation inside libtiff may pass maxAlloc bytes. Null on failure;
// the state must outlive the handle.
TIFF* openReader(MemoryReader& state, int64_t maxAlloc);
TIFF* openWriter(MemoryWriter& state);

} // namespace korv::tiffio
