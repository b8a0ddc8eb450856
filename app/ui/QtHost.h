#pragma once
// The model's platform services on Qt: file dialogs, message boxes, QSettings,
// QTimer, queued calls on the GUI thread, syslog and the clipboard.
#include "app/model/Host.h"

#include <QStringList>
#include <functional>
#include <optional>
#include <string>

class QWidget;

namespace korv {

class QtHost : public Host {
public:
    // Dialogs are parented to the window once it exists.
    void setWindow(QWidget* window) { window_ = window; }

    std::vector<std::filesystem::path> openPanel(const OpenPanelRequest& request) override;
    std::optional<std::filesystem::path> savePanel(const SavePanelRequest& request) override;
    int runAlert(const std::string& message, const std::string& informative,
                 const std::vector<std::string>& buttons) override;
    void noteRecentDocument(const std::filesystem::path& path) override;
    std::optional<std::string> setting(const std::string& key) override;
    void setSetting(const std::string& key, const std::string& value) override;
    std::unique_ptr<HostTimer> startRepeatingTimer(double seconds, std::function<void()> tick) override;
    void runOnMain(std::function<void()> work) override;
    void runBusy(const std::string& label, const std::function<void()>& work) override;
    // While a long action runs, the window takes no input and can't close.
    bool isBusy() const { return busy_; }
    // Shows or hides the busy label over the picture.
    std::function<void(std::optional<std::string>)> onBusy;
    void log(const std::string& line) override;
    void copyImage(const RGBABuffer& image, const std::string& origin) override;
    RGBABufferPtr pasteImage(std::optional<std::string>* origin) override;

    // Most recent first.
    QStringList recentDocuments() const;
    void clearRecentDocuments();

private:
    QWidget* window_ = nullptr;
    bool busy_ = false;
};

} // namespace korv
