#pragma once
// The settings of one shape layer: its kind, box, outline details, fill and
// stroke. Controls that the kind does not use are hidden.
#include "app/model/StudioModel.h"
#include "app/ui/LayerForm.h"

#include <QWidget>

namespace korv {

class ShapeEditorPanel : public QWidget {
public:
    ShapeEditorPanel(StudioModel& model, const Uuid& id, QWidget* parent = nullptr);

    void sync();

    const Uuid id;

private:
    LayerForm form_;
    ValueSlider* radius_ = nullptr;
    ValueSlider* sides_ = nullptr;
};

// The kinds as the user reads them, in the order of ShapeKind.
QStringList shapeKindNames();

} // namespace korv
