// Writing of FSE blocks in the packed-header (bvx2) form.
#include "lzfse/Encoder.h"

#include <algorithm>

namespace korv::lzfse::detail {

namespace {

// The prefix code of the packed frequency lists (see the decoder).
void packedCode(std::uint32_t v, std::uint32_t& code, int& length) {
    if (v < 2) {
        code = v << 1;
        length = 2;
    } else if (v < 4) {
        code = 1 | (v - 2) << 2;
        length = 3;
    } else if (v < 8) {
        code = 3 | (v - 4) << 3;
        length = 5;
    } else if (v < 24) {
        code = 7 | (v - 8) << 4;
        length = 8;
    } else {
        code = 15 | (v - 24) << 4;
        length = 14;
    }
}

std::size_t packedFrequencyBytes(const std::uint16_t* freq) {
    std::size_t bits = 0;
    for (int i = 0; i < kFreqCount; ++i) {
        std::uint32_t code;
        int length;
        packedCode(freq[i], code, length);
        bits += static_cast<std::size_t>(length);
    }
    return (bits + 7) / 8;
}

// Writes the lists after the fixed header; returns the bytes written.
std::size_t writePackedFrequencies(const std::uint16_t* freq, std::uint8_t* out) {
    std::uint8_t* const start = out;
    std::uint64_t window = 0;
    int bits = 0;
    for (int i = 0; i < kFreqCount; ++i) {
        std::uint32_t code;
        int length;
        packedCode(freq[i], code, length);
        window |= std::uint64_t{code} << bits;
        bits += length;
        while (bits >= 8) {
            *out++ = static_cast<std::uint8_t>(window);
            window >>= 8;
            bits -= 8;
        }
    }
    if (bits > 0) {
        *out++ = static_cast<std::uint8_t>(window);
    }
    return static_cast<std::size_t>(out - start);
}

template <std::size_t N>
inline void encodeValue(BitWriter& out, std::uint32_t& state, const EncoderEntry* table,
                        const ValueClasses<N>& classes, int symbol, std::uint32_t value) {
    out.put(value - classes.base[symbol], classes.extraBits[symbol]);
    encodeSymbol(out, state, table[symbol]);
}

std::uint64_t field(std::uint64_t v, int offset) {
    return v << offset;
}

} // namespace

std::size_t writeFseBlock(std::uint8_t* dst, std::uint8_t* dstEnd, std::uint32_t tripleCount,
                          std::uint32_t literalCount, std::uint32_t rawBytes, FseBlockScratch& s) {
    // Literals: the four interleaved streams take them four at a time, so the
    // count is padded with the most common byte, which costs the least.
    std::fill(std::begin(s.literalCounts), std::end(s.literalCounts), 0u);
    for (std::uint32_t i = 0; i < literalCount; ++i) {
        ++s.literalCounts[s.literals[i]];
    }
    const auto common =
        static_cast<std::uint8_t>(std::max_element(std::begin(s.literalCounts), std::end(s.literalCounts)) -
                                  std::begin(s.literalCounts));
    const std::uint32_t paddedLiterals = (literalCount + 3) & ~3u;
    for (std::uint32_t i = literalCount; i < paddedLiterals; ++i) {
        s.literals[i] = common;
        ++s.literalCounts[common];
    }

    // Distances equal to the previous one become the repeat code 0. A triple
    // without a match still carries a distance, which decoders check, so it
    // repeats the previous one or, at the start of a block, says 1.
    std::fill(std::begin(s.lCounts), std::end(s.lCounts), 0u);
    std::fill(std::begin(s.mCounts), std::end(s.mCounts), 0u);
    std::fill(std::begin(s.dCounts), std::end(s.dCounts), 0u);
    std::uint32_t previous = 0;
    for (std::uint32_t i = 0; i < tripleCount; ++i) {
        const Triple& t = s.triples[i];
        std::uint32_t code;
        if (t.m == 0) {
            code = previous != 0 ? 0 : 1;
            if (previous == 0) {
                previous = 1;
            }
        } else if (t.d == previous) {
            code = 0;
        } else {
            code = t.d;
            previous = t.d;
        }
        s.dCodes[i] = code;
        ++s.lCounts[lSymbol(t.l)];
        ++s.mCounts[mSymbol(t.m)];
        ++s.dCounts[dSymbol(code)];
    }

    std::uint16_t* const lFreq = s.freq;
    std::uint16_t* const mFreq = lFreq + kLSymbols;
    std::uint16_t* const dFreq = mFreq + kMSymbols;
    std::uint16_t* const literalFreq = dFreq + kDSymbols;
    normalizeCounts(s.lCounts, kLSymbols, kLStates, lFreq);
    normalizeCounts(s.mCounts, kMSymbols, kMStates, mFreq);
    normalizeCounts(s.dCounts, kDSymbols, kDStates, dFreq);
    normalizeCounts(s.literalCounts, kLiteralSymbols, kLiteralStates, literalFreq);
    buildEncoder(lFreq, kLSymbols, kLStates, s.lEncoder);
    buildEncoder(mFreq, kMSymbols, kMStates, s.mEncoder);
    buildEncoder(dFreq, kDSymbols, kDStates, s.dEncoder);
    buildEncoder(literalFreq, kLiteralSymbols, kLiteralStates, s.literalEncoder);

    const std::size_t headerBytes = kV2FixedHeaderSize + packedFrequencyBytes(s.freq);
    if (static_cast<std::size_t>(dstEnd - dst) < headerBytes) {
        return 0;
    }
    writePackedFrequencies(s.freq, dst + kV2FixedHeaderSize);

    // Both streams are written from their last symbol back to their first, so
    // that decoders, reading them from the end, meet the symbols in order.
    // Whole words are stored until the end of the buffer is near.
    auto flush = [dstEnd](BitWriter& out) {
        if (dstEnd - out.position() >= 8) {
            out.flush();
            return true;
        }
        return out.flushExact(dstEnd);
    };
    BitWriter literalsOut(dst + headerBytes);
    std::uint32_t ls[4] = {kLiteralStates, kLiteralStates, kLiteralStates, kLiteralStates};
    for (std::uint32_t i = paddedLiterals; i > 0;) {
        i -= 4;
        encodeSymbol(literalsOut, ls[3], s.literalEncoder[s.literals[i + 3]]);
        encodeSymbol(literalsOut, ls[2], s.literalEncoder[s.literals[i + 2]]);
        encodeSymbol(literalsOut, ls[1], s.literalEncoder[s.literals[i + 1]]);
        encodeSymbol(literalsOut, ls[0], s.literalEncoder[s.literals[i + 0]]);
        if (!flush(literalsOut)) {
            return 0;
        }
    }
    const int literalBits = literalsOut.finish(dstEnd);
    if (literalBits > 0) {
        return 0;
    }
    std::uint8_t* const lmdStart = literalsOut.position();

    // Eight zero bytes first: decoders load a whole word from the start of this
    // stream before reading any of it.
    if (dstEnd - lmdStart < 8) {
        return 0;
    }
    store64(lmdStart, 0);
    BitWriter lmdOut(lmdStart + 8);
    std::uint32_t lState = kLStates;
    std::uint32_t mState = kMStates;
    std::uint32_t dState = kDStates;
    for (std::uint32_t i = tripleCount; i > 0;) {
        --i;
        const Triple& t = s.triples[i];
        const std::uint32_t d = s.dCodes[i];
        encodeValue(lmdOut, dState, s.dEncoder, kDClasses, dSymbol(d), d);
        encodeValue(lmdOut, mState, s.mEncoder, kMClasses, mSymbol(t.m), t.m);
        encodeValue(lmdOut, lState, s.lEncoder, kLClasses, lSymbol(t.l), t.l);
        if (!flush(lmdOut)) {
            return 0;
        }
    }
    const int lmdBits = lmdOut.finish(dstEnd);
    if (lmdBits > 0) {
        return 0;
    }

    const std::uint64_t literalPayload = static_cast<std::uint64_t>(lmdStart - (dst + headerBytes));
    const std::uint64_t lmdPayload = static_cast<std::uint64_t>(lmdOut.position() - lmdStart);
    // The headers store each stream's padding biased by 7.
    const unsigned literalPadding = static_cast<unsigned>(literalBits + 7);
    const unsigned lmdPadding = static_cast<unsigned>(lmdBits + 7);
    store32(dst, kMagicFseV2);
    store32(dst + 4, rawBytes);
    store64(dst + 8, field(paddedLiterals, 0) | field(literalPayload, 20) | field(tripleCount, 40) |
                         field(literalPadding, 60));
    for (std::uint32_t& x : ls) {
        x -= kLiteralStates;
    }
    store64(dst + 16, field(ls[0], 0) | field(ls[1], 10) | field(ls[2], 20) | field(ls[3], 30) |
                          field(lmdPayload, 40) | field(lmdPadding, 60));
    store64(dst + 24, field(headerBytes, 0) | field(lState - kLStates, 32) | field(mState - kMStates, 42) |
                          field(dState - kDStates, 52));
    return static_cast<std::size_t>(lmdOut.position() - dst);
}

} // namespace korv::lzfse::detail
