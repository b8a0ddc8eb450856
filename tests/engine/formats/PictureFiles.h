#pragma once
// Test pictures of the corpus in tests/data/corpus/images, read by path.
// A missing or unreadable file throws, so its test fails with the file's name
// instead of crashing the suite.
#include "engine/formats/ImageImport.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace korv::testing {

inline std::string picturePath(const std::string& name) {
    return std::string(KORV_TESTDATA_DIR) + "/images/" + name;
}

inline std::vector<uint8_t> readPicture(const std::string& name) {
    std::ifstream in(picturePath(name), std::ios::binary);
    if (!in.good()) {
        throw std::runtime_error("missing test picture " + picturePath(name));
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A file of tests/data by its path there, e.g. "regress/x.gif".
inline std::vector<uint8_t> readFile(const std::string& path) {
    const std::string full = std::string(KORV_TEST_SOURCE_DIR) + "/../data/" + path;
    std::ifstream in(full, std::ios::binary);
    if (!in.good()) throw std::runtime_error("missing test file " + full);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The decoder's answer, which may be nothing.
inline std::optional<DecodedImage> decodePicture(const std::string& name) {
    return ImageImport::decode(readPicture(name));
}

// A picture the test needs decoded.
inline DecodedImage openPicture(const std::string& name) {
    auto decoded = decodePicture(name);
    if (!decoded) {
        throw std::runtime_error("test picture " + name + " did not decode");
    }
    return std::move(*decoded);
}

} // namespace korv::testing
