#include "app/model/Prefs.h"

#include "app/model/Host.h"

#include <nlohmann/json.hpp>

namespace korv {

namespace {
constexpr const char* kPrefsKey = "korv.pe.prefs";
}

void to_json(nlohmann::json& j, const Prefs& p) {
    j = nlohmann::json{{"autosaveSeconds", p.autosaveSeconds},
                       {"checkerSize", p.checkerSize},
                       {"showRulersHint", p.showRulersHint}};
}

void from_json(const nlohmann::json& j, Prefs& p) {
    // Older stores may lack newer keys; those keep their defaults.
    const Prefs defaults;
    p.autosaveSeconds = j.value("autosaveSeconds", defaults.autosaveSeconds);
    p.checkerSize = j.value("checkerSize", defaults.checkerSize);
    p.showRulersHint = j.value("showRulersHint", defaults.showRulersHint);
}

Prefs Prefs::load(Host& host) {
    const auto stored = host.setting(kPrefsKey);
    if (!stored) return {};
    try {
        return nlohmann::json::parse(*stored).get<Prefs>();
    } catch (const std::exception&) {
        return {};
    }
}

void Prefs::save(Host& host) const {
    host.setSetting(kPrefsKey, nlohmann::json(*this).dump());
}

} // namespace korv
