// The decoder on arbitrary bytes: it must never read or write outside its
// buffers, never hang, and never claim more bytes than the room it was given.
// The stream is decoded into the room its headers announce (when plausible)
// and into a fixed small room, so that both the complete path and the
// destination-full path are explored.
#include "lzfse/Lzfse.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {
constexpr std::size_t kMaxRoom = std::size_t{1} << 22;
constexpr std::size_t kSmallRoom = 4096;
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::vector<std::uint8_t> scratch(korv::lzfse::decodeScratchSize());
    static std::vector<std::uint8_t> out(kMaxRoom);

    const auto announced = korv::lzfse::decodedSize(data, size);
    const std::size_t room = announced && *announced <= kMaxRoom ? *announced : kMaxRoom;
    for (std::size_t capacity : {room, kSmallRoom}) {
        const auto r = korv::lzfse::decodeChecked(out.data(), capacity, data, size, scratch.data());
        if (r.ok() && r.size > capacity) {
            std::abort();
        }
        // A stream that decodes in full produced what its headers announced.
        if (r.ok() && (!announced || r.size != *announced)) {
            std::abort();
        }
    }
    return 0;
}
