#include "app/ui/FillEditorPanel.h"

#include "app/ui/ColorWell.h"
#include "app/ui/ValueSlider.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QVBoxLayout>

namespace korv {

FillEditorPanel::FillEditorPanel(StudioModel& model, const Uuid& id, QWidget* parent)
    : QWidget(parent), id(id), form_(model, id, "Fill", new QVBoxLayout(this)) {
    form_.column->setContentsMargins(0, 4, 0, 0);
    form_.column->setSpacing(6);
    form_.choice("Kind", {"Solid Color", "Linear Gradient", "Radial Gradient", "Pattern"},
                 specFieldAs<int>(&StudioLayer::fill, &FillSpec::kind));
    auto* colors = form_.row("Colors");
    form_.color("First color", specField(&StudioLayer::fill, &FillSpec::color1), colors);
    second_ = form_.color("Second color", specField(&StudioLayer::fill, &FillSpec::color2), colors);
    reverse_ = form_.toggle("Reverse", specField(&StudioLayer::fill, &FillSpec::reverse), colors);
    colors->addStretch(1);
    pattern_ = form_.choice("Pattern", {"Checker", "Stripes", "Dots", "Grid"},
                            specFieldAs<int>(&StudioLayer::fill, &FillSpec::pattern));
    angle_ =
        form_.slider("Angle (light from)", 0, 360, specField(&StudioLayer::fill, &FillSpec::angle), 0, "°");
    radius_ = form_.slider("Radius", 1, 200, specField(&StudioLayer::fill, &FillSpec::radius), 0, "%", 100);
    centerX_ =
        form_.slider("Center X", 0, 100, specField(&StudioLayer::fill, &FillSpec::centerX), 0, "%", 100);
    centerY_ =
        form_.slider("Center Y", 0, 100, specField(&StudioLayer::fill, &FillSpec::centerY), 0, "%", 100);
    scale_ = form_.slider("Scale", 2, 400, specField(&StudioLayer::fill, &FillSpec::scale), 0, " px");
    scale_->setLogarithmic(true);
    form_.onSync([this] {
        const auto* d = form_.model.doc();
        const StudioLayer* l = d ? d->find(this->id) : nullptr;
        const FillSpec spec = l && l->fill ? *l->fill : FillSpec();
        const bool solid = spec.kind == FillKind::solid, radial = spec.kind == FillKind::radialGradient;
        const bool pattern = spec.kind == FillKind::pattern;
        second_->setVisible(!solid);
        reverse_->setVisible(!solid);
        LayerForm::show(pattern_, pattern);
        LayerForm::show(angle_, spec.kind == FillKind::linearGradient ||
                                    (pattern && spec.pattern == PatternKind::stripes));
        LayerForm::show(radius_, radial);
        LayerForm::show(centerX_, radial);
        LayerForm::show(centerY_, radial);
        LayerForm::show(scale_, pattern);
    });
    sync();
}

void FillEditorPanel::sync() {
    form_.sync();
}

} // namespace korv
