#pragma once
// The pieces behind korv::lzfse::encode: the match finder that turns input
// into sequences, the FSE block writer, and the LZVN encoder used for small
// inputs.

#include "lzfse/BlockFormat.h"
#include "lzfse/Fse.h"

#include <bit>
#include <cstddef>
#include <cstdint>

namespace korv::lzfse::detail {

// `literals` bytes copied from the input, then `length` bytes repeated from
// `distance` bytes back. Lengths are not yet split to what a block can hold;
// the last sequence of a run of input may have length 0.
struct Sequence {
    std::uint32_t literals;
    std::uint32_t length;
    std::uint32_t distance;
};

// The input is parsed in segments of this size, each choosing its own way of
// splitting literals from matches (see the encoder's notes).
inline constexpr std::size_t kSegmentBytes = 32768;

// History of 4-byte prefixes: each bucket remembers the last positions whose
// prefixes hash to it, with the prefixes themselves to reject false hits
// without touching the input.
inline constexpr int kMaxHashBits = 14;
inline constexpr int kHashWays = 4;
struct HashBucket {
    std::uint32_t pos[kHashWays];
    std::uint32_t prefix[kHashWays];
};

// The buckets in use for one input: small inputs use (and clear) fewer.
struct History {
    HashBucket* table;
    int bits;
};

// One L, M, D triple as a block stores it, the distance not yet replaced by
// the repeat code.
struct Triple {
    std::uint32_t l;
    std::uint32_t m;
    std::uint32_t d;
};

struct FseBlockScratch {
    std::uint32_t lCounts[kLSymbols];
    std::uint32_t mCounts[kMSymbols];
    std::uint32_t dCounts[kDSymbols];
    std::uint32_t literalCounts[kLiteralSymbols];
    std::uint16_t freq[kFreqCount];
    EncoderEntry lEncoder[kLSymbols];
    EncoderEntry mEncoder[kMSymbols];
    EncoderEntry dEncoder[kDSymbols];
    EncoderEntry literalEncoder[kLiteralSymbols];
    std::uint32_t dCodes[kMaxMatchesPerBlock];
    Triple triples[kMaxMatchesPerBlock];
    // The block's literals, padded to a multiple of four, and room for
    // copies of up to 16 bytes past them.
    std::uint8_t literals[kMaxLiteralsPerBlock + 16];
};

inline constexpr int kLzvnHashBits = 12;
inline constexpr int kLzvnWays = 4;
inline constexpr std::size_t kLzvnMaxInput = 1 << 16;

struct EncoderScratch {
    HashBucket table[std::size_t{1} << kMaxHashBits];
    Sequence parsed[kSegmentBytes + 1];
    Sequence carved[kSegmentBytes + 1];
    FseBlockScratch block;
    std::uint32_t lzvnTable[std::size_t{kLzvnWays} << kLzvnHashBits];
};

// Writes one bvx2 block holding the given triples (their literal bytes in
// scratch.literals, `literalCount` of them, room for padding after) into
// [dst, dstEnd). Returns its size, or 0 if it does not fit.
std::size_t writeFseBlock(std::uint8_t* dst, std::uint8_t* dstEnd, std::uint32_t tripleCount,
                          std::uint32_t literalCount, std::uint32_t rawBytes, FseBlockScratch& scratch);

// Estimated coded size, in bits, of a segment parsed into these sequences,
// `start` being the input position of the first.
double estimateBits(const std::uint8_t* src, std::size_t start, const Sequence* seqs, std::size_t count);

// Finds matches in [start, end) of src (n bytes), recording positions in
// `history` (which persists across segments of one input); `repeat` carries the
// last match distance from segment to segment.
std::size_t parseSegment(const std::uint8_t* src, std::size_t n, std::size_t start, std::size_t end,
                         const History& history, std::uint32_t& repeat, Sequence* out);

// The period of the repeats carving looks for: the bytes of an RGBA pixel.
inline constexpr std::uint32_t kCarvePeriod = 4;

// Rewrites a parse of [start, end): matches shorter than `keep` go back to
// literals, and in the literal runs every byte at a phase (its position
// modulo kCarvePeriod) set in `phases` that equals the byte kCarvePeriod
// before it starts a match at that distance. On pixels with a constant
// channel, such as the alpha of an opaque image, this removes a quarter of
// the literals for triples that repeat identically and so cost almost
// nothing to code; estimateBits decides whether it pays.
std::size_t carvePeriodic(const std::uint8_t* src, std::size_t start, std::size_t end, const Sequence* in,
                          std::size_t count, std::uint32_t phases, std::uint32_t keep, Sequence* out);

// The phases (bit p for positions p modulo kCarvePeriod) in which the bytes
// carving could take (literals and matches shorter than `keep`) often equal
// the byte kCarvePeriod before them.
std::uint32_t periodicPhases(const std::uint8_t* src, std::size_t start, const Sequence* seqs,
                             std::size_t count, std::uint32_t keep);

// Clears the history for a new input.
History resetHistory(const std::uint8_t* src, std::size_t n, HashBucket* table);

// Encodes src as an LZVN payload, end-of-stream instruction included.
// Returns its size, or 0 if it does not fit in dstCapacity.
std::size_t encodeLzvn(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t n,
                       std::uint32_t* table);

// Equal bytes at a and b, up to limit, eight at a time.
inline std::size_t commonLength(const std::uint8_t* a, const std::uint8_t* b, std::size_t limit) {
    std::size_t n = 0;
    while (n + 8 <= limit) {
        const std::uint64_t x = load64(a + n) ^ load64(b + n);
        if (x != 0) {
            return n + (static_cast<std::size_t>(std::countr_zero(x)) >> 3);
        }
        n += 8;
    }
    while (n < limit && a[n] == b[n]) {
        ++n;
    }
    return n;
}

} // namespace korv::lzfse::detail
