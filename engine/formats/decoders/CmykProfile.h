#pragma once
// CMYK rows to the engine's RGBA through a colour profile: the file's own when
// it embeds a CMYK one, otherwise a standard press profile (SWOP coated), as
// colour-managed readers do. Internal to engine/formats.
#include "engine/core/RGBABuffer.h"

#include <cstdint>
#include <span>

namespace korv::decoding {

// Where the press profile is read from: Ghostscript's SWOP profile, which the
// libgs-common package installs.
inline constexpr const char* kPressProfilePath = "/usr/share/color/icc/ghostscript/default_cmyk.icc";

// Opaque RGBA for the first rows of image from CMYK rows (4 bytes a pixel,
// cmykStride apart). inverted is Adobe's form, where 0 means full ink. Without
// a usable profile the plain formula stands in.
void cmykRowsToRGBA(RGBABuffer& image, const uint8_t* cmyk, int64_t cmykStride, int64_t rows, bool inverted,
                    std::span<const uint8_t> iccProfile);

// True when the press profile was found and read (once per process).
bool pressProfileAvailable();

} // namespace korv::decoding
