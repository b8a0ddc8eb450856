#pragma once
// A labelled slider with its number beside it: the number shows the value as
// the slider moves and takes a typed one. Both report through `changed`; a
// value set from the model reports nothing, so a refresh never writes back.
#include <QWidget>
#include <functional>

class QDoubleSpinBox;
class QLabel;
class QSlider;

namespace korv {

class ValueSlider : public QWidget {
public:
    // `scale` maps the shown number to the stored value (100 for a 0...1
    // field shown as percent); `decimals` is for the shown number.
    ValueSlider(const QString& label, double low, double high, int decimals = 0, double scale = 1,
                const QString& suffix = QString(), QWidget* parent = nullptr);

    std::function<void(double)> changed;
    // Called when a drag starts and ends, so that callers can hold back slow work.
    std::function<void(bool)> dragging;

    void setValue(double stored);
    double value() const;
    // Shows "+" before positive numbers, for shifts around zero.
    void setSigned(bool on);
    // Spreads the slider's travel evenly over ratios rather than differences,
    // for values such as gamma whose neutral 1 sits near the low end.
    void setLogarithmic(bool on);
    QString label() const;
    void setLabelWidth(int width);
    QSlider* slider() const { return slider_; }
    QDoubleSpinBox* field() const { return field_; }

private:
    void report(double shown);
    double shownAt(int position) const;
    int positionOf(double shown) const;

    QLabel* label_;
    QSlider* slider_;
    QDoubleSpinBox* field_;
    double scale_;
    int steps_;
    double low_, high_;
    bool quiet_ = false;
    bool logarithmic_ = false;
};

} // namespace korv
