#include "app/ui/FontMenu.h"

#include "engine/platform/TextLayout.h"

#include <QSignalBlocker>

namespace korv {

FontMenu::FontMenu(QWidget* parent) : QComboBox(parent) {
    setToolTip("Font");
    setMaxVisibleItems(24);
    setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    setMinimumContentsLength(12);
    for (const auto& family : TextLayout::families())
        addItem(QString::fromStdString(family));
    installed_ = count();
    connect(this, &QComboBox::activated, this, [this](int i) {
        if (set) set(itemText(i).toStdString());
    });
}

void FontMenu::sync() {
    if (!get) return;
    const QSignalBlocker quiet(this);
    const QString family = QString::fromStdString(get());
    // Only one stranger at a time sits below the installed families.
    while (count() > installed_)
        removeItem(count() - 1);
    int at = findText(family, Qt::MatchFixedString);
    if (at < 0) {
        addItem(family);
        at = count() - 1;
    }
    setCurrentIndex(at);
}

} // namespace korv
