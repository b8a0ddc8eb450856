#include "app/ui/ShapeEditorPanel.h"

#include "app/ui/ColorWell.h"
#include "app/ui/ValueSlider.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QVBoxLayout>

namespace korv {

QStringList shapeKindNames() {
    return {"Rectangle", "Rounded Rectangle", "Ellipse", "Line", "Polygon", "Star", "Arrow"};
}

ShapeEditorPanel::ShapeEditorPanel(StudioModel& model, const Uuid& id, QWidget* parent)
    : QWidget(parent), id(id), form_(model, id, "Shape", new QVBoxLayout(this)) {
    form_.column->setContentsMargins(0, 4, 0, 0);
    form_.column->setSpacing(6);
    const auto* d = model.doc();
    // Positions may run off the canvas by its own size, as a dragged shape can.
    const double extent = d ? double(std::max(d->width(), d->height())) : 4000;
    form_.choice("Kind", shapeKindNames(), specFieldAs<int>(&StudioLayer::shape, &ShapeSpec::kind));
    form_.slider("X", -extent, 2 * extent, specField(&StudioLayer::shape, &ShapeSpec::x), 0, " px");
    form_.slider("Y", -extent, 2 * extent, specField(&StudioLayer::shape, &ShapeSpec::y), 0, " px");
    // A line's or an arrow's width and height run either way: their sign is the direction.
    form_.slider("Width", -2 * extent, 2 * extent, specField(&StudioLayer::shape, &ShapeSpec::w), 0, " px");
    form_.slider("Height", -2 * extent, 2 * extent, specField(&StudioLayer::shape, &ShapeSpec::h), 0, " px");
    radius_ = form_.slider("Corner radius", 0, 500, specField(&StudioLayer::shape, &ShapeSpec::cornerRadius),
                           0, " px");
    sides_ = form_.slider("Sides", 3, 64, specFieldAs<double>(&StudioLayer::shape, &ShapeSpec::sides));
    auto* fill = form_.row("Fill");
    form_.toggle("On", specField(&StudioLayer::shape, &ShapeSpec::fillEnabled), fill)
        ->setToolTip("Fill the shape");
    form_.color("Fill color", specField(&StudioLayer::shape, &ShapeSpec::fillColor), fill);
    fill->addStretch(1);
    auto* stroke = form_.row("Stroke");
    form_.toggle("On", specField(&StudioLayer::shape, &ShapeSpec::strokeEnabled), stroke)
        ->setToolTip("Draw the outline");
    form_.color("Stroke color", specField(&StudioLayer::shape, &ShapeSpec::strokeColor), stroke);
    stroke->addStretch(1);
    form_.slider("Stroke width", 0, 200, specField(&StudioLayer::shape, &ShapeSpec::strokeWidth), 1, " px");
    form_.slider("Rotation", -180, 180, specField(&StudioLayer::shape, &ShapeSpec::rotation), 0, "°");
    form_.onSync([this] {
        const auto* d = form_.model.doc();
        const StudioLayer* l = d ? d->find(this->id) : nullptr;
        const ShapeKind kind = l && l->shape ? l->shape->kind : ShapeKind::rectangle;
        LayerForm::show(radius_, kind == ShapeKind::roundedRectangle);
        LayerForm::show(sides_, kind == ShapeKind::polygon || kind == ShapeKind::star);
    });
    sync();
}

void ShapeEditorPanel::sync() {
    form_.sync();
}

} // namespace korv
