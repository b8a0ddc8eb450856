// korv-lzfse encode|decode IN OUT
//
// Compresses or decompresses one file with korv::lzfse. OUT appears only when
// the whole operation succeeds: it is written to a temporary file beside it
// and renamed into place.
#include "lzfse/Lzfse.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// Streams beyond this are refused rather than allocated for.
constexpr std::size_t kMaxDecodedBytes = std::size_t{1} << 34;

int fail(const std::string& message) {
    std::fprintf(stderr, "korv-lzfse: %s\n", message.c_str());
    return 1;
}

std::string errnoText(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

bool readFile(const char* path, std::vector<std::uint8_t>& data, std::string& error) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = errnoText(std::string("cannot open ") + path);
        return false;
    }
    std::uint8_t buffer[1 << 16];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0) {
            break;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            error = errnoText(std::string("cannot read ") + path);
            ::close(fd);
            return false;
        }
        data.insert(data.end(), buffer, buffer + got);
    }
    ::close(fd);
    return true;
}

bool writeAll(int fd, const std::uint8_t* p, std::size_t n) {
    while (n > 0) {
        const ssize_t put = ::write(fd, p, n);
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        p += put;
        n -= static_cast<std::size_t>(put);
    }
    return true;
}

// Writes through a temporary file in OUT's directory, so that a failure at
// any point leaves no partial OUT and an existing OUT is replaced whole.
bool writeFileAtomically(const std::string& path, const std::uint8_t* p, std::size_t n, std::string& error) {
    std::string temp = path + ".tmp-XXXXXX";
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) {
        error = errnoText("cannot create a temporary file beside " + path);
        return false;
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    bool ok = ::fchmod(fd, 0666 & ~mask) == 0 && writeAll(fd, p, n) && ::fsync(fd) == 0;
    if (!ok) {
        error = errnoText("cannot write " + temp);
    }
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errnoText("cannot write " + temp);
    }
    if (ok && ::rename(temp.c_str(), path.c_str()) != 0) {
        ok = false;
        error = errnoText("cannot rename " + temp + " to " + path);
    }
    if (!ok) {
        ::unlink(temp.c_str());
    }
    return ok;
}

const char* statusText(korv::lzfse::DecodeStatus s) {
    using korv::lzfse::DecodeStatus;
    switch (s) {
    case DecodeStatus::ok:
        return "ok";
    case DecodeStatus::truncated:
        return "the stream is truncated";
    case DecodeStatus::corrupt:
        return "the stream is corrupt";
    case DecodeStatus::dstTooSmall:
        return "the stream holds more than its headers announce";
    case DecodeStatus::noMemory:
        return "out of memory";
    }
    return "unknown failure";
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4 || (std::strcmp(argv[1], "encode") != 0 && std::strcmp(argv[1], "decode") != 0)) {
        std::fprintf(stderr, "usage: korv-lzfse encode|decode IN OUT\n");
        return 2;
    }
    const bool encoding = std::strcmp(argv[1], "encode") == 0;
    std::vector<std::uint8_t> in;
    std::string error;
    if (!readFile(argv[2], in, error)) {
        return fail(error);
    }

    std::vector<std::uint8_t> out;
    try {
        if (encoding) {
            out.resize(korv::lzfse::encodeBound(in.size()));
            const std::size_t size = korv::lzfse::encode(out.data(), out.size(), in.data(), in.size());
            if (size == 0) {
                return fail("cannot compress " + std::string(argv[2]));
            }
            out.resize(size);
        } else {
            const auto announced = korv::lzfse::decodedSize(in.data(), in.size());
            if (!announced) {
                return fail(std::string(argv[2]) + " is not a whole LZFSE stream");
            }
            if (*announced > kMaxDecodedBytes) {
                return fail(std::string(argv[2]) + " is too large");
            }
            out.resize(*announced);
            const auto r = korv::lzfse::decodeChecked(out.data(), out.size(), in.data(), in.size());
            if (!r.ok()) {
                return fail(std::string(argv[2]) + ": " + statusText(r.status));
            }
            out.resize(r.size);
        }
    } catch (const std::bad_alloc&) {
        return fail("out of memory");
    }
    if (!writeFileAtomically(argv[3], out.data(), out.size(), error)) {
        return fail(error);
    }
    return 0;
}
