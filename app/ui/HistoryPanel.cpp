#include "app/ui/HistoryPanel.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace korv {

HistoryPanel::HistoryPanel(StudioModel& model, QWidget* parent)
    : QWidget(parent), model_(model), heading_(new QLabel), steps_(new QListWidget),
      snapshots_(new QListWidget), snapshot_(new QPushButton("Take History Snapshot")) {
    setObjectName("history");
    auto* body = new QWidget;
    auto* column = new QVBoxLayout(body);
    column->setContentsMargins(6, 6, 6, 6);
    heading_->setWordWrap(true);
    column->addWidget(heading_);
    column->addWidget(steps_, 3);
    column->addWidget(new QLabel("Snapshots"));
    column->addWidget(snapshots_, 1);
    column->addWidget(snapshot_);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(body);

    // The lists are rebuilt by the change a click causes, so the click acts after its signal.
    connect(steps_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
        if (syncing_) return;
        const int64_t index = item->data(Qt::UserRole).toLongLong();
        QTimer::singleShot(0, this, [this, index] { model_.jumpHistory(index); });
    });
    connect(snapshots_, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
        if (syncing_) return;
        if (auto id = Uuid::parse(item->data(Qt::UserRole).toString().toStdString()))
            QTimer::singleShot(0, this, [this, id = *id] { model_.restoreSnapshot(id); });
    });
    connect(snapshot_, &QPushButton::clicked, this, [this] { model_.takeSnapshot(); });
    observer_ = model_.observe([this] { sync(); });
    sync();
}

HistoryPanel::~HistoryPanel() {
    model_.unobserve(observer_);
}

void HistoryPanel::sync() {
    auto* doc = model_.doc();
    std::string shown = doc ? std::to_string(reinterpret_cast<uintptr_t>(doc)) : "none";
    if (doc) {
        shown += "@" + std::to_string(doc->cursor());
        for (const auto& item : doc->history())
            shown += "|" + item.id.toString();
        for (const auto& item : doc->snapshots())
            shown += "#" + item.id.toString();
    }
    if (shown == shown_) return;
    shown_ = shown;

    syncing_ = true;
    steps_->clear();
    snapshots_->clear();
    heading_->setText(doc ? "History (click a step to go back to it)" : "Open a picture to see its history.");
    snapshot_->setEnabled(doc != nullptr);
    if (doc) {
        const auto& history = doc->history();
        for (size_t i = 0; i < history.size(); ++i) {
            const bool current = int64_t(i) == doc->cursor();
            auto* item =
                new QListWidgetItem(QString::fromStdString((current ? "▸ " : "   ") + history[i].name));
            item->setData(Qt::UserRole, qlonglong(i));
            if (int64_t(i) > doc->cursor()) item->setForeground(QColor(125, 125, 130));
            if (current) {
                QFont bold = item->font();
                bold.setBold(true);
                item->setFont(bold);
            }
            steps_->addItem(item);
        }
        steps_->scrollToItem(steps_->item(int(doc->cursor())));
        for (const auto& snap : doc->snapshots()) {
            auto* item = new QListWidgetItem(QString::fromStdString(snap.name));
            item->setData(Qt::UserRole, QString::fromStdString(snap.id.toString()));
            snapshots_->addItem(item);
        }
    }
    syncing_ = false;
}

} // namespace korv
