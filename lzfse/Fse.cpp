#include "lzfse/Fse.h"

#include <algorithm>
#include <bit>

namespace korv::lzfse::detail {

namespace {

// Shift that brings f into [N, 2N): the number of bits a state of this symbol
// reads when it sits in the symbol's lower range.
int shiftFor(int f, int states) {
    return std::countl_zero(static_cast<std::uint32_t>(f)) -
           std::countl_zero(static_cast<std::uint32_t>(states));
}

} // namespace

int checkedFrequencySum(const std::uint16_t* freq, int symbols, int states) {
    int sum = 0;
    for (int s = 0; s < symbols; ++s) {
        sum += freq[s];
        if (sum > states) {
            return -1;
        }
    }
    return sum;
}

// For symbol s with f states and shift k, its j-th state moves to one of 2^k
// states when j < j0 = 2N/2^k - f, else to one of 2^(k-1); the target ranges
// of its f states tile [0, N) exactly, which keeps every move in the table.
void buildLiteralDecoder(const std::uint16_t* freq, LiteralEntry* table) {
    constexpr int n = kLiteralStates;
    int next = 0;
    for (int s = 0; s < kLiteralSymbols; ++s) {
        const int f = freq[s];
        if (f == 0) {
            continue;
        }
        const int k = shiftFor(f, n);
        const int j0 = ((2 * n) >> k) - f;
        for (int j = 0; j < f; ++j) {
            int bits;
            int delta;
            if (j < j0) {
                bits = k;
                delta = ((f + j) << k) - n;
            } else {
                bits = k - 1;
                delta = (j - j0) << (k - 1);
            }
            table[next++] = static_cast<LiteralEntry>(bits) | static_cast<LiteralEntry>(s) << 8 |
                            static_cast<LiteralEntry>(delta) << 16;
        }
    }
    std::fill(table + next, table + n, LiteralEntry{0});
}

void buildValueDecoder(const std::uint16_t* freq, int symbols, int states, const std::uint8_t* extraBits,
                       const std::uint32_t* base, ValueEntry* table) {
    int next = 0;
    for (int s = 0; s < symbols; ++s) {
        const int f = freq[s];
        if (f == 0) {
            continue;
        }
        const int k = shiftFor(f, states);
        const int j0 = ((2 * states) >> k) - f;
        for (int j = 0; j < f; ++j) {
            ValueEntry e;
            e.extraBits = extraBits[s];
            e.base = base[s];
            if (j < j0) {
                e.totalBits = static_cast<std::uint8_t>(k + extraBits[s]);
                e.delta = static_cast<std::uint16_t>(((f + j) << k) - states);
            } else {
                e.totalBits = static_cast<std::uint8_t>(k - 1 + extraBits[s]);
                e.delta = static_cast<std::uint16_t>((j - j0) << (k - 1));
            }
            table[next++] = e;
        }
    }
    std::fill(table + next, table + states, ValueEntry{0, 0, 0, 0});
}

void buildEncoder(const std::uint16_t* freq, int symbols, int states, EncoderEntry* table) {
    int offset = 0;
    for (int s = 0; s < symbols; ++s) {
        const int f = freq[s];
        if (f == 0) {
            table[s] = EncoderEntry{0, 0};
            continue;
        }
        // Unsigned wrap-around is intended: x + nbitsDelta lands in
        // [k << 16, (k + 1) << 16) or just below it.
        const int k = shiftFor(f, states);
        table[s].nbitsDelta = (static_cast<std::uint32_t>(k) << 16) - (static_cast<std::uint32_t>(f) << k);
        table[s].stateDelta = static_cast<std::uint32_t>(offset - f + states);
        offset += f;
    }
}

// Rounds each count to its share of the states, then settles the difference
// one state at a time where it costs the fewest bits. Moving one state to
// symbol s changes its cost by about count/(f + 1/2) bits per unit of
// log2, so comparing count/(f +- 1/2) picks the cheapest adjustment without
// computing logarithms.
void normalizeCounts(const std::uint32_t* counts, int symbols, int states, std::uint16_t* freq) {
    std::uint64_t total = 0;
    for (int s = 0; s < symbols; ++s) {
        total += counts[s];
    }
    if (total == 0) {
        std::fill(freq, freq + symbols, std::uint16_t{0});
        freq[0] = static_cast<std::uint16_t>(states);
        return;
    }

    int assigned = 0;
    for (int s = 0; s < symbols; ++s) {
        if (counts[s] == 0) {
            freq[s] = 0;
            continue;
        }
        std::uint64_t f =
            (std::uint64_t{counts[s]} * static_cast<unsigned>(states) * 2 + total) / (2 * total);
        f = std::clamp<std::uint64_t>(f, 1, static_cast<std::uint64_t>(states));
        freq[s] = static_cast<std::uint16_t>(f);
        assigned += static_cast<int>(f);
    }

    auto gainOfAdding = [&](int s) { return static_cast<double>(counts[s]) / (freq[s] + 0.5); };
    auto lossOfRemoving = [&](int s) { return static_cast<double>(counts[s]) / (freq[s] - 0.5); };
    auto bestToAdd = [&] {
        int best = -1;
        double bestGain = -1;
        for (int s = 0; s < symbols; ++s) {
            if (counts[s] == 0) {
                continue;
            }
            const double g = gainOfAdding(s);
            if (g > bestGain) {
                bestGain = g;
                best = s;
            }
        }
        return best;
    };
    auto bestToRemove = [&] {
        int best = -1;
        double bestLoss = 0;
        for (int s = 0; s < symbols; ++s) {
            if (freq[s] <= 1) {
                continue;
            }
            const double l = lossOfRemoving(s);
            if (best < 0 || l < bestLoss) {
                bestLoss = l;
                best = s;
            }
        }
        return best;
    };

    // Too many states assigned can happen only through the floor of 1; there is
    // always a symbol above 1 to take from, since used symbols <= states.
    while (assigned > states) {
        const int s = bestToRemove();
        --freq[s];
        --assigned;
    }
    while (assigned < states) {
        const int s = bestToAdd();
        ++freq[s];
        ++assigned;
    }
    // Rounding is per symbol; a few exchanges recover what it lost overall.
    for (int round = 0; round < 32; ++round) {
        const int to = bestToAdd();
        const int from = bestToRemove();
        if (from < 0 || from == to || gainOfAdding(to) <= lossOfRemoving(from) * 1.000001) {
            break;
        }
        ++freq[to];
        --freq[from];
    }
}

} // namespace korv::lzfse::detail
