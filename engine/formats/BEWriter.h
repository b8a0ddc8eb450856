#pragma once
// A growing big-endian byte buffer, with the back-patching of lengths that
// are only known once the section after them is written.
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace korv {

struct BEWriter {
    std::vector<uint8_t> bytes;

    int64_t size() const { return int64_t(bytes.size()); }
    void u8(uint8_t v) { bytes.push_back(v); }
    void u16(uint16_t v) {
        bytes.push_back(uint8_t(v >> 8));
        bytes.push_back(uint8_t(v));
    }
    void u32(uint32_t v) {
        u16(uint16_t(v >> 16));
        u16(uint16_t(v));
    }
    void zeros(int64_t n) { bytes.insert(bytes.end(), size_t(n), uint8_t(0)); }
    void append(std::span<const uint8_t> data) { bytes.insert(bytes.end(), data.begin(), data.end()); }
    void append(std::string_view text) { bytes.insert(bytes.end(), text.begin(), text.end()); }
    // Four bytes at `at`, high byte first; the place must already be written.
    void patchU32(int64_t at, uint32_t value);
};

} // namespace korv
