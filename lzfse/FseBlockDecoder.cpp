// Decoding of FSE blocks (bvx1 and bvx2).
//
// Beyond what a block needs to decode safely, it is checked for consistency:
// its matches use no more literals than it holds, its literal stream is not
// read past its start, and it produces exactly the byte count its header
// announces. Damaged blocks then fail instead of producing plausible output.
#include "lzfse/Copy.h"
#include "lzfse/Decoder.h"

namespace korv::lzfse::detail {

namespace {

std::uint32_t bitsAt(std::uint64_t word, int offset, int width) {
    return static_cast<std::uint32_t>((word >> offset) & ((std::uint64_t{1} << width) - 1));
}

// The frequency lists of a bvx2 header are a sequence of prefix codes read
// from the least significant bit: 0x (2 bits) for 0..1, 01x (3 bits) for 2..3,
// 011xx for 4..7, 0111xxxx for 8..23, 1111 and 10 bits for 24..1047.
bool readPackedFrequencies(const std::uint8_t* in, std::size_t bytes, std::uint16_t* freq) {
    std::size_t next = 0; // next byte to load
    std::uint64_t window = 0;
    int bits = 0;
    for (int i = 0; i < kFreqCount; ++i) {
        while (bits <= 56 && next < bytes) {
            window |= std::uint64_t{in[next++]} << bits;
            bits += 8;
        }
        int length;
        std::uint32_t value;
        if ((window & 1) == 0) {
            length = 2;
            value = (window >> 1) & 1;
        } else if ((window & 2) == 0) {
            length = 3;
            value = 2 + ((window >> 2) & 1);
        } else if ((window & 4) == 0) {
            length = 5;
            value = 4 + ((window >> 3) & 3);
        } else if ((window & 8) == 0) {
            length = 8;
            value = 8 + ((window >> 4) & 15);
        } else {
            length = 14;
            value = 24 + ((window >> 4) & 1023);
        }
        if (length > bits) {
            return false;
        }
        freq[i] = static_cast<std::uint16_t>(value);
        window >>= length;
        bits -= length;
    }
    // The lists must fill the header exactly, up to the last byte's padding.
    return next == bytes && bits < 8;
}

DecodeStatus checkLimits(const FseBlockHeader& h) {
    if (h.literals > kMaxLiteralsPerBlock || h.matches > kMaxMatchesPerBlock) {
        return DecodeStatus::corrupt;
    }
    for (std::uint16_t s : h.literalState) {
        if (s >= kLiteralStates) {
            return DecodeStatus::corrupt;
        }
    }
    if (h.lState >= kLStates || h.mState >= kMStates || h.dState >= kDStates) {
        return DecodeStatus::corrupt;
    }
    if (h.literalBits < -8 || h.literalBits > 0 || h.lmdBits < -8 || h.lmdBits > 0) {
        return DecodeStatus::corrupt;
    }
    const std::uint16_t* f = h.freq;
    if (checkedFrequencySum(f, kLSymbols, kLStates) < 0 ||
        checkedFrequencySum(f + kLSymbols, kMSymbols, kMStates) < 0 ||
        checkedFrequencySum(f + kLSymbols + kMSymbols, kDSymbols, kDStates) < 0 ||
        checkedFrequencySum(f + kLSymbols + kMSymbols + kDSymbols, kLiteralSymbols, kLiteralStates) < 0) {
        return DecodeStatus::corrupt;
    }
    return DecodeStatus::ok;
}

DecodeStatus readV2(const std::uint8_t* block, std::size_t available, FseBlockHeader& h) {
    if (available < kV2FixedHeaderSize) {
        return DecodeStatus::truncated;
    }
    h.rawBytes = load32(block + 4);
    const std::uint64_t w0 = load64(block + 8);
    const std::uint64_t w1 = load64(block + 16);
    const std::uint64_t w2 = load64(block + 24);
    h.literals = bitsAt(w0, 0, 20);
    h.literalPayloadBytes = bitsAt(w0, 20, 20);
    h.matches = bitsAt(w0, 40, 20);
    h.literalBits = static_cast<int>(bitsAt(w0, 60, 3)) - 7;
    for (int i = 0; i < 4; ++i) {
        h.literalState[i] = static_cast<std::uint16_t>(bitsAt(w1, 10 * i, 10));
    }
    h.lmdPayloadBytes = bitsAt(w1, 40, 20);
    h.lmdBits = static_cast<int>(bitsAt(w1, 60, 3)) - 7;
    h.headerBytes = bitsAt(w2, 0, 32);
    h.lState = static_cast<std::uint16_t>(bitsAt(w2, 32, 10));
    h.mState = static_cast<std::uint16_t>(bitsAt(w2, 42, 10));
    h.dState = static_cast<std::uint16_t>(bitsAt(w2, 52, 10));
    if (h.headerBytes < kV2FixedHeaderSize) {
        return DecodeStatus::corrupt;
    }
    if (h.headerBytes > available) {
        return DecodeStatus::truncated;
    }
    // A header without lists leaves every table empty; such a block can only
    // hold nothing, which the checks below and in decoding enforce.
    if (h.headerBytes > kV2FixedHeaderSize &&
        !readPackedFrequencies(block + kV2FixedHeaderSize, h.headerBytes - kV2FixedHeaderSize, h.freq)) {
        return DecodeStatus::corrupt;
    }
    return DecodeStatus::ok;
}

DecodeStatus readV1(const std::uint8_t* block, std::size_t available, FseBlockHeader& h) {
    if (available < kV1HeaderSize) {
        return DecodeStatus::truncated;
    }
    h.rawBytes = load32(block + 4);
    // block + 8 holds the payload total, which the two sizes below determine.
    h.literals = load32(block + 12);
    h.matches = load32(block + 16);
    h.literalPayloadBytes = load32(block + 20);
    h.lmdPayloadBytes = load32(block + 24);
    h.literalBits = static_cast<std::int32_t>(load32(block + 28));
    for (int i = 0; i < 4; ++i) {
        h.literalState[i] = load16(block + 32 + 2 * i);
    }
    h.lmdBits = static_cast<std::int32_t>(load32(block + 40));
    h.lState = load16(block + 44);
    h.mState = load16(block + 46);
    h.dState = load16(block + 48);
    for (int i = 0; i < kFreqCount; ++i) {
        h.freq[i] = load16(block + 50 + 2 * i);
    }
    h.headerBytes = kV1HeaderSize;
    return DecodeStatus::ok;
}

// Fills scratch.literals with the block's literals (rounded up to a multiple
// of four, as the four interleaved streams always decode together).
DecodeStatus decodeLiterals(const std::uint8_t* block, const FseBlockHeader& h, FseDecoderScratch& scratch) {
    const std::uint8_t* start = block + h.headerBytes;
    const std::uint8_t* const end = start + h.literalPayloadBytes;
    // A stream shorter than the reader's first load reaches back into the
    // header, which is always longer than that.
    BitReader in;
    if (!in.init(end, h.literalBits, start - 8)) {
        return DecodeStatus::corrupt;
    }

    const LiteralEntry* table = scratch.literalTable;
    std::uint8_t* out = scratch.literals;
    std::uint32_t s0 = h.literalState[0];
    std::uint32_t s1 = h.literalState[1];
    std::uint32_t s2 = h.literalState[2];
    std::uint32_t s3 = h.literalState[3];
    auto step = [&](std::uint32_t& state) {
        const LiteralEntry e = table[state];
        state = (e >> 16) + in.take(static_cast<int>(e & 0xff));
        return static_cast<std::uint8_t>(e >> 8);
    };
    for (std::uint8_t* const end4 = out + ((h.literals + 3) & ~3u); out < end4; out += 4) {
        if (!in.refill()) {
            return DecodeStatus::corrupt;
        }
        out[0] = step(s0);
        out[1] = step(s1);
        out[2] = step(s2);
        out[3] = step(s3);
    }
    if (in.consumedDownTo(block) < static_cast<std::ptrdiff_t>(h.headerBytes) * 8) {
        return DecodeStatus::corrupt;
    }
    return DecodeStatus::ok;
}

} // namespace

DecodeStatus readFseHeader(const std::uint8_t* block, std::size_t available, FseBlockHeader& h) {
    const DecodeStatus read =
        load32(block) == kMagicFseV2 ? readV2(block, available, h) : readV1(block, available, h);
    if (read != DecodeStatus::ok) {
        return read;
    }
    const std::uint64_t total = std::uint64_t{h.headerBytes} + h.literalPayloadBytes + h.lmdPayloadBytes;
    if (total > available) {
        return DecodeStatus::truncated;
    }
    return checkLimits(h);
}

DecodeStatus decodeFseBlock(const std::uint8_t* block, const FseBlockHeader& h, Output& out,
                            FseDecoderScratch& scratch) {
    if (h.rawBytes > static_cast<std::size_t>(out.end - out.pos)) {
        return DecodeStatus::dstTooSmall;
    }

    const std::uint16_t* f = h.freq;
    buildLiteralDecoder(f + kLSymbols + kMSymbols + kDSymbols, scratch.literalTable);
    buildValueDecoder(f, kLSymbols, kLStates, kLClasses.extraBits.data(), kLClasses.base.data(),
                      scratch.lTable);
    buildValueDecoder(f + kLSymbols, kMSymbols, kMStates, kMClasses.extraBits.data(), kMClasses.base.data(),
                      scratch.mTable);
    buildValueDecoder(f + kLSymbols + kMSymbols, kDSymbols, kDStates, kDClasses.extraBits.data(),
                      kDClasses.base.data(), scratch.dTable);

    if (const DecodeStatus s = decodeLiterals(block, h, scratch); s != DecodeStatus::ok) {
        return s;
    }

    // As for literals, the reader may load from just before the stream; the
    // check after the loop makes sure no bit from there was used.
    const std::uint8_t* lmdStart = block + h.headerBytes + h.literalPayloadBytes;
    BitReader in;
    if (!in.init(lmdStart + h.lmdPayloadBytes, h.lmdBits, lmdStart - 8)) {
        return DecodeStatus::corrupt;
    }

    std::uint32_t lState = h.lState;
    std::uint32_t mState = h.mState;
    std::uint32_t dState = h.dState;
    const FseDecoderScratch& tables = scratch;
    // The state bits sit above the extra bits in what is taken.
    auto value = [&in](const ValueEntry& e, std::uint32_t& state) {
        const std::uint32_t bits = in.take(e.totalBits);
        const std::uint32_t high = bits >> e.extraBits;
        state = e.delta + high;
        return e.base + bits - (high << e.extraBits);
    };

    const std::uint8_t* lit = scratch.literals;
    const std::uint8_t* const litEnd = scratch.literals + h.literals;
    std::uint8_t* const begin = out.begin;
    std::uint8_t* dst = out.pos;
    std::uint8_t* const blockEnd = out.pos + h.rawBytes;
    // Wide copies need kCopySlack bytes of room after each triple's bytes;
    // no triple makes more than kMaxLValue + kMaxMValue bytes, so before this
    // point none needs checking.
    std::uint8_t* const wideEnd =
        static_cast<std::size_t>(out.end - dst) > kMaxLValue + kMaxMValue + kCopySlack
            ? out.end - (kMaxLValue + kMaxMValue + kCopySlack)
            : dst;
    // A distance of 0 repeats the previous one; a block starts without one.
    std::size_t distance = 0;

    // One triple takes at most 6 + 8 (L), 6 + 11 (M) and 8 + 15 (D) bits.
    constexpr int kMaxTripleBits = 54;
    for (std::uint32_t i = h.matches; i > 0; --i) {
        if (!in.ensure(kMaxTripleBits)) {
            return DecodeStatus::corrupt;
        }
        const std::size_t l = value(tables.lTable[lState], lState);
        const std::size_t m = value(tables.mTable[mState], mState);
        const std::size_t d = value(tables.dTable[dState], dState);
        if (d != 0) {
            distance = d;
        }

        if (l > static_cast<std::size_t>(litEnd - lit) || l + m > static_cast<std::size_t>(blockEnd - dst) ||
            distance - 1 >= static_cast<std::size_t>(dst + l - begin)) {
            return DecodeStatus::corrupt;
        }
        if (dst < wideEnd) {
            copyWide(dst, lit, l);
            dst += l;
            lit += l;
            copyMatchWide(dst, distance, m);
            dst += m;
        } else {
            std::memcpy(dst, lit, l);
            dst += l;
            lit += l;
            copyMatchExact(dst, distance, m);
            dst += m;
        }
    }
    if (dst != blockEnd || in.consumedDownTo(lmdStart) < 0) {
        return DecodeStatus::corrupt;
    }
    out.pos = dst;
    return DecodeStatus::ok;
}

} // namespace korv::lzfse::detail
