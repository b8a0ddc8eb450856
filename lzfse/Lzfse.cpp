// The decoding entry points: the walk over a stream's blocks.
#include "lzfse/Lzfse.h"

#include "lzfse/Decoder.h"

#include <cstring>
#include <memory>
#include <new>

namespace korv::lzfse {

using namespace detail;

namespace {

// Most output an LZVN payload byte can stand for: a two-byte instruction
// repeats up to 271 bytes.
constexpr std::uint64_t kLzvnMaxExpansion = 136;
// Most output one L, M, D triple can stand for.
constexpr std::uint64_t kMaxBytesPerMatch = kMaxLValue + kMaxMValue;

} // namespace

std::size_t decodeScratchSize() noexcept {
    return sizeof(FseDecoderScratch) + kScratchAlign;
}

DecodeResult decodeChecked(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src,
                           std::size_t srcSize, void* scratch) noexcept {
    Output out{dst, dst, dst + dstCapacity};
    const std::uint8_t* p = src;
    const std::uint8_t* const end = src + srcSize;
    std::unique_ptr<std::uint8_t[]> owned;
    FseDecoderScratch* fse = nullptr;

    for (;;) {
        const std::size_t available = static_cast<std::size_t>(end - p);
        if (available < 4) {
            return {0, DecodeStatus::truncated};
        }
        const std::size_t room = static_cast<std::size_t>(out.end - out.pos);
        switch (load32(p)) {
        case kMagicEndOfStream:
            return {static_cast<std::size_t>(out.pos - dst), DecodeStatus::ok};

        case kMagicRaw: {
            if (available < kRawHeaderSize) {
                return {0, DecodeStatus::truncated};
            }
            const std::size_t raw = load32(p + 4);
            if (available - kRawHeaderSize < raw) {
                return {0, DecodeStatus::truncated};
            }
            if (raw > room) {
                return {0, DecodeStatus::dstTooSmall};
            }
            if (raw != 0) {
                std::memcpy(out.pos, p + kRawHeaderSize, raw);
            }
            out.pos += raw;
            p += kRawHeaderSize + raw;
            break;
        }

        case kMagicLzvn: {
            if (available < kLzvnHeaderSize) {
                return {0, DecodeStatus::truncated};
            }
            const std::size_t raw = load32(p + 4);
            const std::size_t payload = load32(p + 8);
            if (available - kLzvnHeaderSize < payload) {
                return {0, DecodeStatus::truncated};
            }
            if (raw > room) {
                return {0, DecodeStatus::dstTooSmall};
            }
            const DecodeStatus s = decodeLzvn(p + kLzvnHeaderSize, payload, raw, out);
            if (s != DecodeStatus::ok) {
                return {0, s};
            }
            p += kLzvnHeaderSize + payload;
            break;
        }

        case kMagicFseV1:
        case kMagicFseV2: {
            FseBlockHeader h;
            if (const DecodeStatus s = readFseHeader(p, available, h); s != DecodeStatus::ok) {
                return {0, s};
            }
            if (fse == nullptr) {
                if (scratch == nullptr) {
                    owned.reset(new (std::nothrow) std::uint8_t[decodeScratchSize()]);
                    if (!owned) {
                        return {0, DecodeStatus::noMemory};
                    }
                    scratch = owned.get();
                }
                fse = alignedScratch<FseDecoderScratch>(scratch);
            }
            if (const DecodeStatus s = decodeFseBlock(p, h, out, *fse); s != DecodeStatus::ok) {
                return {0, s};
            }
            p += h.headerBytes + h.literalPayloadBytes + h.lmdPayloadBytes;
            break;
        }

        default:
            return {0, DecodeStatus::corrupt};
        }
    }
}

std::size_t decode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t srcSize,
                   void* scratch) noexcept {
    const DecodeResult r = decodeChecked(dst, dstCapacity, src, srcSize, scratch);
    return r.ok() ? r.size : 0;
}

std::size_t decode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src,
                   std::size_t srcSize) noexcept {
    return decode(dst, dstCapacity, src, srcSize, nullptr);
}

std::optional<std::size_t> decodedSize(const std::uint8_t* src, std::size_t srcSize) noexcept {
    std::uint64_t total = 0;
    const std::uint8_t* p = src;
    const std::uint8_t* const end = src + srcSize;
    for (;;) {
        const std::size_t available = static_cast<std::size_t>(end - p);
        if (available < 4) {
            return std::nullopt;
        }
        switch (load32(p)) {
        case kMagicEndOfStream:
            if (total > SIZE_MAX) {
                return std::nullopt;
            }
            return static_cast<std::size_t>(total);
        case kMagicRaw: {
            if (available < kRawHeaderSize) {
                return std::nullopt;
            }
            const std::size_t raw = load32(p + 4);
            if (available - kRawHeaderSize < raw) {
                return std::nullopt;
            }
            total += raw;
            p += kRawHeaderSize + raw;
            break;
        }
        case kMagicLzvn: {
            if (available < kLzvnHeaderSize) {
                return std::nullopt;
            }
            const std::size_t raw = load32(p + 4);
            const std::size_t payload = load32(p + 8);
            if (available - kLzvnHeaderSize < payload || raw > payload * kLzvnMaxExpansion) {
                return std::nullopt;
            }
            total += raw;
            p += kLzvnHeaderSize + payload;
            break;
        }
        case kMagicFseV1:
        case kMagicFseV2: {
            FseBlockHeader h;
            if (readFseHeader(p, available, h) != DecodeStatus::ok ||
                h.rawBytes > h.matches * kMaxBytesPerMatch) {
                return std::nullopt;
            }
            total += h.rawBytes;
            p += h.headerBytes + h.literalPayloadBytes + h.lmdPayloadBytes;
            break;
        }
        default:
            return std::nullopt;
        }
    }
}

} // namespace korv::lzfse
