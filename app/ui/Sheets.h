#pragma once
// The modal sheets of this window: a new picture, export options and the
// list of recovery copies offered at start-up.
#include "app/model/StudioModel.h"

#include <QDialog>

class QListWidget;

namespace korv {

// Width, height, resolution and background; OK makes the document.
class NewPictureDialog : public QDialog {
public:
    NewPictureDialog(StudioModel& model, QWidget* parent);
};

// Format, quality and scale; OK goes on to the save panel.
class ExportDialog : public QDialog {
public:
    ExportDialog(StudioModel& model, QWidget* parent);
};

// Feather, grow, shrink, smooth or border the selection by an amount of 1 to 200.
class RefineDialog : public QDialog {
public:
    RefineDialog(StudioModel& model, const std::string& kind, QWidget* parent);
};

// Image Size (resamples) or Canvas Size (adds or trims space around the
// picture by a 3 x 3 anchor); Apply runs the command.
class SizeDialog : public QDialog {
public:
    SizeDialog(StudioModel& model, bool canvas, QWidget* parent);
};

// Each pending copy with its preview, size, layers and date: recover or discard.
class RecoveryDialog : public QDialog {
public:
    RecoveryDialog(StudioModel& model, QWidget* parent);

private:
    void reload();
    std::vector<Recovery::Item> selected() const;
    StudioModel& model_;
    QListWidget* list_;
    std::vector<Recovery::Item> items_;
};

} // namespace korv
