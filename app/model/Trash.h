#pragma once
// Moving a file to the freedesktop trash ($XDG_DATA_HOME/Trash), so that the
// desktop's file manager can put it back.
#include <filesystem>

namespace korv::Trash {

// False when the file could not be moved; it is then left where it was.
bool moveToTrash(const std::filesystem::path& file);

} // namespace korv::Trash
