#include "app/ui/StatusBar.h"

#include <QLabel>
#include <cmath>

namespace korv {

StatusBar::StatusBar(StudioModel& model, QWidget* parent)
    : QStatusBar(parent), model_(model), status_(new QLabel), cursor_(new QLabel), size_(new QLabel),
      zoom_(new QLabel), layer_(new QLabel) {
    setObjectName("status");
    setSizeGripEnabled(false);
    status_->setMinimumWidth(80);
    addWidget(status_, 1);
    cursor_->setMinimumWidth(90);
    for (auto* l : {cursor_, size_, zoom_, layer_})
        addPermanentWidget(l);
    layer_->setMaximumWidth(220);
    observer_ = model_.observe([this] { sync(); });
    sync();
}

StatusBar::~StatusBar() {
    model_.unobserve(observer_);
}

void StatusBar::showCursor() {
    cursor_->setText(QString::fromStdString(model_.cursorInfo));
}

void StatusBar::sync() {
    // A long message is shortened rather than widening the window.
    const QString status = QString::fromStdString(model_.status);
    status_->setText(
        status_->fontMetrics().elidedText(status, Qt::ElideRight, std::max(80, status_->width())));
    status_->setToolTip(status);
    showCursor();
    const auto* session = model_.current();
    const auto* doc = model_.doc();
    size_->setText(
        doc ? QString("%1 × %2 px · %3 dpi").arg(doc->width()).arg(doc->height()).arg(std::lround(doc->dpi))
            : QString());
    zoom_->setText(session ? QString("%1%").arg(std::lround(session->zoom * 100)) : QString());
    const auto layer = model_.activeLayer();
    const QString name = layer ? QString::fromStdString(layer->name) : QString();
    layer_->setText(layer_->fontMetrics().elidedText(name, Qt::ElideMiddle, 200));
}

} // namespace korv
