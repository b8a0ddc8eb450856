#pragma once
// What the centre shows with no picture open: what the program is for, how
// to begin, and a place to drop photos.
#include "app/model/StudioModel.h"

#include <QWidget>

namespace korv {

class EmptyState : public QWidget {
public:
    EmptyState(StudioModel& model, QWidget* parent = nullptr);

private:
    StudioModel& model_;
};

} // namespace korv
