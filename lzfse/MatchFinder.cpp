// Splitting input into literals and matches for the FSE blocks.
//
// A match is worth taking only if its L, M, D triple codes in fewer bits
// than its bytes would as literals. Both sides are estimated: each byte by
// its frequency in the segment, triples by typical symbol costs plus extra
// bits. On pixel-like data whose literals are costly that rules out most
// short matches, which the format's literal coder beats; on mostly empty
// tiles it still takes every match over the rare costly bytes.
#include "lzfse/Encoder.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace korv::lzfse::detail {

namespace {

inline std::uint32_t hashPrefix(std::uint32_t x, int bits) {
    return (x * 2654435761u) >> (32 - bits);
}


// Costs in sixteenths of a bit.
constexpr int kUnit = 16;
// L and M symbols of a triple amid others, and the D symbol of a new distance.
constexpr int kTripleCost = 6 * kUnit;
constexpr int kNewDistanceCost = 5 * kUnit;
constexpr int kRepeatCost = 1 * kUnit;

inline int mExtraBits(std::uint32_t m) {
    return kMClasses.extraBits[mSymbol(m)];
}

inline int matchCost(std::uint32_t length, std::uint32_t distance, bool repeat) {
    int cost = kTripleCost + mExtraBits(length) * kUnit;
    if (repeat) {
        return cost + kRepeatCost;
    }
    return cost + kNewDistanceCost + kDClasses.extraBits[dSymbol(distance)] * kUnit;
}

struct Candidate {
    std::uint32_t length = 0;
    std::uint32_t distance = 0;
    int gain = 0; // bits saved over literals; a candidate must have gain > 0
};

class Parser {
public:
    // costs[b] is the literal cost of byte value b.
    Parser(const std::uint8_t* src, std::size_t end, const History& history, std::uint32_t repeat,
           const std::uint16_t* costs)
        : src_(src), end_(end), table_(history.table), bits_(history.bits), repeat_(repeat), costs_(costs) {}

    void insert(std::size_t pos) {
        const std::uint32_t x = load32(src_ + pos);
        record(table_[hashPrefix(x, bits_)], pos, x);
    }

    // The best match at pos (pos + 4 <= n), recording pos in the history.
    Candidate search(std::size_t pos) {
        Candidate best;
        const std::size_t limit = end_ - pos;
        if (repeat_ != 0 && repeat_ <= pos) {
            const auto length =
                static_cast<std::uint32_t>(commonLength(src_ + pos, src_ + pos - repeat_, limit));
            consider(best, pos, length, repeat_, true);
        }
        const std::uint32_t x = load32(src_ + pos);
        HashBucket& b = table_[hashPrefix(x, bits_)];
        for (int k = 0; k < kHashWays; ++k) {
            if (b.prefix[k] != x) {
                continue;
            }
            const std::size_t ref = b.pos[k];
            if (ref >= pos || pos - ref > kMaxDValue || pos - ref == repeat_) {
                continue;
            }
            const auto length = static_cast<std::uint32_t>(commonLength(src_ + pos, src_ + ref, limit));
            consider(best, pos, length, static_cast<std::uint32_t>(pos - ref), false);
        }
        record(b, pos, x);
        return best;
    }

    std::uint32_t repeat() const { return repeat_; }
    void setRepeat(std::uint32_t d) { repeat_ = d; }

private:
    // The newest position goes first; the oldest drops out.
    static void record(HashBucket& b, std::size_t pos, std::uint32_t prefix) {
        for (int k = kHashWays - 1; k > 0; --k) {
            b.pos[k] = b.pos[k - 1];
            b.prefix[k] = b.prefix[k - 1];
        }
        b.pos[0] = static_cast<std::uint32_t>(pos);
        b.prefix[0] = prefix;
    }

    void consider(Candidate& best, std::size_t pos, std::uint32_t length, std::uint32_t distance,
                  bool repeat) const {
        if (length == 0) {
            return;
        }
        const int saved = literalCost(pos, length);
        const int gain = saved - matchCost(length, distance, repeat);
        if (gain > best.gain) {
            best = Candidate{length, distance, gain};
        }
    }

    // What the bytes would cost as literals. Past the first few, a match
    // wins by far anyway, so the rest count at the cost of a common byte.
    int literalCost(std::size_t pos, std::uint32_t length) const {
        constexpr std::uint32_t kCounted = 16;
        const std::uint32_t counted = std::min(length, kCounted);
        int sum = 0;
        for (std::uint32_t i = 0; i < counted; ++i) {
            sum += costs_[src_[pos + i]];
        }
        return sum + static_cast<int>(length - counted) * kUnit;
    }

    const std::uint8_t* src_;
    std::size_t end_;
    HashBucket* table_;
    int bits_;
    std::uint32_t repeat_;
    const std::uint16_t* costs_;
};

// The literal cost of each byte value, from its frequency in [start, end).
void literalCosts(const std::uint8_t* src, std::size_t start, std::size_t end, std::uint16_t* cost) {
    std::uint32_t counts[256] = {};
    for (std::size_t i = start; i < end; ++i) {
        ++counts[src[i]];
    }
    const double total = static_cast<double>(end - start);
    for (int b = 0; b < 256; ++b) {
        cost[b] = counts[b] == 0
                      ? 0
                      : static_cast<std::uint16_t>(std::max(1.0, kUnit * std::log2(total / counts[b]) + 0.5));
    }
}

double entropyBits(const std::uint32_t* counts, int symbols) {
    double total = 0;
    double sum = 0;
    for (int s = 0; s < symbols; ++s) {
        if (counts[s] == 0) {
            continue;
        }
        total += counts[s];
        sum += counts[s] * std::log2(static_cast<double>(counts[s]));
    }
    return total > 0 ? total * std::log2(total) - sum : 0;
}

} // namespace

History resetHistory(const std::uint8_t* src, std::size_t n, HashBucket* table) {
    // About one bucket per 4 input bytes.
    const int bits = std::clamp(static_cast<int>(std::bit_width(n)) - 2, 8, kMaxHashBits);
    // Position 0 with its true prefix is a harmless filler: it is a real
    // candidate for any later position, and nothing else needs checking.
    HashBucket filler;
    const std::uint32_t prefix = n >= 4 ? load32(src) : 0;
    for (int k = 0; k < kHashWays; ++k) {
        filler.pos[k] = 0;
        filler.prefix[k] = prefix;
    }
    std::fill(table, table + (std::size_t{1} << bits), filler);
    return History{table, bits};
}

std::size_t parseSegment(const std::uint8_t* src, std::size_t n, std::size_t start, std::size_t end,
                         const History& history, std::uint32_t& repeat, Sequence* out) {
    std::uint16_t costs[256];
    literalCosts(src, start, end, costs);
    Parser parser(src, end, history, repeat, costs);
    std::size_t count = 0;
    std::size_t literalStart = start;
    std::size_t pos = start;
    // Positions with a whole 4-byte prefix in the input.
    const std::size_t last = n >= 4 ? std::min(end, n - 3) : start;

    while (pos < last) {
        Candidate best = parser.search(pos);
        if (best.gain <= 0) {
            // Deep in a run of literals matches are unlikely: look less often,
            // the more so the longer the run.
            pos += 1 + ((pos - literalStart) >> 6);
            continue;
        }
        // One step of lookahead: a better match starting at the next byte wins.
        while (pos + 1 < last) {
            const Candidate next = parser.search(pos + 1);
            if (next.gain <= best.gain) {
                break;
            }
            best = next;
            ++pos;
        }
        // The match may also reach back into its literals.
        std::size_t matchStart = pos;
        while (matchStart > literalStart && matchStart > best.distance &&
               src[matchStart - 1] == src[matchStart - 1 - best.distance]) {
            --matchStart;
            ++best.length;
        }
        out[count++] =
            Sequence{static_cast<std::uint32_t>(matchStart - literalStart), best.length, best.distance};
        parser.setRepeat(best.distance);
        const std::size_t matchEnd = matchStart + best.length;
        // Record the positions inside the match (the first and last few of a
        // long one), skipping the ones already searched.
        const std::size_t insertEnd = std::min(matchEnd, last);
        std::size_t p = pos + 2;
        if (insertEnd > p + 32) {
            for (const std::size_t stop = p + 16; p < stop; ++p) {
                parser.insert(p);
            }
            p = insertEnd - 16;
        }
        for (; p < insertEnd; ++p) {
            parser.insert(p);
        }
        pos = matchEnd;
        literalStart = matchEnd;
    }
    if (literalStart < end) {
        out[count++] = Sequence{static_cast<std::uint32_t>(end - literalStart), 0, 0};
    }
    repeat = parser.repeat();
    return count;
}

std::uint32_t periodicPhases(const std::uint8_t* src, std::size_t start, const Sequence* seqs,
                             std::size_t count, std::uint32_t keep) {
    std::uint32_t equal[kCarvePeriod] = {};
    std::size_t carvable = 0;
    std::size_t pos = start;
    for (std::size_t k = 0; k < count; ++k) {
        const Sequence& s = seqs[k];
        const std::size_t end = pos + s.literals + (s.length < keep ? s.length : 0);
        for (std::size_t i = std::max<std::size_t>(pos, kCarvePeriod); i < end; ++i) {
            equal[i % kCarvePeriod] += src[i] == src[i - kCarvePeriod];
        }
        carvable += end - pos;
        pos += s.literals + s.length;
    }
    // A phase qualifies when at least a third of its carvable bytes repeat.
    std::uint32_t phases = 0;
    for (std::uint32_t p = 0; p < kCarvePeriod; ++p) {
        if (3 * kCarvePeriod * std::size_t{equal[p]} > carvable) {
            phases |= 1u << p;
        }
    }
    return phases;
}

std::size_t carvePeriodic(const std::uint8_t* src, std::size_t start, std::size_t end, const Sequence* in,
                          std::size_t count, std::uint32_t phases, std::uint32_t keep, Sequence* out) {
    constexpr std::uint32_t period = kCarvePeriod;
    std::size_t written = 0;
    std::size_t pos = start;      // input position of in[k]
    std::size_t runStart = start; // first literal not yet in an output sequence
    std::size_t scan = start;     // next literal to examine
    for (std::size_t k = 0; k < count; ++k) {
        const Sequence& s = in[k];
        const bool kept = s.length >= keep;
        const std::size_t runEnd = pos + s.literals + (kept ? 0 : s.length);
        for (std::size_t i = std::max<std::size_t>(scan, period); i < runEnd;) {
            if ((phases >> (i % period) & 1) == 0 || src[i] != src[i - period]) {
                ++i;
                continue;
            }
            std::size_t j = i + 1;
            while (j < runEnd && src[j] == src[j - period]) {
                ++j;
            }
            out[written++] =
                Sequence{static_cast<std::uint32_t>(i - runStart), static_cast<std::uint32_t>(j - i), period};
            runStart = j;
            i = j;
        }
        scan = runEnd;
        if (kept) {
            out[written++] = Sequence{static_cast<std::uint32_t>(runEnd - runStart), s.length, s.distance};
            runStart = runEnd + s.length;
            scan = runStart;
        }
        pos += s.literals + s.length;
    }
    if (runStart < end) {
        out[written++] = Sequence{static_cast<std::uint32_t>(end - runStart), 0, 0};
    }
    return written;
}

double estimateBits(const std::uint8_t* src, std::size_t start, const Sequence* seqs, std::size_t count) {
    std::uint32_t literals[kLiteralSymbols] = {};
    std::uint32_t l[kLSymbols] = {};
    std::uint32_t m[kMSymbols] = {};
    std::uint32_t d[kDSymbols] = {};
    double extra = 0;
    std::uint32_t previous = 0;
    std::size_t pos = start;
    for (std::size_t k = 0; k < count; ++k) {
        const Sequence& s = seqs[k];
        for (std::size_t i = pos; i < pos + s.literals; ++i) {
            ++literals[src[i]];
        }
        // Long runs and matches take several triples; counting one is close
        // enough to compare two ways of parsing the same bytes.
        const std::uint32_t lv = std::min(s.literals, kMaxLValue);
        const std::uint32_t mv = std::min(s.length, kMaxMValue);
        const std::uint32_t dv = s.length == 0 || s.distance == previous ? 0 : s.distance;
        if (s.length != 0) {
            previous = s.distance;
        }
        const int ls = lSymbol(lv);
        const int ms = mSymbol(mv);
        const int ds = dSymbol(dv);
        ++l[ls];
        ++m[ms];
        ++d[ds];
        extra += kLClasses.extraBits[ls] + kMClasses.extraBits[ms] + kDClasses.extraBits[ds];
        pos += s.literals + s.length;
    }
    int usedLiterals = 0;
    for (std::uint32_t c : literals) {
        usedLiterals += c != 0;
    }
    // The header's lists cost a few bits per used symbol.
    const double tables = 6.0 * usedLiterals;
    return entropyBits(literals, kLiteralSymbols) + entropyBits(l, kLSymbols) + entropyBits(m, kMSymbols) +
           entropyBits(d, kDSymbols) + extra + tables;
}

} // namespace korv::lzfse::detail
