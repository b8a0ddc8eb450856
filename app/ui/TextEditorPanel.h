#pragma once
// The settings of one text layer: its words, font and paragraph. Every
// change is a step of its own kind, and a run of typing or a slider drag
// makes one.
#include "app/model/StudioModel.h"
#include "app/ui/LayerForm.h"

#include <QWidget>

class QPlainTextEdit;

namespace korv {

class FontMenu;

class TextEditorPanel : public QWidget {
public:
    TextEditorPanel(StudioModel& model, const Uuid& id, QWidget* parent = nullptr);

    // Shows the layer's values; writes nothing.
    void sync();
    ValueSlider* sizeSlider() const { return size_; }
    QPlainTextEdit* textBox() const { return box_; }
    // Puts the caret in the text box with all the words chosen, so that
    // typing replaces them: for a text just placed.
    void startTyping();

    const Uuid id;

private:
    LayerForm form_;
    QPlainTextEdit* box_;
    FontMenu* font_;
    ValueSlider* size_ = nullptr;
};

} // namespace korv
