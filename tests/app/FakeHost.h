#pragma once
// A host without a display: panels and alerts answer from scripted queues,
// settings live in a map, timers are recorded rather than run, and the clock
// is set by the test.
#include "app/model/AppFolders.h"
#include "app/model/Host.h"

#include <cstdlib>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace korv::test {

class FakeHost : public Host {
public:
    std::deque<std::vector<std::filesystem::path>> openAnswers;
    std::deque<std::optional<std::filesystem::path>> saveAnswers;
    std::deque<int> alertAnswers;
    std::vector<std::string> alertsShown;
    std::vector<SavePanelRequest> savePanels;
    std::vector<std::filesystem::path> recents;
    std::map<std::string, std::string> settings;
    std::vector<double> timers;
    std::function<void()> timerTick;
    std::chrono::system_clock::time_point clock = std::chrono::system_clock::from_time_t(1'800'000'000);
    std::mutex logLock;
    std::vector<std::string> logLines;

    std::vector<std::filesystem::path> openPanel(const OpenPanelRequest&) override {
        if (openAnswers.empty()) return {};
        auto answer = openAnswers.front();
        openAnswers.pop_front();
        return answer;
    }
    std::optional<std::filesystem::path> savePanel(const SavePanelRequest& request) override {
        savePanels.push_back(request);
        if (saveAnswers.empty()) return std::nullopt;
        auto answer = saveAnswers.front();
        saveAnswers.pop_front();
        return answer;
    }
    int runAlert(const std::string& message, const std::string&, const std::vector<std::string>&) override {
        alertsShown.push_back(message);
        if (alertAnswers.empty()) return 1; // Cancel
        const int answer = alertAnswers.front();
        alertAnswers.pop_front();
        return answer;
    }
    void noteRecentDocument(const std::filesystem::path& path) override { recents.push_back(path); }
    std::optional<std::string> setting(const std::string& key) override {
        auto it = settings.find(key);
        return it == settings.end() ? std::nullopt : std::optional(it->second);
    }
    void setSetting(const std::string& key, const std::string& value) override { settings[key] = value; }
    std::unique_ptr<HostTimer> startRepeatingTimer(double seconds, std::function<void()> tick) override {
        timers.push_back(seconds);
        timerTick = std::move(tick);
        return std::make_unique<HostTimer>();
    }
    void runOnMain(std::function<void()> work) override { work(); }
    // Long actions by their labels; `duringBusy` runs before the work, as an
    // event the window handled while the work ran would.
    std::vector<std::string> busyLabels;
    std::function<void()> duringBusy;
    void runBusy(const std::string& label, const std::function<void()>& work) override {
        busyLabels.push_back(label);
        if (duringBusy) duringBusy();
        work();
    }
    std::chrono::system_clock::time_point now() override { return clock; }
    void log(const std::string& line) override {
        std::lock_guard guard(logLock);
        logLines.push_back(line);
    }
};

// A fresh folder under the system's temporary folder, removed at the end;
// the application's folders and the XDG data home point into it.
class TempFolder {
public:
    TempFolder() {
        std::random_device random;
        path_ = std::filesystem::temp_directory_path() / ("korv-app-test-" + std::to_string(random()));
        std::filesystem::create_directories(path_);
        AppFolders::setBaseOverride(path_ / "KORV Lumenary");
        ::setenv("XDG_DATA_HOME", path_.c_str(), 1);
    }
    ~TempFolder() {
        AppFolders::setBaseOverride(std::nullopt);
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

} // namespace korv::test
