#pragma once
// The controls of one adjustment layer, by its type. Every control is bound
// to one field of the layer's record through the model's adjustment binding,
// so a drag of any length is one history step and the canvas follows it.
#include "app/model/StudioModel.h"

#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

class QVBoxLayout;

namespace korv {

class Histogram;
class HistogramCache;

class AdjustmentEditor : public QWidget {
public:
    AdjustmentEditor(StudioModel& model, const Uuid& id, QWidget* parent = nullptr);
    ~AdjustmentEditor() override;

    // Shows the layer's values in the controls; writes nothing.
    void sync();
    // What the controls' layout depends on; when it changes the editor is built anew.
    static std::string shape(const AdjustmentSpec& spec);

    const Uuid id;
    int channel = 0;
    // Color Balance starts on the midtones, where most corrections are made.
    int tone = 1;

private:
    using Get = std::function<double(const AdjustmentSpec&)>;
    using Set = std::function<void(AdjustmentSpec&, double)>;

    void build(const AdjustmentSpec& spec);
    QWidget* slider(const QString& label, double low, double high, Get get, Set set, int decimals = 0,
                    double scale = 1, const QString& suffix = QString(), bool showSign = false,
                    bool logarithmic = false);
    QWidget* toggle(const QString& label, std::function<bool(const AdjustmentSpec&)> get,
                    std::function<void(AdjustmentSpec&, bool)> set);
    QWidget* picker(const QStringList& items, int* state);
    QWidget* note(const QString& text);
    void buildLevels();
    void buildCurves();
    void buildGradientMap(const AdjustmentSpec& spec);
    // An edit of the record as one step of its own (buttons, not drags).
    void edit(const std::string& name, const std::function<void(AdjustmentSpec&)>& change);
    std::optional<AdjustmentSpec> spec() const;

    StudioModel& model_;
    QVBoxLayout* column_;
    Histogram* histogram_ = nullptr;
    std::unique_ptr<HistogramCache> curvesCounts_;
    std::vector<std::function<void()>> refreshers_;
};

} // namespace korv
