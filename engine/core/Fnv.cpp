#include "engine/core/Fnv.h"

namespace korv {
uint64_t fnv(const void* data, size_t count, uint64_t h) {
    auto* p = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < count; ++i) h = (h ^ p[i]) * kFnvPrime;
    return h;
}
} // namespace korv
