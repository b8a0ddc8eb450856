#include "engine/core/Require.h"

#include <cstdio>
#include <cstdlib>

namespace korv::detail {
void requireFailed(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "KORV: requirement failed: %s (%s:%d)\n", condition, file, line);
    std::fflush(stderr);
    std::abort();
}
} // namespace korv::detail
