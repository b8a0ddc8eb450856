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
#include "engine/core/Selection.h"
#include "engine/core/SelectionRef.h"
#include "engine/formats/PhotoExport.h"
#include "engine/selection/SelectionTools.h"
#include "engine/transform/TransformSession.h"

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

// A file that could not be opened, with the reason as a sentence for the user.
struct OpenFailure {
    std::filesystem::path file;
    std::string reason;
    bool operator==(const OpenFailure&) const = default;
};

// The one alert that tells every failed open of a batch: a single failure
// keeps its own title, several are listed one per line.
AlertInfo failedOpensAlert(const std::vector<OpenFailure>& failures);

struct LivePreview {
    std::string filterID; // "smoothSkin" stands for Smooth Skin
    std::map<std::string, double> values;
    bool on = false;
    bool operator==(const LivePreview&) const = default;
};

// Where a pixel operation writes: a layer's pixels, or its mask.
struct PixelTarget {
    Uuid id;
    bool mask = false;
    bool operator==(const PixelTarget&) const = default;
};

// A two-way binding a panel control holds: the getter reads the document as
// it is now, the setter goes through the model as one history step.
template <class T>
struct Binding {
    std::function<T()> get;
    std::function<void(const T&)> set;
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
    SelectionOp selectionMode = SelectionOp::replace;
    double wandTolerance = 32;
    bool wandContiguous = true;
    bool sampleAllLayers = true;
    double redEyeSize = 28;
    double quickSize = 30;
    double bucketTolerance = 32;
    // What the Shape tool draws and the Text tool places; the drag or click
    // gives only the position.
    ShapeSpec shapeSpec = defaultShapeSpec();
    TextSpec textSpec = defaultTextSpec();
    std::optional<Sheet> sheet;
    std::optional<CanvasRect> cropRect;
    int64_t tick = 0;
    std::string status;
    std::optional<AlertInfo> alert;
    std::optional<std::string> busy;
    std::optional<LivePreview> preview;
    // The free, perspective or warp transform being dragged, shown in the
    // layer as a preview history doesn't see until it is applied.
    std::shared_ptr<TransformSession> transform;
    Prefs prefs;
    std::string cursorInfo;
    // The folder a file panel was last used in, for pictures not yet saved.
    std::optional<std::filesystem::path> lastFolder;
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
    // Opens each in order; the failures are told together in one alert.
    void openAll(const std::vector<std::filesystem::path>& urls);
    // Where the next file panel starts: the current picture's folder, else the last one used.
    std::filesystem::path dialogFolder() const;
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

    // The wrapper of every edit: runs body on the current document, commits
    // one step named `name` when it answers true (replacing the last one for
    // a like coalesce key), then refreshes the views either way.
    bool act(const std::string& name, std::optional<std::string> coalesce,
             const std::function<bool(StudioDocument&)>& body);
    bool act(const std::string& name, const std::function<bool(StudioDocument&)>& body) {
        return act(name, std::nullopt, body);
    }
    // Edits one layer in place as a step; with coalesce, repeated edits of the
    // same layer and name within the window make one step.
    void setLayer(const Uuid& id, const std::string& name, bool coalesce,
                  const std::function<void(StudioLayer&)>& edit);
    template <class T>
    Binding<T> bindLayer(const Uuid& id, const std::string& name, std::function<T(const StudioLayer&)> get,
                         std::function<void(StudioLayer&, const T&)> set, T fallback);
    // A field of the layer's adjustment record, as the step "Adjust".
    template <class T>
    Binding<T> bindAdj(const Uuid& id, std::function<T(const AdjustmentSpec&)> get,
                       std::function<void(AdjustmentSpec&, const T&)> set, T fallback);
    template <class T>
    Binding<T> bindAdj(const Uuid& id, T AdjustmentSpec::*field, T fallback);

    // What a pixel tool may write now; unless quiet, a refusal is told in `status`.
    std::optional<PixelTarget> pixelTarget(bool quiet);
    // Ends a live preview, putting back the committed pixels.
    void cancelLive();
    // Makes a layer active (the Layers panel); no step.
    void select(const Uuid& id);
    void undo();
    void redo();
    void jumpHistory(int64_t index);
    void takeSnapshot();
    void restoreSnapshot(const Uuid& id);
    // Combines the mask with the selection under op (or selectionMode) as the step `name`.
    void setSelection(const SelectionTools::Mask& mask, const std::string& name,
                      std::optional<SelectionOp> op = std::nullopt);
    // The picture the wand reads: the active layer's pixels, or the whole
    // picture with sampleAllLayers or a layer without pixels.
    RGBABufferPtr selectionSource() const;

    // Layer commands, each one history step; with nothing to act on they do nothing.
    void addLayer();
    void addAdjustment(AdjustmentType type);
    void addFill(FillKind kind);
    // Layers drawn from a record as it stands, above the active layer (VectorCommands.cpp).
    void addFill(const FillSpec& spec);
    void addText(const TextSpec& spec);
    void addShape(const ShapeSpec& spec);
    // The Text tool's click at a canvas point: selects the text under it, or
    // places a new one there in textSpec and the primary colour.
    void textClick(Point at);
    // The Shape tool's drag between canvas points at the canvas's zoom; a
    // slip of the hand makes nothing. True when a shape was added.
    bool shapeDrag(Point start, Point end, double zoom);
    void addGroup();
    void ungroup();
    void duplicateLayer();
    void deleteLayer(std::optional<Uuid> id = std::nullopt);
    void moveLayer(bool up);
    void mergeDown();
    void flatten();
    void stampVisible();
    void rasterize();
    void addMask(NewMask kind);
    void deleteMask();
    void applyMask();
    void invertMask();
    void toggleVisible(const Uuid& id);
    void toggleLock(const Uuid& id);
    void toggleClip(std::optional<Uuid> id = std::nullopt);
    void rename(const Uuid& id, const std::string& name);
    void toggleMaskEnabled();
    // Sets one Levels channel's input black and white where the picture under
    // the layer begins and ends (a sliver of outliers clipped), as one step.
    void autoLevels(const Uuid& id, int channel);

    // Image commands, each one step after which the canvas fits the picture.
    // Sizes must be 1 to 30,000; anchors 0 to 1 place the old picture.
    void resizeImage(int64_t width, int64_t height);
    void resizeCanvas(int64_t width, int64_t height, double anchorX, double anchorY);
    void rotate(int64_t quarterTurns);
    void flip(bool horizontal);
    void cropToSelection();
    // Crops to the Crop tool's rectangle and clears it.
    void applyCrop();
    // The active layer (a group with its content) moved as the step "Move".
    void moveLayerBy(int64_t dx, int64_t dy);

    // Transform sessions on the pixel target. Beginning drops any other live
    // state; the geometry is changed on `transform` and shown with
    // updateTransform(); apply commits one step "Transform", cancel none.
    void beginTransform(TransformMode mode);
    void setTransformMode(TransformMode mode);
    void updateTransform();
    void applyTransform();
    void cancelTransform();

    // Selection commands.
    void selectAll();
    void deselect();
    void invertSelection();
    void selectLayerShape();
    void selectMaskArea();
    // kind: "feather", "grow", "shrink", "smooth" or anything else for a border.
    void refineSelection(const std::string& kind, double amount);
    // The magic wand's click at a canvas pixel, with the options bar's
    // settings; op is what the held keys ask for, selectionMode without one.
    void magicWandClick(int64_t x, int64_t y, std::optional<SelectionOp> op = std::nullopt);

    void loadToolSettings();
    void saveToolSettings();

    // Examines every tickSeconds whether a session is due a recovery copy.
    void startAutosave(double tickSeconds = 15);
    void autosaveTick(bool force);
    std::vector<Recovery::Item> pendingRecovery() const;
    // Restores a copy as a new dirty session; a failure becomes an alert.
    bool recover(const Recovery::Item& item);

    static nlohmann::json defaultBrush(Tool tool);
    static ShapeSpec defaultShapeSpec();
    // In the installed family that stands in for the record's default, so
    // that the font menus name the font the text is drawn in.
    static TextSpec defaultTextSpec();
    static nlohmann::json defaultRetouch(const std::string& kind);

private:
    void canvasShowCurrent();
    // After an undo, redo or jump: refits the canvas when the size changed.
    void refreshAfterHistory(const TileGrid& before);
    // act() for a command that changes the picture's grid.
    bool gridCommand(const std::string& name, const std::function<bool(StudioDocument&)>& body);
    std::optional<OpenFailure> openOne(const std::filesystem::path& url);
    void noteFolder(const std::filesystem::path& file);
    bool writeFile(const std::filesystem::path& url, const std::vector<uint8_t>& bytes,
                   const char* failureTitle);

    Host& host_;
    std::unique_ptr<HostTimer> autosaveTimer_;
    std::vector<std::pair<int, std::function<void()>>> observers_;
    int nextObserver_ = 1;
    // The status line tells an undo or redo; the next new step makes it stale.
    bool statusFromHistory_ = false;
};

template <class T>
Binding<T> StudioModel::bindLayer(const Uuid& id, const std::string& name,
                                  std::function<T(const StudioLayer&)> get,
                                  std::function<void(StudioLayer&, const T&)> set, T fallback) {
    Binding<T> b;
    b.get = [this, id, get, fallback]() -> T {
        auto* d = doc();
        const StudioLayer* l = d ? d->find(id) : nullptr;
        return l ? get(*l) : fallback;
    };
    b.set = [this, id, name, set](const T& value) {
        setLayer(id, name, true, [&](StudioLayer& l) { set(l, value); });
    };
    return b;
}

template <class T>
Binding<T> StudioModel::bindAdj(const Uuid& id, std::function<T(const AdjustmentSpec&)> get,
                                std::function<void(AdjustmentSpec&, const T&)> set, T fallback) {
    return bindLayer<T>(
        id, "Adjust",
        [get, fallback](const StudioLayer& l) { return l.adjustment ? get(*l.adjustment) : fallback; },
        [set](StudioLayer& l, const T& value) {
            if (l.adjustment) set(*l.adjustment, value);
        },
        fallback);
}

template <class T>
Binding<T> StudioModel::bindAdj(const Uuid& id, T AdjustmentSpec::*field, T fallback) {
    return bindAdj<T>(
        id, [field](const AdjustmentSpec& a) { return a.*field; },
        [field](AdjustmentSpec& a, const T& value) { a.*field = value; }, fallback);
}

// The session's display name for a file: its last component without extension.
std::string displayName(const std::filesystem::path& url);

} // namespace korv
