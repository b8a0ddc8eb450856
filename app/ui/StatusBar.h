#pragma once
// The line under the canvas: the last message, the pointer's position, the
// picture's size and resolution, the zoom and the active layer's name.
#include "app/model/StudioModel.h"

#include <QStatusBar>

class QLabel;

namespace korv {

class StatusBar : public QStatusBar {
public:
    StatusBar(StudioModel& model, QWidget* parent = nullptr);
    ~StatusBar() override;

    // Only the pointer's position: called on every mouse move, so it touches nothing else.
    void showCursor();

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    QLabel* status_;
    QLabel* cursor_;
    QLabel* size_;
    QLabel* zoom_;
    QLabel* layer_;
};

} // namespace korv
