#include "engine/document/StudioLayer.h"

#include "engine/core/Fnv.h"
#include "engine/document/RecordCoding.h"

#include <array>
#include <cmath>

namespace korv {

namespace {
struct KindRow {
    std::string_view name, display;
};
constexpr std::array<KindRow, 6> kKinds{{
    {"pixel", "Pixel layer"},
    {"adjustment", "Adjustment layer"},
    {"fill", "Fill layer"},
    {"text", "Text layer"},
    {"shape", "Shape layer"},
    {"group", "Group"},
}};
} // namespace

std::string_view toString(StudioLayerKind k) {
    return kKinds[size_t(k)].name;
}
std::string_view displayName(StudioLayerKind k) {
    return kKinds[size_t(k)].display;
}
std::optional<StudioLayerKind> layerKindFromString(std::string_view text) {
    for (size_t i = 0; i < kKinds.size(); ++i)
        if (kKinds[i].name == text) return StudioLayerKind(i);
    return std::nullopt;
}

StudioLayer StudioLayer::pixelLayer(std::string name, const TileGrid& grid) {
    StudioLayer layer(Uuid::random(), std::move(name), StudioLayerKind::pixel);
    layer.pixels = TileSet(grid);
    return layer;
}

StudioLayer StudioLayer::group(std::string name, std::vector<StudioLayer> children) {
    StudioLayer layer(Uuid::random(), std::move(name), StudioLayerKind::group);
    layer.children = std::move(children);
    return layer;
}

void StudioLayer::freezeAll() {
    if (pixels) pixels->freeze();
    if (mask) mask->freeze();
    for (auto& c : children)
        c.freezeAll();
}

uint64_t StudioLayer::fingerprint() const {
    FnvMixer m;
    m.mix(id.toString());
    m.mix(name);
    m.mix(toString(kind));
    m.mix(uint64_t(std::llround(opacity * 10000)));
    m.mix(uint64_t(std::llround(fillOpacity * 10000)));
    m.mix(toString(blendMode));
    m.mix(isVisible ? 1 : 2);
    m.mix(isLocked ? 3 : 4);
    m.mix(isClipping ? 5 : 6);
    m.mix(maskEnabled ? 7 : 8);
    m.mix(pixels ? pixels->fingerprint() : 11);
    m.mix(mask ? (mask->fingerprint() ^ 85) : 12);
    // A record that can't be encoded leaves its step out rather than failing the hash.
    auto mixRecord = [&m](const auto& record) {
        if (auto h = recordHash(record)) m.mix(*h);
    };
    if (adjustment) mixRecord(*adjustment);
    if (fill) mixRecord(*fill);
    if (text) mixRecord(*text);
    if (shape) mixRecord(*shape);
    mixRecord(effects);
    for (const auto& c : children)
        m.mix(c.fingerprint());
    return m.h;
}

} // namespace korv
