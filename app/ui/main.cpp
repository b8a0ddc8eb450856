// korv-lumenary: the editor's window. Besides files to open, it takes the
// development options below; the ones marked for tests drive the crash test.
#include "app/model/AppFolders.h"
#include "app/model/StudioModel.h"
#include "app/ui/CanvasView.h"
#include "app/ui/DevTools.h"
#include "app/ui/MainWindow.h"
#include "app/ui/QtHost.h"

#include <QApplication>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr const char* kUsage = R"(Usage: korv-lumenary [FILE...] [OPTIONS]

Opens each FILE (pictures, PSDs or .korvstudio documents) in the editor.

Development options:
  --selftest              open a generated picture, save it, reopen it and
                          compare; exit 0 when all is well
  --snapshots DIR         write screenshots of the window to DIR and exit
For tests:
  --autosave-interval S   examine and write recovery copies every S seconds
  --test-edit             place a coloured block on the current picture (a new
                          one if none is open) and print its fingerprint
  --recover-all           restore every pending recovery copy at start-up
  --print-sessions        print the open sessions once started, then exit
)";

struct Options {
    std::vector<std::string> files;
    bool selftest = false;
    std::optional<std::string> snapshots;
    std::optional<double> autosaveInterval;
    bool testEdit = false;
    bool recoverAll = false;
    bool printSessions = false;
};

std::optional<Options> parse(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--selftest") {
            o.selftest = true;
        } else if (arg == "--snapshots" && i + 1 < argc) {
            o.snapshots = argv[++i];
        } else if (arg == "--autosave-interval" && i + 1 < argc) {
            char* end = nullptr;
            const double seconds = std::strtod(argv[++i], &end);
            if (!end || *end || !(seconds > 0)) return std::nullopt;
            o.autosaveInterval = seconds;
        } else if (arg == "--test-edit") {
            o.testEdit = true;
        } else if (arg == "--recover-all") {
            o.recoverAll = true;
        } else if (arg == "--print-sessions") {
            o.printSessions = true;
        } else if (arg.rfind("--", 0) == 0) {
            return std::nullopt;
        } else {
            o.files.push_back(arg);
        }
    }
    return o;
}

} // namespace

int main(int argc, char** argv) {
    const auto options = parse(argc, argv);
    if (!options) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName("KORV Lumenary");
    QApplication::setOrganizationName("KORV");
    korv::applyDarkLook();

    if (options->selftest) return korv::runSelfTest();
    if (options->snapshots) return korv::writeSnapshots(*options->snapshots);

    korv::QtHost host;
    korv::StudioModel model(host);
    if (options->autosaveInterval) model.prefs.autosaveSeconds = *options->autosaveInterval;
    korv::MainWindow window(model, host);
    window.show();
    // Every file that fails is told in one alert, not only the last.
    model.openAll(std::vector<std::filesystem::path>(options->files.begin(), options->files.end()));

    if (options->recoverAll)
        for (const auto& item : model.pendingRecovery())
            model.recover(item);
    model.startAutosave(options->autosaveInterval.value_or(15));
    if (options->recoverAll) model.setSheet(std::nullopt);

    if (options->testEdit) korv::applyTestEdit(model);
    if (options->printSessions) {
        korv::printSessions(model);
        window.setQuitWithoutAsking(true);
        QTimer::singleShot(0, &window, [&window] { window.close(); });
    }
    return QApplication::exec();
}
