#include "app/ui/PropertiesPanel.h"

#include "app/ui/AdjustmentEditor.h"
#include "app/ui/FillEditorPanel.h"
#include "app/ui/ShapeEditorPanel.h"
#include "app/ui/TextEditorPanel.h"

#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

namespace korv {
namespace {

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

QString noteFor(const StudioLayer& l) {
    switch (l.kind) {
    case StudioLayerKind::pixel:
        return "Pixel layer: paint, retouch and filter it directly. Add a mask (Layers ▸ mask button) to "
               "hide "
               "parts without erasing.";
    case StudioLayerKind::adjustment:
        return "Adjustment layers never change pixels: hide, mask, re-edit or delete them any time. They "
               "change "
               "every visible layer below (or only the layer below when clipped).";
    case StudioLayerKind::group:
        return QString::fromStdString(l.name) + ". Opacity, blend mode and a mask apply to the whole group. "
                                                "Adjustment layers inside a group only "
                                                "change that group.";
    default:
        return QString();
    }
}

} // namespace

PropertiesPanel::PropertiesPanel(StudioModel& model, QWidget* parent)
    : QWidget(parent), model_(model), header_(new QLabel), note_(new QLabel) {
    setObjectName("properties");
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* content = new QWidget;
    body_ = new QVBoxLayout(content);
    body_->setContentsMargins(10, 8, 10, 8);
    body_->setSpacing(6);
    header_->setStyleSheet("font-weight: bold; font-size: 14px;");
    note_->setWordWrap(true);
    note_->setStyleSheet("color: rgb(165,165,170);");
    body_->addWidget(header_);
    body_->addWidget(note_);
    body_->addStretch(1);
    scroll->setWidget(content);
    outer->addWidget(scroll);
    observer_ = model_.observe([this] { sync(); });
    sync();
}

PropertiesPanel::~PropertiesPanel() {
    model_.unobserve(observer_);
}

AdjustmentEditor* PropertiesPanel::adjustmentEditor() const {
    return dynamic_cast<AdjustmentEditor*>(editor_);
}

namespace {

// Puts a new editor of type E in place and keeps its sync.
template <class E>
E* makeEditor(StudioModel& model, const Uuid& id, QWidget*& slot, std::function<void()>& sync) {
    auto* e = new E(model, id);
    slot = e;
    sync = [e] { e->sync(); };
    return e;
}

} // namespace

void PropertiesPanel::sync() {
    const auto layer = model_.activeLayer();
    std::string shape = "none";
    if (layer) {
        shape = std::to_string(reinterpret_cast<uintptr_t>(model_.doc())) + layer->id.toString() +
                std::string(toString(layer->kind)) + layer->name;
        if (layer->adjustment) shape += AdjustmentEditor::shape(*layer->adjustment);
    }
    if (shape == shown_) {
        if (syncEditor_) syncEditor_();
        return;
    }
    shown_ = shape;
    // The editor whose control caused this change is mid-signal: it goes later.
    if (editor_) {
        editor_->hide();
        editor_->deleteLater();
        editor_ = nullptr;
        syncEditor_ = nullptr;
    }
    if (!layer) {
        header_->setText(model_.doc() ? "No layer selected." : "Open a picture to see its layers' settings.");
        note_->hide();
        return;
    }
    header_->setText(layer->adjustment ? text(displayName(layer->adjustment->type))
                                       : text(displayName(layer->kind)));
    const QString note = noteFor(*layer);
    note_->setText(note);
    note_->setVisible(!note.isEmpty());
    if (layer->adjustment)
        makeEditor<AdjustmentEditor>(model_, layer->id, editor_, syncEditor_);
    else if (layer->kind == StudioLayerKind::text && layer->text) {
        auto* text = makeEditor<TextEditorPanel>(model_, layer->id, editor_, syncEditor_);
        // The Text tool has just placed it: the user's next keys are its words.
        if (model_.tool == Tool::text && model_.doc()->undoName() == std::optional<std::string>("New Text"))
            text->startTyping();
    } else if (layer->kind == StudioLayerKind::shape && layer->shape)
        makeEditor<ShapeEditorPanel>(model_, layer->id, editor_, syncEditor_);
    else if (layer->kind == StudioLayerKind::fill && layer->fill)
        makeEditor<FillEditorPanel>(model_, layer->id, editor_, syncEditor_);
    if (editor_) body_->insertWidget(2, editor_);
}

} // namespace korv
