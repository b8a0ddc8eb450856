#pragma once
// Big-endian reading over bytes that may be hostile: every read checks the
// remaining length first and throws BEReader::Short when it would pass the end.
#include <cstdint>
#include <span>
#include <stdexcept>

namespace korv {

struct BEReader {
    // The data ended before a read; carries nothing but its sentence.
    struct Short : std::exception {
        const char* what() const noexcept override;
    };

    std::span<const uint8_t> d;
    int64_t pos = 0;

    explicit BEReader(std::span<const uint8_t> bytes) : d(bytes) {}

    int64_t remaining() const { return int64_t(d.size()) - pos; }
    bool atEnd() const { return pos >= int64_t(d.size()); }

    uint8_t u8() {
        need(1);
        return d[size_t(pos++)];
    }
    uint16_t u16() {
        need(2);
        const uint16_t v = uint16_t(d[size_t(pos)] << 8 | d[size_t(pos + 1)]);
        pos += 2;
        return v;
    }
    uint32_t u32() {
        need(4);
        const size_t p = size_t(pos);
        const uint32_t v =
            uint32_t(d[p]) << 24 | uint32_t(d[p + 1]) << 16 | uint32_t(d[p + 2]) << 8 | d[p + 3];
        pos += 4;
        return v;
    }
    uint64_t u64() {
        const uint64_t high = u32();
        return high << 32 | u32();
    }
    int16_t i16() { return int16_t(u16()); }
    int32_t i32() { return int32_t(u32()); }
    // The next n bytes; n may be any value, a negative one counts as too long.
    std::span<const uint8_t> slice(int64_t n) {
        need(n);
        auto s = d.subspan(size_t(pos), size_t(n));
        pos += n;
        return s;
    }
    void skip(int64_t n) { need(n), pos += n; }

private:
    void need(int64_t n) const {
        if (n < 0 || n > remaining()) throw Short();
    }
};

} // namespace korv
