#include "app/ui/TextEditorPanel.h"

#include "app/ui/ColorWell.h"
#include "app/ui/FontMenu.h"
#include "app/ui/ValueSlider.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QSignalBlocker>
#include <QTimer>
#include <QVBoxLayout>

namespace korv {

TextEditorPanel::TextEditorPanel(StudioModel& model, const Uuid& id, QWidget* parent)
    : QWidget(parent), id(id), form_(model, id, "Text", new QVBoxLayout(this)), box_(new QPlainTextEdit),
      font_(new FontMenu) {
    auto* column = form_.column;
    column->setContentsMargins(0, 4, 0, 0);
    column->setSpacing(6);
    const auto text = specField(&StudioLayer::text, &TextSpec::text);

    box_->setPlaceholderText("Text");
    box_->setFixedHeight(84);
    box_->setTabChangesFocus(true);
    column->addWidget(box_);
    auto textBinding = model.bindLayer<std::string>(id, "Edit Text", text.first, text.second, std::string());
    connect(box_, &QPlainTextEdit::textChanged, this,
            [this, textBinding] { textBinding.set(box_->toPlainText().toStdString()); });
    form_.onSync([this, textBinding] {
        const QString now = QString::fromStdString(textBinding.get());
        // Setting the same text would move the caret to the start while the user types.
        if (box_->toPlainText() == now) return;
        const QSignalBlocker quiet(box_);
        box_->setPlainText(now);
    });

    auto fontRow = form_.row("Font");
    fontRow->addWidget(font_, 1);
    const auto family = specField(&StudioLayer::text, &TextSpec::fontFamily);
    auto familyBinding =
        model.bindLayer<std::string>(id, form_.stepFor("Font"), family.first, family.second, std::string());
    font_->get = familyBinding.get;
    font_->set = familyBinding.set;
    form_.onSync([this] { font_->sync(); });

    size_ = form_.slider("Size", 2, 1000, specField(&StudioLayer::text, &TextSpec::size), 0, " pt");
    // Most text is set between 8 and 200 points: that range gets most of the travel.
    size_->setLogarithmic(true);
    auto* styleRow = form_.row("Style");
    form_.toggle("Bold", specField(&StudioLayer::text, &TextSpec::bold), styleRow);
    form_.toggle("Italic", specField(&StudioLayer::text, &TextSpec::italic), styleRow);
    styleRow->addStretch(1);
    auto* colorRow = form_.row("Color");
    form_.color("Text color", specField(&StudioLayer::text, &TextSpec::color), colorRow);
    colorRow->addStretch(1);
    form_.segments("Alignment", {"Left", "Center", "Right"}, {"Align left", "Align center", "Align right"},
                   specFieldAs<int>(&StudioLayer::text, &TextSpec::align));
    form_.slider("Letter spacing", -20, 200, specField(&StudioLayer::text, &TextSpec::tracking), 1, " pt");
    form_.slider("Line spacing", 0.5, 4, specField(&StudioLayer::text, &TextSpec::lineSpacing), 2, "×");
    form_.slider("Box width (0 = no wrap)", 0, 4000, specField(&StudioLayer::text, &TextSpec::boxWidth), 0,
                 " px");
    form_.slider("Rotation", -180, 180, specField(&StudioLayer::text, &TextSpec::rotation), 0, "°");
    sync();
}

void TextEditorPanel::startTyping() {
    // Once the panel is laid out and shown: a hidden widget can't take the focus.
    QTimer::singleShot(0, box_, [box = box_] {
        box->setFocus(Qt::OtherFocusReason);
        box->selectAll();
    });
}

void TextEditorPanel::sync() {
    form_.sync();
}

} // namespace korv
