#include "app/ui/ToolPalette.h"

#include "app/ui/ColorStrip.h"

#include <QButtonGroup>
#include <QFrame>
#include <QToolButton>
#include <QVBoxLayout>

namespace korv {
namespace {

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

// A short mark for the button; the full name is in its help text.
QString mark(Tool tool) {
    switch (tool) {
    case Tool::move:
        return "✥";
    case Tool::magicWand:
        return "✦";
    case Tool::crop:
        return "⌗";
    case Tool::text:
        return "T";
    case Tool::shape:
        return "◩";
    default:
        return text(displayName(tool)).left(2);
    }
}

} // namespace

bool ToolPalette::isAvailable(Tool tool) {
    return tool == Tool::move || tool == Tool::magicWand || tool == Tool::crop || tool == Tool::text ||
           tool == Tool::shape;
}

ToolPalette::ToolPalette(StudioModel& model, QWidget* parent)
    : QWidget(parent), model_(model), buttons_(new QButtonGroup(this)) {
    setObjectName("tools");
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, 6, 4, 6);
    column->setSpacing(2);
    bool first = true;
    for (const auto& group : toolGroups()) {
        bool any = false;
        for (Tool t : group) {
            if (!isAvailable(t)) continue;
            if (!any && !first) {
                auto* line = new QFrame;
                line->setFrameShape(QFrame::HLine);
                line->setStyleSheet("color: rgb(70,70,75);");
                column->addWidget(line);
            }
            any = true;
            auto* b = new QToolButton;
            b->setText(mark(t));
            const char letter = key(t);
            const QString shortcut = letter ? QString(" (%1)").arg(QChar(letter).toUpper()) : QString();
            b->setToolTip(text(displayName(t)) + shortcut + " — " + text(tip(t)));
            if (letter) b->setShortcut(QKeySequence(QString(QChar(letter).toUpper())));
            b->setCheckable(true);
            b->setAutoRaise(true);
            b->setFixedSize(38, 34);
            b->setStyleSheet("font-size: 17px;");
            b->setAccessibleName(text(displayName(t)));
            buttons_->addButton(b, int(t));
            column->addWidget(b, 0, Qt::AlignHCenter);
        }
        first = first && !any;
    }
    connect(buttons_, &QButtonGroup::idClicked, this, [this](int id) { model_.setTool(Tool(id)); });
    column->addStretch(1);
    column->addWidget(new ColorStrip(model_));
    observer_ = model_.observe([this] { sync(); });
    sync();
}

ToolPalette::~ToolPalette() {
    model_.unobserve(observer_);
}

void ToolPalette::sync() {
    if (auto* b = buttons_->button(int(model_.tool))) b->setChecked(true);
}

} // namespace korv
