#pragma once
// The one object that the window, the menus and the canvas talk to: the open
// documents (one DocSession each), what belongs to the user rather than to a
// document, the transient interface state and the autosave timer. It does no
// pixel work itself. It never throws to the views: a failed command becomes
// `alert`, a refusal `status`. Every change is announced to the observers.
#include "app/model/DocSession.h"
#include "app/model/Host.h"
#include "app/model/Prefs.h"
#include "app/model/Recovery.h"
#include "app/model/Tool.h"
#include "engine/core/PaintColor.h"
#include "engine/core/SelectionRef.h"
#include "engine/formats/PhotoExport.h"

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace korv {

// The modal sheets; each view of the set owns its sheet's content.
struct Sheet {
    // `exportPicture` stands for the export sheet: "export" is a C++ keyword.
    enum class Kind {
        filter,
        refine,
        newDocument,
        exportPicture,
        imageSize,
        canvasSize,
        smoothSkin,
        recovery,
        layerEffects
    };
    Kind kind = Kind::newDocument;
    // The filter's id or the refine kind; empty for the others.
    std::string argument;

    std::string id() const;
    bool operator==(const Sheet&) const = default;
};

struct AlertInfo {
    Uuid id;
    std::string title;
    std::string message;
    bool operator==(const AlertInfo&) const = default;
};

struct LivePreview {
    std::string filterID; // "smoothSkin" stands for Smooth Skin
    std::map<std::string, double> values;
    bool on = false;
    bool operator==(const LivePreview&) const = default;
};

struct CanvasRect {
    double x = 0, y = 0, w = 0, h = 0;
    bool operator==(const CanvasRect&) const = default;
};

// What the model asks of the canvas that shows the current session.
class CanvasLink {
public:
    virtual ~CanvasLink() = default;
    virtual void showSession(DocSession& session) = 0;
    virtual void clear() = 0;
    // Pulls the dirty tiles of the shown document and redraws them.
    virtual void refresh() = 0;
    // True while a gesture (a stroke, a move) is half done.
    virtual bool isBusy() const = 0;
};

class StudioModel {
public:
    // With loadStores, the stored tool settings and preferences are read.
    explicit StudioModel(Host& host, bool loadStores = true);
    StudioModel(const StudioModel&) = delete;
    StudioModel& operator=(const StudioModel&) = delete;
    // Waits for recovery copies in flight, which log through the host.
    ~StudioModel();

    // Published state. Views read these and call the operations below;
    // every operation that changes them notifies.
    std::vector<DocSessionPtr> sessions;
    std::optional<Uuid> currentID;
    Tool tool = Tool::move;
    PaintColor primary{0.08, 0.08, 0.1, 1.0};
    PaintColor secondary = PaintColor::white();
    bool editMask = false;
    // Keyed by the tool's coded name (brush, eraser, smudge) and by the retouch
    // kind; the records are kept as JSON objects so the stored settings pass
    // through whole until the paint and retouch settings have their own types.
    std::map<std::string, nlohmann::json> brushes;
    std::map<std::string, nlohmann::json> retouch;
    double wandTolerance = 32;
    bool wandContiguous = true;
    bool sampleAllLayers = true;
    double redEyeSize = 28;
    double quickSize = 30;
    double bucketTolerance = 32;
    std::optional<Sheet> sheet;
    std::optional<CanvasRect> cropRect;
    int64_t tick = 0;
    std::string status;
    std::optional<AlertInfo> alert;
    std::optional<std::string> busy;
    std::optional<LivePreview> preview;
    Prefs prefs;
    std::string cursorInfo;
    CanvasLink* canvas = nullptr;

    // Change notification: a small list of observers, called on every change.
    int observe(std::function<void()> observer);
    void unobserve(int token);
    void notify();

    Host& host() { return host_; }
    DocSession* current() const;
    StudioDocument* doc() const;
    std::optional<StudioLayer> activeLayer() const;

    void setCurrentID(std::optional<Uuid> id);
    void setTool(Tool newTool);
    void setEditMask(bool on);
    void setStatus(std::string text);
    void setBusy(std::optional<std::string> text);
    void setSheet(std::optional<Sheet> newSheet);
    void dismissAlert();

    void refresh(bool all = false);
    void show(const std::string& title, const std::string& message);

    // Sides are clamped to 1...30000.
    void newDocument(int64_t width, int64_t height, double dpi, std::optional<PaintColor> background,
                     const std::string& name = "Untitled");
    void add(DocSessionPtr session);
    void openPanel();
    void open(const std::filesystem::path& url);
    void importAsLayerPanel();
    void importAsLayer(const std::filesystem::path& url);
    // One history step "Place <name>": scaled down to fit, centred unless a position is given.
    void placeBuffer(const RGBABuffer& buffer, const std::string& name,
                     std::optional<std::pair<int64_t, int64_t>> at, StudioDocument& doc);
    void save(bool as);
    bool write(DocSession& session, const std::filesystem::path& url);
    void exportPSD();
    void exportPicture(const PhotoExportOptions& options);
    void close(std::optional<Uuid> id = std::nullopt);
    bool shouldQuit();

    // Runs body on the current document and, when it answers true, commits one step.
    bool act(const std::string& name, const std::function<bool(StudioDocument&)>& body);
    void undo();
    void redo();

    void loadToolSettings();
    void saveToolSettings();

    // Examines every tickSeconds whether a session is due a recovery copy.
    void startAutosave(double tickSeconds = 15);
    void autosaveTick(bool force);
    std::vector<Recovery::Item> pendingRecovery() const;
    // Restores a copy as a new dirty session; a failure becomes an alert.
    bool recover(const Recovery::Item& item);

    static nlohmann::json defaultBrush(Tool tool);
    static nlohmann::json defaultRetouch(const std::string& kind);

private:
    void canvasShowCurrent();
    bool writeFile(const std::filesystem::path& url, const std::vector<uint8_t>& bytes,
                   const char* failureTitle);

    Host& host_;
    std::unique_ptr<HostTimer> autosaveTimer_;
    std::vector<std::pair<int, std::function<void()>>> observers_;
    int nextObserver_ = 1;
};

// The session's display name for a file: its last component without extension.
std::string displayName(const std::filesystem::path& url);

} // namespace korv
