// Streams no encoder writes: hand-built instructions, edited headers, cut and
// flipped bytes. The decoder must refuse what is wrong and never write
// outside its buffer (decodeBytes checks guard bytes after the capacity).
#include "StreamEditing.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>

namespace korv::lzfse {
namespace {

using test::Bytes;
using test::magicOf;

Bytes withMagic(const char (&magic)[5]) {
    Bytes b(4);
    test::put32(b, 0, magicOf(magic));
    return b;
}

void append(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Bytes lzvnStream(const Bytes& payload, std::uint32_t rawBytes) {
    Bytes s = withMagic("bvxn");
    s.resize(12);
    test::put32(s, 4, rawBytes);
    test::put32(s, 8, static_cast<std::uint32_t>(payload.size()));
    append(s, payload);
    append(s, withMagic("bvx$"));
    return s;
}

const Bytes kEnd = {0x06, 0, 0, 0, 0, 0, 0, 0};

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) {
        append(all, p);
    }
    return all;
}

TEST(Lzvn, DecodesEveryInstructionKind) {
    const Bytes payload = concat({
        {0xe0, 0x00},
        {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p'},
        {0x0e},             // nop
        {0x48, 0x10, 'q'},  // L=1 M=4 D=16
        {0x86, 'r', 's'},   // L=2 M=3, previous distance
        {0xa0, 0x52, 0x00}, // L=0 M=5 D=20
        {0x07, 0x02, 0x00}, // L=0 M=3 D=2
        {0xf2},             // M=2, previous distance
        {0xf0, 0x00},       // M=16, previous distance
        kEnd,
    });
    std::string expected = "abcdefghijklmnop";
    auto copy = [&](std::size_t d, std::size_t m) {
        for (std::size_t i = 0; i < m; ++i) {
            expected += expected[expected.size() - d];
        }
    };
    expected += 'q';
    copy(16, 4);
    expected += "rs";
    copy(16, 3);
    copy(20, 5);
    copy(2, 3);
    copy(2, 2);
    copy(2, 16);

    Bytes out;
    const auto stream = lzvnStream(payload, static_cast<std::uint32_t>(expected.size()));
    ASSERT_TRUE(test::decodeBytes(stream, expected.size(), out).ok());
    EXPECT_EQ(std::string(out.begin(), out.end()), expected);
}

TEST(Lzvn, RefusesMalformedPayloads) {
    const struct {
        const char* what;
        Bytes payload;
        std::uint32_t rawBytes;
    } cases[] = {
        {"distance before the output", concat({{0x00, 0x01}, kEnd}), 3},
        {"no end instruction", {0xe3, 'a', 'b', 'c'}, 3},
        {"undefined opcode", concat({{0x70}, kEnd}), 0},
        {"bytes after the end instruction", concat({{0xe1, 'a'}, kEnd, {0}}), 1},
        {"fewer bytes than announced", concat({{0xe1, 'a'}, kEnd}), 2},
        {"more bytes than announced", concat({{0xe2, 'a', 'b'}, kEnd}), 1},
        {"previous distance before any", concat({{0xe1, 'a', 0xf1}, kEnd}), 2},
        {"literal beyond the payload", {0xe5, 'a', 'b'}, 5},
        {"short end instruction", {0xe1, 'a', 0x06, 0, 0}, 1},
    };
    for (const auto& c : cases) {
        Bytes out;
        EXPECT_EQ(test::decodeBytes(lzvnStream(c.payload, c.rawBytes), 64, out).status, DecodeStatus::corrupt)
            << c.what;
    }
}

TEST(Blocks, RefuseUnknownTruncatedAndUnterminatedStreams) {
    Bytes out;
    EXPECT_EQ(test::decodeBytes({}, 16, out).status, DecodeStatus::truncated);
    EXPECT_EQ(test::decodeBytes({'b', 'v', 'x'}, 16, out).status, DecodeStatus::truncated);
    EXPECT_EQ(test::decodeBytes(concat({withMagic("bvx3"), withMagic("bvx$")}), 16, out).status,
              DecodeStatus::corrupt);

    Bytes raw = concat({withMagic("bvx-"), {5, 0, 0, 0}, {'h', 'e', 'l', 'l', 'o'}});
    EXPECT_EQ(test::decodeBytes(raw, 16, out).status, DecodeStatus::truncated);
    raw[4] = 9; // announces more than follows
    EXPECT_EQ(test::decodeBytes(concat({raw, withMagic("bvx$")}), 16, out).status, DecodeStatus::truncated);
}

// Edits of one field of the single bvx2 block of a valid stream.
struct HeaderEdit {
    const char* what;
    std::function<void(Bytes&)> apply;
    DecodeStatus expected;
};

void setBits(Bytes& b, std::size_t word, int offset, int width, std::uint64_t value) {
    std::uint64_t w;
    std::memcpy(&w, b.data() + 8 + 8 * word, 8);
    const std::uint64_t mask = ((std::uint64_t{1} << width) - 1) << offset;
    w = (w & ~mask) | (value << offset & mask);
    std::memcpy(b.data() + 8 + 8 * word, &w, 8);
}

TEST(FseBlocks, RefuseHeadersOutOfLimits) {
    const Bytes valid = test::readVector("tile-sparse", ".lzfse");
    ASSERT_EQ(valid[3], '2');
    const HeaderEdit edits[] = {
        {"too many matches", [](Bytes& b) { setBits(b, 0, 40, 20, 10001); }, DecodeStatus::corrupt},
        {"too many literals", [](Bytes& b) { setBits(b, 0, 0, 20, 40004); }, DecodeStatus::corrupt},
        {"L state out of range", [](Bytes& b) { setBits(b, 2, 32, 10, 64); }, DecodeStatus::corrupt},
        {"M state out of range", [](Bytes& b) { setBits(b, 2, 42, 10, 64); }, DecodeStatus::corrupt},
        {"D state out of range", [](Bytes& b) { setBits(b, 2, 52, 10, 256); }, DecodeStatus::corrupt},
        {"header shorter than its fields", [](Bytes& b) { setBits(b, 2, 0, 32, 31); }, DecodeStatus::corrupt},
        {"header longer than the input", [](Bytes& b) { setBits(b, 2, 0, 32, 0xfffffff0); },
         DecodeStatus::truncated},
        {"payload longer than the input", [](Bytes& b) { setBits(b, 1, 40, 20, 0xfffff); },
         DecodeStatus::truncated},
        {"raw size one more", [](Bytes& b) { test::put32(b, 4, test::get32(b, 4) + 1); },
         DecodeStatus::corrupt},
        {"raw size one less", [](Bytes& b) { test::put32(b, 4, test::get32(b, 4) - 1); },
         DecodeStatus::corrupt},
    };
    for (const HeaderEdit& e : edits) {
        Bytes stream = valid;
        e.apply(stream);
        Bytes out;
        EXPECT_EQ(test::decodeBytes(stream, 300000, out).status, e.expected) << e.what;
    }
}

TEST(FseBlocks, RefuseV1HeadersOutOfLimits) {
    const Bytes valid = test::withV1Headers(test::readVector("tile-sparse", ".lzfse"));
    ASSERT_EQ(valid[3], '1');
    auto put16 = [](Bytes& b, std::size_t at, std::uint16_t v) { std::memcpy(b.data() + at, &v, 2); };
    const HeaderEdit edits[] = {
        {"L frequencies over 64", [&](Bytes& b) { put16(b, 50, 65); }, DecodeStatus::corrupt},
        {"literal frequencies over 1024", [&](Bytes& b) { put16(b, 258 + 2 * 255, 1024); },
         DecodeStatus::corrupt},
        {"stream padding positive", [](Bytes& b) { test::put32(b, 28, 1); }, DecodeStatus::corrupt},
        {"stream padding below -8", [](Bytes& b) { test::put32(b, 40, 0xfffffff7); }, DecodeStatus::corrupt},
        {"literal state out of range", [&](Bytes& b) { put16(b, 32, 1024); }, DecodeStatus::corrupt},
        {"header cut short", [](Bytes& b) { b.resize(700); }, DecodeStatus::truncated},
    };
    for (const HeaderEdit& e : edits) {
        Bytes stream = valid;
        e.apply(stream);
        Bytes out;
        EXPECT_EQ(test::decodeBytes(stream, 300000, out).status, e.expected) << e.what;
    }
}

std::vector<Bytes> smallStreams() {
    std::vector<Bytes> streams;
    for (const char* name : {"tile-sparse", "small-text", "tiny", "tile-flat"}) {
        streams.push_back(test::readVector(name, ".lzfse"));
        streams.push_back(test::encodeBytes(test::readVector(name, ".raw")));
    }
    return streams;
}

TEST(DamagedStreams, EveryCutIsRefused) {
    Bytes out;
    for (const Bytes& stream : smallStreams()) {
        for (std::size_t n = 0; n < stream.size(); ++n) {
            const Bytes cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(n));
            ASSERT_FALSE(test::decodeBytes(cut, 300000, out).ok()) << "cut at " << n;
        }
    }
}

// Flipped bytes may still decode (to wrong bytes); they must never make the
// decoder overrun, and a success must stay within the room given.
TEST(DamagedStreams, FlippedBytesStayInBounds) {
    Bytes out;
    for (const Bytes& stream : smallStreams()) {
        for (std::size_t i = 0; i < stream.size(); ++i) {
            for (std::uint8_t mask : {std::uint8_t{0xff}, std::uint8_t(1u << (i % 8))}) {
                Bytes flipped = stream;
                flipped[i] ^= mask;
                const DecodeResult r = test::decodeBytes(flipped, 262144, out);
                if (r.ok()) {
                    ASSERT_LE(r.size, 262144u);
                }
            }
        }
    }
}

TEST(DecodedSize, RefusesImplausibleAnnouncements) {
    Bytes lzvn = lzvnStream(concat({{0xe1, 'a'}, kEnd}), 1'000'000'000);
    EXPECT_FALSE(decodedSize(lzvn.data(), lzvn.size()).has_value());
    Bytes out;
    EXPECT_EQ(test::decodeBytes(lzvn, 64, out).status, DecodeStatus::dstTooSmall);

    Bytes fse = test::readVector("tile-flat", ".lzfse");
    test::put32(fse, 4, 0xffffffff); // far more than its matches can make
    EXPECT_FALSE(decodedSize(fse.data(), fse.size()).has_value());

    const Bytes cut(fse.begin(), fse.end() - 1);
    EXPECT_FALSE(decodedSize(cut.data(), cut.size()).has_value());
}

} // namespace
} // namespace korv::lzfse
