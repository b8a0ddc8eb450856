#pragma once
// Finite-state entropy coding as LZFSE uses it: the decoder and encoder
// tables built from a normalised frequency list, the bit streams they run on,
// and the normalisation of symbol counts into such a list.
//
// A table of N states (a power of two) gives symbol s the f(s) consecutive
// states after those of the symbols before it. Decoding state x emits its
// symbol and moves to delta(x) + (the next nbits(x) bits of the stream); the
// encoder runs the same moves backwards, so streams are written from their
// last symbol to their first and read from their end to their start.

#include "lzfse/BlockFormat.h"

#include <cstddef>
#include <cstdint>

namespace korv::lzfse::detail {

// ---------------------------------------------------------------------------
// Tables

// One decoder state for the literal alphabet: nbits | symbol << 8 | delta << 16.
using LiteralEntry = std::uint32_t;

// One decoder state for an L, M or D alphabet. The value's extra bits sit
// below the state bits in the stream, so both are taken in a single read.
struct ValueEntry {
    std::uint8_t totalBits; // state bits + extra bits
    std::uint8_t extraBits;
    std::uint16_t delta;
    std::uint32_t base;
};
static_assert(sizeof(ValueEntry) == 8);

// Sum of a frequency list, or -1 if it exceeds the state count (which no
// table can hold). A sum below the state count is accepted: the states left
// over decode as symbol 0, read no bits and lead to state 0, so decoding stays
// inside the table and the block's own checks catch the nonsense.
int checkedFrequencySum(const std::uint16_t* freq, int symbols, int states);

// Both builders expect checkedFrequencySum(freq, symbols, states) >= 0.
void buildLiteralDecoder(const std::uint16_t* freq, LiteralEntry* table);
void buildValueDecoder(const std::uint16_t* freq, int symbols, int states, const std::uint8_t* extraBits,
                       const std::uint32_t* base, ValueEntry* table);

// Encoding works on x = state + N, in [N, 2N). Symbol s with f states and
// shift k writes k bits of x when x >= f * 2^k, else k - 1 bits, and moves to
// (x >> bits) + (its first state - f + N). Adding nbitsDelta to x puts the
// bit count in bits 16 and up, which avoids a comparison.
struct EncoderEntry {
    std::uint32_t nbitsDelta;
    std::uint32_t stateDelta;
};

void buildEncoder(const std::uint16_t* freq, int symbols, int states, EncoderEntry* table);

// Scales counts (total > 0 or not) to a list summing exactly to `states`,
// every used symbol getting at least 1, rounding so that the coded size stays
// close to the counts' entropy. An all-zero count list gives all states to
// symbol 0, which keeps the table well formed for decoders.
void normalizeCounts(const std::uint32_t* counts, int symbols, int states, std::uint16_t* freq);

// ---------------------------------------------------------------------------
// Bit streams

// Appends bit fields from least to most significant. The caller keeps at most
// 64 pending bits between flushes and checks room for the 8-byte stores.
class BitWriter {
public:
    explicit BitWriter(std::uint8_t* out) : out_(out) {}

    void put(std::uint64_t value, int nbits) {
        acc_ |= value << count_;
        count_ += nbits;
    }

    // Stores the whole bytes; writes 8 bytes at the current position.
    void flush() {
        store64(out_, acc_);
        const int bytes = count_ >> 3;
        out_ += bytes;
        acc_ = bytes == 8 ? 0 : acc_ >> (bytes * 8);
        count_ &= 7;
    }

    // flush() for the end of the buffer: stores only the whole bytes, and
    // fails if they do not fit before `end`.
    bool flushExact(const std::uint8_t* end) {
        const int bytes = count_ >> 3;
        if (end - out_ < bytes) {
            return false;
        }
        for (int i = 0; i < bytes; ++i) {
            *out_++ = static_cast<std::uint8_t>(acc_ >> (8 * i));
        }
        acc_ = bytes == 8 ? 0 : acc_ >> (bytes * 8);
        count_ &= 7;
        return true;
    }

    // Stores what is pending, the last byte zero-padded, if it fits before
    // `end`. Returns the padding as the non-positive bit count block headers
    // record (-7..0), or 1 when out of room.
    int finish(const std::uint8_t* end) {
        if (!flushExact(end)) {
            return 1;
        }
        if (count_ == 0) {
            return 0;
        }
        if (end - out_ < 1) {
            return 1;
        }
        *out_++ = static_cast<std::uint8_t>(acc_);
        const int pad = 8 - count_;
        acc_ = 0;
        count_ = 0;
        return -pad;
    }

    std::uint8_t* position() const { return out_; }

private:
    std::uint8_t* out_;
    std::uint64_t acc_ = 0;
    int count_ = 0;
};

// Writes symbol `e` (its encoder entry) from the encoder state x, in [N, 2N).
inline void encodeSymbol(BitWriter& out, std::uint32_t& x, const EncoderEntry& e) {
    const std::uint32_t nbits = (x + e.nbitsDelta) >> 16;
    out.put(x & ((1u << nbits) - 1), static_cast<int>(nbits));
    x = (x >> nbits) + e.stateDelta;
}

// Reads a stream written by BitWriter backwards, from its end: a word loaded
// at pos_ whose top consumed_ bits are used up. `floor` is the lowest byte it
// may load.
class BitReader {
public:
    // `end` is one past the stream's last byte; `padding` the header's -8..0,
    // the unused top bits of the last byte, which must be zero.
    bool init(const std::uint8_t* end, int padding, const std::uint8_t* floor) {
        floor_ = floor;
        if (padding < -8 || padding > 0 || end - floor < 8) {
            return false;
        }
        pos_ = end - 8;
        word_ = load64(pos_);
        consumed_ = -padding;
        return padding == 0 || (word_ >> (64 + padding)) == 0;
    }

    // Moves on to the unconsumed bits, so that 57 or more are at hand. Fails
    // rather than load below the floor, which a complete stream never needs.
    bool refill() {
        const std::uint8_t* next = pos_ - (consumed_ >> 3);
        if (next < floor_) {
            return false;
        }
        pos_ = next;
        consumed_ &= 7;
        word_ = load64(next);
        return true;
    }

    // Refills only when fewer than `bits` remain: where symbols take few bits,
    // this keeps the load off the decoding's critical path.
    bool ensure(int bits) { return consumed_ <= 64 - bits || refill(); }

    // Takes the next n (0..32) bits; callers refill before 57 bits are used.
    std::uint32_t take(int n) {
        const std::uint64_t v = ((word_ << consumed_) >> 1) >> (63 - n);
        consumed_ += n;
        return static_cast<std::uint32_t>(v);
    }

    // Bit offset from `start` of the lowest bit consumed so far. A stream read
    // in full ends at its first byte; anything lower was read from before it.
    std::ptrdiff_t consumedDownTo(const std::uint8_t* start) const {
        return (pos_ - start) * 8 + (64 - consumed_);
    }

private:
    const std::uint8_t* pos_ = nullptr;
    const std::uint8_t* floor_ = nullptr;
    std::uint64_t word_ = 0;
    int consumed_ = 0;
};

} // namespace korv::lzfse::detail
