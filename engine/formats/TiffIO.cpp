#include "engine/formats/TiffIO.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace korv::tiffio {

namespace {

int quiet(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}
int noteError(TIFF*, void* user, const char*, const char*, va_list) {
    static_cast<MemoryReader*>(user)->sawError = true;
    return 1;
}

uint64_t seekTo(uint64_t at, uint64_t size, toff_t offset, int whence, bool& ok) {
    ok = true;
    const auto delta = int64_t(offset);
    int64_t base = 0;
    if (whence == SEEK_CUR)
        base = int64_t(at);
    else if (whence == SEEK_END)
        base = int64_t(size);
    else if (whence != SEEK_SET)
        ok = false;
    const int64_t target = whence == SEEK_SET ? int64_t(offset) : base + delta;
    if (target < 0) ok = false;
    return ok ? uint64_t(target) : at;
}

tmsize_t readMem(thandle_t h, void* buf, tmsize_t n) {
    auto* r = static_cast<MemoryReader*>(h);
    if (n <= 0 || r->at >= r->size) return 0;
    const uint64_t count = std::min<uint64_t>(uint64_t(n), r->size - r->at);
    std::memcpy(buf, r->data + r->at, count);
    r->at += count;
    return tmsize_t(count);
}
tmsize_t writeNothing(thandle_t, void*, tmsize_t) {
    return -1;
}
toff_t seekReader(thandle_t h, toff_t offset, int whence) {
    auto* r = static_cast<MemoryReader*>(h);
    bool ok;
    r->at = seekTo(r->at, r->size, offset, whence, ok);
    return ok ? r->at : toff_t(-1);
}
toff_t readerSize(thandle_t h) {
    return static_cast<MemoryReader*>(h)->size;
}
int mapReader(thandle_t h, void** base, toff_t* size) {
    auto* r = static_cast<MemoryReader*>(h);
    // libtiff only reads through the map of a handle opened for reading.
    *base = const_cast<uint8_t*>(r->data);
    *size = r->size;
    return 1;
}

tmsize_t readWriter(thandle_t h, void* buf, tmsize_t n) {
    auto* w = static_cast<MemoryWriter*>(h);
    if (n <= 0 || w->at >= w->bytes.size()) return 0;
    const uint64_t count = std::min<uint64_t>(uint64_t(n), w->bytes.size() - w->at);
    std::memcpy(buf, w->bytes.data() + w->at, count);
    w->at += count;
    return tmsize_t(count);
}
tmsize_t writeMem(thandle_t h, void* buf, tmsize_t n) {
    auto* w = static_cast<MemoryWriter*>(h);
    if (n < 0) return -1;
    try {
        if (w->at + uint64_t(n) > w->bytes.size()) w->bytes.resize(w->at + uint64_t(n));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    std::memcpy(w->bytes.data() + w->at, buf, size_t(n));
    w->at += uint64_t(n);
    return n;
}
toff_t seekWriter(thandle_t h, toff_t offset, int whence) {
    auto* w = static_cast<MemoryWriter*>(h);
    bool ok;
    w->at = seekTo(w->at, w->bytes.size(), offset, whence, ok);
    return ok ? w->at : toff_t(-1);
}
toff_t writerSize(thandle_t h) {
    return static_cast<MemoryWriter*>(h)->bytes.size();
}
int closeNothing(thandle_t) {
    return 0;
}
int mapNothing(thandle_t, void**, toff_t*) {
    return 0;
}
void unmapNothing(thandle_t, void*, toff_t) {}

struct Options {
    TIFFOpenOptions* o = TIFFOpenOptionsAlloc();
    explicit Options(MemoryReader* reader = nullptr) {
        TIFFOpenOptionsSetErrorHandlerExtR(o, reader ? noteError : quiet, reader);
        TIFFOpenOptionsSetWarningHandlerExtR(o, quiet, nullptr);
    }
    ~Options() { TIFFOpenOptionsFree(o); }
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
};

} // namespace

TIFF* openReader(MemoryReader& state, int64_t maxAlloc) {
    Options options(&state);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.o, tmsize_t(maxAlloc));
    return TIFFClientOpenExt("memory", "r", &state, readMem, writeNothing, seekReader, closeNothing,
                             readerSize, mapReader, unmapNothing, options.o);
}

TIFF* openWriter(MemoryWriter& state) {
    Options options;
    return TIFFClientOpenExt("memory", "w", &state, readWriter, writeMem, seekWriter, closeNothing,
                             writerSize, mapNothing, unmapNothing, options.o);
}

} // namespace korv::tiffio
