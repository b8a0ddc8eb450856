#pragma once
// File names chosen in a save panel.
#include <string>

namespace korv {

// The name with ".extension" added, unless it already ends in that extension
// or another spelling of the same format (jpg/jpeg, tif/tiff, heic/heif),
// in any letter case: "x.jpeg" stays "x.jpeg" when saving a JPEG.
std::string withExtension(const std::string& name, const std::string& extension);

} // namespace korv
