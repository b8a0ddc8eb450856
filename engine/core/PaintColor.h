#pragma once
// Colours as the user picks them (straight, 0...1), and their record form
// inside layer parameters and files.
#include <array>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace korv {

struct PaintColor {
    double r = 0, g = 0, b = 0, a = 0;

    PaintColor() = default;
    // Each value clamped to 0...1.
    PaintColor(double r, double g, double b, double a);
    static PaintColor fromBytes(uint8_t r, uint8_t g, uint8_t b, uint8_t a);
    // "#RGB", "#RRGGBB" or "#RRGGBBAA", the "#" optional, blanks around ignored.
    static std::optional<PaintColor> fromHex(std::string_view text);
    static PaintColor fromHSV(double h, double s, double v, double a);

    static PaintColor black() { return {0, 0, 0, 1}; }
    static PaintColor white() { return {1, 1, 1, 1}; }
    static PaintColor clear() { return {0, 0, 0, 0}; }

    // Rounded byte values; a component outside 0...1 is a programming fault.
    uint8_t r8() const;
    uint8_t g8() const;
    uint8_t b8() const;
    uint8_t a8() const;
    std::string hex() const;
    std::array<double, 3> hsb() const;
    // Premultiplied bytes, as stored in tiles.
    std::array<uint8_t, 4> premultipliedBytes() const;

    bool operator==(const PaintColor&) const = default;
};

// The record form of a colour; decoding does not clamp.
struct RGBA {
    double r = 0, g = 0, b = 0, a = 0;

    RGBA() = default;
    RGBA(double r, double g, double b, double a) : r(r), g(g), b(b), a(a) {}
    explicit RGBA(const PaintColor& c) : r(c.r), g(c.g), b(c.b), a(c.a) {}
    static RGBA black() { return {0, 0, 0, 1}; }
    static RGBA white() { return {1, 1, 1, 1}; }
    PaintColor paint() const { return {r, g, b, a}; }

    bool operator==(const RGBA&) const = default;
};

// Rounds a unit value to a byte, halves away from zero; faults outside 0...1.
uint8_t unitToByte(double v);

void to_json(nlohmann::json& j, const PaintColor& c);
void from_json(const nlohmann::json& j, PaintColor& c);
void to_json(nlohmann::json& j, const RGBA& c);
void from_json(const nlohmann::json& j, RGBA& c);

} // namespace korv
