#include "app/model/AppFolders.h"

#include <cstdlib>
#include <mutex>
#include <system_error>

namespace korv::AppFolders {
namespace {

// Read from the autosave queue as well as the main thread.
std::mutex overrideLock;
std::optional<std::filesystem::path> baseOverride;

std::filesystem::path made(std::filesystem::path folder) {
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    return folder;
}

} // namespace

void setBaseOverride(std::optional<std::filesystem::path> folder) {
    std::lock_guard guard(overrideLock);
    baseOverride = std::move(folder);
}

std::filesystem::path dataHome() {
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/') return xdg;
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home && *home ? home : "/tmp") / ".local" / "share";
}

std::filesystem::path base() {
    {
        std::lock_guard guard(overrideLock);
        if (baseOverride) return made(*baseOverride);
    }
    return made(dataHome() / "KORV Lumenary");
}

std::filesystem::path autosave() {
    return made(base() / "Autosave");
}

} // namespace korv::AppFolders
