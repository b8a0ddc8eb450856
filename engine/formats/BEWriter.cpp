#include "engine/formats/BEWriter.h"

#include "engine/core/Require.h"

namespace korv {

void BEWriter::patchU32(int64_t at, uint32_t value) {
    KORV_REQUIRE(at >= 0 && at + 4 <= size());
    for (int k = 0; k < 4; ++k)
        bytes[size_t(at + k)] = uint8_t(value >> (24 - 8 * k));
}

} // namespace korv
