#pragma once
// The flat host that every brush stroke runs on: a list of layers on one
// grid, one active layer, a selection, the tiles changed since last shown,
// and an undo history of whole states whose tiles are shared, not copied.
#include "engine/core/IRect.h"
#include "engine/core/PaintColor.h"
#include "engine/core/SelectionRef.h"
#include "engine/core/TileGrid.h"
#include "engine/paint/BrushSettings.h"
#include "engine/paint/Layer.h"
#include "engine/paint/StrokePoint.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace korv {

// Neighbouring frames shown faintly around the active layer.
struct OnionSkin {
    bool enabled = false;
    int64_t before = 1;
    int64_t after = 1;
    double opacity = 0.4;
    bool tint = true;
    PaintColor beforeColor{0.95, 0.2, 0.25, 1};
    PaintColor afterColor{0.15, 0.75, 0.35, 1};
    bool operator==(const OnionSkin&) const = default;
};

// A layer as history keeps it: its attributes by value, its tiles by reference.
struct LayerState {
    Uuid id;
    std::string name;
    double opacity = 1.0;
    BlendMode blendMode = BlendMode::normal;
    bool isVisible = true;
    bool isLocked = false;
    bool alphaLocked = false;
    bool isClipping = false;
    std::vector<TilePtr> tiles;
    TileGrid grid;
    bool operator==(const LayerState&) const = default;
};

class PaintDocument {
public:
    struct State {
        TileGrid grid;
        std::vector<LayerState> layers;
        int64_t active = 0;
        SelectionRef selection;
        double dpi = 72.0;
    };
    struct Step {
        std::string name;
        State state;
    };

    // One transparent layer, "Layer 1"; each side is raised to at least 1.
    PaintDocument(int64_t width, int64_t height, double dpi = 72.0);
    PaintDocument(const PaintDocument&) = delete;
    PaintDocument& operator=(const PaintDocument&) = delete;

    TileGrid grid;
    double dpi = 72.0;
    std::vector<LayerPtr> layers;
    OnionSkin onion;
    std::set<int64_t> dirtyTiles;
    std::function<void()> onGridChange;
    int64_t maxUndoSteps = 100;
    int64_t maxUndoBytes = 1500000000;

    // Always within the list: 0 for an empty one.
    int64_t activeIndex() const;
    void setActiveIndex(int64_t index);
    const LayerPtr& activeLayer() const;

    const SelectionRef& selection() const { return selection_; }
    void setSelection(SelectionRef s) { selection_ = std::move(s); }
    void selectAll();
    void deselect() { selection_.reset(); }
    void invertSelection();

    void markDirty(const IRect& rect);
    void markAllDirty();
    // Ascending; the set is emptied.
    std::vector<int64_t> takeDirtyTiles();

    void perform(const std::string& name, const std::function<void()>& body);
    void commit(const std::string& name);
    // Drops whatever was painted since the current step.
    void revertToLastCommit();
    const std::vector<Step>& history() const { return history_; }
    // The history becomes one item "Open" holding the current state (a document just read).
    void resetHistory();
    int64_t cursor() const { return cursor_; }
    int64_t changeCount() const { return changeCount_; }
    // Bytes of the distinct tiles that the history reaches.
    int64_t historyBytes() const;

    // The current state; freezes every tile it refers to.
    State capture();

    // A whole stroke in one call, committing nothing. No layer means the
    // active one; a locked layer or no points paints nothing. The result is
    // the stroke's dirty rectangle.
    IRect paintStroke(const std::vector<StrokePoint>& points, const BrushSettings& brush,
                      const PaintColor& color, LayerPtr layer = nullptr, uint64_t seed = 1);

private:
    void restore(const State& state);

    int64_t activeIndex_ = 0;
    SelectionRef selection_;
    std::vector<Step> history_;
    int64_t cursor_ = 0;
    int64_t changeCount_ = 0;
};

} // namespace korv
