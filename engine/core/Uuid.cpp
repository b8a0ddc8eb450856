#include "engine/core/Uuid.h"

#include "engine/core/Require.h"

#include <cerrno>
#include <sys/random.h>

namespace korv {

Uuid Uuid::random() {
    Uuid u;
    size_t got = 0;
    while (got < u.bytes_.size()) {
        ssize_t n = getrandom(u.bytes_.data() + got, u.bytes_.size() - got, 0);
        if (n < 0 && errno == EINTR) continue;
        KORV_REQUIRE(n > 0);
        got += size_t(n);
    }
    u.bytes_[6] = uint8_t((u.bytes_[6] & 0x0F) | 0x40); // version 4
    u.bytes_[8] = uint8_t((u.bytes_[8] & 0x3F) | 0x80); // RFC 4122 variant
    return u;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid u;
    size_t k = 0;
    for (size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        int hi = nibble(text[i]), lo = nibble(text[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        u.bytes_[k++] = uint8_t(hi * 16 + lo);
        i += 2;
    }
    return u;
}

std::string Uuid::toString() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string s;
    s.reserve(36);
    for (size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) s.push_back('-');
        s.push_back(digits[bytes_[i] >> 4]);
        s.push_back(digits[bytes_[i] & 15]);
    }
    return s;
}

bool Uuid::isNil() const {
    for (auto b : bytes_)
        if (b) return false;
    return true;
}

} // namespace korv
