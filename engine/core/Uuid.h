#pragma once
// A random (version 4) UUID; its text form is upper case.
#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace korv {

class Uuid {
public:
    Uuid() = default; // the nil UUID
    static Uuid random();
    // Accepts the 8-4-4-4-12 hexadecimal form in either case.
    static std::optional<Uuid> parse(std::string_view text);

    std::string toString() const;
    bool isNil() const;
    const std::array<uint8_t, 16>& bytes() const { return bytes_; }

    auto operator<=>(const Uuid&) const = default;

private:
    std::array<uint8_t, 16> bytes_{};
};

} // namespace korv

template <>
struct std::hash<korv::Uuid> {
    size_t operator()(const korv::Uuid& u) const noexcept {
        uint64_t a, b;
        __builtin_memcpy(&a, u.bytes().data(), 8);
        __builtin_memcpy(&b, u.bytes().data() + 8, 8);
        return size_t(a ^ (b * 0x9E3779B97F4A7C15ull));
    }
};
