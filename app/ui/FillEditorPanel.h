#pragma once
// The settings of one fill layer: its kind, colours and the geometry of a
// gradient or pattern. Controls that the kind does not use are hidden.
#include "app/model/StudioModel.h"
#include "app/ui/LayerForm.h"

#include <QWidget>

namespace korv {

class FillEditorPanel : public QWidget {
public:
    FillEditorPanel(StudioModel& model, const Uuid& id, QWidget* parent = nullptr);

    void sync();

    const Uuid id;

private:
    LayerForm form_;
    ColorWell* second_ = nullptr;
    QWidget* reverse_ = nullptr;
    ValueSlider* angle_ = nullptr;
    ValueSlider* radius_ = nullptr;
    ValueSlider* centerX_ = nullptr;
    ValueSlider* centerY_ = nullptr;
    ValueSlider* scale_ = nullptr;
    QWidget* pattern_ = nullptr;
};

} // namespace korv
