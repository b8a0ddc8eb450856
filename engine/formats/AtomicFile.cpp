#include "engine/formats/AtomicFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace korv {

namespace {
std::string quoted(const std::string& path) {
    return "\u201C" + std::filesystem::path(path).filename().string() + "\u201D";
}
} // namespace

void writeFileAtomically(const std::string& path, std::span<const uint8_t> bytes) {
    namespace fs = std::filesystem;
    fs::path target(path);
    fs::path dir = target.has_parent_path() ? target.parent_path() : fs::path(".");
    std::string tmpl = (dir / ("." + target.filename().string() + ".XXXXXX")).string();
    int fd = mkstemp(tmpl.data());
    if (fd < 0)
        throw FileWriteError("The file " + quoted(path) + " couldn't be saved: " + std::strerror(errno) +
                             ".");
    auto fail = [&](int err) {
        ::close(fd);
        ::unlink(tmpl.c_str());
        throw FileWriteError("The file " + quoted(path) + " couldn't be saved: " + std::strerror(err) + ".");
    };
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            fail(errno);
        }
        done += size_t(n);
    }
    if (::fchmod(fd, 0644) != 0 || ::fsync(fd) != 0) fail(errno);
    if (::close(fd) != 0) {
        int err = errno;
        ::unlink(tmpl.c_str());
        throw FileWriteError("The file " + quoted(path) + " couldn't be saved: " + std::strerror(err) + ".");
    }
    if (::rename(tmpl.c_str(), path.c_str()) != 0) {
        int err = errno;
        ::unlink(tmpl.c_str());
        throw FileWriteError("The file " + quoted(path) + " couldn't be saved: " + std::strerror(err) + ".");
    }
}

} // namespace korv
