#pragma once
// Resizing a premultiplied picture with a high-quality separable filter:
// Lanczos-3 widened to the reduction when shrinking (every source pixel
// counts, no aliasing), Catmull-Rom when enlarging (smooth, keeps edges).
#include "engine/core/RGBABuffer.h"

namespace korv {

// A new picture of width x height (each at least 1), or empty when memory is refused.
RGBABufferPtr resampled(const RGBABuffer& image, int64_t width, int64_t height);

} // namespace korv
