// Decoding of LZVN payloads (the bvxn blocks).
//
// LZVN is a byte-oriented LZ77: each instruction starts with an opcode byte
// that carries a literal length L, a match length M and a match distance D,
// in part or whole, the rest following in 1..2 bytes, then the L literal
// bytes. Opcodes without a distance reuse the previous one.
#include "lzfse/Copy.h"
#include "lzfse/Decoder.h"

#include <array>

namespace korv::lzfse::detail {

namespace {

enum class Op : std::uint8_t {
    smallDistance,    // LLMMMDDD DDDDDDDD: L 0..3, M 3..10, D < 1536
    mediumDistance,   // 101LLMMM DDDDDDMM DDDDDDDD: L 0..3, M 3..34, D < 16384
    largeDistance,    // LLMMM111 D16: L 0..3, M 3..10
    previousDistance, // LLMMM110: L 1..3, M 3..10
    smallMatch,       // 1111MMMM: M 1..15
    largeMatch,       // 11110000 MMMMMMMM: M 16..271
    smallLiteral,     // 1110LLLL: L 1..15
    largeLiteral,     // 11100000 LLLLLLLL: L 16..271
    nop,
    endOfStream, // 0x06 and seven more bytes
    invalid,
};

constexpr Op classify(unsigned b) {
    if (b == 0x06) {
        return Op::endOfStream;
    }
    if (b == 0x0e || b == 0x16) {
        return Op::nop;
    }
    if ((b >= 0x70 && b < 0x80) || (b >= 0xd0 && b < 0xe0)) {
        return Op::invalid;
    }
    if (b == 0xe0) {
        return Op::largeLiteral;
    }
    if (b > 0xe0 && b < 0xf0) {
        return Op::smallLiteral;
    }
    if (b == 0xf0) {
        return Op::largeMatch;
    }
    if (b > 0xf0) {
        return Op::smallMatch;
    }
    if (b >= 0xa0 && b < 0xc0) {
        return Op::mediumDistance;
    }
    if ((b & 7) == 7) {
        return Op::largeDistance;
    }
    if ((b & 7) == 6) {
        return b < 0x40 ? Op::invalid : Op::previousDistance;
    }
    return Op::smallDistance;
}

constexpr std::array<Op, 256> makeOpTable() {
    std::array<Op, 256> t{};
    for (unsigned b = 0; b < 256; ++b) {
        t[b] = classify(b);
    }
    return t;
}

constexpr std::array<Op, 256> kOps = makeOpTable();

} // namespace

DecodeStatus decodeLzvn(const std::uint8_t* payload, std::size_t payloadBytes, std::size_t rawBytes,
                        Output& out) {
    const std::uint8_t* p = payload;
    const std::uint8_t* const end = payload + payloadBytes;
    std::uint8_t* dst = out.pos;
    std::uint8_t* const blockEnd = out.pos + rawBytes;
    std::size_t distance = 0; // none yet

    for (;;) {
        if (p == end) {
            return DecodeStatus::corrupt; // no end-of-stream instruction
        }
        const unsigned op = *p;
        const std::size_t left = static_cast<std::size_t>(end - p);
        std::size_t length = 1; // of the instruction, before its literal
        std::size_t l = 0;
        std::size_t m = 0;
        switch (kOps[op]) {
        case Op::smallDistance:
            length = 2;
            if (left < length) {
                return DecodeStatus::corrupt;
            }
            l = op >> 6;
            m = ((op >> 3) & 7) + 3;
            distance = (op & 7) << 8 | p[1];
            break;
        case Op::mediumDistance: {
            length = 3;
            if (left < length) {
                return DecodeStatus::corrupt;
            }
            const unsigned w = load16(p + 1);
            l = (op >> 3) & 3;
            m = ((op & 7) << 2 | (w & 3)) + 3;
            distance = w >> 2;
            break;
        }
        case Op::largeDistance:
            length = 3;
            if (left < length) {
                return DecodeStatus::corrupt;
            }
            l = op >> 6;
            m = ((op >> 3) & 7) + 3;
            distance = load16(p + 1);
            break;
        case Op::previousDistance:
            l = op >> 6;
            m = ((op >> 3) & 7) + 3;
            break;
        case Op::smallMatch:
            m = op & 15;
            break;
        case Op::largeMatch:
            length = 2;
            if (left < length) {
                return DecodeStatus::corrupt;
            }
            m = p[1] + 16u;
            break;
        case Op::smallLiteral:
            l = op & 15;
            break;
        case Op::largeLiteral:
            length = 2;
            if (left < length) {
                return DecodeStatus::corrupt;
            }
            l = p[1] + 16u;
            break;
        case Op::nop:
            ++p;
            continue;
        case Op::endOfStream:
            // The payload must end with this instruction, the block complete.
            if (left != 8 || dst != blockEnd) {
                return DecodeStatus::corrupt;
            }
            out.pos = dst;
            return DecodeStatus::ok;
        case Op::invalid:
            return DecodeStatus::corrupt;
        }

        if (left - length < l || l + m > static_cast<std::size_t>(blockEnd - dst)) {
            return DecodeStatus::corrupt;
        }
        std::memcpy(dst, p + length, l);
        dst += l;
        p += length + l;
        if (m != 0) {
            if (distance == 0 || distance > static_cast<std::size_t>(dst - out.begin)) {
                return DecodeStatus::corrupt;
            }
            if (static_cast<std::size_t>(out.end - dst) >= m + kCopySlack) {
                copyMatchWide(dst, distance, m);
            } else {
                copyMatchExact(dst, distance, m);
            }
            dst += m;
        }
    }
}

} // namespace korv::lzfse::detail
