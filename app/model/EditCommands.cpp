// The editing side of StudioModel: the wrapper that turns an edit into one
// history step, the panel bindings, the history commands and the layer and
// selection commands of the menus and panels.
#include "app/model/HistogramCounts.h"
#include "app/model/Quoting.h"
#include "app/model/StudioModel.h"
#include "engine/core/Selection.h"
#include "engine/render/StudioRenderer.h"
#include "engine/selection/SelectionTools.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <ctime>

namespace korv {
namespace {

// How a refusal names a layer that pixel tools can't write.
const char* kindPhrase(StudioLayerKind kind) {
    switch (kind) {
    case StudioLayerKind::adjustment:
        return "adjustment layer";
    case StudioLayerKind::fill:
        return "fill layer";
    case StudioLayerKind::text:
        return "text layer";
    case StudioLayerKind::shape:
        return "shape layer";
    case StudioLayerKind::group:
        return "group";
    case StudioLayerKind::pixel:
        break;
    }
    return "pixel layer";
}

std::string capitalised(std::string text) {
    if (!text.empty()) text[0] = char(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

std::string shortTime(std::chrono::system_clock::time_point when) {
    const std::time_t t = std::chrono::system_clock::to_time_t(when);
    std::tm local{};
    localtime_r(&t, &local);
    char text[32];
    std::strftime(text, sizeof text, "%H:%M", &local);
    return text;
}

} // namespace

bool StudioModel::act(const std::string& name, std::optional<std::string> coalesce,
                      const std::function<bool(StudioDocument&)>& body) {
    auto* d = doc();
    if (!d) return false;
    const bool changed = body(*d);
    if (changed) {
        d->commit(name, std::move(coalesce));
        if (statusFromHistory_) status.clear();
        statusFromHistory_ = false;
    }
    refresh(false);
    return changed;
}

void StudioModel::setLayer(const Uuid& id, const std::string& name, bool coalesce,
                           const std::function<void(StudioLayer&)>& edit) {
    auto* d = doc();
    if (!d) return;
    const StudioLayer* before = d->find(id);
    if (!before) return;
    // A control set to the value it shows leaves no empty step behind.
    StudioLayer edited = *before;
    edit(edited);
    if (edited == *before) return;
    d->update(id, false, [&](StudioLayer& l) { l = std::move(edited); });
    d->markAllDirty();
    std::optional<std::string> key;
    if (coalesce) key = id.toString() + name;
    d->commit(name, std::move(key));
    if (statusFromHistory_) status.clear();
    statusFromHistory_ = false;
    refresh(false);
}

std::optional<PixelTarget> StudioModel::pixelTarget(bool quiet) {
    const auto layer = activeLayer();
    if (!layer) return std::nullopt;
    if (layer->isLocked) {
        if (!quiet)
            setStatus(inQuotes(layer->name) + " is locked. Unlock it in the Layers panel to change it.");
        return std::nullopt;
    }
    if (editMask && layer->hasMask()) return PixelTarget{layer->id, true};
    if (layer->kind == StudioLayerKind::pixel) return PixelTarget{layer->id, false};
    if (!quiet)
        setStatus(inQuotes(layer->name) + " is a " + kindPhrase(layer->kind) +
                  ". Choose a pixel layer, edit its mask, or use Layer \u2192 Rasterize.");
    return std::nullopt;
}

void StudioModel::cancelLive() {
    if (preview || transform)
        if (auto* d = doc()) d->revertToLastCommit();
    preview.reset();
    transform.reset();
    cropRect.reset();
}

void StudioModel::select(const Uuid& id) {
    auto* d = doc();
    if (!d || !d->find(id)) return;
    if (d->activeID != id) d->activeID = id;
    if (!d->find(id)->hasMask()) editMask = false;
    refresh(false);
}

void StudioModel::undo() {
    auto* d = doc();
    if (!d) return;
    cancelLive();
    const TileGrid before = d->grid;
    if (d->canUndo()) {
        status = "Undo " + d->undoName().value_or("");
        statusFromHistory_ = true;
        d->undo();
    }
    refreshAfterHistory(before);
}

void StudioModel::redo() {
    auto* d = doc();
    // Nothing to redo leaves a live preview or a crop as it is.
    if (!d || !d->canRedo()) return;
    cancelLive();
    status = "Redo " + d->redoName().value_or("");
    const TileGrid before = d->grid;
    statusFromHistory_ = true;
    d->redo();
    refreshAfterHistory(before);
}

void StudioModel::jumpHistory(int64_t index) {
    auto* d = doc();
    if (!d) return;
    cancelLive();
    const TileGrid before = d->grid;
    d->jump(index);
    refreshAfterHistory(before);
}

void StudioModel::refreshAfterHistory(const TileGrid& before) {
    auto* session = current();
    // A step that changed the picture's size needs the canvas rebuilt and fitted.
    if (session && (session->doc->grid.width != before.width || session->doc->grid.height != before.height)) {
        session->needsFit = true;
        canvasShowCurrent();
    }
    refresh(true);
}

void StudioModel::takeSnapshot() {
    auto* d = doc();
    if (!d) return;
    const auto n = int64_t(d->snapshots().size()) + 1;
    d->takeSnapshot("Snapshot " + std::to_string(n) + " \u2014 " + shortTime(host().now()));
    tick += 1;
    notify();
}

void StudioModel::restoreSnapshot(const Uuid& id) {
    auto* d = doc();
    if (!d) return;
    cancelLive();
    // The document records the restore as its own step, "Snapshot: <name>".
    const TileGrid before = d->grid;
    d->restoreSnapshot(id);
    refreshAfterHistory(before);
}

void StudioModel::setSelection(const SelectionTools::Mask& mask, const std::string& name,
                               std::optional<SelectionOp> op) {
    act(name, [&](StudioDocument& d) {
        d.setSelection(
            SelectionTools::selection(mask, d.width(), d.height(), op.value_or(selectionMode), d.selection));
        return true;
    });
}

RGBABufferPtr StudioModel::selectionSource() const {
    auto* d = doc();
    if (!d) return nullptr;
    if (!sampleAllLayers && d->activeID)
        if (const StudioLayer* l = d->find(*d->activeID); l && l->pixels) return l->pixels->toBuffer();
    return d->flattened();
}

void StudioModel::addLayer() {
    act("New Layer", [](StudioDocument& d) {
        d.addPixelLayer();
        return true;
    });
}

void StudioModel::addAdjustment(AdjustmentType type) {
    act("New " + std::string(displayName(type)), [&](StudioDocument& d) {
        // As in other editors, an adjustment made over a selection changes only the selection.
        const Uuid id = d.addAdjustment(type);
        if (d.selection) d.addMask(id, NewMask::revealSelection);
        return true;
    });
}

void StudioModel::addFill(FillKind kind) {
    FillSpec spec(kind);
    spec.color1 = RGBA(primary);
    spec.color2 = RGBA(secondary);
    spec.centerX = 0.5;
    spec.centerY = 0.5;
    spec.scale = 32;
    act("New Fill Layer", [&](StudioDocument& d) {
        d.addFill(spec);
        return true;
    });
}

void StudioModel::addGroup() {
    act("New Group", [](StudioDocument& d) {
        if (d.activeID && d.find(*d.activeID)) return d.group({*d.activeID}).has_value();
        d.insert(StudioLayer::group(d.uniqueName("Group"), {}), true);
        return true;
    });
}

void StudioModel::ungroup() {
    act("Ungroup", [](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || !l->isGroup()) return false;
        d.ungroup(l->id);
        return true;
    });
}

void StudioModel::duplicateLayer() {
    act("Duplicate Layer",
        [](StudioDocument& d) { return d.activeID && d.duplicate(*d.activeID).has_value(); });
}

void StudioModel::deleteLayer(std::optional<Uuid> id) {
    act("Delete Layer", [&](StudioDocument& d) {
        const auto target = id ? id : d.activeID;
        if (!target || !d.find(*target)) return false;
        d.deleteLayer(*target);
        return true;
    });
}

void StudioModel::moveLayer(bool up) {
    act(up ? "Move Layer Up" : "Move Layer Down", [&](StudioDocument& d) {
        if (!d.activeID) return false;
        const auto before = d.path(*d.activeID);
        d.move(*d.activeID, int64_t(up ? 1 : -1));
        return before && d.path(*d.activeID) != before;
    });
}

void StudioModel::mergeDown() {
    if (auto* d = doc(); d && d->activeID) {
        // A hidden layer of the pair would vanish from the picture or take the
        // other's content with it; the user shows it first.
        if (const StudioLayer* hidden = d->hiddenOfMergePair(*d->activeID)) {
            status = "Merge Down needs both layers visible: show " + inQuotes(hidden->name) + " first.";
            refresh(false);
            return;
        }
    }
    act("Merge Down", [](StudioDocument& d) {
        if (!d.activeID || !d.find(*d.activeID)) return false;
        const Uuid upper = *d.activeID;
        d.mergeDown(upper);
        // A merge removes the upper layer; anything else means it was refused.
        return d.find(upper) == nullptr;
    });
}

void StudioModel::flatten() {
    act("Flatten Image", [](StudioDocument& d) {
        d.flattenImage();
        return true;
    });
}

void StudioModel::stampVisible() {
    act("Stamp Visible", [](StudioDocument& d) {
        d.stampVisible();
        return true;
    });
}

void StudioModel::rasterize() {
    act("Rasterize Layer", [](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || l->kind == StudioLayerKind::pixel || l->isAdjustment() || l->isGroup()) return false;
        d.rasterize(l->id);
        return true;
    });
}

void StudioModel::addMask(NewMask kind) {
    const bool added = act("Add Layer Mask", [&](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || l->hasMask()) return false;
        d.addMask(l->id, kind);
        return true;
    });
    if (added) setEditMask(true);
}

void StudioModel::deleteMask() {
    const bool done = act("Delete Mask", [](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || !l->hasMask()) return false;
        d.deleteMask(l->id);
        return true;
    });
    if (done) setEditMask(false);
}

void StudioModel::applyMask() {
    const bool done = act("Apply Mask", [](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || !l->hasMask() || l->kind != StudioLayerKind::pixel || !l->pixels) return false;
        d.applyMask(l->id);
        return true;
    });
    if (done) setEditMask(false);
}

void StudioModel::invertMask() {
    act("Invert Mask", [](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || !l->hasMask()) return false;
        d.invertMask(l->id);
        return true;
    });
}

void StudioModel::toggleVisible(const Uuid& id) {
    setLayer(id, "Show / Hide", false, [](StudioLayer& l) { l.isVisible = !l.isVisible; });
}

void StudioModel::toggleLock(const Uuid& id) {
    setLayer(id, "Lock", false, [](StudioLayer& l) { l.isLocked = !l.isLocked; });
}

void StudioModel::toggleClip(std::optional<Uuid> id) {
    auto* d = doc();
    if (!d) return;
    const auto target = id ? id : d->activeID;
    if (target)
        setLayer(*target, "Clipping Mask", false, [](StudioLayer& l) { l.isClipping = !l.isClipping; });
}

void StudioModel::rename(const Uuid& id, const std::string& name) {
    if (name.empty()) return;
    setLayer(id, "Rename Layer", false, [&](StudioLayer& l) { l.name = name; });
}

void StudioModel::toggleMaskEnabled() {
    auto* d = doc();
    if (!d || !d->activeID) return;
    const StudioLayer* l = d->find(*d->activeID);
    if (!l || !l->hasMask()) return;
    setLayer(*d->activeID, "Mask On / Off", false, [](StudioLayer& l) { l.maskEnabled = !l.maskEnabled; });
}

void StudioModel::selectAll() {
    act("Select All", [](StudioDocument& d) {
        d.selectAll();
        return true;
    });
}

void StudioModel::deselect() {
    act("Deselect", [](StudioDocument& d) {
        if (!d.selection) return false;
        d.deselect();
        return true;
    });
}

void StudioModel::invertSelection() {
    act("Invert Selection", [](StudioDocument& d) {
        if (!d.selection) return false;
        d.invertSelection();
        return true;
    });
}

void StudioModel::selectLayerShape() {
    act("Select Layer Shape", [](StudioDocument& d) {
        if (!d.activeID || !d.find(*d.activeID)) return false;
        const auto before = d.selection;
        d.selectLayerShape(*d.activeID);
        return d.selection != before;
    });
}

void StudioModel::selectMaskArea() {
    act("Select Mask", [](StudioDocument& d) {
        const auto l = d.activeLayer();
        if (!l || !l->hasMask()) return false;
        d.selectMask(l->id);
        return true;
    });
}

void StudioModel::refineSelection(const std::string& kind, double amount) {
    act("Selection: " + capitalised(kind), [&](StudioDocument& d) {
        if (!d.selection) return false;
        const int64_t w = d.width(), h = d.height();
        const auto mask = SelectionTools::maskArray(*d.selection);
        SelectionTools::Mask refined;
        if (kind == "feather")
            refined = SelectionTools::feather(mask, w, h, amount);
        else if (kind == "grow")
            refined = SelectionTools::grow(mask, w, h, amount);
        else if (kind == "shrink")
            refined = SelectionTools::grow(mask, w, h, -amount);
        else if (kind == "smooth")
            refined = SelectionTools::smooth(mask, w, h, amount);
        else
            refined = SelectionTools::border(mask, w, h, amount);
        // A refinement that changes nothing is no step; one that would leave
        // nothing selected keeps the selection and says why.
        if (refined == mask) return false;
        if (std::none_of(refined.begin(), refined.end(), [](uint8_t v) { return v != 0; })) {
            status = "The " + kind + " would leave nothing selected.";
            return false;
        }
        d.setSelection(SelectionTools::selection(refined, w, h, SelectionOp::replace, nullptr));
        return true;
    });
}

void StudioModel::magicWandClick(int64_t x, int64_t y, std::optional<SelectionOp> op) {
    auto* d = doc();
    // A click off the picture selects nothing, so nothing is rendered for it.
    if (!d || x < 0 || y < 0 || x >= d->width() || y >= d->height()) return;
    const auto source = selectionSource();
    if (!source) return;
    const auto mask =
        SelectionTools::magicWand(*source, x, y, int64_t(std::lround(wandTolerance)), wandContiguous, false);
    if (mask) setSelection(*mask, "Magic Wand", op);
}

void StudioModel::autoLevels(const Uuid& id, int channel) {
    auto* d = doc();
    const StudioLayer* layer = d ? d->find(id) : nullptr;
    if (!layer || !layer->adjustment || channel < 0 || channel > 3) return;
    const auto [black, white] = histogramWithout(*d, id).autoPoints(channel);
    setLayer(id, "Auto Levels", false, [&, black = black, white = white](StudioLayer& l) {
        auto& levels = l.adjustment->levels;
        if (levels.size() < 4) levels.resize(4);
        levels[size_t(channel)].inBlack = black;
        levels[size_t(channel)].inWhite = white;
    });
}

} // namespace korv
