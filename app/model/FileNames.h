#pragma once
// File names chosen in a save panel, and where file panels start.
#include <filesystem>
#include <optional>
#include <string>

namespace korv {

// The name with ".extension" added, unless it already ends in that extension
// or another spelling of the same format (jpg/jpeg, tif/tiff, heic/heif),
// in any letter case: "x.jpeg" stays "x.jpeg" when saving a JPEG.
std::string withExtension(const std::string& name, const std::string& extension);

// Where an open or save panel starts: the folder of the picture in front if it
// still exists, else the last folder a panel was used in, else `fallback`
// (the home folder), so that no panel opens in the program's working folder.
std::filesystem::path dialogFolder(const std::optional<std::filesystem::path>& picture,
                                   const std::optional<std::filesystem::path>& lastFolder,
                                   const std::filesystem::path& fallback);

} // namespace korv
