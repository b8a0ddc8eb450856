#pragma once
// The tools in their groups, one button each, with the colour strip below.
// Only the tools that work so far are offered.
#include "app/model/StudioModel.h"

#include <QWidget>

class QButtonGroup;

namespace korv {

class ToolPalette : public QWidget {
public:
    ToolPalette(StudioModel& model, QWidget* parent = nullptr);
    ~ToolPalette() override;

    // The tools the canvas handles today.
    static bool isAvailable(Tool tool);

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    QButtonGroup* buttons_;
};

} // namespace korv
