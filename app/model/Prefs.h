#pragma once
// The user's preferences, stored as JSON under the user defaults key "korv.pe.prefs".
#include <nlohmann/json_fwd.hpp>

namespace korv {

class Host;

struct Prefs {
    double autosaveSeconds = 90;
    double checkerSize = 10;
    bool showRulersHint = true;

    // The stored record, or the defaults when nothing is stored or it can't
    // be read; a key missing from the store keeps its default.
    static Prefs load(Host& host);
    void save(Host& host) const;

    bool operator==(const Prefs&) const = default;
};

void to_json(nlohmann::json& j, const Prefs& p);
void from_json(const nlohmann::json& j, Prefs& p);

} // namespace korv
