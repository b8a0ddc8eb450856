#pragma once
// Byte copies for the decoders' inner loops. The wide forms may write past
// the end of what they copy (never more than kCopySlack bytes), so callers use
// them only with that much room left in the destination.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace korv::lzfse::detail {

inline constexpr std::size_t kCopySlack = 32;

// Copies n bytes in 16-byte steps; src must be readable 15 bytes past n.
inline void copyWide(std::uint8_t* dst, const std::uint8_t* src, std::size_t n) {
    std::uint8_t* const end = dst + n;
    do {
        std::memcpy(dst, src, 16);
        dst += 16;
        src += 16;
    } while (dst < end);
}

// Repeats the d bytes before dst until m bytes are written (d may be < m, in
// which case the copy overlaps itself like a byte-by-byte loop would).
inline void copyMatchWide(std::uint8_t* dst, std::size_t d, std::size_t m) {
    const std::uint8_t* src = dst - d;
    if (d >= 16) {
        copyWide(dst, src, m);
        return;
    }
    std::uint8_t* const end = dst + m;
    if (d < 8) {
        if (m < 16) {
            for (std::size_t i = 0; i < m; ++i) {
                dst[i] = src[i];
            }
            return;
        }
        // Once 16 bytes are out the output repeats with every multiple of d up to
        // 16, so the copy can go on from a distance of at least 8.
        for (int i = 0; i < 16; ++i) {
            dst[i] = src[i];
        }
        d = 16 - 16 % d;
        dst += 16;
        src = dst - d;
    }
    while (dst < end) {
        std::memcpy(dst, src, 8);
        dst += 8;
        src += 8;
    }
}

inline void copyMatchExact(std::uint8_t* dst, std::size_t d, std::size_t m) {
    const std::uint8_t* src = dst - d;
    for (std::size_t i = 0; i < m; ++i) {
        dst[i] = src[i];
    }
}

} // namespace korv::lzfse::detail
