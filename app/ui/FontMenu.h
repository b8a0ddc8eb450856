#pragma once
// A pop-up of the font families text can be set in. A family that is not
// installed (a record from another computer) is shown as it is named, so
// that the menu never claims a different font than the record holds.
#include <QComboBox>
#include <functional>
#include <string>

namespace korv {

class FontMenu : public QComboBox {
public:
    explicit FontMenu(QWidget* parent = nullptr);

    std::function<std::string()> get;
    std::function<void(const std::string&)> set;

    // Shows the family from `get`; writes nothing.
    void sync();

private:
    int installed_ = 0;
};

} // namespace korv
