#pragma once
// A picture: the layer tree on one canvas, with its selection, render cache,
// undo history and the set of tiles the canvas must redraw. Used from one
// thread at a time.
#include "engine/core/PaintColor.h"
#include "engine/core/RGBABuffer.h"
#include "engine/core/SelectionRef.h"
#include "engine/document/History.h"
#include "engine/document/StudioLayer.h"
#include "engine/render/RenderCache.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace korv {

// Indices from the top level down to a layer.
using LayerPath = std::vector<int64_t>;

// How addMask fills a new mask.
enum class NewMask : uint8_t { revealAll, hideAll, revealSelection, hideSelection };

class StudioDocument {
public:
    using State = HistoryState;
    using HistoryItem = korv::HistoryItem;

    struct Container {
        LayerPath parent; // empty at the top level
        int64_t index = 0;
    };

    // Every constructor ends with resetHistory(): one item "Open", nothing to undo.
    // One layer "Background" filled with the colour, or a transparent "Layer 1" without one.
    StudioDocument(int64_t width, int64_t height, double dpi = 72.0,
                   std::optional<PaintColor> background = std::nullopt);
    // Takes the tree as given; no active id means the topmost layer.
    StudioDocument(int64_t width, int64_t height, double dpi, std::vector<StudioLayer> layers,
                   std::optional<Uuid> active = std::nullopt);
    // A one-layer document of the picture's size.
    StudioDocument(const RGBABuffer& image, double dpi, std::string name);
    StudioDocument(const StudioDocument&) = delete;
    StudioDocument& operator=(const StudioDocument&) = delete;

    TileGrid grid;
    double dpi = 72.0;
    std::vector<StudioLayer> layers; // bottom first
    std::optional<Uuid> activeID;
    SelectionRef selection;
    std::set<int64_t> dirtyTiles;
    std::function<void()> onGridChange;
    // Commits beyond this many steps drop the oldest; at least two items stay.
    int64_t maxUndoSteps = 60;
    // Once eleven items exist, old steps drop while the distinct tiles of the
    // history take more than this.
    int64_t maxUndoBytes = 2000000000;
    // Where commits read the time; tests set it to step through the coalescing window.
    std::function<Clock::time_point()> clock = [] { return Clock::now(); };

    int64_t width() const { return grid.width; }
    int64_t height() const { return grid.height; }
    RenderCache& cache() const { return *cache_; }

    std::optional<LayerPath> path(const Uuid& id) const;
    // A path that does not exist is a programming fault.
    const StudioLayer& layer(const LayerPath& path) const;
    std::optional<StudioLayer> layer(const std::optional<Uuid>& id) const;
    const StudioLayer* find(const Uuid& id) const;
    std::optional<StudioLayer> activeLayer() const { return layer(activeID); }
    std::optional<Container> container(const Uuid& id) const;
    // Runs body on the array at that place: the top level for an empty path,
    // otherwise the children of the layer there.
    void withSiblings(const LayerPath& path, const std::function<void(std::vector<StudioLayer>&)>& body);
    // Runs body on the layer in place; false (and nothing done) for an unknown id.
    bool update(const Uuid& id, bool bumpVersion, const std::function<void(StudioLayer&)>& body);

    std::vector<LayerRow> rows() const;
    std::vector<StudioLayer> allLayers() const;
    std::string uniqueName(const std::string& base) const;
    uint64_t fingerprint() const;
    RGBABufferPtr flattened() const;

    // Layer operations. None commits a step; each that changes something ends
    // with markAllDirty(), and an unknown id leaves the document as it was.
    // `delete` is a C++ keyword, so the removal is deleteLayer.
    Uuid insert(StudioLayer layer, bool aboveActive);
    Uuid addPixelLayer(std::optional<std::string> name = std::nullopt);
    Uuid addAdjustment(AdjustmentType type);
    Uuid addFill(const FillSpec& spec);
    Uuid addText(const TextSpec& spec);
    Uuid addShape(const ShapeSpec& spec);
    std::optional<Uuid> group(const std::vector<Uuid>& ids, std::optional<std::string> name = std::nullopt);
    void ungroup(const Uuid& id);
    std::optional<Uuid> duplicate(const Uuid& id);
    void deleteLayer(const Uuid& id);
    // By a signed count of places among the siblings, positive is upward.
    void move(const Uuid& id, int64_t by);
    // To the top of the group's children, or of the top level without one.
    void move(const Uuid& id, const std::optional<Uuid>& intoGroup);
    void mergeDown(const Uuid& id);
    // The hidden layer of the pair Merge Down of `id` would join, if any: such
    // a merge is refused, since it would change the picture or drop content.
    const StudioLayer* hiddenOfMergePair(const Uuid& id) const;
    void flattenImage();
    Uuid stampVisible();
    void rasterize(const Uuid& id);
    void rasterizeAllVector();
    void addMask(const Uuid& id, NewMask kind);
    void deleteMask(const Uuid& id);
    void applyMask(const Uuid& id);
    void invertMask(const Uuid& id);
    // A grey picture, white meaning visible, as mask bytes (all four 255 - R).
    static RGBABufferPtr grayToMask(const RGBABuffer& buffer);
    // What a pixel tool may write: none for an unknown or locked layer, or one without that raster.
    std::optional<TileSet> editableRaster(const Uuid& id, bool mask) const;
    // Stores the tiles without marking anything dirty: the caller knows the region.
    void setRaster(const Uuid& id, bool mask, TileSet tiles, bool version);

    // Image operations: the whole picture's size or orientation. Every raster
    // and mask is rebuilt on the new grid, the selection goes, and every tile
    // is dirty. Sizes below 1 count as 1; the caller keeps them to 30,000.
    // Resampled smoothly; text, shapes, fills and effects scale with it.
    void resizeImage(int64_t width, int64_t height);
    // The old picture placed by the anchors (0 left or top, 1 right or bottom), not resampled.
    void resizeCanvas(int64_t width, int64_t height, double anchorX, double anchorY);
    // To the rectangle's part on the canvas; nothing happens when that is empty.
    void crop(const IRect& rect);
    // Clockwise, by quarterTurns & 3; text, shapes and fills become pixels first.
    void rotate(int64_t quarterTurns);
    void flip(bool horizontal);
    // Moves one layer (a group with all it holds); its mask stays where it is.
    // Nothing happens for an unknown or locked layer.
    void offsetLayer(const Uuid& id, int64_t dx, int64_t dy);
    static void offsetTree(StudioLayer& layer, int64_t dx, int64_t dy, const TileGrid& grid);
    // A fill keeps its centre on the same point of the picture between the grids.
    static void offsetVector(StudioLayer& layer, double dx, double dy, const TileGrid& before,
                             const TileGrid& after);

    // Selection commands: they change `selection` only.
    void selectAll();
    void deselect();
    void invertSelection();
    void setSelection(SelectionRef newSelection);
    // The layer's drawn content as a selection (its alpha).
    void selectLayerShape(const Uuid& id);
    // What the layer's mask reveals as a selection.
    void selectMask(const Uuid& id);

    // History. Operations elsewhere never commit: the caller names the step.
    const std::vector<HistoryItem>& history() const { return history_; }
    // The item that describes what the document holds.
    int64_t cursor() const { return cursor_; }
    const std::vector<HistoryItem>& snapshots() const { return snapshots_; }
    // Goes up with every commit, undo, redo, jump and snapshot restore, never down.
    int64_t changeCount() const { return changeCount_; }
    const std::optional<CoalesceMark>& lastCoalesce() const { return lastCoalesce_; }

    // The current state; freezes every tile, so the next write copies.
    State capture();
    // Records a step. With a key, a like change (same key and name, within
    // two seconds of the last) replaces the last step instead, so a slider
    // drag of any length is one step.
    void commit(const std::string& name, std::optional<std::string> coalesce = std::nullopt);
    void undo();
    void redo();
    void jump(int64_t toHistory);
    // Puts back the last committed state without counting a change (ends a live preview).
    void revertToLastCommit();
    // The history becomes one item "Open" with the current state.
    void resetHistory();
    Uuid takeSnapshot(const std::string& name);
    // Restores the snapshot as an undoable step "Snapshot: <name>"; false for an unknown id.
    bool restoreSnapshot(const Uuid& id);
    void deleteSnapshot(const Uuid& id);
    bool canUndo() const { return cursor_ > 0; }
    bool canRedo() const { return cursor_ < int64_t(history_.size()) - 1; }
    std::optional<std::string> undoName() const;
    std::optional<std::string> redoName() const;
    // Bytes of the distinct tiles the history reaches; snapshots don't count.
    int64_t historyBytes() const;

    void markDirty(const IRect& rect);
    void markDirty(const std::vector<int64_t>& tiles);
    void markAllDirty();
    // The dirty tile indices in ascending order; the set is emptied.
    std::vector<int64_t> takeDirtyTiles();

private:
    // Rebuilds every raster and mask of the tree on a grid of width x height:
    // `draw` makes the new picture of a set from the old one; a set without a
    // visible pixel stays empty. `vector` changes a vector layer's numbers.
    void regrid(int64_t width, int64_t height, const std::function<RGBABufferPtr(const RGBABuffer&)>& draw,
                const std::function<void(StudioLayer&)>& vector);

    void commitStep(std::string name, Clock::time_point now);
    void trim();
    void restore(const State& state, bool counts);

    StudioLayer* findMutable(const Uuid& id);
    std::unique_ptr<RenderCache> cache_ = std::make_unique<RenderCache>();
    // Never empty; cursor_ is an index into it.
    std::vector<HistoryItem> history_;
    // Mirrors history_, so the byte budget never walks all the states.
    TileLedger historyTiles_;
    int64_t cursor_ = 0;
    std::vector<HistoryItem> snapshots_;
    int64_t changeCount_ = 0;
    std::optional<CoalesceMark> lastCoalesce_;
};

} // namespace korv
