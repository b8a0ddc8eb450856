#pragma once
// The records of undo history. Undo keeps whole document states rather than
// inverse operations: a state is a value copy of the tree whose tiles are all
// frozen and shared, so recording one costs references, never pixels.
#include "engine/core/SelectionRef.h"
#include "engine/core/TileGrid.h"
#include "engine/core/Uuid.h"
#include "engine/document/StudioLayer.h"

#include <chrono>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace korv {

using Clock = std::chrono::system_clock;

// What the document holds at one moment.
struct HistoryState {
    TileGrid grid;
    std::vector<StudioLayer> layers;
    std::optional<Uuid> active;
    SelectionRef selection;
    double dpi = 72.0;

    bool operator==(const HistoryState&) const = default;
};

// One step of the history, or a named snapshot: the state after the step.
struct HistoryItem {
    Uuid id;
    std::string name;
    HistoryState state;
    Clock::time_point date;

    bool operator==(const HistoryItem&) const = default;
};

// The key and time of the last coalesced commit, which a like change within
// the window merges into.
struct CoalesceMark {
    std::string key;
    Clock::time_point time;

    bool operator==(const CoalesceMark&) const = default;
};

// Keeps count of the distinct tiles that a list of states reaches through
// pixels and masks, all the way down the tree, so that the byte budget never
// walks every state. A reference is counted unless the state before it in the
// list holds the same tile at the same place: a step that changed three tiles
// costs three counts, not one per tile of the picture. States enter and leave
// at the ends of the list, and each call names the state next to the one that
// enters or leaves (none at the ends of the list).
class TileLedger {
public:
    // `state` joins at the end of the list, after `before`.
    void append(const HistoryState& state, const HistoryState* before) { adjust(state, before, +1); }
    // The last state leaves; `before` precedes it.
    void removeLast(const HistoryState& state, const HistoryState* before) { adjust(state, before, -1); }
    // The first state leaves; `after` follows it, and now counts what the two shared.
    void removeFirst(const HistoryState& state, const HistoryState* after) { adjust(state, after, -1); }
    void clear() { refs_.clear(); }
    int64_t distinctTiles() const { return int64_t(refs_.size()); }

private:
    void adjust(const HistoryState& state, const HistoryState* neighbour, int64_t delta);
    void adjust(const std::vector<StudioLayer>& layers, const std::vector<StudioLayer>* twins, int64_t delta);
    void adjust(const std::optional<TileSet>& set, const std::optional<TileSet>* twin, int64_t delta);
    std::unordered_map<const Tile*, int64_t> refs_;
};

} // namespace korv
