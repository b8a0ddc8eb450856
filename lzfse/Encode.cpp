// The encoding entry points.
//
// Input is parsed in segments; each segment's sequences go out as FSE
// blocks, spread evenly over as few blocks as their limits allow, and a block
// that would not shrink its bytes is stored raw instead. Small inputs are also
// tried as a single LZVN block, and the smaller stream is kept. No stream is
// ever larger than the whole input stored raw.
#include "lzfse/Encoder.h"
#include "lzfse/Lzfse.h"

#include <algorithm>
#include <memory>
#include <new>

namespace korv::lzfse {

using namespace detail;

namespace {

// Below this, LZVN is tried too; FSE tables cost more than they save there.
constexpr std::size_t kLzvnThreshold = 4096;
// Below this, an FSE block cannot win over its own header.
constexpr std::size_t kFseMinInput = 64;
// Block sizes and positions are 32-bit in the stream and in the match finder.
constexpr std::size_t kMaxInput = 0xffffffffu - kSegmentBytes;
// Matches at least this long survive carving; shorter ones mostly break the
// regular pattern of triples that makes carving cheap.
constexpr std::uint32_t kKeepAcrossCarving = 8;

struct Scratch {
    EncoderScratch encoder;
    std::uint8_t lzvnOut[kLzvnThreshold + kLzvnHeaderSize + 64];
};

class BlockWriter {
public:
    BlockWriter(std::uint8_t* dst, std::uint8_t* end, const std::uint8_t* src, std::size_t n,
                FseBlockScratch& block)
        : pos_(dst), end_(end), src_(src), srcEnd_(src + n), block_(block) {}

    bool ok() const { return ok_; }
    std::uint8_t* position() const { return pos_; }

    // Adds the sequences of the next segment. A segment joins the pending
    // block when it fits; otherwise the pending block goes out and the segment
    // is spread evenly over as few blocks as its triples and literals need, the
    // last staying open for what follows.
    void writeSegment(const Sequence* seqs, std::size_t count) {
        std::uint64_t triples = 0;
        std::uint64_t literals = 0;
        for (std::size_t k = 0; k < count; ++k) {
            triples += triplesFor(seqs[k]);
            literals += seqs[k].literals;
        }
        if (count_ + triples > kMaxMatchesPerBlock || literals_ + literals > kMaxLiteralsPerBlock) {
            flush();
            const std::uint64_t blocks =
                std::max({std::uint64_t{1}, (triples + kMaxMatchesPerBlock - 1) / kMaxMatchesPerBlock,
                          (literals + kMaxLiteralsPerBlock - 1) / kMaxLiteralsPerBlock});
            target_ = static_cast<std::uint32_t>((triples + blocks - 1) / blocks);
        }

        std::size_t pos = blockStart_ + raw_;
        for (std::size_t k = 0; k < count && ok_; ++k) {
            const Sequence& s = seqs[k];
            const std::uint8_t* lit = src_ + pos;
            std::uint32_t l = s.literals;
            std::uint32_t m = s.length;
            for (; l > kMaxLValue; l -= kMaxLValue) {
                add(kMaxLValue, 0, 0, lit);
            }
            if (m == 0) {
                if (l != 0) {
                    add(l, 0, 0, lit);
                }
            } else {
                const std::uint32_t first = std::min(m, kMaxMValue);
                add(l, first, s.distance, lit);
                for (m -= first; m > 0;) {
                    const std::uint32_t part = std::min(m, kMaxMValue);
                    add(0, part, s.distance, lit);
                    m -= part;
                }
            }
            pos += s.literals + s.length;
        }
        target_ = kMaxMatchesPerBlock;
    }

    void finish() {
        flush();
        if (!ok_ || end_ - pos_ < 4) {
            ok_ = false;
            return;
        }
        store32(pos_, kMagicEndOfStream);
        pos_ += 4;
    }

private:
    static std::uint64_t triplesFor(const Sequence& s) {
        const std::uint64_t literalOnly = s.literals > kMaxLValue ? (s.literals - 1) / kMaxLValue : 0;
        const std::uint32_t rest = s.literals - static_cast<std::uint32_t>(literalOnly) * kMaxLValue;
        if (s.length == 0) {
            return literalOnly + (rest != 0);
        }
        return literalOnly + (s.length + kMaxMValue - 1) / kMaxMValue;
    }

    void add(std::uint32_t l, std::uint32_t m, std::uint32_t d, const std::uint8_t*& lit) {
        if (count_ == target_ || count_ == kMaxMatchesPerBlock || literals_ + l > kMaxLiteralsPerBlock) {
            flush();
        }
        std::uint8_t* to = block_.literals + literals_;
        if (l <= 16 && static_cast<std::size_t>(srcEnd_ - lit) >= 16) {
            std::memcpy(to, lit, 16); // most runs are short; the buffer has room to spare
        } else {
            std::memcpy(to, lit, l);
        }
        lit += l;
        block_.triples[count_++] = Triple{l, m, d};
        literals_ += l;
        raw_ += l + m;
    }

    void flush() {
        if (count_ == 0 || !ok_) {
            return;
        }
        const std::size_t size = writeFseBlock(pos_, end_, count_, literals_, raw_, block_);
        if (size != 0 && size < kRawHeaderSize + raw_) {
            pos_ += size;
        } else if (static_cast<std::size_t>(end_ - pos_) >= kRawHeaderSize + raw_) {
            store32(pos_, kMagicRaw);
            store32(pos_ + 4, raw_);
            std::memcpy(pos_ + kRawHeaderSize, src_ + blockStart_, raw_);
            pos_ += kRawHeaderSize + raw_;
        } else {
            ok_ = false;
        }
        blockStart_ += raw_;
        count_ = 0;
        literals_ = 0;
        raw_ = 0;
    }

    std::uint8_t* pos_;
    std::uint8_t* end_;
    const std::uint8_t* src_;
    const std::uint8_t* srcEnd_;
    FseBlockScratch& block_;
    std::size_t blockStart_ = 0;
    std::uint32_t target_ = kMaxMatchesPerBlock;
    std::uint32_t count_ = 0;
    std::uint32_t literals_ = 0;
    std::uint32_t raw_ = 0;
    bool ok_ = true;
};

// Picks, for one segment, the cheaper of the parse as found and its carved
// form, leaving the choice in s.carved unless it is the parse itself.
const Sequence* chooseParse(const std::uint8_t* src, std::size_t start, std::size_t end, std::size_t& count,
                            EncoderScratch& s) {
    // Only the phases that repeat often are carved: carving the others
    // mostly splits literal runs for little gain.
    const std::uint32_t phases = periodicPhases(src, start, s.parsed, count, kKeepAcrossCarving);
    if (phases == 0) {
        return s.parsed;
    }
    const std::size_t carved =
        carvePeriodic(src, start, end, s.parsed, count, phases, kKeepAcrossCarving, s.carved);
    if (estimateBits(src, start, s.carved, carved) >= estimateBits(src, start, s.parsed, count)) {
        return s.parsed;
    }
    count = carved;
    return s.carved;
}

std::size_t encodeFse(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t n,
                      EncoderScratch& s) {
    const History history = resetHistory(src, n, s.table);
    BlockWriter out(dst, dst + dstCapacity, src, n, s.block);
    std::uint32_t repeat = 0;
    for (std::size_t start = 0; start < n && out.ok();) {
        const std::size_t end = std::min(n, start + kSegmentBytes);
        std::size_t count = parseSegment(src, n, start, end, history, repeat, s.parsed);
        const Sequence* seqs = chooseParse(src, start, end, count, s);
        out.writeSegment(seqs, count);
        start = end;
    }
    out.finish();
    return out.ok() ? static_cast<std::size_t>(out.position() - dst) : 0;
}

std::size_t encodeRaw(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t n) {
    if (dstCapacity < n + kRawHeaderSize + 4) {
        return 0;
    }
    store32(dst, kMagicRaw);
    store32(dst + 4, static_cast<std::uint32_t>(n));
    if (n != 0) {
        std::memcpy(dst + kRawHeaderSize, src, n);
    }
    store32(dst + kRawHeaderSize + n, kMagicEndOfStream);
    return n + kRawHeaderSize + 4;
}

} // namespace

std::size_t encodeScratchSize() noexcept {
    return sizeof(Scratch) + kScratchAlign;
}

std::size_t encode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t srcSize,
                   void* scratch) noexcept {
    if (srcSize > kMaxInput) {
        return 0;
    }
    if (srcSize == 0) {
        if (dstCapacity < 4) {
            return 0;
        }
        store32(dst, kMagicEndOfStream);
        return 4;
    }
    const std::size_t rawSize = srcSize + kRawHeaderSize + 4;
    // Too short for any instruction to pay for itself.
    if (srcSize < 8) {
        return encodeRaw(dst, dstCapacity, src, srcSize);
    }

    std::unique_ptr<std::uint8_t[]> owned;
    if (scratch == nullptr) {
        owned.reset(new (std::nothrow) std::uint8_t[encodeScratchSize()]);
        if (!owned) {
            return 0;
        }
        scratch = owned.get();
    }
    Scratch& s = *alignedScratch<Scratch>(scratch);

    // Nothing larger than the raw form is worth writing.
    const std::size_t room = std::min(dstCapacity, rawSize);
    std::size_t size = srcSize >= kFseMinInput ? encodeFse(dst, room, src, srcSize, s.encoder) : 0;

    if (srcSize < kLzvnThreshold) {
        const std::size_t limit = std::min(size != 0 ? size : room, sizeof(s.lzvnOut));
        if (limit > kLzvnHeaderSize + 4) {
            const std::size_t payload = encodeLzvn(s.lzvnOut + kLzvnHeaderSize, limit - kLzvnHeaderSize - 4,
                                                   src, srcSize, s.encoder.lzvnTable);
            const std::size_t total = kLzvnHeaderSize + payload + 4;
            if (payload != 0 && (size == 0 || total < size)) {
                store32(s.lzvnOut, kMagicLzvn);
                store32(s.lzvnOut + 4, static_cast<std::uint32_t>(srcSize));
                store32(s.lzvnOut + 8, static_cast<std::uint32_t>(payload));
                store32(s.lzvnOut + kLzvnHeaderSize + payload, kMagicEndOfStream);
                std::memcpy(dst, s.lzvnOut, total);
                size = total;
            }
        }
    }
    if (size == 0 || size >= rawSize) {
        return encodeRaw(dst, dstCapacity, src, srcSize);
    }
    return size;
}

std::size_t encode(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src,
                   std::size_t srcSize) noexcept {
    return encode(dst, dstCapacity, src, srcSize, nullptr);
}

} // namespace korv::lzfse
