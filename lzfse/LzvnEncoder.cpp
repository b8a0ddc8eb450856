// LZVN encoding, for inputs too small to carry the tables of an FSE block.
// Matching with one step of lookahead over the last few positions of each
// 3-byte prefix, plus the previous distance, which LZVN codes in the opcode.
#include "lzfse/Encoder.h"

#include <algorithm>
#include <bit>

namespace korv::lzfse::detail {

namespace {

// Three bytes: LZVN codes a match of 3 in 2 bytes at short distances.
inline std::uint32_t hashPrefix(std::uint32_t x) {
    return ((x & 0xffffff) * 2654435761u) >> (32 - kLzvnHashBits);
}


constexpr std::size_t kMaxDistance = 0xffff;
constexpr std::size_t kMinMatch = 3;

class Writer {
public:
    Writer(std::uint8_t* dst, std::size_t capacity) : out_(dst), end_(dst + capacity) {}

    bool ok() const { return ok_; }
    std::uint8_t* position() const { return out_; }

    void literals(const std::uint8_t* p, std::size_t l) {
        while (l > 0) {
            const std::size_t n = std::min<std::size_t>(l, 271);
            if (!room(n + (n < 16 ? 1 : 2))) {
                return;
            }
            if (n < 16) {
                *out_++ = static_cast<std::uint8_t>(0xe0 | n);
            } else {
                *out_++ = 0xe0;
                *out_++ = static_cast<std::uint8_t>(n - 16);
            }
            std::memcpy(out_, p, n);
            out_ += n;
            p += n;
            l -= n;
        }
    }

    // Up to 3 literals ride in the match's opcode; longer runs go first on
    // their own. The opcodes that carry both share their first byte's values
    // with other instructions, which caps the match length they can hold at
    // 10 - 2L (more goes in follow-up match-only instructions).
    void match(const std::uint8_t* lit, std::size_t l, std::size_t m, std::size_t d) {
        if (l > 3) {
            literals(lit, l);
            lit += l;
            l = 0;
        }
        const bool repeat = d == previous_;
        const bool medium = !repeat && d >= 1536 && d < 16384 && m <= 34;
        const std::size_t opBytes = repeat ? (l == 0 ? 0 : 1) : d < 1536 ? 2 : 3;
        if (!room(opBytes + l)) {
            return;
        }
        std::size_t first = std::min(m, 10 - 2 * l);
        const auto lBits = static_cast<unsigned>(l << 6);
        if (repeat) {
            if (l == 0) {
                first = 0; // all of it in match-only instructions
            } else {
                *out_++ = static_cast<std::uint8_t>(lBits | (first - 3) << 3 | 6);
            }
        } else if (d < 1536) {
            *out_++ = static_cast<std::uint8_t>(lBits | (first - 3) << 3 | d >> 8);
            *out_++ = static_cast<std::uint8_t>(d);
        } else if (medium) {
            first = m;
            *out_++ = static_cast<std::uint8_t>(0xa0 | l << 3 | (first - 3) >> 2);
            store16(out_, static_cast<std::uint16_t>(d << 2 | ((first - 3) & 3)));
            out_ += 2;
        } else {
            *out_++ = static_cast<std::uint8_t>(lBits | (first - 3) << 3 | 7);
            store16(out_, static_cast<std::uint16_t>(d));
            out_ += 2;
        }
        std::memcpy(out_, lit, l);
        out_ += l;
        previous_ = d;
        for (m -= first; m > 0;) {
            const std::size_t n = std::min<std::size_t>(m, 271);
            if (!room(n < 16 ? 1 : 2)) {
                return;
            }
            if (n < 16) {
                *out_++ = static_cast<std::uint8_t>(0xf0 | n);
            } else {
                *out_++ = 0xf0;
                *out_++ = static_cast<std::uint8_t>(n - 16);
            }
            m -= n;
        }
    }

    void endOfStream() {
        if (!room(8)) {
            return;
        }
        store64(out_, 0x06);
        out_ += 8;
    }

private:
    bool room(std::size_t bytes) {
        if (ok_ && static_cast<std::size_t>(end_ - out_) >= bytes) {
            return true;
        }
        ok_ = false;
        return false;
    }

    std::uint8_t* out_;
    std::uint8_t* end_;
    std::size_t previous_ = 0;
    bool ok_ = true;
};

struct Match {
    std::size_t start = 0;
    std::size_t length = 0;
    std::size_t distance = 0;
    long gain = 0; // bytes saved: length less the instruction's bytes
};

// Search state over one input: a bucket of the last kLzvnWays positions per
// 3-byte prefix (positions + 1, 0 meaning empty), and the previous distance.
class Searcher {
public:
    Searcher(const std::uint8_t* src, std::size_t n, std::uint32_t* table) : src_(src), n_(n), table_(table) {
        std::fill(table, table + (std::size_t{kLzvnWays} << kLzvnHashBits), 0u);
    }

    // Best match at pos (which gets recorded), reaching back no further than
    // literalStart.
    Match search(std::size_t pos, std::size_t literalStart, std::size_t repeat) {
        Match best;
        if (repeat != 0 && repeat <= pos) {
            consider(best, pos, pos - repeat, literalStart, 1);
        }
        std::uint32_t* bucket = table_ + (std::size_t{hashPrefix(load32(src_ + pos))} * kLzvnWays);
        for (int k = 0; k < kLzvnWays; ++k) {
            if (bucket[k] == 0) {
                break;
            }
            const std::size_t ref = bucket[k] - 1;
            const std::size_t d = pos - ref;
            if (d > kMaxDistance || d == repeat) {
                continue;
            }
            consider(best, pos, ref, literalStart, d < 1536 ? 2 : 3);
        }
        insert(pos);
        return best;
    }

    void insert(std::size_t pos) {
        std::uint32_t* bucket = table_ + (std::size_t{hashPrefix(load32(src_ + pos))} * kLzvnWays);
        for (int k = kLzvnWays - 1; k > 0; --k) {
            bucket[k] = bucket[k - 1];
        }
        bucket[0] = static_cast<std::uint32_t>(pos + 1);
    }

private:
    void consider(Match& best, std::size_t pos, std::size_t ref, std::size_t literalStart, long cost) const {
        std::size_t length = commonLength(src_ + pos, src_ + ref, n_ - pos);
        if (length < kMinMatch) {
            return;
        }
        // Reaching back over literals is free: they would have cost a byte each.
        std::size_t start = pos;
        while (start > literalStart && ref > 0 && src_[start - 1] == src_[ref - 1]) {
            --start;
            --ref;
            ++length;
        }
        const long gain = static_cast<long>(length) - cost;
        if (gain > best.gain) {
            best = Match{start, length, start - ref, gain};
        }
    }

    const std::uint8_t* src_;
    std::size_t n_;
    std::uint32_t* table_;
};

} // namespace

std::size_t encodeLzvn(std::uint8_t* dst, std::size_t dstCapacity, const std::uint8_t* src, std::size_t n,
                       std::uint32_t* table) {
    Writer out(dst, dstCapacity);
    std::size_t literalStart = 0;
    if (n >= 4 && n <= kLzvnMaxInput) {
        Searcher searcher(src, n, table);
        std::size_t repeat = 0;
        const std::size_t last = n - 3;
        std::size_t pos = 0;
        while (pos < last && out.ok()) {
            Match best = searcher.search(pos, literalStart, repeat);
            if (best.gain <= 0) {
                ++pos;
                continue;
            }
            // A better match one byte on wins over this one.
            while (pos + 1 < last) {
                const Match next = searcher.search(pos + 1, literalStart, repeat);
                if (next.gain <= best.gain) {
                    break;
                }
                best = next;
                ++pos;
            }
            out.match(src + literalStart, best.start - literalStart, best.length, best.distance);
            repeat = best.distance;
            const std::size_t matchEnd = best.start + best.length;
            for (std::size_t p = pos + 2; p < std::min(matchEnd, last); ++p) {
                searcher.insert(p);
            }
            pos = matchEnd;
            literalStart = matchEnd;
        }
    }
    out.literals(src + literalStart, n - literalStart);
    out.endOfStream();
    return out.ok() ? static_cast<std::size_t>(out.position() - dst) : 0;
}

} // namespace korv::lzfse::detail
