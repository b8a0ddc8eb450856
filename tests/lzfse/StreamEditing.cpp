#include "StreamEditing.h"

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace korv::lzfse::test {

namespace {

constexpr std::size_t kGuardBytes = 64;
constexpr std::uint8_t kGuard = 0xa5;

std::uint64_t get64(const Bytes& b, std::size_t at) {
    std::uint64_t v;
    std::memcpy(&v, b.data() + at, 8);
    return v;
}

void put16(Bytes& b, std::size_t at, std::uint16_t v) {
    std::memcpy(b.data() + at, &v, 2);
}

std::uint32_t bits(std::uint64_t word, int offset, int width) {
    return static_cast<std::uint32_t>((word >> offset) & ((std::uint64_t{1} << width) - 1));
}

// Reads the packed frequency lists one bit at a time.
class BitCursor {
public:
    BitCursor(const std::uint8_t* p, std::size_t bytes) : p_(p), bytes_(bytes) {}
    std::uint32_t take(int n) {
        std::uint32_t v = 0;
        for (int i = 0; i < n; ++i, ++bit_) {
            const std::size_t byte = bit_ / 8;
            const std::uint32_t b = byte < bytes_ ? (p_[byte] >> (bit_ % 8)) & 1 : 0;
            v |= b << i;
        }
        return v;
    }

private:
    const std::uint8_t* p_;
    std::size_t bytes_;
    std::size_t bit_ = 0;
};

std::uint16_t takeFrequency(BitCursor& c) {
    if (c.take(1) == 0) {
        return static_cast<std::uint16_t>(c.take(1));
    }
    if (c.take(1) == 0) {
        return static_cast<std::uint16_t>(2 + c.take(1));
    }
    if (c.take(1) == 0) {
        return static_cast<std::uint16_t>(4 + c.take(2));
    }
    if (c.take(1) == 0) {
        return static_cast<std::uint16_t>(8 + c.take(4));
    }
    return static_cast<std::uint16_t>(24 + c.take(10));
}

} // namespace

Bytes readVector(const std::string& name, const std::string& extension) {
    const std::string path = std::string(KORV_TESTDATA_DIR) + "/lzfse/" + name + extension;
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "missing test vector " << path;
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

Bytes encodeBytes(const Bytes& raw) {
    Bytes out(encodeBound(raw.size()));
    const std::size_t n = encode(out.data(), out.size(), raw.data(), raw.size());
    EXPECT_NE(n, 0u) << "encoding " << raw.size() << " bytes failed";
    out.resize(n);
    return out;
}

DecodeResult decodeBytes(const Bytes& stream, std::size_t capacity, Bytes& out) {
    out.assign(capacity + kGuardBytes, kGuard);
    const DecodeResult r = decodeChecked(out.data(), capacity, stream.data(), stream.size());
    for (std::size_t i = capacity; i < out.size(); ++i) {
        if (out[i] != kGuard) {
            ADD_FAILURE() << "decoder wrote past its capacity at +" << i - capacity;
            break;
        }
    }
    out.resize(r.ok() ? r.size : 0);
    return r;
}

std::uint32_t magicOf(const char (&text)[5]) {
    std::uint32_t v;
    std::memcpy(&v, text, 4);
    return v;
}

void put32(Bytes& b, std::size_t at, std::uint32_t v) {
    std::memcpy(b.data() + at, &v, 4);
}

std::uint32_t get32(const Bytes& b, std::size_t at) {
    std::uint32_t v;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

std::vector<Block> walkBlocks(const Bytes& stream) {
    std::vector<Block> blocks;
    std::size_t p = 0;
    while (p + 4 <= stream.size()) {
        Block b;
        b.magic = get32(stream, p);
        b.offset = p;
        if (b.magic == magicOf("bvx$")) {
            b.size = 4;
        } else if (b.magic == magicOf("bvx-") && p + 8 <= stream.size()) {
            b.rawBytes = get32(stream, p + 4);
            b.size = 8 + std::size_t{b.rawBytes};
        } else if (b.magic == magicOf("bvxn") && p + 12 <= stream.size()) {
            b.rawBytes = get32(stream, p + 4);
            b.size = 12 + std::size_t{get32(stream, p + 8)};
        } else if (b.magic == magicOf("bvx2") && p + 32 <= stream.size()) {
            b.rawBytes = get32(stream, p + 4);
            const std::uint64_t w0 = get64(stream, p + 8);
            const std::uint64_t w1 = get64(stream, p + 16);
            const std::uint64_t w2 = get64(stream, p + 24);
            b.literals = bits(w0, 0, 20);
            b.matches = bits(w0, 40, 20);
            b.lmdPayloadBytes = bits(w1, 40, 20);
            b.size = std::size_t{bits(w2, 0, 32)} + bits(w0, 20, 20) + b.lmdPayloadBytes;
        } else {
            break;
        }
        blocks.push_back(b);
        if (b.magic == magicOf("bvx$") || p + b.size > stream.size()) {
            break;
        }
        p += b.size;
    }
    return blocks;
}

Bytes withV1Headers(const Bytes& stream) {
    Bytes out;
    for (const Block& b : walkBlocks(stream)) {
        const auto first = stream.begin() + static_cast<std::ptrdiff_t>(b.offset);
        if (b.magic != magicOf("bvx2")) {
            out.insert(out.end(), first, first + static_cast<std::ptrdiff_t>(b.size));
            continue;
        }
        const std::size_t p = b.offset;
        const std::uint64_t w0 = get64(stream, p + 8);
        const std::uint64_t w1 = get64(stream, p + 16);
        const std::uint64_t w2 = get64(stream, p + 24);
        const std::uint32_t headerBytes = bits(w2, 0, 32);
        const std::uint32_t literalPayload = bits(w0, 20, 20);
        const std::uint32_t lmdPayload = bits(w1, 40, 20);

        Bytes h(772, 0);
        put32(h, 0, magicOf("bvx1"));
        put32(h, 4, b.rawBytes);
        put32(h, 8, literalPayload + lmdPayload);
        put32(h, 12, bits(w0, 0, 20));
        put32(h, 16, bits(w0, 40, 20));
        put32(h, 20, literalPayload);
        put32(h, 24, lmdPayload);
        put32(h, 28, static_cast<std::uint32_t>(static_cast<int>(bits(w0, 60, 3)) - 7));
        for (int i = 0; i < 4; ++i) {
            put16(h, 32 + 2 * i, static_cast<std::uint16_t>(bits(w1, 10 * i, 10)));
        }
        put32(h, 40, static_cast<std::uint32_t>(static_cast<int>(bits(w1, 60, 3)) - 7));
        put16(h, 44, static_cast<std::uint16_t>(bits(w2, 32, 10)));
        put16(h, 46, static_cast<std::uint16_t>(bits(w2, 42, 10)));
        put16(h, 48, static_cast<std::uint16_t>(bits(w2, 52, 10)));
        if (headerBytes > 32) {
            BitCursor c(stream.data() + p + 32, headerBytes - 32);
            for (int i = 0; i < 360; ++i) {
                put16(h, 50 + 2 * i, takeFrequency(c));
            }
        }
        out.insert(out.end(), h.begin(), h.end());
        const auto payload = first + headerBytes;
        out.insert(out.end(), payload, payload + literalPayload + lmdPayload);
    }
    return out;
}

} // namespace korv::lzfse::test
