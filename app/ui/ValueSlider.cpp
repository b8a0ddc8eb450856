#include "app/ui/ValueSlider.h"

#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <algorithm>
#include <cmath>

namespace korv {
namespace {

// A spin box whose text can carry a sign for positive values.
class SignedSpinBox : public QDoubleSpinBox {
public:
    bool showPlus = false;
    SignedSpinBox() {
        connect(this, &QAbstractSpinBox::editingFinished, this, [this] { lineEdit()->setModified(false); });
    }
    // True while the user has typed into the field and not yet entered it.
    bool typing() const { return hasFocus() && lineEdit()->isModified(); }
    QString textFromValue(double v) const override {
        const QString text = QDoubleSpinBox::textFromValue(v);
        return showPlus && v > 0 ? "+" + text : text;
    }
    double valueFromText(const QString& text) const override {
        QString t = text;
        if (t.startsWith('+')) t.remove(0, 1);
        return QDoubleSpinBox::valueFromText(t);
    }
    QValidator::State validate(QString& input, int& pos) const override {
        if (input.startsWith('+')) {
            QString t = input.mid(1);
            int p = std::max(0, pos - 1);
            return QDoubleSpinBox::validate(t, p);
        }
        return QDoubleSpinBox::validate(input, pos);
    }
};

} // namespace

ValueSlider::ValueSlider(const QString& label, double low, double high, int decimals, double scale,
                         const QString& suffix, QWidget* parent)
    : QWidget(parent), label_(new QLabel(label)), slider_(new QSlider(Qt::Horizontal)),
      field_(new SignedSpinBox), scale_(scale), low_(low), high_(high) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);
    // One width for every label keeps the sliders of a panel in one column.
    label_->setFixedWidth(112);
    row->addWidget(label_);
    // The slider moves in steps of the shown precision, at most a few thousand of them.
    const double unit = std::pow(10.0, -decimals);
    steps_ = int(std::min(4000.0, std::round((high - low) / unit)));
    slider_->setRange(0, steps_);
    row->addWidget(slider_, 1);
    field_->setRange(low, high);
    field_->setDecimals(decimals);
    field_->setSingleStep(unit);
    field_->setSuffix(suffix);
    field_->setKeyboardTracking(false);
    field_->setButtonSymbols(QAbstractSpinBox::NoButtons);
    field_->setAlignment(Qt::AlignRight);
    field_->setFixedWidth(64);
    row->addWidget(field_);
    if (label.isEmpty()) label_->hide();

    connect(slider_, &QSlider::valueChanged, this, [this](int position) {
        if (quiet_) return;
        const double shown = shownAt(position);
        quiet_ = true;
        field_->setValue(shown);
        quiet_ = false;
        report(field_->value());
    });
    connect(slider_, &QSlider::sliderPressed, this, [this] {
        if (dragging) dragging(true);
    });
    connect(slider_, &QSlider::sliderReleased, this, [this] {
        if (dragging) dragging(false);
    });
    connect(field_, &QDoubleSpinBox::valueChanged, this, [this](double shown) {
        if (quiet_) return;
        quiet_ = true;
        slider_->setValue(positionOf(shown));
        quiet_ = false;
        report(shown);
    });
}

void ValueSlider::report(double shown) {
    if (changed) changed(shown / scale_);
}

void ValueSlider::setValue(double stored) {
    quiet_ = true;
    const double shown = std::clamp(stored * scale_, low_, high_);
    // A number being typed is left alone until it is entered.
    if (!static_cast<SignedSpinBox*>(field_)->typing()) field_->setValue(shown);
    if (!slider_->isSliderDown()) slider_->setValue(positionOf(shown));
    quiet_ = false;
}

double ValueSlider::shownAt(int position) const {
    const double t = double(position) / std::max(1, steps_);
    if (logarithmic_ && low_ > 0) return low_ * std::pow(high_ / low_, t);
    return low_ + (high_ - low_) * t;
}

int ValueSlider::positionOf(double shown) const {
    const double t = logarithmic_ && low_ > 0
                         ? std::log(std::max(shown, low_) / low_) / std::log(high_ / low_)
                         : (shown - low_) / (high_ - low_);
    return int(std::lround(std::clamp(t, 0.0, 1.0) * steps_));
}

void ValueSlider::setLogarithmic(bool on) {
    logarithmic_ = on;
    if (on) {
        steps_ = 1000;
        slider_->setRange(0, steps_);
    }
    quiet_ = true;
    slider_->setValue(positionOf(field_->value()));
    quiet_ = false;
}

void ValueSlider::setLabelWidth(int width) {
    label_->setFixedWidth(width);
}

QString ValueSlider::label() const {
    return label_->text();
}

double ValueSlider::value() const {
    return field_->value() / scale_;
}

void ValueSlider::setSigned(bool on) {
    static_cast<SignedSpinBox*>(field_)->showPlus = on;
    field_->setValue(field_->value());
}

} // namespace korv
