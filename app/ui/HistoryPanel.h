#pragma once
// The steps of the current document's history, the current one marked and
// later ones greyed, with the snapshots below; a click goes back to a step.
#include "app/model/StudioModel.h"

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;

namespace korv {

class HistoryPanel : public QWidget {
public:
    HistoryPanel(StudioModel& model, QWidget* parent);
    ~HistoryPanel() override;

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    QLabel* heading_;
    QListWidget* steps_;
    QListWidget* snapshots_;
    QPushButton* snapshot_;
    std::string shown_;
    bool syncing_ = false;
};

} // namespace korv
