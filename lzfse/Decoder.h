#pragma once
// The block decoders behind korv::lzfse::decodeChecked.

#include "lzfse/BlockFormat.h"
#include "lzfse/Fse.h"
#include "lzfse/Lzfse.h"

#include <cstddef>
#include <cstdint>

namespace korv::lzfse::detail {

// The output buffer as a whole (matches may reach back into earlier blocks)
// and the position where the next block writes.
struct Output {
    std::uint8_t* begin;
    std::uint8_t* pos;
    std::uint8_t* end;
};

// Per-call working memory of the FSE block decoder.
struct FseDecoderScratch {
    LiteralEntry literalTable[kLiteralStates];
    ValueEntry lTable[kLStates];
    ValueEntry mTable[kMStates];
    ValueEntry dTable[kDStates];
    // The decoded literals, with room for the wide copies to read past them.
    std::uint8_t literals[kMaxLiteralsPerBlock + 64];
};

// The fields of an FSE block header, whichever form it was stored in.
struct FseBlockHeader {
    std::uint32_t rawBytes = 0;
    std::uint32_t literals = 0;
    std::uint32_t matches = 0;
    std::uint32_t literalPayloadBytes = 0;
    std::uint32_t lmdPayloadBytes = 0;
    int literalBits = 0; // padding of each bit stream, -7..0 (-8 for v1)
    int lmdBits = 0;
    std::uint16_t literalState[4] = {};
    std::uint16_t lState = 0;
    std::uint16_t mState = 0;
    std::uint16_t dState = 0;
    // L, M, D and literal frequencies, in that order.
    std::uint16_t freq[kFreqCount] = {};
    std::size_t headerBytes = 0;
};

// Reads the header of a bvx1 or bvx2 block starting at `block`; `available`
// bytes follow it. Checks its sizes and limits, not its tables.
DecodeStatus readFseHeader(const std::uint8_t* block, std::size_t available, FseBlockHeader& h);

// Decodes the bvx1/bvx2 block at `block`, whose header has been read into h
// and whose payload is known to be present. Writes exactly h.rawBytes.
DecodeStatus decodeFseBlock(const std::uint8_t* block, const FseBlockHeader& h, Output& out,
                            FseDecoderScratch& scratch);

// Decodes an LZVN payload that must produce exactly rawBytes bytes, which the
// caller has checked fit in out.
DecodeStatus decodeLzvn(const std::uint8_t* payload, std::size_t payloadBytes, std::size_t rawBytes,
                        Output& out);

} // namespace korv::lzfse::detail
