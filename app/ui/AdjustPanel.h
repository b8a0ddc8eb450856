#pragma once
// One button per adjustment type, each adding that adjustment layer above the
// active one (masked to the selection when there is one).
#include "app/model/StudioModel.h"

#include <QWidget>

namespace korv {

class AdjustPanel : public QWidget {
public:
    AdjustPanel(StudioModel& model, QWidget* parent = nullptr);
    ~AdjustPanel() override;

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    QList<QWidget*> needPicture_;
};

} // namespace korv
