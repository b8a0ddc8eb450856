#pragma once
// The layer list beside the canvas: the rows of the tree, top first, with
// their switches, the active layer's mode and opacities, and the buttons of
// the layer commands. Every change goes through the model as one step.
#include "app/model/StudioModel.h"

#include <QWidget>
#include <map>
#include <string>
#include <utility>

class QComboBox;
class QLabel;
class QVBoxLayout;
class QWidget;

namespace korv {

class ValueSlider;

class LayersPanel : public QWidget {
public:
    LayersPanel(StudioModel& model, QWidget* parent);
    ~LayersPanel() override;

private:
    void sync();
    void rebuildRows();
    QWidget* makeRow(const LayerRow& row, const std::pair<std::string, std::string>& keys, bool active);
    void showRowMenu(const LayerRow& row, const QPoint& at);
    QPixmap thumbnail(const StudioLayer& layer, bool mask, const std::string& key);

    StudioModel& model_;
    int observer_ = 0;
    QComboBox* blend_;
    ValueSlider* opacity_;
    ValueSlider* fillOpacity_;
    // The foot buttons, greyed while no picture is open.
    QList<QWidget*> footButtons_;
    QWidget* rowsHost_;
    QVBoxLayout* rowsLayout_;
    // What the rows showed last, so a notification that changed nothing in
    // the tree rebuilds nothing.
    std::string shownSignature_;
    // Thumbnails by layer id, mask flag and version; dropped with each rebuild
    // of anything they no longer match.
    std::map<std::string, QPixmap> thumbnails_;
    bool syncing_ = false;
};

} // namespace korv
