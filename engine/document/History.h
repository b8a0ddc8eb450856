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

// Bytes of the distinct tiles that the states reach through pixels and masks,
// all the way down the tree: a tile shared by many states counts once.
int64_t tileBytes(const std::vector<HistoryItem>& items);

} // namespace korv
