#pragma once
// The row above everything: the badge, one tab per open picture (with a dot
// while it has unsaved changes, and a close button), "New Picture", the
// interface zoom and Help.
#include "app/model/StudioModel.h"

#include <QWidget>

class QTabBar;

namespace korv {

class HeaderBar : public QWidget {
public:
    HeaderBar(StudioModel& model, QWidget* parent = nullptr);
    ~HeaderBar() override;

    QTabBar* tabs() const { return tabs_; }
    // The interface zoom levels, in percent.
    static const std::vector<int>& zoomLevels();

private:
    void sync();
    void stepZoom(bool bigger);

    StudioModel& model_;
    int observer_ = 0;
    QTabBar* tabs_;
    std::vector<Uuid> shownIDs_;
    bool syncing_ = false;
};

// Scales the interface's text (and so its controls) to the stored zoom.
void applyInterfaceZoom(double factor);

} // namespace korv
