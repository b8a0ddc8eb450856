// The encoder on arbitrary bytes: its stream must decode to exactly the
// input, and with less room than it needs it must fail cleanly or still
// produce a stream that decodes.
#include "lzfse/Lzfse.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::vector<std::uint8_t> encodeScratch(korv::lzfse::encodeScratchSize());
    static std::vector<std::uint8_t> decodeScratch(korv::lzfse::decodeScratchSize());

    std::vector<std::uint8_t> packed(korv::lzfse::encodeBound(size));
    const std::size_t n = korv::lzfse::encode(packed.data(), packed.size(), data, size, encodeScratch.data());
    if (n == 0 || n > packed.size()) {
        std::abort();
    }

    std::vector<std::uint8_t> back(size + 1);
    const auto r = korv::lzfse::decodeChecked(back.data(), size, packed.data(), n, decodeScratch.data());
    if (!r.ok() || r.size != size || (size != 0 && std::memcmp(back.data(), data, size) != 0)) {
        std::abort();
    }

    // Less room: the last input byte picks how much.
    if (n > 1 && size > 0) {
        const std::size_t room = n - 1 - (data[size - 1] % n);
        std::vector<std::uint8_t> tight(room);
        const std::size_t m = korv::lzfse::encode(tight.data(), room, data, size, encodeScratch.data());
        if (m > room) {
            std::abort();
        }
        if (m != 0) {
            const auto t =
                korv::lzfse::decodeChecked(back.data(), size, tight.data(), m, decodeScratch.data());
            if (!t.ok() || t.size != size || (size != 0 && std::memcmp(back.data(), data, size) != 0)) {
                std::abort();
            }
        }
    }
    return 0;
}
