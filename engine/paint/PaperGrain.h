#pragma once
// The paper that textured brushes bite into: a 256 x 256 plane of tileable
// value noise in 0...1, the same in every run.
#include <cstdint>

namespace korv::PaperGrain {

inline constexpr int64_t size = 256;
// 65536 floats, row by row; computed once, on first use.
const float* values();

} // namespace korv::PaperGrain
