#pragma once
// Layout of an LZFSE stream: block magics, header sizes, the per-block limits
// and the base-value classes of the L, M and D symbols. Shared by the encoder
// and the decoder so the two can never disagree.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace korv::lzfse::detail {

// Block magics, as little-endian words ("bvx$", "bvx-", "bvx1", "bvx2", "bvxn").
inline constexpr std::uint32_t kMagicEndOfStream = 0x24787662;
inline constexpr std::uint32_t kMagicRaw = 0x2d787662;
inline constexpr std::uint32_t kMagicFseV1 = 0x31787662;
inline constexpr std::uint32_t kMagicFseV2 = 0x32787662;
inline constexpr std::uint32_t kMagicLzvn = 0x6e787662;

inline constexpr std::size_t kRawHeaderSize = 8;      // magic, raw size
inline constexpr std::size_t kLzvnHeaderSize = 12;    // magic, raw size, payload size
inline constexpr std::size_t kV2FixedHeaderSize = 32; // magic, raw size, 3 packed words
// The v1 header is a naturally aligned C struct of 770 bytes of fields, which
// the writers of such streams store padded to a multiple of 4.
inline constexpr std::size_t kV1HeaderSize = 772;

inline constexpr int kLSymbols = 20;
inline constexpr int kMSymbols = 20;
inline constexpr int kDSymbols = 64;
inline constexpr int kLiteralSymbols = 256;
inline constexpr int kLStates = 64;
inline constexpr int kMStates = 64;
inline constexpr int kDStates = 256;
inline constexpr int kLiteralStates = 1024;
inline constexpr int kFreqCount = kLSymbols + kMSymbols + kDSymbols + kLiteralSymbols;

// Decoders size their buffers for these; a block beyond them is malformed.
inline constexpr std::uint32_t kMaxMatchesPerBlock = 10000;
inline constexpr std::uint32_t kMaxLiteralsPerBlock = 4 * kMaxMatchesPerBlock;

// A symbol stands for the values [base, base + 2^extraBits); the bases follow
// from the extra-bit counts, each class starting where the previous one ends.
template <std::size_t N>
struct ValueClasses {
    std::array<std::uint8_t, N> extraBits{};
    std::array<std::uint32_t, N> base{};
    std::uint32_t maxValue = 0;
};

template <std::size_t N>
constexpr ValueClasses<N> makeClasses(const std::array<std::uint8_t, N>& extraBits) {
    ValueClasses<N> c;
    c.extraBits = extraBits;
    std::uint32_t next = 0;
    for (std::size_t i = 0; i < N; ++i) {
        c.base[i] = next;
        next += std::uint32_t{1} << extraBits[i];
    }
    c.maxValue = next - 1;
    return c;
}

constexpr std::array<std::uint8_t, kDSymbols> dExtraBitCounts() {
    std::array<std::uint8_t, kDSymbols> bits{};
    for (int i = 0; i < kDSymbols; ++i) {
        bits[i] = static_cast<std::uint8_t>(i / 4);
    }
    return bits;
}

inline constexpr auto kLClasses =
    makeClasses<kLSymbols>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 3, 5, 8});
inline constexpr auto kMClasses =
    makeClasses<kMSymbols>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 5, 8, 11});
inline constexpr auto kDClasses = makeClasses<kDSymbols>(dExtraBitCounts());

inline constexpr std::uint32_t kMaxLValue = kLClasses.maxValue; // 315
inline constexpr std::uint32_t kMaxMValue = kMClasses.maxValue; // 2359
inline constexpr std::uint32_t kMaxDValue = kDClasses.maxValue; // 262139
static_assert(kMaxLValue == 315 && kMaxMValue == 2359 && kMaxDValue == 262139);

inline int lSymbol(std::uint32_t v) {
    if (v < 16) {
        return static_cast<int>(v);
    }
    return v < 20 ? 16 : v < 28 ? 17 : v < 60 ? 18 : 19;
}

inline int mSymbol(std::uint32_t v) {
    if (v < 16) {
        return static_cast<int>(v);
    }
    return v < 24 ? 16 : v < 56 ? 17 : v < 312 ? 18 : 19;
}

// The D classes come in groups of four sharing g extra bits; shifting the value
// by 4 makes the group the bit length and the member the next two bits.
inline int dSymbol(std::uint32_t v) {
    const std::uint32_t w = v + 4;
    // w >= 4 so g >= 0, and distances stop at group 15.
    const unsigned g = std::min(static_cast<unsigned>(std::bit_width(w)) - 3, 15u);
    return static_cast<int>(4 * g + (w >> g)) - 4;
}

inline std::uint16_t load16(const std::uint8_t* p) {
    std::uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}
inline std::uint32_t load32(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}
inline std::uint64_t load64(const std::uint8_t* p) {
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}
inline void store16(std::uint8_t* p, std::uint16_t v) {
    std::memcpy(p, &v, 2);
}
inline void store32(std::uint8_t* p, std::uint32_t v) {
    std::memcpy(p, &v, 4);
}
inline void store64(std::uint8_t* p, std::uint64_t v) {
    std::memcpy(p, &v, 8);
}

// Working memory comes from callers as raw bytes of any alignment; the
// scratch sizes include room to align it.
inline constexpr std::size_t kScratchAlign = 64;

template <typename T>
T* alignedScratch(void* scratch) {
    std::size_t space = sizeof(T) + kScratchAlign;
    return static_cast<T*>(std::align(kScratchAlign, sizeof(T), scratch, space));
}

static_assert(std::endian::native == std::endian::little,
              "the stream is little-endian and is read with plain loads");

} // namespace korv::lzfse::detail
