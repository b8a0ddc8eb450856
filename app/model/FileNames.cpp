#include "app/model/FileNames.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

namespace korv {
namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::vector<std::string> spellings(const std::string& extension) {
    static const std::array<std::array<const char*, 2>, 3> kSame = {
        {{"jpg", "jpeg"}, {"tif", "tiff"}, {"heic", "heif"}}};
    for (const auto& pair : kSame)
        if (extension == pair[0] || extension == pair[1]) return {pair[0], pair[1]};
    return {extension};
}

} // namespace

std::string withExtension(const std::string& name, const std::string& extension) {
    const std::string wanted = lower(extension);
    if (wanted.empty()) return name;
    const std::string lowered = lower(name);
    for (const std::string& e : spellings(wanted)) {
        const std::string suffix = "." + e;
        if (lowered.size() > suffix.size() && lowered.ends_with(suffix)) return name;
    }
    return name + "." + extension;
}

std::filesystem::path dialogFolder(const std::optional<std::filesystem::path>& picture,
                                   const std::optional<std::filesystem::path>& lastFolder,
                                   const std::filesystem::path& fallback) {
    std::error_code ec;
    if (picture && picture->has_parent_path() && std::filesystem::is_directory(picture->parent_path(), ec))
        return picture->parent_path();
    if (lastFolder && std::filesystem::is_directory(*lastFolder, ec)) return *lastFolder;
    return fallback;
}

} // namespace korv
