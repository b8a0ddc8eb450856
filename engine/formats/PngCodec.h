#pragma once
// PNG encoding of a premultiplied buffer: written with straight alpha, 8 bits
// per channel, with the resolution in the pHYs chunk.
#include "engine/core/RGBABuffer.h"

#include <cstdint>
#include <vector>

namespace korv {

std::vector<uint8_t> encodePNG(const RGBABuffer& image, double dpi = 72.0, int compressionLevel = 6);

} // namespace korv
