#pragma once
// A swatch button for one colour binding; a click opens the colour chooser.
#include <QToolButton>
#include <functional>

namespace korv {

class ColorWell : public QToolButton {
public:
    ColorWell(const QString& label, QWidget* parent = nullptr);

    std::function<QColor()> get;
    std::function<void(const QColor&)> set;

    // Redraws the swatch from `get`.
    void sync();

private:
    QString label_;
};

} // namespace korv
