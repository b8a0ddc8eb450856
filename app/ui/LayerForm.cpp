#include "app/ui/LayerForm.h"

#include "app/ui/ColorWell.h"
#include "app/ui/SegmentStrip.h"
#include "app/ui/ValueSlider.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

namespace korv {

namespace {

QColor toQColor(const RGBA& c) {
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

RGBA rgbaFrom(const QColor& c) {
    return {c.redF(), c.greenF(), c.blueF(), c.alphaF()};
}

} // namespace

LayerForm::LayerForm(StudioModel& model, const Uuid& id, std::string step, QVBoxLayout* column)
    : model(model), id(id), step(std::move(step)), column(column) {}

std::string LayerForm::stepFor(const QString& label) const {
    return step + " " + label.section(" (", 0, 0).toLower().toStdString();
}

void LayerForm::show(QWidget* control, bool on) {
    QWidget* parent = control->parentWidget();
    (parent && parent->objectName() == "holder" ? parent : control)->setVisible(on);
}

void LayerForm::sync() {
    for (const auto& refresh : refreshers_)
        refresh();
}

ValueSlider* LayerForm::slider(const QString& label, double low, double high,
                               std::pair<LayerGet<double>, LayerSet<double>> f, int decimals,
                               const QString& suffix, double scale) {
    // A long label reads better on a line of its own above the slider.
    const bool above = label.size() > 18;
    auto* s = new ValueSlider(above ? QString() : label, low, high, decimals, scale, suffix);
    auto binding = model.bindLayer<double>(id, stepFor(label), f.first, f.second, 0.0);
    s->changed = [binding](double v) { binding.set(v); };
    refreshers_.push_back([s, binding] { s->setValue(binding.get()); });
    if (!above) {
        column->addWidget(s);
        return s;
    }
    auto* holder = new QWidget;
    holder->setObjectName("holder");
    auto* v = new QVBoxLayout(holder);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(2);
    auto* title = new QLabel(label);
    title->setWordWrap(true);
    v->addWidget(title);
    v->addWidget(s);
    column->addWidget(holder);
    return s;
}

QCheckBox* LayerForm::toggle(const QString& label, std::pair<LayerGet<bool>, LayerSet<bool>> f,
                             QLayout* into) {
    auto* box = new QCheckBox(label);
    auto binding = model.bindLayer<bool>(id, stepFor(label), f.first, f.second, false);
    // clicked, not toggled: only the user's change is written.
    QObject::connect(box, &QCheckBox::clicked, box, [binding](bool on) { binding.set(on); });
    refreshers_.push_back([box, binding] { box->setChecked(binding.get()); });
    (into ? into : column)->addWidget(box);
    return box;
}

ColorWell* LayerForm::color(const QString& label, std::pair<LayerGet<RGBA>, LayerSet<RGBA>> f,
                            QLayout* into) {
    auto* well = new ColorWell(label);
    auto binding = model.bindLayer<RGBA>(id, stepFor(label), f.first, f.second, RGBA());
    well->get = [binding] { return toQColor(binding.get()); };
    well->set = [binding](const QColor& c) { binding.set(rgbaFrom(c)); };
    refreshers_.push_back([well] { well->sync(); });
    (into ? into : column)->addWidget(well);
    return well;
}

QHBoxLayout* LayerForm::row(const QString& label) {
    auto* holder = new QWidget;
    holder->setObjectName("holder");
    auto* h = new QHBoxLayout(holder);
    h->setContentsMargins(0, 0, 0, 0);
    h->setSpacing(8);
    if (!label.isEmpty()) {
        auto* title = new QLabel(label);
        title->setFixedWidth(112); // in line with the sliders' labels
        h->addWidget(title);
    }
    column->addWidget(holder);
    return h;
}

QComboBox* LayerForm::choice(const QString& label, const QStringList& items,
                             std::pair<LayerGet<int>, LayerSet<int>> f) {
    auto* box = new QComboBox;
    box->addItems(items);
    auto binding = model.bindLayer<int>(id, stepFor(label), f.first, f.second, 0);
    QObject::connect(box, &QComboBox::activated, box, [binding](int i) { binding.set(i); });
    refreshers_.push_back([box, binding] {
        const QSignalBlocker quiet(box);
        box->setCurrentIndex(binding.get());
    });
    auto* h = row(label);
    h->addWidget(box, 1);
    return box;
}

QWidget* LayerForm::segments(const QString& label, const QStringList& items, const QStringList& help,
                             std::pair<LayerGet<int>, LayerSet<int>> f) {
    QButtonGroup* group = nullptr;
    auto* strip = segmentStrip(items, help, &group);
    auto binding = model.bindLayer<int>(id, stepFor(label), f.first, f.second, 0);
    QObject::connect(group, &QButtonGroup::idClicked, strip, [binding](int i) { binding.set(i); });
    refreshers_.push_back([group, binding] {
        if (auto* b = group->button(binding.get())) b->setChecked(true);
    });
    row(label)->addWidget(strip, 1);
    return strip;
}

} // namespace korv
