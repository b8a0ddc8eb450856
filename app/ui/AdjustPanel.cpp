#include "app/ui/AdjustPanel.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace korv {

AdjustPanel::AdjustPanel(StudioModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setObjectName("adjust");
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 8, 10, 8);
    auto* heading = new QLabel("Adjustment layers (non-destructive)");
    heading->setStyleSheet("font-weight: bold;");
    column->addWidget(heading);
    auto* grid = new QGridLayout;
    grid->setSpacing(4);
    for (int i = 0; i < kAdjustmentTypeCount; ++i) {
        const auto type = AdjustmentType(i);
        const auto name = displayName(type);
        const QString title = QString::fromUtf8(name.data(), qsizetype(name.size()));
        // A button reads "&" as a mnemonic: "Black & White" needs it doubled.
        auto* b = new QPushButton(QString(title).replace("&", "&&"));
        b->setToolTip("Adds a " + title + " layer above the current layer");
        connect(b, &QPushButton::clicked, this, [this, type] { model_.addAdjustment(type); });
        grid->addWidget(b, i / 2, i % 2);
        needPicture_ << b;
    }
    column->addLayout(grid);
    column->addStretch(1);
    observer_ = model_.observe([this] { sync(); });
    sync();
}

AdjustPanel::~AdjustPanel() {
    model_.unobserve(observer_);
}

void AdjustPanel::sync() {
    const bool open = model_.doc() != nullptr;
    for (auto* w : needPicture_)
        w->setEnabled(open);
}

} // namespace korv
