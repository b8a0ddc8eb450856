#pragma once
// LZFSE compression of byte buffers: the one-shot calls the document format
// uses for its tiles, readable and writable by any conforming LZFSE codec.
//
// Every call is thread-safe: the codec keeps no state between calls, and the
// only memory it touches besides the caller's buffers is its scratch space,
// either allocated per call or passed in (one scratch buffer per thread).

#include <cstddef>
#include <cstdint>
#include <optional>

namespace korv::lzfse {

// Bytes of scratch space the scratch-taking overloads need (any alignment).
std::size_t encodeScratchSize() noexcept;
std::size_t decodeScratchSize() noexcept;

// Compresses src into dst. Returns the stream's size, or 0 when it does not
// fit in dstCapacity (encodeBound(srcSize) always suffices) or scratch cannot be
// allocated. The stream never exceeds the raw-block form of the input.
std::size_t encode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src,
                   std::size_t srcSize) noexcept;
std::size_t encode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t srcSize,
                   void* scratch) noexcept;

// Worst-case size of encode()'s output for srcSize bytes of input.
constexpr std::size_t encodeBound(std::size_t srcSize) noexcept {
    return srcSize + 12;
}

enum class DecodeStatus {
    ok,
    truncated,   // the input ends before the end-of-stream block
    corrupt,     // a block is malformed or inconsistent
    dstTooSmall, // the stream holds more bytes than dstCapacity
    noMemory,    // scratch space could not be allocated
};

struct DecodeResult {
    std::size_t size = 0; // bytes written to dst; meaningful only when ok
    DecodeStatus status = DecodeStatus::corrupt;
    bool ok() const { return status == DecodeStatus::ok; }
};

// Decompresses one stream; bytes after its end-of-stream block are ignored.
// On failure dst may hold anything.
DecodeResult decodeChecked(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src,
                           std::size_t srcSize, void* scratch = nullptr) noexcept;

// The platform-shaped form of decodeChecked: bytes written, 0 on failure
// (and for a stream that holds no bytes).
std::size_t decode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src,
                   std::size_t srcSize) noexcept;
std::size_t decode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t srcSize,
                   void* scratch) noexcept;

// The decoded size the block headers announce, found without decoding; empty
// when the headers are truncated, unknown, or announce more than their
// payloads could produce. A stream with a size can still fail to decode.
std::optional<std::size_t> decodedSize(const std::uint8_t* src, std::size_t srcSize) noexcept;

} // namespace korv::lzfse
