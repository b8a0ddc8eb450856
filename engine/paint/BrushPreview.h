#pragma once
// A small sample stroke of a brush for menus and panels: one wave whose
// pressure swells and fades, on a ground for brushes that push pixels.
#include "engine/core/PaintColor.h"
#include "engine/core/RGBABuffer.h"
#include "engine/paint/BrushSettings.h"

namespace korv::BrushPreview {

// Absent for a size below 1 or above the largest canvas.
RGBABufferPtr render(const BrushSettings& brush, int64_t width, int64_t height, const PaintColor& color);

} // namespace korv::BrushPreview
