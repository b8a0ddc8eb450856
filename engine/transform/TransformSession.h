#pragma once
// A live free, perspective or warp transform of one layer's pixels or mask:
// the pixels under the selection (or all the layer's content) are lifted into
// a floating picture, the rest stays as the base, and every change of the
// geometry renders afresh from those two, so dragging never degrades them.
#include "engine/core/IRect.h"
#include "engine/core/RGBABuffer.h"
#include "engine/core/TileSet.h"
#include "engine/core/Uuid.h"
#include "engine/platform/Geometry.h"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace korv {

class StudioDocument;

enum class TransformMode : uint8_t { free, perspective, warp };
std::string_view toString(TransformMode m);
std::optional<TransformMode> transformModeFromString(std::string_view text);

class TransformSession {
public:
    const Uuid layerID;
    const bool editingMask;
    const IRect source;
    const std::shared_ptr<const RGBABuffer> floating;
    // floating, then copies of half the size each, down to a few pixels: a
    // render shrinking the picture samples the copy nearest its scale.
    const std::vector<std::shared_ptr<const RGBABuffer>> floatingLevels;
    const TileSet base;

    TransformMode mode = TransformMode::free;
    AffineTransform affine;
    std::vector<Point> corners; // top left, top right, bottom right, bottom left
    std::vector<Point> warp;    // 16 points, row by row

    TransformSession(Uuid layerID, bool editingMask, IRect source, std::shared_ptr<const RGBABuffer> floating,
                     TileSet base);

    // The geometry of every mode back to where it started; the mode stays.
    void reset();
    // The outline the user sees.
    std::vector<Point> shownCorners() const;
    // n + 1 rows of n + 1 points: the mesh of the present mode.
    std::vector<std::vector<Point>> lattice(int n) const;
    // The raster with the transformed picture over the base.
    TileSet render() const;
};

// Lifts the pixels of the layer's raster (or mask) under the selection, or
// all its content; none when there is nothing to transform.
std::shared_ptr<TransformSession> beginTransform(const StudioDocument& doc, const Uuid& layerID, bool mask);
// The render put into the layer as a preview that history doesn't see.
void previewTransform(StudioDocument& doc, const TransformSession& session);
// The render put into the layer for good; the selection goes.
void applyTransform(StudioDocument& doc, const TransformSession& session);

} // namespace korv
