#pragma once
// The row above the canvas with the chosen tool's settings: the magic wand's,
// and the Crop tool's buttons; for the other tools the row stays, empty, so
// the canvas does not jump when the tool changes.
#include "app/model/StudioModel.h"

#include <QToolBar>

class QActionGroup;
class QCheckBox;

namespace korv {

class ValueSlider;

class OptionsBar : public QToolBar {
public:
    OptionsBar(StudioModel& model, QWidget* parent = nullptr);
    ~OptionsBar() override;

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    QActionGroup* modes_;
    ValueSlider* tolerance_;
    QCheckBox* contiguous_;
    QCheckBox* allLayers_;
    QList<QAction*> wandActions_, cropActions_;
    QAction* applyCrop_ = nullptr;
    QAction* cancelCrop_ = nullptr;
};

} // namespace korv
