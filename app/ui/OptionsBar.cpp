#include "app/ui/OptionsBar.h"

#include "app/ui/ValueSlider.h"

#include <QActionGroup>
#include <QCheckBox>
#include <QLabel>
#include <QSlider>

namespace korv {

OptionsBar::OptionsBar(StudioModel& model, QWidget* parent)
    : QToolBar("Options", parent), model_(model), modes_(new QActionGroup(this)),
      tolerance_(new ValueSlider("Tolerance", 0, 255)), contiguous_(new QCheckBox("Contiguous")),
      allLayers_(new QCheckBox("All layers")) {
    setObjectName("options");
    setMovable(false);
    setMinimumHeight(30);
    const std::pair<const char*, SelectionOp> modes[] = {{"New selection", SelectionOp::replace},
                                                         {"Add (or hold Shift)", SelectionOp::add},
                                                         {"Subtract (or hold Alt)", SelectionOp::subtract},
                                                         {"Intersect", SelectionOp::intersect}};
    const char* labels[] = {"New", "Add", "Subtract", "Intersect"};
    int i = 0;
    for (const auto& [help, op] : modes) {
        auto* action = addAction(labels[i++]);
        action->setToolTip(help);
        action->setCheckable(true);
        modes_->addAction(action);
        connect(action, &QAction::triggered, this, [this, op = op] {
            model_.selectionMode = op;
            model_.notify();
        });
    }
    addSeparator();
    tolerance_->setLabelWidth(70);
    tolerance_->setFixedWidth(300);
    tolerance_->setToolTip("How alike colors must be to be selected (0 to 255)");
    tolerance_->changed = [this](double v) { model_.wandTolerance = v; };
    addWidget(tolerance_);
    addWidget(contiguous_);
    connect(contiguous_, &QCheckBox::toggled, this, [this](bool on) { model_.wandContiguous = on; });
    addWidget(allLayers_);
    connect(allLayers_, &QCheckBox::toggled, this, [this](bool on) { model_.sampleAllLayers = on; });
    wandActions_ = actions();

    // The Crop tool: what to do, and its buttons.
    auto* hint = new QLabel("Drag the area to keep · Return applies · Esc cancels");
    hint->setContentsMargins(6, 0, 12, 0);
    cropActions_ << addWidget(hint);
    applyCrop_ = addAction("Apply Crop", [this] { model_.applyCrop(); });
    cancelCrop_ = addAction("Cancel", [this] {
        model_.cropRect.reset();
        model_.refresh(false);
    });
    cropActions_ << applyCrop_ << cancelCrop_
                 << addAction("Rotate 90° Clockwise", [this] { model_.rotate(1); });
    observer_ = model_.observe([this] { sync(); });
    sync();
}

OptionsBar::~OptionsBar() {
    model_.unobserve(observer_);
}

void OptionsBar::sync() {
    for (QAction* action : wandActions_)
        action->setVisible(model_.tool == Tool::magicWand);
    for (QAction* action : cropActions_)
        action->setVisible(model_.tool == Tool::crop);
    applyCrop_->setEnabled(model_.cropRect.has_value());
    cancelCrop_->setEnabled(model_.cropRect.has_value());
    modes_->actions().at(int(model_.selectionMode))->setChecked(true);
    tolerance_->setValue(model_.wandTolerance);
    contiguous_->setChecked(model_.wandContiguous);
    allLayers_->setChecked(model_.sampleAllLayers);
}

} // namespace korv
