#pragma once
// Test pictures of the shared corpus, read by path.
#include "engine/formats/ImageImport.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace korv::testing {

inline std::string picturePath(const std::string& name) {
    return std::string(KORV_TESTDATA_DIR) + "/images/" + name;
}

inline std::vector<uint8_t> readPicture(const std::string& name) {
    std::ifstream in(picturePath(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::optional<DecodedImage> decodePicture(const std::string& name) {
    return ImageImport::decode(readPicture(name));
}

} // namespace korv::testing
