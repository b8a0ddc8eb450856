#pragma once
// Helpers for the LZFSE tests: the test vectors, and an independent reading
// and rewriting of block headers, so that tests can inspect what the encoder
// wrote and feed the decoder streams no encoder of ours produces.

#include "lzfse/Lzfse.h"

#include <cstdint>
#include <string>
#include <vector>

namespace korv::lzfse::test {

using Bytes = std::vector<std::uint8_t>;

// NAME.raw / NAME.lzfse from the shared vectors folder; fails the test if absent.
Bytes readVector(const std::string& name, const std::string& extension);

Bytes encodeBytes(const Bytes& raw);
// Decodes into a buffer of exactly `capacity` bytes followed by guard bytes,
// and fails the test if the decoder touched the guard.
DecodeResult decodeBytes(const Bytes& stream, std::size_t capacity, Bytes& out);

std::uint32_t magicOf(const char (&text)[5]);

struct Block {
    std::uint32_t magic = 0;
    std::size_t offset = 0;
    std::size_t size = 0; // header and payload
    std::uint32_t rawBytes = 0;
    // bvx2 only
    std::uint32_t literals = 0;
    std::uint32_t matches = 0;
    std::uint32_t lmdPayloadBytes = 0;
};

// The blocks up to and including the end-of-stream block; stops early on a
// block it cannot read.
std::vector<Block> walkBlocks(const Bytes& stream);

// The same stream with every bvx2 block rewritten in the v1 form, whose
// header stores each field and frequency plainly.
Bytes withV1Headers(const Bytes& stream);

void put32(Bytes& b, std::size_t at, std::uint32_t v);
std::uint32_t get32(const Bytes& b, std::size_t at);

} // namespace korv::lzfse::test
