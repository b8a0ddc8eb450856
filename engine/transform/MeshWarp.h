#pragma once
// A picture bent through a lattice of points. Each cell of the source
// rectangle becomes two destination triangles; every destination pixel whose
// centre lies inside the mesh belongs to exactly one of them and is sampled
// bilinearly through that triangle's inverse map. Neighbouring triangles so
// meet without seams and without drawing a pixel twice, and a one-pixel
// fringe along the mesh's outer edge fades out through the same sampling,
// which keeps that edge smooth.
#include "engine/core/RGBABuffer.h"
#include "engine/platform/Geometry.h"

#include <vector>

namespace korv::MeshWarp {

using Lattice = std::vector<std::vector<Point>>;

// image covers srcRect (canvas coordinates), at its full size or reduced
// (a smaller copy keeps shrinking free of aliasing); out's pixel (0, 0) is canvas
// pixel (originX, originY) and receives the drawing where out is transparent.
// A lattice of fewer than two rows draws nothing.
void draw(const RGBABuffer& image, const Rect& srcRect, const Lattice& lattice, RGBABuffer& out,
          int64_t originX, int64_t originY);

} // namespace korv::MeshWarp
