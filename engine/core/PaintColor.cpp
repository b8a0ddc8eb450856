#include "engine/core/PaintColor.h"

#include "engine/core/Require.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace korv {

PaintColor::PaintColor(double r_, double g_, double b_, double a_)
    : r(std::clamp(r_, 0.0, 1.0)), g(std::clamp(g_, 0.0, 1.0)), b(std::clamp(b_, 0.0, 1.0)),
      a(std::clamp(a_, 0.0, 1.0)) {}

PaintColor PaintColor::fromBytes(uint8_t r, uint8_t g, uint8_t b, uint8_t a) {
    return {r / 255.0, g / 255.0, b / 255.0, a / 255.0};
}

uint8_t unitToByte(double v) {
    KORV_REQUIRE(v >= 0.0 && v <= 1.0); // also false for NaN
    return uint8_t(std::round(v * 255.0));
}

uint8_t PaintColor::r8() const { return unitToByte(r); }
uint8_t PaintColor::g8() const { return unitToByte(g); }
uint8_t PaintColor::b8() const { return unitToByte(b); }
uint8_t PaintColor::a8() const { return unitToByte(a); }

std::string PaintColor::hex() const {
    char buf[8];
    std::snprintf(buf, sizeof buf, "#%02X%02X%02X", r8(), g8(), b8());
    return buf;
}

std::array<uint8_t, 4> PaintColor::premultipliedBytes() const {
    return {unitToByte(r * a), unitToByte(g * a), unitToByte(b * a), unitToByte(a)};
}

std::optional<PaintColor> PaintColor::fromHex(std::string_view text) {
    auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    if (!text.empty() && text.front() == '#') text.remove_prefix(1);
    std::string digits(text);
    if (digits.size() == 3) digits = {digits[0], digits[0], digits[1], digits[1], digits[2], digits[2]};
    if (digits.size() != 6 && digits.size() != 8) return std::nullopt;
    uint64_t value = 0;
    for (char c : digits) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return std::nullopt;
        value = value * 16 + uint64_t(d);
    }
    if (digits.size() == 6) value = (value << 8) | 0xFF;
    return fromBytes(uint8_t(value >> 24), uint8_t(value >> 16), uint8_t(value >> 8), uint8_t(value));
}

std::array<double, 3> PaintColor::hsb() const {
    double mx = std::max({r, g, b}), mn = std::min({r, g, b}), d = mx - mn;
    double h = 0;
    if (d > 0) {
        if (mx == r) h = std::fmod((g - b) / d, 6.0);
        else if (mx == g) h = (b - r) / d + 2;
        else h = (r - g) / d + 4;
        h /= 6;
        if (h < 0) h += 1;
    }
    double s = mx == 0 ? 0 : d / mx;
    return {h, s, mx};
}

PaintColor PaintColor::fromHSV(double h, double s, double v, double a) {
    double h6 = (h - std::floor(h)) * 6;
    double f = h6 - std::floor(h6);
    double p = (1 - s) * v, q = (1 - f * s) * v, t = (1 - (1 - f) * s) * v;
    switch (int64_t(std::trunc(h6)) % 6) {
    case 0: return {v, t, p, a};
    case 1: return {q, v, p, a};
    case 2: return {p, v, t, a};
    case 3: return {p, q, v, a};
    case 4: return {t, p, v, a};
    default: return {v, p, q, a};
    }
}

void to_json(nlohmann::json& j, const PaintColor& c) { j = {{"r", c.r}, {"g", c.g}, {"b", c.b}, {"a", c.a}}; }
void from_json(const nlohmann::json& j, PaintColor& c) {
    // The record keeps what was stored; clamping happens where a colour is used.
    c.r = j.at("r").get<double>();
    c.g = j.at("g").get<double>();
    c.b = j.at("b").get<double>();
    c.a = j.at("a").get<double>();
}
void to_json(nlohmann::json& j, const RGBA& c) { j = {{"r", c.r}, {"g", c.g}, {"b", c.b}, {"a", c.a}}; }
void from_json(const nlohmann::json& j, RGBA& c) {
    c = {j.at("r").get<double>(), j.at("g").get<double>(), j.at("b").get<double>(), j.at("a").get<double>()};
}

} // namespace korv
