// The encoder on inputs the vectors do not cover, and the FSE tables it
// relies on.
#include "StreamEditing.h"
#include "lzfse/Fse.h"

#include <gtest/gtest.h>
#include <random>

namespace korv::lzfse {
namespace {

using test::Bytes;

// Inputs shaped to reach each path: raw fallback, LZVN, FSE with long
// literal runs (over 315) and long matches (over 2359), carved pixels,
// segment and block boundaries.
Bytes makeInput(const std::string& kind, std::size_t n, std::uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b(n);
    if (kind == "zeros") {
        return b;
    }
    if (kind == "noise") {
        for (auto& x : b) {
            x = static_cast<std::uint8_t>(rng());
        }
    } else if (kind == "words") {
        const char* words[] = {"tile ", "layer ", "mask ", "pixel ", "alpha ", "blend ", "curve "};
        std::size_t i = 0;
        while (i < n) {
            for (const char* c = words[rng() % 7]; *c != 0 && i < n; ++c) {
                b[i++] = static_cast<std::uint8_t>(*c);
            }
        }
    } else if (kind == "opaque-pixels") {
        for (std::size_t i = 0; i < n; ++i) {
            b[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(96 + rng() % 64);
        }
    } else if (kind == "noise-then-repeats") {
        // Random runs longer than a triple's literals, then a stretch repeated
        // far longer than a triple's match.
        for (std::size_t i = 0; i < n; ++i) {
            b[i] = i < n / 3 ? static_cast<std::uint8_t>(rng()) : b[i % 977];
        }
    } else if (kind == "flawed-pixels") {
        // One pixel repeated, a byte now and then changed: matches that
        // reach back over literals to an earlier start.
        const std::uint8_t pixel[4] = {0xc8, 0x78, 0x28, 0xff};
        for (std::size_t i = 0; i < n; ++i) {
            b[i] = rng() % 300 == 0 ? static_cast<std::uint8_t>(rng()) : pixel[i % 4];
        }
    } else if (kind == "mixed") {
        for (std::size_t i = 0; i < n; ++i) {
            const std::size_t region = (i / 5000) % 3;
            b[i] = region == 0 ? static_cast<std::uint8_t>(rng()) : region == 1 ? 7 : b[i - 4000];
        }
    }
    return b;
}

TEST(Encoder, RoundTripsEveryKindAndSize) {
    const char* kinds[] = {"zeros",         "noise", "words", "opaque-pixels", "noise-then-repeats",
                           "flawed-pixels", "mixed"};
    const std::size_t sizes[] = {1,    7,     8,     63,    64,    100,   4095,  4096,
                                 4097, 32767, 32768, 32769, 65536, 70001, 300000};
    std::uint32_t seed = 1;
    for (const char* kind : kinds) {
        for (std::size_t n : sizes) {
            const Bytes raw = makeInput(kind, n, seed++);
            const Bytes stream = test::encodeBytes(raw);
            ASSERT_LE(stream.size(), encodeBound(n)) << kind << " " << n;
            Bytes out;
            ASSERT_TRUE(test::decodeBytes(stream, n, out).ok()) << kind << " " << n;
            ASSERT_EQ(out, raw) << kind << " " << n;
            ASSERT_EQ(decodedSize(stream.data(), stream.size()), n);

            // Limits other decoders size their buffers for: the reference one also
            // loads a whole word from the start of each L, M, D stream.
            for (const test::Block& b : test::walkBlocks(stream)) {
                if (b.magic != test::magicOf("bvx2")) {
                    continue;
                }
                EXPECT_LE(b.matches, 10000u);
                EXPECT_LE(b.literals, 40000u);
                EXPECT_EQ(b.literals % 4, 0u);
                EXPECT_GE(b.lmdPayloadBytes, 8u);
            }
        }
    }
}

TEST(Encoder, UsesTheBlockKindThatFitsTheInput) {
    auto kinds = [](const Bytes& raw) {
        std::string s;
        for (const test::Block& b : test::walkBlocks(test::encodeBytes(raw))) {
            s += static_cast<char>(b.magic >> 24);
        }
        return s;
    };
    EXPECT_EQ(kinds({}), "$");
    EXPECT_EQ(kinds(makeInput("noise", 5000, 3)), "-$");
    // FSE tables pay for themselves from a few hundred bytes on.
    EXPECT_EQ(kinds(makeInput("words", 300, 4)), "n$");
    EXPECT_EQ(kinds(test::readVector("small-text", ".raw")), "2$");
    EXPECT_EQ(kinds(test::readVector("tile-stripes", ".raw")), "2$");
    // Random bytes inside an otherwise compressible input go out raw, alone.
    const std::string mixed = kinds(test::readVector("big-mixed", ".raw"));
    EXPECT_NE(mixed.find("2-"), std::string::npos) << mixed;
}

TEST(Encoder, NeverWritesPastItsCapacity) {
    for (const char* name : {"small-text", "tile-sparse", "tile-photo"}) {
        const Bytes raw = test::readVector(name, ".raw");
        const std::size_t full = test::encodeBytes(raw).size();
        for (std::size_t capacity :
             {std::size_t{0}, std::size_t{3}, std::size_t{40}, full / 2, full - 1, full}) {
            Bytes out(capacity + 64, 0x5a);
            const std::size_t n = encode(out.data(), capacity, raw.data(), raw.size());
            for (std::size_t i = capacity; i < out.size(); ++i) {
                ASSERT_EQ(out[i], 0x5a) << name;
            }
            if (capacity >= full) {
                ASSERT_EQ(n, full) << name;
            } else if (n != 0) {
                // A smaller stream than the one it prefers is fine if it decodes.
                out.resize(n);
                Bytes back;
                ASSERT_TRUE(test::decodeBytes(out, raw.size(), back).ok()) << name;
                EXPECT_EQ(back, raw);
            }
        }
    }
}

TEST(Encoder, GivesTheSameBytesWithReusedScratch) {
    std::vector<std::uint8_t> scratch(encodeScratchSize());
    std::vector<std::uint8_t> decodeScratch(decodeScratchSize());
    for (const char* name : {"tile-photo", "small-text", "tile-gradient", "tile-photo"}) {
        const Bytes raw = test::readVector(name, ".raw");
        Bytes a(encodeBound(raw.size()));
        // An odd address: the scratch has no alignment requirement.
        const std::size_t n = encode(a.data(), a.size(), raw.data(), raw.size(), scratch.data() + 1);
        a.resize(n);
        EXPECT_EQ(a, test::encodeBytes(raw)) << name;
        Bytes back(raw.size());
        EXPECT_EQ(decode(back.data(), back.size(), a.data(), a.size(), decodeScratch.data() + 3), raw.size());
        EXPECT_EQ(back, raw);
    }
}

TEST(Fse, NormalizedFrequenciesFillTheTableAndKeepEveryUsedSymbol) {
    std::mt19937 rng(7);
    for (int trial = 0; trial < 300; ++trial) {
        const int states = trial % 2 == 0 ? 1024 : 64;
        const int symbols = trial % 2 == 0 ? 256 : 20;
        std::vector<std::uint32_t> counts(symbols);
        const int used = 1 + static_cast<int>(rng() % symbols);
        for (int i = 0; i < used; ++i) {
            // Skewed counts: a few huge, many of 1, the hard case for rounding.
            counts[rng() % symbols] += rng() % 4 == 0 ? rng() % 100000 : 1;
        }
        std::vector<std::uint16_t> freq(symbols);
        detail::normalizeCounts(counts.data(), symbols, states, freq.data());
        int sum = 0;
        for (int s = 0; s < symbols; ++s) {
            sum += freq[s];
            ASSERT_EQ(counts[s] != 0, freq[s] != 0) << "symbol " << s;
        }
        ASSERT_EQ(sum, states);
    }
}

// Symbols written with the encoder table come back through the decoder
// table, for frequency lists with symbols of every size class.
TEST(Fse, DecoderTableInvertsEncoderTable) {
    std::mt19937 rng(11);
    std::vector<std::uint32_t> counts(256);
    for (int s = 0; s < 256; ++s) {
        counts[s] = s < 3 ? 20000 : rng() % 4 == 0 ? 0 : 1 + rng() % 50;
    }
    std::uint16_t freq[256];
    detail::normalizeCounts(counts.data(), 256, 1024, freq);
    detail::EncoderEntry encoder[256];
    detail::buildEncoder(freq, 256, 1024, encoder);
    std::vector<detail::LiteralEntry> decoder(1024);
    detail::buildLiteralDecoder(freq, decoder.data());

    std::vector<std::uint8_t> symbols;
    for (int i = 0; i < 5000; ++i) {
        std::uint8_t s;
        do {
            s = static_cast<std::uint8_t>(rng() % 256);
        } while (freq[s] == 0);
        symbols.push_back(s);
    }
    // Eight zero bytes first, as in an L, M, D stream: the reader refills a
    // whole word at a time and must not step below the buffer.
    Bytes stream(symbols.size() * 2 + 24);
    detail::BitWriter w(stream.data() + 8);
    std::uint32_t state = 1024; // encoder states run over [N, 2N)
    for (std::size_t i = symbols.size(); i-- > 0;) {
        detail::encodeSymbol(w, state, encoder[symbols[i]]);
        w.flush();
    }
    state -= 1024;
    const int padding = w.finish(stream.data() + stream.size());
    ASSERT_LE(padding, 0);
    detail::BitReader r;
    ASSERT_TRUE(r.init(w.position(), padding, stream.data()));
    for (std::uint8_t expected : symbols) {
        ASSERT_TRUE(r.refill());
        const detail::LiteralEntry e = decoder[state];
        ASSERT_EQ(static_cast<std::uint8_t>(e >> 8), expected);
        state = (e >> 16) + r.take(static_cast<int>(e & 0xff));
    }
    EXPECT_EQ(r.consumedDownTo(stream.data()), 64);
}

} // namespace
} // namespace korv::lzfse
