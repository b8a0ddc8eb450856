#include "app/ui/MainWindow.h"

#include "app/ui/CanvasView.h"
#include "app/ui/QtHost.h"
#include "app/ui/Sheets.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPalette>
#include <QStatusBar>
#include <QStyleFactory>
#include <QTimer>

namespace korv {

void applyDarkLook() {
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    QPalette p;
    const QColor window(45, 45, 48), base(30, 30, 32), text(230, 230, 232), accent(64, 128, 230);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::red);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::PlaceholderText, QColor(140, 140, 145));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, QColor(120, 120, 125));
    QApplication::setPalette(p);
}

MainWindow::MainWindow(StudioModel& model, QtHost& host)
    : model_(model), host_(host), canvas_(new CanvasView(model, this)), statusLabel_(new QLabel),
      zoomLabel_(new QLabel), busyOverlay_(new QLabel(this)), emptyHint_(new QLabel(canvas_)) {
    setWindowTitle("KORV Lumenary");
    setObjectName("main");
    resize(1500, 940);
    setCentralWidget(canvas_);
    statusBar()->addWidget(statusLabel_, 1);
    statusBar()->addPermanentWidget(zoomLabel_);

    emptyHint_->setText("Open a picture (Ctrl+O) or make a new one (Ctrl+N).");
    emptyHint_->setStyleSheet("color: rgb(150,150,155); font-size: 15px;");
    emptyHint_->setAlignment(Qt::AlignCenter);

    busyOverlay_->setAlignment(Qt::AlignCenter);
    busyOverlay_->setStyleSheet("background: rgba(0,0,0,140); color: white; font-size: 18px;");
    busyOverlay_->hide();

    setAcceptDrops(true);
    canvas_->setAcceptDrops(false); // so drops reach the window
    model_.canvas = canvas_;
    if (auto* session = model_.current()) canvas_->showSession(*session);
    host_.setWindow(this);
    buildMenus();
    observer_ = model_.observe([this] { sync(); });
    sync();
}

MainWindow::~MainWindow() {
    model_.unobserve(observer_);
    model_.canvas = nullptr;
    host_.setWindow(nullptr);
}

void MainWindow::buildMenus() {
    auto* file = menuBar()->addMenu("&File");
    auto add = [this](QMenu* menu, const QString& title, QKeySequence keys, std::function<void()> action) {
        auto* item = menu->addAction(title);
        if (!keys.isEmpty()) item->setShortcut(keys);
        connect(item, &QAction::triggered, this, [action = std::move(action)] { action(); });
        return item;
    };
    add(file, "New Picture…", QKeySequence::New, [this] {
        model_.setSheet(Sheet{Sheet::Kind::newDocument, ""});
    });
    add(file, "Open…", QKeySequence::Open, [this] { model_.openPanel(); });
    recentMenu_ = file->addMenu("Open Recent");
    connect(recentMenu_, &QMenu::aboutToShow, this, [this] { rebuildRecentMenu(); });
    add(file, "Place Picture as Layer…", QKeySequence("Ctrl+Shift+P"),
        [this] { model_.importAsLayerPanel(); });
    add(file, "Recover Autosaved Work…", {}, [this] { model_.setSheet(Sheet{Sheet::Kind::recovery, ""}); });
    file->addSeparator();
    add(file, "Close Picture", QKeySequence::Close, [this] { model_.close(); });
    add(file, "Save", QKeySequence::Save, [this] { model_.save(false); });
    add(file, "Save As…", QKeySequence("Ctrl+Shift+S"), [this] { model_.save(true); });
    add(file, "Export (JPEG, PNG, TIFF, HEIC)…", QKeySequence("Ctrl+Shift+E"), [this] {
        if (model_.current()) model_.setSheet(Sheet{Sheet::Kind::exportPicture, ""});
    });
    add(file, "Export Layered PSD…", {}, [this] { model_.exportPSD(); });
    file->addSeparator();
    auto* quit = add(file, "Quit", QKeySequence::Quit, [this] { close(); });
    quit->setMenuRole(QAction::QuitRole);

    auto* edit = menuBar()->addMenu("&Edit");
    undo_ = add(edit, "Undo", QKeySequence::Undo, [this] { model_.undo(); });
    redo_ = add(edit, "Redo", QKeySequence("Ctrl+Shift+Z"), [this] { model_.redo(); });

    auto* view = menuBar()->addMenu("&View");
    add(view, "Zoom In", QKeySequence::ZoomIn, [this] { canvas_->zoomStep(true); });
    add(view, "Zoom Out", QKeySequence::ZoomOut, [this] { canvas_->zoomStep(false); });
    add(view, "Fit on Screen", QKeySequence("Ctrl+0"), [this] { canvas_->fit(); });
    add(view, "Actual Pixels", QKeySequence("Ctrl+1"), [this] { canvas_->actualPixels(); });
}

void MainWindow::rebuildRecentMenu() {
    recentMenu_->clear();
    const QStringList recent = host_.recentDocuments();
    for (const QString& path : recent) {
        auto* item = recentMenu_->addAction(path.section('/', -1));
        item->setToolTip(path);
        connect(item, &QAction::triggered, this, [this, path] { model_.open(path.toStdString()); });
    }
    if (recent.isEmpty()) recentMenu_->addAction("No Recent Pictures")->setEnabled(false);
    recentMenu_->addSeparator();
    connect(recentMenu_->addAction("Clear Menu"), &QAction::triggered, this,
            [this] { host_.clearRecentDocuments(); });
}

void MainWindow::sync() {
    statusLabel_->setText(QString::fromStdString(model_.status));
    auto* session = model_.current();
    auto* doc = model_.doc();
    emptyHint_->setVisible(!session);
    zoomLabel_->setText(session ? QString("%1%").arg(qRound(session->zoom * 100)) : QString());
    setWindowTitle(session ? QString("%1%2 — KORV Lumenary")
                                 .arg(QString::fromStdString(session->name), session->isDirty() ? " •" : "")
                           : QString("KORV Lumenary"));
    const auto undoName = doc ? doc->undoName() : std::nullopt;
    const auto redoName = doc ? doc->redoName() : std::nullopt;
    undo_->setText(undoName && doc->canUndo() ? "Undo " + QString::fromStdString(*undoName) : "Undo");
    redo_->setText(redoName && doc->canRedo() ? "Redo " + QString::fromStdString(*redoName) : "Redo");
    if (model_.busy) {
        busyOverlay_->setText(QString::fromStdString(*model_.busy));
        busyOverlay_->setGeometry(rect());
        busyOverlay_->raise();
        busyOverlay_->show();
    } else {
        busyOverlay_->hide();
    }
    // Dialogs open after the current event, never from inside the model's call.
    if ((model_.alert && model_.alert->id != shownAlert_) || model_.sheet)
        QTimer::singleShot(0, this, [this] { presentAlertAndSheet(); });
}

void MainWindow::presentAlertAndSheet() {
    if (presenting_) return;
    presenting_ = true;
    if (model_.alert && model_.alert->id != shownAlert_) {
        const AlertInfo alert = *model_.alert;
        shownAlert_ = alert.id;
        QMessageBox::warning(this, QString::fromStdString(alert.title),
                             QString::fromStdString(alert.message));
        if (model_.alert && model_.alert->id == alert.id) model_.dismissAlert();
    }
    if (model_.sheet) {
        const Sheet sheet = *model_.sheet;
        model_.setSheet(std::nullopt);
        if (sheet.kind == Sheet::Kind::newDocument) {
            NewPictureDialog(model_, this).exec();
        } else if (sheet.kind == Sheet::Kind::exportPicture) {
            ExportDialog(model_, this).exec();
        } else if (sheet.kind == Sheet::Kind::recovery) {
            if (!model_.pendingRecovery().empty())
                RecoveryDialog(model_, this).exec();
            else
                model_.setStatus("There is no autosaved work to recover.");
        }
    }
    presenting_ = false;
    if (model_.alert && model_.alert->id != shownAlert_)
        QTimer::singleShot(0, this, [this] { presentAlertAndSheet(); });
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (quitWithoutAsking_ || model_.shouldQuit())
        event->accept();
    else
        event->ignore();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    busyOverlay_->setGeometry(rect());
    emptyHint_->setGeometry(canvas_->rect());
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) model_.open(url.toLocalFile().toStdString());
    event->acceptProposedAction();
}

} // namespace korv
