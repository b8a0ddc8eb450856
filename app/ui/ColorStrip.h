#pragma once
// The paint colours: a well each for the first and second colour, a swap and
// a reset to black over white.
#include "app/model/StudioModel.h"

#include <QWidget>

namespace korv {

class ColorWell;

class ColorStrip : public QWidget {
public:
    ColorStrip(StudioModel& model, QWidget* parent = nullptr);
    ~ColorStrip() override;

private:
    void sync();

    StudioModel& model_;
    int observer_ = 0;
    ColorWell* primary_;
    ColorWell* secondary_;
};

} // namespace korv
