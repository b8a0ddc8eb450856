#include "engine/document/History.h"

#include "engine/document/StudioDocument.h"

#include <algorithm>
#include <unordered_set>

namespace korv {

namespace {
constexpr auto kCoalesceWindow = std::chrono::seconds(2);
// The byte budget is only looked at for a history at least this long, so
// short histories never pay for the walk over all their tiles.
constexpr size_t kByteCheckMinItems = 11;

void collectTiles(const std::vector<StudioLayer>& layers, std::unordered_set<const Tile*>& out) {
    auto add = [&out](const std::optional<TileSet>& set) {
        if (!set) return;
        for (const TilePtr& t : set->tiles)
            if (t) out.insert(t.get());
    };
    for (const StudioLayer& l : layers) {
        add(l.pixels);
        add(l.mask);
        collectTiles(l.children, out);
    }
}
} // namespace

int64_t tileBytes(const std::vector<HistoryItem>& items) {
    std::unordered_set<const Tile*> tiles;
    for (const HistoryItem& item : items)
        collectTiles(item.state.layers, tiles);
    return int64_t(tiles.size()) * kTileBytes;
}

StudioDocument::State StudioDocument::capture() {
    for (StudioLayer& l : layers)
        l.freezeAll();
    return State{grid, layers, activeID, selection, dpi};
}

void StudioDocument::commit(const std::string& name, const std::optional<std::string>& coalesce) {
    const Clock::time_point now = clock();
    if (!coalesce) {
        commitStep(name, now);
        return;
    }
    const int64_t last = int64_t(history_.size()) - 1;
    const bool merges = lastCoalesce_ && lastCoalesce_->key == *coalesce &&
                        now - lastCoalesce_->time < kCoalesceWindow && cursor_ >= 1 && cursor_ == last &&
                        history_[size_t(cursor_)].name == name;
    if (merges) {
        // The item before stays: one undo returns to where the run of changes began.
        history_[size_t(cursor_)] = HistoryItem{Uuid::random(), name, capture(), now};
        changeCount_ += 1;
    } else {
        commitStep(name, now);
    }
    lastCoalesce_ = CoalesceMark{*coalesce, now};
}

// The name is taken by value: a caller may pass the name of an item that is about to go.
void StudioDocument::commitStep(std::string name, Clock::time_point now) {
    // Steps after the cursor stay available until a new step replaces them.
    history_.erase(history_.begin() + cursor_ + 1, history_.end());
    history_.push_back(HistoryItem{Uuid::random(), std::move(name), capture(), now});
    cursor_ = int64_t(history_.size()) - 1;
    changeCount_ += 1;
    lastCoalesce_.reset();
    trim();
}

void StudioDocument::trim() {
    auto dropOldest = [this] {
        history_.erase(history_.begin());
        cursor_ -= 1;
    };
    while (history_.size() > 2 && int64_t(history_.size()) - 1 > maxUndoSteps)
        dropOldest();
    if (history_.size() < kByteCheckMinItems) return;
    // Once begun, the budget may take the history down to two items.
    while (history_.size() > 2 && historyBytes() > maxUndoBytes)
        dropOldest();
}

void StudioDocument::restore(const State& state, bool counts) {
    const bool gridChanged = state.grid != grid;
    grid = state.grid;
    layers = state.layers;
    activeID = state.active;
    selection = state.selection;
    dpi = state.dpi;
    if (counts) {
        changeCount_ += 1;
        lastCoalesce_.reset();
    }
    if (gridChanged && onGridChange) onGridChange();
    markAllDirty();
}

void StudioDocument::undo() {
    if (cursor_ == 0) return;
    cursor_ -= 1;
    restore(history_[size_t(cursor_)].state, true);
}

void StudioDocument::redo() {
    if (!canRedo()) return;
    cursor_ += 1;
    restore(history_[size_t(cursor_)].state, true);
}

void StudioDocument::jump(int64_t toHistory) {
    if (toHistory < 0 || toHistory >= int64_t(history_.size()) || toHistory == cursor_) return;
    cursor_ = toHistory;
    restore(history_[size_t(cursor_)].state, true);
}

void StudioDocument::revertToLastCommit() {
    restore(history_[size_t(cursor_)].state, false);
}

void StudioDocument::resetHistory() {
    history_.clear();
    history_.push_back(HistoryItem{Uuid::random(), "Open", capture(), clock()});
    cursor_ = 0;
}

Uuid StudioDocument::takeSnapshot(const std::string& name) {
    HistoryItem item{Uuid::random(), name, capture(), clock()};
    snapshots_.push_back(item);
    return item.id;
}

bool StudioDocument::restoreSnapshot(const Uuid& id) {
    auto it =
        std::find_if(snapshots_.begin(), snapshots_.end(), [&](const HistoryItem& s) { return s.id == id; });
    if (it == snapshots_.end()) return false;
    const HistoryItem snapshot = *it;
    restore(snapshot.state, true);
    commit("Snapshot: " + snapshot.name);
    return true;
}

void StudioDocument::deleteSnapshot(const Uuid& id) {
    std::erase_if(snapshots_, [&](const HistoryItem& s) { return s.id == id; });
}

std::optional<std::string> StudioDocument::undoName() const {
    if (cursor_ == 0) return std::nullopt;
    return history_[size_t(cursor_)].name;
}

std::optional<std::string> StudioDocument::redoName() const {
    if (!canRedo()) return std::nullopt;
    return history_[size_t(cursor_) + 1].name;
}

int64_t StudioDocument::historyBytes() const {
    return tileBytes(history_);
}

void StudioDocument::markDirty(const IRect& rect) {
    for (int64_t i : grid.tiles(rect))
        dirtyTiles.insert(i);
}

void StudioDocument::markDirty(const std::vector<int64_t>& tiles) {
    dirtyTiles.insert(tiles.begin(), tiles.end());
}

void StudioDocument::markAllDirty() {
    dirtyTiles.clear();
    for (int64_t i = 0; i < grid.count(); ++i)
        dirtyTiles.insert(dirtyTiles.end(), i);
}

std::vector<int64_t> StudioDocument::takeDirtyTiles() {
    std::vector<int64_t> out(dirtyTiles.begin(), dirtyTiles.end());
    dirtyTiles.clear();
    return out;
}

} // namespace korv
