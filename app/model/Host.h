#pragma once
// What the model needs of the platform: panels, the modal alert, recent
// documents, settings, timers, the main queue, the clock, the system log and
// the clipboard. The Qt window implements it; tests use a fake.
#include "engine/core/RGBABuffer.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace korv {

struct OpenPanelRequest {
    std::string message;
    bool multiple = true;
    std::filesystem::path folder; // where the panel starts; empty for the platform's choice
};

struct SavePanelRequest {
    std::string message;
    std::string suggestedName;
    std::string extension; // without the dot
    std::filesystem::path folder;
    std::string title; // the panel's window title
};

// A repeating timer; destroying the handle stops it.
class HostTimer {
public:
    virtual ~HostTimer() = default;
};

class Host {
public:
    virtual ~Host() = default;

    // Paths chosen, in order; empty when the user cancels.
    virtual std::vector<std::filesystem::path> openPanel(const OpenPanelRequest& request) = 0;
    virtual std::optional<std::filesystem::path> savePanel(const SavePanelRequest& request) = 0;
    // A modal alert; answers the index of the button pressed.
    virtual int runAlert(const std::string& message, const std::string& informative,
                         const std::vector<std::string>& buttons) = 0;
    virtual void noteRecentDocument(const std::filesystem::path& path) = 0;

    // The user defaults, as text under their keys.
    virtual std::optional<std::string> setting(const std::string& key) = 0;
    virtual void setSetting(const std::string& key, const std::string& value) = 0;

    virtual std::unique_ptr<HostTimer> startRepeatingTimer(double seconds, std::function<void()> tick) = 0;
    // Runs the work on the main thread after the current event.
    virtual void runOnMain(std::function<void()> work) = 0;
    // Runs work that may take a while (a save, an open) and returns when it is
    // done, passing on what it throws. A window runs it off its own thread and
    // shows `label` over the picture once it has taken half a second.
    virtual void runBusy(const std::string& label, const std::function<void()>& work) {
        (void)label;
        work();
    }
    virtual std::chrono::system_clock::time_point now() { return std::chrono::system_clock::now(); }
    // One line to the system log; may be called from any thread.
    virtual void log(const std::string& line) = 0;

    // A picture with the text that says where it came from ("korv-origin:x,y").
    virtual void copyImage(const RGBABuffer& image, const std::string& origin) {
        (void)image;
        (void)origin;
    }
    virtual RGBABufferPtr pasteImage(std::optional<std::string>* origin) {
        (void)origin;
        return nullptr;
    }
};

} // namespace korv
