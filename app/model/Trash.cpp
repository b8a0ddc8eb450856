#include "app/model/Trash.h"

#include "app/model/AppFolders.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace korv::Trash {
namespace {

// Paths in a .trashinfo are percent-encoded, except the unreserved characters and '/'.
std::string percentEncoded(const std::string& path) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (std::isalnum(c) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
            out += char(c);
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

bool writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n <= 0) return false;
        done += size_t(n);
    }
    return true;
}

} // namespace

bool moveToTrash(const std::filesystem::path& file) {
    std::error_code ec;
    const std::filesystem::path trash = AppFolders::dataHome() / "Trash";
    std::filesystem::create_directories(trash / "files", ec);
    std::filesystem::create_directories(trash / "info", ec);
    const std::filesystem::path absolute = std::filesystem::absolute(file, ec);
    if (ec) return false;

    // The info file is made exclusively first: it reserves the name in the trash.
    const std::string stem = file.filename().string();
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::string name = attempt == 0 ? stem : stem + "." + std::to_string(attempt);
        const std::filesystem::path info = trash / "info" / (name + ".trashinfo");
        const int fd = ::open(info.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return false;
        }
        char date[32];
        const std::time_t t = std::time(nullptr);
        std::tm local{};
        localtime_r(&t, &local);
        std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
        const bool written = writeAll(fd, "[Trash Info]\nPath=" + percentEncoded(absolute.string()) +
                                              "\nDeletionDate=" + date + "\n");
        ::close(fd);
        if (written) {
            std::filesystem::rename(absolute, trash / "files" / name, ec);
            if (!ec) return true;
        }
        std::filesystem::remove(info, ec);
        return false;
    }
    return false;
}

} // namespace korv::Trash
