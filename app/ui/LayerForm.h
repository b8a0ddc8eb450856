#pragma once
// The controls of the text, shape and fill editors, each bound to one field
// of the layer's record through the model's layer binding: a drag or a run of
// typing is one history step, and a refresh from the model never writes back.
#include "app/model/StudioModel.h"

#include <QStringList>
#include <functional>
#include <optional>
#include <vector>

class QCheckBox;
class QComboBox;
class QHBoxLayout;
class QLayout;
class QVBoxLayout;
class QWidget;

namespace korv {

class ColorWell;
class ValueSlider;

template <class T>
using LayerGet = std::function<T(const StudioLayer&)>;
template <class T>
using LayerSet = std::function<void(StudioLayer&, const T&)>;

// A member of the layer's record of kind Spec (its text, shape or fill), or
// the record's default when the layer has none.
template <class Spec, class T>
std::pair<LayerGet<T>, LayerSet<T>> specField(std::optional<Spec> StudioLayer::*record, T Spec::*member) {
    return {[record, member](const StudioLayer& l) {
                return (l.*record) ? (*(l.*record)).*member : Spec{}.*member;
            },
            [record, member](StudioLayer& l, const T& v) {
                if (l.*record) (*(l.*record)).*member = v;
            }};
}

// An enumeration or whole-number member, shown by a control that speaks int or double.
template <class To, class Spec, class T>
std::pair<LayerGet<To>, LayerSet<To>> specFieldAs(std::optional<Spec> StudioLayer::*record, T Spec::*member) {
    auto [get, set] = specField(record, member);
    return {[get](const StudioLayer& l) { return To(get(l)); },
            [set](StudioLayer& l, const To& v) { set(l, T(v)); }};
}

class LayerForm {
public:
    // `step` begins the name of every control's history step: "Text" gives
    // "Text size"; each control's changes coalesce into steps of their own.
    LayerForm(StudioModel& model, const Uuid& id, std::string step, QVBoxLayout* column);

    ValueSlider* slider(const QString& label, double low, double high,
                        std::pair<LayerGet<double>, LayerSet<double>> f, int decimals = 0,
                        const QString& suffix = QString(), double scale = 1);
    QCheckBox* toggle(const QString& label, std::pair<LayerGet<bool>, LayerSet<bool>> f,
                      QLayout* into = nullptr);
    ColorWell* color(const QString& label, std::pair<LayerGet<RGBA>, LayerSet<RGBA>> f,
                     QLayout* into = nullptr);
    // A pop-up of the items, bound to the index of the chosen one.
    QComboBox* choice(const QString& label, const QStringList& items,
                      std::pair<LayerGet<int>, LayerSet<int>> f);
    // A row of buttons of which one is on, bound to its index.
    QWidget* segments(const QString& label, const QStringList& items, const QStringList& help,
                      std::pair<LayerGet<int>, LayerSet<int>> f);
    // A labelled row for controls that sit side by side.
    QHBoxLayout* row(const QString& label);
    // Runs after every refresh: showing and hiding what the record's kind uses.
    void onSync(std::function<void()> f) { refreshers_.push_back(std::move(f)); }
    void sync();
    // Shows or hides a control made here, with the title it may have above it.
    static void show(QWidget* control, bool on);
    std::string stepFor(const QString& label) const;

    StudioModel& model;
    const Uuid id;
    const std::string step;
    QVBoxLayout* const column;

private:
    std::vector<std::function<void()>> refreshers_;
};

} // namespace korv
