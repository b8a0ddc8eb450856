#include "engine/paint/PaintDocument.h"

#include "engine/core/Selection.h"
#include "engine/paint/BrushStroke.h"

#include <algorithm>
#include <unordered_set>

namespace korv {

PaintDocument::PaintDocument(int64_t width, int64_t height, double dpi_)
    : grid(std::max<int64_t>(width, 1), std::max<int64_t>(height, 1)), dpi(dpi_) {
    layers.push_back(std::make_shared<Layer>("Layer 1", grid));
    history_.push_back({"Open", capture()});
}

void PaintDocument::resetHistory() {
    history_.clear();
    history_.push_back({"Open", capture()});
    cursor_ = 0;
}

int64_t PaintDocument::activeIndex() const {
    return layers.empty() ? 0 : std::clamp<int64_t>(activeIndex_, 0, int64_t(layers.size()) - 1);
}

void PaintDocument::setActiveIndex(int64_t index) {
    activeIndex_ = layers.empty() ? 0 : std::clamp<int64_t>(index, 0, int64_t(layers.size()) - 1);
}

const LayerPtr& PaintDocument::activeLayer() const {
    return layers[size_t(activeIndex())];
}

void PaintDocument::selectAll() {
    selection_ = Selection::all(grid.width, grid.height);
}

void PaintDocument::invertSelection() {
    if (selection_) selection_ = selection_->inverted();
}

void PaintDocument::markDirty(const IRect& rect) {
    for (int64_t i : grid.tiles(rect))
        dirtyTiles.insert(i);
}

void PaintDocument::markAllDirty() {
    for (int64_t i = 0; i < grid.count(); ++i)
        dirtyTiles.insert(i);
}

std::vector<int64_t> PaintDocument::takeDirtyTiles() {
    std::vector<int64_t> out(dirtyTiles.begin(), dirtyTiles.end());
    dirtyTiles.clear();
    return out;
}

PaintDocument::State PaintDocument::capture() {
    State s{grid, {}, activeIndex(), selection_, dpi};
    s.layers.reserve(layers.size());
    for (const LayerPtr& l : layers) {
        l->freeze();
        s.layers.push_back({l->id, l->name, l->opacity, l->blendMode, l->isVisible, l->isLocked,
                            l->alphaLocked, l->isClipping, l->tiles, l->grid});
    }
    return s;
}

void PaintDocument::restore(const State& state) {
    const bool gridChanged = !(state.grid == grid);
    grid = state.grid;
    dpi = state.dpi;
    selection_ = state.selection;
    std::vector<LayerPtr> restored;
    restored.reserve(state.layers.size());
    for (const LayerState& s : state.layers) {
        // Keep the layer object where it still fits, so that holders of it stay valid.
        auto it = std::find_if(layers.begin(), layers.end(),
                               [&](const LayerPtr& l) { return l->id == s.id && l->grid == s.grid; });
        LayerPtr l = it != layers.end() ? *it : std::make_shared<Layer>(s.name, s.grid, s.id);
        l->name = s.name;
        l->opacity = s.opacity;
        l->blendMode = s.blendMode;
        l->isVisible = s.isVisible;
        l->isLocked = s.isLocked;
        l->alphaLocked = s.alphaLocked;
        l->isClipping = s.isClipping;
        l->tiles = s.tiles;
        restored.push_back(std::move(l));
    }
    layers = std::move(restored);
    setActiveIndex(state.active);
    markAllDirty();
    if (gridChanged && onGridChange) onGridChange();
}

void PaintDocument::perform(const std::string& name, const std::function<void()>& body) {
    body();
    commit(name);
}

void PaintDocument::commit(const std::string& name) {
    if (cursor_ < int64_t(history_.size()) - 1) history_.resize(size_t(cursor_ + 1));
    history_.push_back({name, capture()});
    cursor_ = int64_t(history_.size()) - 1;
    ++changeCount_;
    const int64_t keep = std::max<int64_t>(maxUndoSteps + 1, 2);
    while (int64_t(history_.size()) > keep) {
        history_.erase(history_.begin());
        --cursor_;
    }
    if (history_.size() >= 21) {
        while (historyBytes() > maxUndoBytes && history_.size() > 2) {
            history_.erase(history_.begin());
            --cursor_;
        }
    }
    cursor_ = std::max<int64_t>(cursor_, 0);
}

int64_t PaintDocument::historyBytes() const {
    std::unordered_set<const Tile*> seen;
    for (const Step& step : history_)
        for (const LayerState& l : step.state.layers)
            for (const TilePtr& t : l.tiles)
                if (t) seen.insert(t.get());
    return int64_t(seen.size()) * kTileBytes;
}

void PaintDocument::revertToLastCommit() {
    restore(history_[size_t(cursor_)].state);
}

IRect PaintDocument::paintStroke(const std::vector<StrokePoint>& points, const BrushSettings& brush,
                                 const PaintColor& color, LayerPtr layer, uint64_t seed) {
    if (!layer) {
        if (layers.empty()) return IRect::zero();
        layer = activeLayer();
    }
    if (layer->isLocked || points.empty()) return IRect::zero();
    BrushStroke stroke(*this, layer, brush, color, seed);
    for (const StrokePoint& p : points)
        stroke.add(p);
    stroke.end();
    return stroke.dirty();
}

} // namespace korv
