#include "app/ui/EmptyState.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace korv {

EmptyState::EmptyState(StudioModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setObjectName("emptyState");
    // A dropped photo goes on to the window, which opens what is dropped anywhere on it.
    setAcceptDrops(false);
    auto* column = new QVBoxLayout(this);
    column->addStretch(1);
    auto* title = new QLabel("KORV Lumenary");
    title->setStyleSheet("font-size: 26px; font-weight: bold;");
    auto* tagline = new QLabel("Layered photo editing, compositing and retouching");
    tagline->setStyleSheet("font-size: 15px; color: rgb(190,190,195);");
    auto* hint =
        new QLabel("Drop a photo here to open it. Opens JPEG, PNG, TIFF, HEIC, Photoshop PSD and KORV "
                   "documents.");
    hint->setWordWrap(true);
    hint->setStyleSheet("color: rgb(150,150,155);");
    for (auto* l : {title, tagline, hint}) {
        l->setAlignment(Qt::AlignCenter);
        column->addWidget(l);
    }
    column->addSpacing(14);
    auto* row = new QHBoxLayout;
    row->addStretch(1);
    auto* newPicture = new QPushButton("New Picture…");
    newPicture->setToolTip("Ctrl+N");
    connect(newPicture, &QPushButton::clicked, this, [this] {
        model_.setSheet(Sheet{Sheet::Kind::newDocument, ""});
    });
    auto* open = new QPushButton("Open…");
    open->setToolTip("Ctrl+O");
    open->setDefault(true);
    connect(open, &QPushButton::clicked, this, [this] { model_.openPanel(); });
    row->addWidget(newPicture);
    row->addWidget(open);
    row->addStretch(1);
    column->addLayout(row);
    column->addStretch(1);
}

} // namespace korv
