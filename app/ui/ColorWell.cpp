#include "app/ui/ColorWell.h"

#include <QColorDialog>
#include <QPainter>
#include <QPixmap>

namespace korv {

ColorWell::ColorWell(const QString& label, QWidget* parent) : QToolButton(parent), label_(label) {
    setToolTip(label);
    setIconSize(QSize(28, 20));
    setAutoRaise(false);
    connect(this, &QToolButton::clicked, this, [this] {
        if (!get || !set) return;
        const QColor chosen = QColorDialog::getColor(get(), this, label_);
        if (chosen.isValid()) set(chosen);
        sync();
    });
}

void ColorWell::sync() {
    QPixmap swatch(iconSize());
    swatch.fill(get ? get() : QColor(Qt::black));
    QPainter p(&swatch);
    p.setPen(QColor(120, 120, 125));
    p.drawRect(swatch.rect().adjusted(0, 0, -1, -1));
    p.end();
    setIcon(QIcon(swatch));
}

} // namespace korv
