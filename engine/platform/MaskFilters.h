#pragma once
// Large-radius filters on byte masks whose cost does not grow with the area
// of the radius: the selection's grow, shrink and feather at the sliders'
// maxima on pictures of tens of megapixels. Edges continue outward.
#include <cstdint>

namespace korv::MaskFilters {

// Grey maximum (or minimum) over the disc of every point within `radius`,
// exactly as a disc kernel gives it; cost rows x columns x radius / vector width.
void discMorphology(const uint8_t* src, uint8_t* dst, int64_t width, int64_t height, double radius,
                    bool maximum);

// A Gaussian of this sigma as eight box blurs of matching variance, kept in
// floats between the passes; within a level or two of the true Gaussian.
void boxGaussian(const uint8_t* src, uint8_t* dst, int64_t width, int64_t height, double sigma);

} // namespace korv::MaskFilters
