#pragma once
// Small helpers for per-pixel loops that must vectorise.
#include <bit>
#include <cstdint>

// Hot pixel loops are compiled twice, for AVX2 and for the x86-64 baseline,
// and the loader picks one for the processor. Without contraction to fused
// multiply-adds both give the same bits.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__)
#define KORV_PIXEL_LOOP __attribute__((target_clones("avx2", "default")))
#else
#define KORV_PIXEL_LOOP
#endif

namespace korv {

// c ? a : b without a branch. GCC does not if-convert a float ternary inside
// a loop (the loop would then not vectorise); a bit mask select it does.
[[gnu::always_inline]] inline float selectFloat(bool c, float a, float b) {
    const uint32_t m = 0u - uint32_t(c);
    return std::bit_cast<float>((std::bit_cast<uint32_t>(a) & m) | (std::bit_cast<uint32_t>(b) & ~m));
}

} // namespace korv
