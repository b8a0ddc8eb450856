#pragma once
// Draws the content of fill, shape and text layers from their parameters.
// The results are ordinary tile sets, frozen, which the render cache keeps
// until the parameters change. Shapes and text occupy only the tiles under
// them; a fill covers the whole canvas.
#include "engine/core/TileSet.h"
#include "engine/document/ContentSpecs.h"
#include "engine/platform/Canvas2D.h"
#include "engine/platform/Path.h"
#include "engine/platform/TextLayout.h"

#include <functional>
#include <memory>

namespace korv::VectorRender {

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

TileSet fill(const FillSpec& spec, const TileGrid& grid);
TileSet shape(const ShapeSpec& spec, const TileGrid& grid);
TileSet text(const TextSpec& spec, const TileGrid& grid);

// The shape's outline in canvas coordinates, rotation included.
Path path(const ShapeSpec& spec);

// The text laid out in its font, paragraph settings and wrapping width.
std::unique_ptr<TextLayout> attributed(const TextSpec& spec);
TextLayout::Font font(const TextSpec& spec);
// The box the text needs, a pixel of margin on each side included.
Size textSize(const TextSpec& spec);
Rect textBounds(const TextSpec& spec);

// Lets draw() paint in canvas coordinates on a transparent bitmap that covers
// the rectangle grown by 2 pixels (clipped to the canvas), and gives the
// tiles it touched, without those left wholly transparent.
TileSet drawIntoGrid(const TileGrid& grid, const Rect& area, const std::function<void(Canvas2D&)>& draw);

} // namespace korv::VectorRender
