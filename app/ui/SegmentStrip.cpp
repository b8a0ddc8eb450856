#include "app/ui/SegmentStrip.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QToolButton>
#include <QWidget>

namespace korv {

QWidget* segmentStrip(const QStringList& items, const QStringList& help, QButtonGroup** group) {
    auto* strip = new QWidget;
    // The chosen segment must stand out: the plain checked look is hard to see on the dark theme.
    strip->setStyleSheet("QToolButton { padding: 3px; } QToolButton:checked { background: rgb(64,128,230); "
                         "color: white; border: 1px solid rgb(64,128,230); }");
    auto* h = new QHBoxLayout(strip);
    h->setContentsMargins(0, 0, 0, 0);
    h->setSpacing(0);
    *group = new QButtonGroup(strip);
    for (int i = 0; i < items.size(); ++i) {
        auto* b = new QToolButton;
        b->setText(items[i]);
        if (i < help.size()) b->setToolTip(help[i]);
        b->setCheckable(true);
        b->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        (*group)->addButton(b, i);
        h->addWidget(b);
    }
    return strip;
}

} // namespace korv
