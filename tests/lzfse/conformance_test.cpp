// The shared LZFSE vectors, made by the public reference encoder: its streams
// must decode to the raw files, ours must round-trip them, and the damaged
// streams must be refused.
#include "StreamEditing.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace korv::lzfse {
namespace {

using test::Bytes;

const char* const kVectors[] = {"tile-gradient", "tile-noise",   "tile-sparse", "tile-flat",
                                "tile-photo",    "tile-stripes", "small-text",  "small-noise",
                                "tiny",          "empty",        "big-mixed"};

// What the document format gives the codec for one 256x256 RGBA tile.
constexpr std::size_t kTileBufferBytes = 0x41000;

class Vector : public ::testing::TestWithParam<const char*> {
protected:
    Bytes raw = test::readVector(GetParam(), ".raw");
    Bytes reference = test::readVector(GetParam(), ".lzfse");
};

TEST_P(Vector, ReferenceStreamDecodesToTheRawFileAndNoMore) {
    Bytes out;
    DecodeResult r = test::decodeBytes(reference, raw.size(), out);
    ASSERT_TRUE(r.ok()) << static_cast<int>(r.status);
    EXPECT_EQ(out, raw);
    EXPECT_EQ(decodedSize(reference.data(), reference.size()), raw.size());

    // Anything after the end-of-stream block is not part of the stream.
    Bytes followed = reference;
    followed.insert(followed.end(), {'b', 'v', 'x', '2', 0xff, 0xff});
    r = test::decodeBytes(followed, raw.size() + 100, out);
    ASSERT_TRUE(r.ok());
    EXPECT_EQ(out, raw);

    // One byte less room is a failure, not a shortened result.
    if (!raw.empty()) {
        r = test::decodeBytes(reference, raw.size() - 1, out);
        EXPECT_EQ(r.status, DecodeStatus::dstTooSmall);
    }
}

TEST_P(Vector, OwnStreamRoundTripsWithinTwoPercentOfTheReferenceSize) {
    const Bytes ours = test::encodeBytes(raw);
    Bytes out;
    ASSERT_TRUE(test::decodeBytes(ours, raw.size(), out).ok());
    EXPECT_EQ(out, raw);
    EXPECT_EQ(decodedSize(ours.data(), ours.size()), raw.size());
    EXPECT_LE(ours.size(), reference.size() + reference.size() / 50) << "reference " << reference.size();
    EXPECT_LE(ours.size(), encodeBound(raw.size()));
}

// The v1 header stores what v2 packs; both forms of the same blocks must give
// the same bytes.
TEST_P(Vector, DecodesTheSameBlocksWithV1Headers) {
    for (const Bytes& stream : {reference, test::encodeBytes(raw)}) {
        const Bytes v1 = test::withV1Headers(stream);
        Bytes out;
        ASSERT_TRUE(test::decodeBytes(v1, raw.size(), out).ok());
        EXPECT_EQ(out, raw);
    }
}

INSTANTIATE_TEST_SUITE_P(Lzfse, Vector, ::testing::ValuesIn(kVectors),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

// The reference decoder accepts three of these (two with a plausible length);
// ours checks each block's literal use, stream ends and announced size, and
// refuses all five, whatever the room.
TEST(DamagedVectors, AreRefused) {
    for (const char* name : {"truncated", "corrupt", "corrupt-error", "corrupt-short", "corrupt-overlong"}) {
        const Bytes stream = test::readVector(name, ".lzfse");
        for (std::size_t capacity : {std::size_t{262144}, std::size_t{300000}}) {
            Bytes out;
            const DecodeResult r = test::decodeBytes(stream, capacity, out);
            EXPECT_FALSE(r.ok()) << name << " decoded to " << r.size << " bytes";
        }
    }
    Bytes out;
    EXPECT_EQ(test::decodeBytes(test::readVector("truncated", ".lzfse"), 300000, out).status,
              DecodeStatus::truncated);
}

TEST(Tiles, EncodeIntoTheDocumentsTileBuffer) {
    for (const char* name :
         {"tile-gradient", "tile-noise", "tile-sparse", "tile-flat", "tile-photo", "tile-stripes"}) {
        const Bytes raw = test::readVector(name, ".raw");
        Bytes out(kTileBufferBytes);
        const std::size_t n = encode(out.data(), out.size(), raw.data(), raw.size());
        ASSERT_NE(n, 0u) << name;
        out.resize(n);
        Bytes back;
        ASSERT_TRUE(test::decodeBytes(out, raw.size(), back).ok()) << name;
        EXPECT_EQ(back, raw) << name;
    }
}

} // namespace
} // namespace korv::lzfse
