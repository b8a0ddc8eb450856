#include "app/ui/HeaderBar.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTabBar>
#include <QToolButton>
#include <cmath>

namespace korv {
namespace {

constexpr const char* kZoomKey = "korv.zoom";

double storedZoom(Host& host) {
    const auto text = host.setting(kZoomKey);
    const double v = text ? std::atof(text->c_str()) : 0;
    if (!(v > 0)) return 1.0;
    return std::clamp(std::round(v * 100) / 100, 0.85, 2.0);
}

} // namespace

const std::vector<int>& HeaderBar::zoomLevels() {
    static const std::vector<int> levels{85, 100, 115, 130, 150, 175, 200};
    return levels;
}

void applyInterfaceZoom(double factor) {
    static const QFont base = QApplication::font();
    QFont f = base;
    if (base.pointSizeF() > 0)
        f.setPointSizeF(base.pointSizeF() * factor);
    else
        f.setPixelSize(std::max(6, int(std::lround(base.pixelSize() * factor))));
    QApplication::setFont(f);
}

HeaderBar::HeaderBar(StudioModel& model, QWidget* parent)
    : QWidget(parent), model_(model), tabs_(new QTabBar) {
    setObjectName("header");
    setAutoFillBackground(true);
    QPalette p = palette();
    p.setColor(QPalette::Window, QColor(34, 34, 37));
    setPalette(p);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(8, 4, 8, 4);
    row->setSpacing(8);
    auto* badge = new QLabel("KORV");
    badge->setStyleSheet("background: rgb(64,128,230); color: white; font-weight: bold; padding: 3px 7px;"
                         "border-radius: 4px;");
    badge->setToolTip("KORV Lumenary");
    badge->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    row->addWidget(badge);

    tabs_->setTabsClosable(true);
    tabs_->setMovable(false);
    tabs_->setExpanding(false);
    tabs_->setDocumentMode(true);
    tabs_->setDrawBase(false);
    tabs_->setElideMode(Qt::ElideMiddle);
    tabs_->setUsesScrollButtons(true);
    row->addWidget(tabs_);
    row->addStretch(1);
    connect(tabs_, &QTabBar::currentChanged, this, [this](int index) {
        if (syncing_ || index < 0 || size_t(index) >= shownIDs_.size()) return;
        model_.setCurrentID(shownIDs_[size_t(index)]);
    });
    connect(tabs_, &QTabBar::tabCloseRequested, this, [this](int index) {
        if (index < 0 || size_t(index) >= shownIDs_.size()) return;
        const Uuid id = shownIDs_[size_t(index)];
        // Closing may ask to save; the dialog opens after the click is done.
        QMetaObject::invokeMethod(
            this, [this, id] { model_.close(id); }, Qt::QueuedConnection);
    });

    auto* newPicture = new QPushButton("New Picture");
    newPicture->setToolTip("Make a new, empty picture (Ctrl+N)");
    connect(newPicture, &QPushButton::clicked, this, [this] {
        model_.setSheet(Sheet{Sheet::Kind::newDocument, ""});
    });
    row->addWidget(newPicture);

    auto* smaller = new QToolButton;
    smaller->setText("A−");
    smaller->setToolTip("Smaller interface");
    smaller->setAutoRaise(true);
    connect(smaller, &QToolButton::clicked, this, [this] { stepZoom(false); });
    auto* bigger = new QToolButton;
    bigger->setText("A+");
    bigger->setToolTip("Bigger interface");
    bigger->setAutoRaise(true);
    connect(bigger, &QToolButton::clicked, this, [this] { stepZoom(true); });
    row->addWidget(smaller);
    row->addWidget(bigger);

    auto* help = new QPushButton("Help");
    help->setToolTip("The built-in help is not written yet.");
    help->setEnabled(false);
    row->addWidget(help);

    const double zoom = storedZoom(model_.host());
    if (zoom != 1.0) applyInterfaceZoom(zoom);
    observer_ = model_.observe([this] { sync(); });
    sync();
}

HeaderBar::~HeaderBar() {
    model_.unobserve(observer_);
}

void HeaderBar::stepZoom(bool bigger) {
    const int now = int(std::lround(storedZoom(model_.host()) * 100));
    int next = now;
    const auto& levels = zoomLevels();
    if (bigger) {
        for (int l : levels)
            if (l > now) {
                next = l;
                break;
            }
    } else {
        for (auto it = levels.rbegin(); it != levels.rend(); ++it)
            if (*it < now) {
                next = *it;
                break;
            }
    }
    if (next == now) return;
    model_.host().setSetting(kZoomKey, std::to_string(next / 100.0));
    applyInterfaceZoom(next / 100.0);
    model_.setStatus("Interface " + std::to_string(next) + "%");
}

void HeaderBar::sync() {
    syncing_ = true;
    std::vector<Uuid> ids;
    for (const auto& s : model_.sessions)
        ids.push_back(s->id);
    if (ids != shownIDs_) {
        while (tabs_->count() > 0)
            tabs_->removeTab(0);
        for (size_t i = 0; i < ids.size(); ++i)
            tabs_->addTab(QString());
        shownIDs_ = ids;
    }
    for (size_t i = 0; i < model_.sessions.size(); ++i) {
        const auto& s = model_.sessions[i];
        const QString title = QString::fromStdString(s->name) + (s->isDirty() ? "  ●" : "");
        if (tabs_->tabText(int(i)) != title) tabs_->setTabText(int(i), title);
        tabs_->setTabToolTip(int(i), s->fileURL ? QString::fromStdString(s->fileURL->string())
                                                : QString::fromStdString(s->name) + " (not saved yet)");
        if (auto* close = tabs_->tabButton(int(i), QTabBar::RightSide)) close->setToolTip("Close");
        if (model_.currentID == s->id) tabs_->setCurrentIndex(int(i));
    }
    syncing_ = false;
}

} // namespace korv
