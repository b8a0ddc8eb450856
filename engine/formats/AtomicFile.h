#pragma once
// Replaces a file in one step: the bytes go to a temporary file in the same
// folder, are flushed to disk, and the temporary is renamed over the target.
// A failure at any point leaves the old file as it was.
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace korv {

struct FileWriteError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Throws FileWriteError with a sentence for the user.
void writeFileAtomically(const std::string& path, std::span<const uint8_t> bytes);

} // namespace korv
