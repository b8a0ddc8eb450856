#include "app/ui/ColorStrip.h"

#include "app/ui/ColorWell.h"

#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

namespace korv {
namespace {

QColor toQColor(const PaintColor& c) {
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

PaintColor fromQColor(const QColor& c) {
    return {c.redF(), c.greenF(), c.blueF(), c.alphaF()};
}

} // namespace

ColorStrip::ColorStrip(StudioModel& model, QWidget* parent)
    : QWidget(parent), model_(model), primary_(new ColorWell("Paint color")),
      secondary_(new ColorWell("Second color")) {
    setObjectName("colors");
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(2, 6, 2, 6);
    column->setSpacing(3);
    auto* title = new QLabel("Colors");
    title->setAlignment(Qt::AlignCenter);
    title->setStyleSheet("color: rgb(165,165,170); font-size: 10px;");
    column->addWidget(title);
    primary_->get = [this] { return toQColor(model_.primary); };
    primary_->set = [this](const QColor& c) {
        model_.primary = fromQColor(c);
        model_.notify();
    };
    secondary_->get = [this] { return toQColor(model_.secondary); };
    secondary_->set = [this](const QColor& c) {
        model_.secondary = fromQColor(c);
        model_.notify();
    };
    column->addWidget(primary_, 0, Qt::AlignHCenter);
    column->addWidget(secondary_, 0, Qt::AlignHCenter);
    auto* swap = new QToolButton;
    swap->setText("⇄");
    swap->setToolTip("Swap colors");
    swap->setAutoRaise(true);
    connect(swap, &QToolButton::clicked, this, [this] {
        std::swap(model_.primary, model_.secondary);
        model_.notify();
    });
    auto* reset = new QToolButton;
    reset->setText("◐");
    reset->setToolTip("Black and white");
    reset->setAutoRaise(true);
    connect(reset, &QToolButton::clicked, this, [this] {
        model_.primary = PaintColor::black();
        model_.secondary = PaintColor::white();
        model_.notify();
    });
    auto* row = new QHBoxLayout;
    row->setSpacing(0);
    row->addWidget(swap);
    row->addWidget(reset);
    column->addLayout(row);
    observer_ = model_.observe([this] { sync(); });
    sync();
}

ColorStrip::~ColorStrip() {
    model_.unobserve(observer_);
}

void ColorStrip::sync() {
    primary_->sync();
    secondary_->sync();
}

} // namespace korv
