#include "engine/document/EffectsSpec.h"

#include "engine/document/RecordCoding.h"

namespace korv {

namespace {
constexpr auto effectsFields = [](auto& s, auto&& f) {
    f("shadowOn", s.shadowOn);
    f("shadowColor", s.shadowColor);
    f("shadowOpacity", s.shadowOpacity);
    f("shadowAngle", s.shadowAngle);
    f("shadowDistance", s.shadowDistance);
    f("shadowBlur", s.shadowBlur);
    f("strokeOn", s.strokeOn);
    f("strokeColor", s.strokeColor);
    f("strokeWidth", s.strokeWidth);
    f("glowOn", s.glowOn);
    f("glowColor", s.glowColor);
    f("glowOpacity", s.glowOpacity);
    f("glowSize", s.glowSize);
    f("overlayOn", s.overlayOn);
    f("overlayColor", s.overlayColor);
    f("overlayOpacity", s.overlayOpacity);
};
} // namespace

void to_json(nlohmann::json& j, const EffectsSpec& s) {
    writeFields(j, s, effectsFields);
}
void from_json(const nlohmann::json& j, EffectsSpec& s) {
    readFields(j, s, effectsFields);
}

} // namespace korv
