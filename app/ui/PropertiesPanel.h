#pragma once
// The active layer's settings: its kind with a short note on how such a layer
// behaves, and below it the editor for its kind.
#include "app/model/StudioModel.h"

#include <QWidget>

class QLabel;
class QVBoxLayout;

namespace korv {

class AdjustmentEditor;

class PropertiesPanel : public QWidget {
public:
    PropertiesPanel(StudioModel& model, QWidget* parent = nullptr);
    ~PropertiesPanel() override;

    AdjustmentEditor* adjustmentEditor() const;

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    QLabel* header_;
    QLabel* note_;
    QVBoxLayout* body_;
    // The editor of the layer's kind, and how it shows the layer's values.
    QWidget* editor_ = nullptr;
    std::function<void()> syncEditor_;
    std::string shown_;
};

} // namespace korv
