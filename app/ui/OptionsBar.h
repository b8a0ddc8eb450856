#pragma once
// The row above the canvas with the chosen tool's settings: the magic wand's,
// the Text and Shape tools' records, and the Crop tool's buttons; for the other tools the row stays, empty,
// so the canvas does not jump when the tool changes.
#include "app/model/StudioModel.h"

#include <QToolBar>

class QActionGroup;
class QCheckBox;
class QComboBox;

namespace korv {

class FontMenu;
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
    QList<QAction*> wandActions_, cropActions_, textActions_, shapeActions_;
    // The Text tool's record: what a click places.
    FontMenu* font_;
    ValueSlider* textSize_;
    QCheckBox* bold_;
    QCheckBox* italic_;
    QActionGroup* align_;
    // The Shape tool's record: what a drag draws.
    QComboBox* shapeKind_;
    QCheckBox* outline_;
    ValueSlider* lineWidth_;
    void buildTextRow();
    void buildShapeRow();
    // Stores the tool records and tells the views.
    void toolChanged();
    QAction* applyCrop_ = nullptr;
    QAction* cancelCrop_ = nullptr;
};

} // namespace korv
