#pragma once
// The model's host for the command line: no panels (they answer "cancel"), an
// alert is kept so that the command can report it, settings live in memory
// and are never stored, and main-queue work runs at once.
#include "app/model/Host.h"

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace korv::cli {

class CliHost final : public Host {
public:
    std::vector<std::string> alerts;

    std::vector<std::filesystem::path> openPanel(const OpenPanelRequest&) override { return {}; }
    std::optional<std::filesystem::path> savePanel(const SavePanelRequest&) override { return std::nullopt; }
    int runAlert(const std::string& message, const std::string& informative,
                 const std::vector<std::string>& buttons) override {
        alerts.push_back(informative.empty() ? message : message + ": " + informative);
        // The last button is the one that changes nothing (Cancel).
        return buttons.empty() ? 0 : int(buttons.size()) - 1;
    }
    void noteRecentDocument(const std::filesystem::path&) override {}
    std::optional<std::string> setting(const std::string& key) override {
        auto it = settings_.find(key);
        return it == settings_.end() ? std::nullopt : std::optional(it->second);
    }
    void setSetting(const std::string& key, const std::string& value) override { settings_[key] = value; }
    std::unique_ptr<HostTimer> startRepeatingTimer(double, std::function<void()>) override {
        return std::make_unique<HostTimer>();
    }
    void runOnMain(std::function<void()> work) override { work(); }
    void log(const std::string& line) override { std::fprintf(stderr, "%s\n", line.c_str()); }

private:
    std::map<std::string, std::string> settings_;
};

} // namespace korv::cli
