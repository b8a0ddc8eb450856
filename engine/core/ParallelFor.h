#pragma once
// Runs body(i) for every i in [0, count) on all cores; the caller waits for the
// end. Bodies must touch disjoint data or data that is frozen.
#include <cstdint>
#include <functional>

namespace korv {

void parallelFor(int64_t count, const std::function<void(int64_t)>& body);

} // namespace korv
