#include "app/ui/OptionsBar.h"

#include "app/ui/FontMenu.h"
#include "app/ui/ShapeEditorPanel.h"
#include "app/ui/ValueSlider.h"

#include <QActionGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QSlider>

namespace korv {

OptionsBar::OptionsBar(StudioModel& model, QWidget* parent)
    : QToolBar("Options", parent), model_(model), modes_(new QActionGroup(this)),
      tolerance_(new ValueSlider("Tolerance", 0, 255)), contiguous_(new QCheckBox("Contiguous")),
      allLayers_(new QCheckBox("All layers")), font_(new FontMenu),
      textSize_(new ValueSlider("Size", 2, 1000, 0, 1, " pt")), bold_(new QCheckBox("Bold")),
      italic_(new QCheckBox("Italic")), align_(new QActionGroup(this)), shapeKind_(new QComboBox),
      outline_(new QCheckBox("Outline")), lineWidth_(new ValueSlider("Line", 0, 200, 1, 1, " px")) {
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
    buildTextRow();
    buildShapeRow();
    observer_ = model_.observe([this] { sync(); });
    sync();
}

void OptionsBar::toolChanged() {
    model_.saveToolSettings();
    model_.notify();
}

void OptionsBar::buildTextRow() {
    const int before = int(actions().size());
    font_->get = [this] { return model_.textSpec.fontFamily; };
    font_->set = [this](const std::string& family) {
        model_.textSpec.fontFamily = family;
        toolChanged();
    };
    addWidget(font_);
    textSize_->setLabelWidth(36);
    textSize_->setLogarithmic(true);
    textSize_->setFixedWidth(240);
    textSize_->changed = [this](double v) {
        model_.textSpec.size = v;
        toolChanged();
    };
    addWidget(textSize_);
    addWidget(bold_);
    connect(bold_, &QCheckBox::clicked, this, [this](bool on) {
        model_.textSpec.bold = on;
        toolChanged();
    });
    addWidget(italic_);
    connect(italic_, &QCheckBox::clicked, this, [this](bool on) {
        model_.textSpec.italic = on;
        toolChanged();
    });
    const std::tuple<const char*, const char*, TextAlign> aligns[] = {
        {"Left", "Align left", TextAlign::left},
        {"Center", "Align center", TextAlign::center},
        {"Right", "Align right", TextAlign::right}};
    for (const auto& [label, help, align] : aligns) {
        auto* action = addAction(label);
        action->setToolTip(help);
        action->setCheckable(true);
        align_->addAction(action);
        connect(action, &QAction::triggered, this, [this, align = align] {
            model_.textSpec.align = align;
            toolChanged();
        });
    }
    auto* hint = new QLabel("Click to add text, click text to select it · edit it in Properties");
    hint->setContentsMargins(12, 0, 6, 0);
    hint->setStyleSheet("color: rgb(165,165,170);");
    addWidget(hint);
    textActions_ = actions().mid(before);
}

void OptionsBar::buildShapeRow() {
    const int before = int(actions().size());
    shapeKind_->addItems(shapeKindNames());
    shapeKind_->setToolTip("Shape");
    connect(shapeKind_, &QComboBox::activated, this, [this](int i) {
        model_.shapeSpec.kind = ShapeKind(i);
        toolChanged();
    });
    addWidget(shapeKind_);
    addWidget(outline_);
    outline_->setToolTip("Draw the outline in the second color");
    connect(outline_, &QCheckBox::clicked, this, [this](bool on) {
        model_.shapeSpec.strokeEnabled = on;
        toolChanged();
    });
    lineWidth_->setLabelWidth(36);
    lineWidth_->setFixedWidth(240);
    lineWidth_->setToolTip("Width of the outline, and of a line");
    lineWidth_->changed = [this](double v) {
        model_.shapeSpec.strokeWidth = v;
        toolChanged();
    };
    addWidget(lineWidth_);
    auto* hint = new QLabel("Drag to draw · fill in the paint color, outline in the second color");
    hint->setContentsMargins(12, 0, 6, 0);
    hint->setStyleSheet("color: rgb(165,165,170);");
    addWidget(hint);
    shapeActions_ = actions().mid(before);
}

OptionsBar::~OptionsBar() {
    model_.unobserve(observer_);
}

void OptionsBar::sync() {
    for (QAction* action : wandActions_)
        action->setVisible(model_.tool == Tool::magicWand);
    for (QAction* action : cropActions_)
        action->setVisible(model_.tool == Tool::crop);
    for (QAction* action : textActions_)
        action->setVisible(model_.tool == Tool::text);
    for (QAction* action : shapeActions_)
        action->setVisible(model_.tool == Tool::shape);
    font_->sync();
    textSize_->setValue(model_.textSpec.size);
    bold_->setChecked(model_.textSpec.bold);
    italic_->setChecked(model_.textSpec.italic);
    align_->actions().at(int(model_.textSpec.align))->setChecked(true);
    shapeKind_->setCurrentIndex(int(model_.shapeSpec.kind));
    outline_->setChecked(model_.shapeSpec.strokeEnabled);
    lineWidth_->setValue(model_.shapeSpec.strokeWidth);
    applyCrop_->setEnabled(model_.cropRect.has_value());
    cancelCrop_->setEnabled(model_.cropRect.has_value());
    modes_->actions().at(int(model_.selectionMode))->setChecked(true);
    tolerance_->setValue(model_.wandTolerance);
    contiguous_->setChecked(model_.wandContiguous);
    allLayers_->setChecked(model_.sampleAllLayers);
}

} // namespace korv
