#include "engine/document/History.h"

#include "engine/core/Require.h"
#include "engine/document/StudioDocument.h"

#include <algorithm>

namespace korv {

namespace {
constexpr auto kCoalesceWindow = std::chrono::seconds(2);
// The byte budget is only looked at for a history at least this long.
constexpr size_t kByteCheckMinItems = 11;

} // namespace

void TileLedger::adjust(const HistoryState& state, const HistoryState* neighbour, int64_t delta) {
    adjust(state.layers, neighbour ? &neighbour->layers : nullptr, delta);
}

// Places pair up by position in the tree, which makes the pairing symmetric:
// whatever append() skipped as carried by the state before, removeFirst() of
// that state hands over in the same way.
void TileLedger::adjust(const std::vector<StudioLayer>& layers, const std::vector<StudioLayer>* twins,
                        int64_t delta) {
    for (size_t i = 0; i < layers.size(); ++i) {
        const StudioLayer* twin = twins && i < twins->size() ? &(*twins)[i] : nullptr;
        adjust(layers[i].pixels, twin ? &twin->pixels : nullptr, delta);
        adjust(layers[i].mask, twin ? &twin->mask : nullptr, delta);
        adjust(layers[i].children, twin ? &twin->children : nullptr, delta);
    }
}

void TileLedger::adjust(const std::optional<TileSet>& set, const std::optional<TileSet>* twin,
                        int64_t delta) {
    if (!set) return;
    const std::vector<TilePtr>& tiles = set->tiles;
    const std::vector<TilePtr>* same =
        twin && *twin && (*twin)->tiles.size() == tiles.size() ? &(*twin)->tiles : nullptr;
    for (size_t k = 0; k < tiles.size(); ++k) {
        const Tile* t = tiles[k].get();
        if (!t || (same && (*same)[k].get() == t)) continue;
        auto it = refs_.try_emplace(t, 0).first;
        it->second += delta;
        KORV_REQUIRE(it->second >= 0); // a state removed that was never added, or twice
        if (it->second == 0) refs_.erase(it);
    }
}

StudioDocument::State StudioDocument::capture() {
    for (StudioLayer& l : layers)
        l.freezeAll();
    return State{grid, layers, activeID, selection, dpi};
}

void StudioDocument::commit(const std::string& name, std::optional<std::string> coalesce) {
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
        HistoryItem merged{Uuid::random(), name, capture(), now};
        const HistoryState& before = history_[history_.size() - 2].state;
        historyTiles_.append(merged.state, &before);
        historyTiles_.removeLast(history_.back().state, &before);
        history_.back() = std::move(merged);
        changeCount_ += 1;
    } else {
        commitStep(name, now);
    }
    lastCoalesce_ = CoalesceMark{*coalesce, now};
}

// The name is taken by value: a caller may pass the name of an item that is about to go.
void StudioDocument::commitStep(std::string name, Clock::time_point now) {
    // Steps after the cursor stay available until a new step replaces them.
    while (int64_t(history_.size()) - 1 > cursor_) {
        historyTiles_.removeLast(history_.back().state, &history_[history_.size() - 2].state);
        history_.pop_back();
    }
    HistoryItem item{Uuid::random(), std::move(name), capture(), now};
    historyTiles_.append(item.state, &history_.back().state);
    history_.push_back(std::move(item));
    cursor_ = int64_t(history_.size()) - 1;
    changeCount_ += 1;
    lastCoalesce_.reset();
    trim();
}

void StudioDocument::trim() {
    auto dropOldest = [this] {
        historyTiles_.removeFirst(history_[0].state, &history_[1].state);
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
    historyTiles_.clear();
    history_.push_back(HistoryItem{Uuid::random(), "Open", capture(), clock()});
    historyTiles_.append(history_.back().state, nullptr);
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
    return historyTiles_.distinctTiles() * kTileBytes;
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
