#include "engine/core/ParallelFor.h"

#include <tbb/parallel_for.h>

namespace korv {

void parallelFor(int64_t count, const std::function<void(int64_t)>& body) {
    if (count <= 0) return;
    if (count == 1) {
        body(0);
        return;
    }
    tbb::parallel_for(int64_t(0), count, [&](int64_t i) { body(i); });
}

} // namespace korv
