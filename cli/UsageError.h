#pragma once
#include <stdexcept>

namespace korv::cli {

// A mistake in the command line itself (exit status 2).
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace korv::cli
