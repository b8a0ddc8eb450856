#pragma once
// Where the application keeps its own files: the XDG data folder
// ($XDG_DATA_HOME, else ~/.local/share) with the subfolder "KORV Lumenary".
#include <filesystem>
#include <optional>

namespace korv::AppFolders {

// Replaces base when set; tests point it at a temporary folder.
void setBaseOverride(std::optional<std::filesystem::path> folder);
// The folders are made with their parents on first use; a failure shows up
// later as a failed write.
std::filesystem::path base();
std::filesystem::path autosave();
// The user's XDG data home, where the freedesktop trash lives too.
std::filesystem::path dataHome();

} // namespace korv::AppFolders
