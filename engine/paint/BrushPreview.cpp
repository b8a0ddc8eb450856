#include "engine/paint/BrushPreview.h"

#include "engine/core/Constants.h"
#include "engine/paint/BrushLibrary.h"
#include "engine/paint/PaintDocument.h"
#include "engine/render/Compositor.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace korv::BrushPreview {

RGBABufferPtr render(const BrushSettings& brush, int64_t width, int64_t height, const PaintColor& color) {
    if (width < 1 || height < 1 || width > kMaxCanvasSide || height > kMaxCanvasSide) return nullptr;
    PaintDocument doc(width, height, 72);
    const double h = double(height), w = double(width);
    BrushSettings b = brush;
    b.stabilizer = 0;
    b.size = std::min(b.size, h * 0.55);
    if (b.spray) b.particleSize = std::min(b.particleSize, 3.0);
    if (b.kind != BrushKind::paint) {
        BrushSettings ground = *BrushLibrary::named("Hard Round");
        ground.size = h / 2;
        doc.paintStroke({{6, h / 2, 1, 0, 0, 0}, {w - 6, h / 2, 1, 0, 0, 0}}, ground,
                        PaintColor(0.55, 0.6, 0.7, 1), nullptr, 1);
    }
    std::vector<StrokePoint> points;
    for (int i = 0; i <= 60; ++i) {
        const double t = double(i) / 60;
        points.push_back({t * (w - 20) + 10, h / 2 + std::sin(2 * std::numbers::pi * t) * h * 0.22,
                          std::clamp(std::sin(std::numbers::pi * t) * 0.85 + 0.15, 0.0, 1.0), 0, 0, t});
    }
    if (b.kind == BrushKind::erase) b.flow = std::max(b.flow, 0.5);
    doc.paintStroke(points, b, color, nullptr, 1);
    std::vector<CompositeInput> stack;
    for (const LayerPtr& l : doc.layers)
        stack.push_back(
            {l->tiles, float(l->opacity), l->blendMode, l->isClipping, l->isVisible, std::nullopt});
    return Compositor::flatten(stack, doc.grid);
}

} // namespace korv::BrushPreview
