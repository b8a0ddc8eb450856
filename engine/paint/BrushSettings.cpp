#include "engine/paint/BrushSettings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace korv {

namespace {

constexpr std::array<std::string_view, 4> kKindNames{"paint", "erase", "smudge", "blur"};

void clampField(double& v, double lo, double hi) {
    v = std::isfinite(v) ? std::clamp(v, lo, hi) : lo;
}

template <class T>
void take(const nlohmann::json& j, std::string_view key, T& field) {
    const auto it = j.find(std::string(key));
    if (it == j.end()) return;
    if constexpr (std::is_same_v<T, bool>) {
        if (it->is_boolean()) field = it->get<bool>();
    } else if constexpr (std::is_same_v<T, double>) {
        if (it->is_number()) field = it->get<double>();
    } else {
        if (it->is_string()) field = it->get<std::string>();
    }
}

} // namespace

const std::array<std::string_view, 29> BrushSettings::K{
    "id",           "name",          "category",    "kind",         "size",
    "opacity",      "flow",          "hardness",    "spacing",      "stabilizer",
    "sizeJitter",   "opacityJitter", "scatter",     "texture",      "textureScale",
    "roundness",    "angle",         "angleJitter", "pressureSize", "pressureOpacity",
    "pressureFlow", "minSize",       "airbrush",    "airbrushRate", "spray",
    "sprayDensity", "particleSize",  "strength",    "isBuiltIn"};

std::string_view toString(BrushKind kind) {
    return kKindNames[size_t(kind)];
}

std::optional<BrushKind> brushKindFromString(std::string_view text) {
    for (size_t i = 0; i < kKindNames.size(); ++i)
        if (kKindNames[i] == text) return BrushKind(i);
    return std::nullopt;
}

BrushSettings::BrushSettings(std::string name_, std::string category_, BrushKind kind_,
                             std::optional<Uuid> id_)
    : name(std::move(name_)), category(std::move(category_)), kind(kind_) {
    id = id_ ? *id_ : stableID(category + "/" + name);
}

void BrushSettings::sanitize() {
    clampField(size, 1, 1000);
    clampField(opacity, 0, 1);
    clampField(flow, 0.005, 1);
    clampField(hardness, 0, 1);
    clampField(spacing, 0.02, 2);
    clampField(stabilizer, 0, 100);
    clampField(sizeJitter, 0, 1);
    clampField(opacityJitter, 0, 1);
    clampField(scatter, 0, 2);
    clampField(texture, 0, 1);
    clampField(textureScale, 0.25, 4);
    clampField(roundness, 0.05, 1);
    clampField(angle, -180, 180);
    clampField(angleJitter, 0, 1);
    clampField(minSize, 0, 1);
    clampField(airbrushRate, 1, 120);
    clampField(sprayDensity, 1, 400);
    clampField(particleSize, 0.5, 20);
    clampField(strength, 0, 1);
}

Uuid BrushSettings::stableID(std::string_view text) {
    uint64_t h1 = 0xCBF29CE484222325ull, h2 = 0x84222325CBF29CE4ull;
    for (unsigned char b : text) {
        h1 = (h1 ^ b) * 0x100000001B3ull;
        h2 = (h2 ^ b) * 16777619ull + 7;
    }
    uint8_t bytes[16];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = uint8_t(h1 >> (8 * i));
        bytes[8 + i] = uint8_t(h2 >> (8 * i));
    }
    bytes[6] = uint8_t((bytes[6] & 0x0F) | 0x40);
    bytes[8] = uint8_t((bytes[8] & 0x3F) | 0x80);
    // Uuid is built from its text form only; 36 characters of known shape.
    char text36[37];
    std::snprintf(text36, sizeof text36,
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", bytes[0], bytes[1],
                  bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8], bytes[9], bytes[10],
                  bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return *Uuid::parse(text36);
}

void to_json(nlohmann::json& j, const BrushSettings& b) {
    j = nlohmann::json::object();
    j["id"] = b.id.toString();
    j["name"] = b.name;
    j["category"] = b.category;
    j["kind"] = std::string(toString(b.kind));
    j["size"] = b.size;
    j["opacity"] = b.opacity;
    j["flow"] = b.flow;
    j["hardness"] = b.hardness;
    j["spacing"] = b.spacing;
    j["stabilizer"] = b.stabilizer;
    j["sizeJitter"] = b.sizeJitter;
    j["opacityJitter"] = b.opacityJitter;
    j["scatter"] = b.scatter;
    j["texture"] = b.texture;
    j["textureScale"] = b.textureScale;
    j["roundness"] = b.roundness;
    j["angle"] = b.angle;
    j["angleJitter"] = b.angleJitter;
    j["pressureSize"] = b.pressureSize;
    j["pressureOpacity"] = b.pressureOpacity;
    j["pressureFlow"] = b.pressureFlow;
    j["minSize"] = b.minSize;
    j["airbrush"] = b.airbrush;
    j["airbrushRate"] = b.airbrushRate;
    j["spray"] = b.spray;
    j["sprayDensity"] = b.sprayDensity;
    j["particleSize"] = b.particleSize;
    j["strength"] = b.strength;
    j["isBuiltIn"] = b.isBuiltIn;
}

void from_json(const nlohmann::json& j, BrushSettings& b) {
    BrushSettings out;
    if (j.is_object()) {
        take(j, "name", out.name);
        take(j, "category", out.category);
        std::string kind;
        take(j, "kind", kind);
        if (auto k = brushKindFromString(kind)) out.kind = *k;
        std::string id;
        take(j, "id", id);
        const std::optional<Uuid> parsed = Uuid::parse(id);
        out.id = parsed ? *parsed : BrushSettings::stableID(out.category + "/" + out.name);
        take(j, "size", out.size);
        take(j, "opacity", out.opacity);
        take(j, "flow", out.flow);
        take(j, "hardness", out.hardness);
        take(j, "spacing", out.spacing);
        take(j, "stabilizer", out.stabilizer);
        take(j, "sizeJitter", out.sizeJitter);
        take(j, "opacityJitter", out.opacityJitter);
        take(j, "scatter", out.scatter);
        take(j, "texture", out.texture);
        take(j, "textureScale", out.textureScale);
        take(j, "roundness", out.roundness);
        take(j, "angle", out.angle);
        take(j, "angleJitter", out.angleJitter);
        take(j, "pressureSize", out.pressureSize);
        take(j, "pressureOpacity", out.pressureOpacity);
        take(j, "pressureFlow", out.pressureFlow);
        take(j, "minSize", out.minSize);
        take(j, "airbrush", out.airbrush);
        take(j, "airbrushRate", out.airbrushRate);
        take(j, "spray", out.spray);
        take(j, "sprayDensity", out.sprayDensity);
        take(j, "particleSize", out.particleSize);
        take(j, "strength", out.strength);
        take(j, "isBuiltIn", out.isBuiltIn);
    }
    out.sanitize();
    b = std::move(out);
}

} // namespace korv
