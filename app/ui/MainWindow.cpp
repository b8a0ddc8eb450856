#include "app/ui/MainWindow.h"

#include "app/ui/AdjustPanel.h"
#include "app/ui/CanvasView.h"
#include "app/ui/EmptyState.h"
#include "app/ui/HeaderBar.h"
#include "app/ui/HistoryPanel.h"
#include "app/ui/LayersPanel.h"
#include "app/ui/OptionsBar.h"
#include "app/ui/PropertiesPanel.h"
#include "app/ui/QtHost.h"
#include "app/ui/Sheets.h"
#include "app/ui/StatusBar.h"
#include "app/ui/ToolPalette.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPalette>
#include <QSplitter>
#include <QStackedWidget>
#include <QStyleFactory>
#include <QTabWidget>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

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
    : model_(model), host_(host), canvas_(new CanvasView(model)), busyOverlay_(new QLabel(this)) {
    setWindowTitle("KORV Lumenary");
    setObjectName("main");
    resize(1500, 940);

    busyOverlay_->setAlignment(Qt::AlignCenter);
    busyOverlay_->setStyleSheet("background: rgba(0,0,0,140); color: white; font-size: 18px;");
    busyOverlay_->hide();

    setAcceptDrops(true);
    canvas_->setAcceptDrops(false); // so drops reach the window
    model_.canvas = canvas_;
    if (auto* session = model_.current()) canvas_->showSession(*session);
    host_.setWindow(this);
    host_.onBusy = [this](std::optional<std::string> text) { model_.setBusy(std::move(text)); };
    buildMenus();
    buildLayout();
    busyOverlay_->raise();
    observer_ = model_.observe([this] { sync(); });
    sync();
}

MainWindow::~MainWindow() {
    model_.unobserve(observer_);
    model_.canvas = nullptr;
    host_.onBusy = nullptr;
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

    edit->addSeparator();
    add(edit, "Take History Snapshot", {}, [this] { model_.takeSnapshot(); });
    edit->addSeparator();
    add(edit, "Free Transform", QKeySequence("Ctrl+T"),
        [this] { model_.beginTransform(TransformMode::free); });
    add(edit, "Perspective", {}, [this] { model_.beginTransform(TransformMode::perspective); });
    add(edit, "Warp", {}, [this] { model_.beginTransform(TransformMode::warp); });
    // Return and Esc reach these only while a transform is live: the items
    // are disabled otherwise.
    applyTransform_ =
        add(edit, "Apply Transform", QKeySequence(Qt::Key_Return), [this] { model_.applyTransform(); });
    applyTransform_->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    cancelTransform_ =
        add(edit, "Cancel Transform", QKeySequence(Qt::Key_Escape), [this] { model_.cancelTransform(); });

    buildLayerMenus();

    auto* view = menuBar()->addMenu("&View");
    add(view, "Zoom In", QKeySequence::ZoomIn, [this] { canvas_->zoomStep(true); });
    add(view, "Zoom Out", QKeySequence::ZoomOut, [this] { canvas_->zoomStep(false); });
    add(view, "Fit on Screen", QKeySequence("Ctrl+0"), [this] { canvas_->fit(); });
    add(view, "Actual Pixels", QKeySequence("Ctrl+1"), [this] { canvas_->actualPixels(); });

    // Without a picture only the commands that make or find one stay available.
    std::function<void(QMenu*)> collect = [&](QMenu* menu) {
        for (QAction* action : menu->actions()) {
            if (action->menu())
                collect(action->menu());
            else if (!action->isSeparator())
                needPicture_ << action;
        }
    };
    for (QAction* top : menuBar()->actions())
        if (top->menu() && top->menu() != file) collect(top->menu());
    for (QAction* action : file->actions())
        if (const QString t = action->text();
            t.startsWith("Close") || t.startsWith("Save") || t.startsWith("Export"))
            needPicture_ << action;
}

void MainWindow::buildLayerMenus() {
    auto add = [this](QMenu* menu, const QString& title, QKeySequence keys, std::function<void()> action) {
        auto* item = menu->addAction(title);
        if (!keys.isEmpty()) item->setShortcut(keys);
        connect(item, &QAction::triggered, this, [action = std::move(action)] { action(); });
        return item;
    };
    auto refine = [this](const char* kind) {
        return [this, kind] {
            if (model_.doc()) model_.setSheet(Sheet{Sheet::Kind::refine, kind});
        };
    };

    auto* select = menuBar()->addMenu("&Select");
    add(select, "Select All", QKeySequence::SelectAll, [this] { model_.selectAll(); });
    add(select, "Deselect", QKeySequence("Ctrl+D"), [this] { model_.deselect(); });
    add(select, "Invert", QKeySequence("Ctrl+Shift+I"), [this] { model_.invertSelection(); });
    select->addSeparator();
    add(select, "Feather…", QKeySequence("Ctrl+Alt+F"), refine("feather"));
    add(select, "Grow…", {}, refine("grow"));
    add(select, "Shrink…", {}, refine("shrink"));
    add(select, "Smooth…", {}, refine("smooth"));
    add(select, "Border…", {}, refine("border"));
    select->addSeparator();
    add(select, "Select Layer Shape", {}, [this] { model_.selectLayerShape(); });
    add(select, "Select Mask Area", {}, [this] { model_.selectMaskArea(); });

    auto* image = menuBar()->addMenu("&Image");
    auto* adjustments = image->addMenu("New Adjustment Layer");
    // "&" marks a mnemonic in a menu title; "Black & White" needs it doubled.
    for (int i = 0; i < kAdjustmentTypeCount; ++i)
        add(adjustments, QString::fromUtf8(displayName(AdjustmentType(i)).data()).replace("&", "&&"), {},
            [this, i] { model_.addAdjustment(AdjustmentType(i)); });
    add(image, "Image Size…", QKeySequence("Ctrl+Alt+I"), [this] {
        if (model_.doc()) model_.setSheet(Sheet{Sheet::Kind::imageSize, ""});
    });
    add(image, "Canvas Size…", QKeySequence("Ctrl+Alt+C"), [this] {
        if (model_.doc()) model_.setSheet(Sheet{Sheet::Kind::canvasSize, ""});
    });
    add(image, "Crop to Selection", {}, [this] { model_.cropToSelection(); });
    image->addSeparator();
    add(image, "Rotate 90° Clockwise", {}, [this] { model_.rotate(1); });
    add(image, "Rotate 90° Counter-clockwise", {}, [this] { model_.rotate(3); });
    add(image, "Rotate 180°", {}, [this] { model_.rotate(2); });
    add(image, "Flip Horizontal", {}, [this] { model_.flip(true); });
    add(image, "Flip Vertical", {}, [this] { model_.flip(false); });
    image->addSeparator();
    add(image, "Flatten Image", {}, [this] { model_.flatten(); });

    auto* layer = menuBar()->addMenu("&Layer");
    add(layer, "New Layer", QKeySequence("Ctrl+Shift+N"), [this] { model_.addLayer(); });
    auto* fills = layer->addMenu("New Fill Layer");
    const std::pair<const char*, FillKind> fillKinds[] = {{"Solid Color", FillKind::solid},
                                                          {"Linear Gradient", FillKind::linearGradient},
                                                          {"Radial Gradient", FillKind::radialGradient},
                                                          {"Pattern", FillKind::pattern}};
    for (const auto& [title, kind] : fillKinds)
        add(fills, title, {}, [this, kind = kind] { model_.addFill(kind); });
    add(layer, "Duplicate Layer", QKeySequence("Ctrl+J"), [this] { model_.duplicateLayer(); });
    add(layer, "Delete Layer", {}, [this] { model_.deleteLayer(); });
    layer->addSeparator();
    add(layer, "Group Layer", QKeySequence("Ctrl+G"), [this] { model_.addGroup(); });
    add(layer, "Ungroup", QKeySequence("Ctrl+Shift+G"), [this] { model_.ungroup(); });
    add(layer, "Move Layer Up", QKeySequence("Ctrl+]"), [this] { model_.moveLayer(true); });
    add(layer, "Move Layer Down", QKeySequence("Ctrl+["), [this] { model_.moveLayer(false); });
    layer->addSeparator();
    auto* masks = layer->addMenu("Layer Mask");
    const std::pair<const char*, NewMask> maskKinds[] = {{"Reveal All", NewMask::revealAll},
                                                         {"Hide All", NewMask::hideAll},
                                                         {"Reveal Selection", NewMask::revealSelection},
                                                         {"Hide Selection", NewMask::hideSelection}};
    for (const auto& [title, kind] : maskKinds)
        add(masks, title, {}, [this, kind = kind] { model_.addMask(kind); });
    masks->addSeparator();
    add(masks, "Invert Mask", {}, [this] { model_.invertMask(); });
    add(masks, "Mask On / Off", {}, [this] { model_.toggleMaskEnabled(); });
    add(masks, "Apply Mask", {}, [this] { model_.applyMask(); });
    add(masks, "Delete Mask", {}, [this] { model_.deleteMask(); });
    add(layer, "Create / Release Clipping Mask", QKeySequence("Ctrl+Alt+G"), [this] { model_.toggleClip(); });
    layer->addSeparator();
    add(layer, "Rasterize Layer", {}, [this] { model_.rasterize(); });
    add(layer, "Merge Down", QKeySequence("Ctrl+E"), [this] { model_.mergeDown(); });
    add(layer, "Stamp Visible (new merged layer)", QKeySequence("Ctrl+Alt+Shift+E"),
        [this] { model_.stampVisible(); });
}

void MainWindow::buildLayout() {
    auto* root = new QWidget;
    auto* column = new QVBoxLayout(root);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    header_ = new HeaderBar(model_);
    column->addWidget(header_);

    auto* split = new QSplitter(Qt::Horizontal);
    split->setChildrenCollapsible(false);
    auto* left = new QWidget;
    auto* row = new QHBoxLayout(left);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    auto* palette = new ToolPalette(model_);
    palette->setFixedWidth(52);
    row->addWidget(palette);
    auto* centre = new QWidget;
    auto* centreColumn = new QVBoxLayout(centre);
    centreColumn->setContentsMargins(0, 0, 0, 0);
    centreColumn->setSpacing(0);
    centreColumn->addWidget(new OptionsBar(model_));
    centre_ = new QStackedWidget;
    empty_ = new EmptyState(model_);
    centre_->addWidget(canvas_);
    centre_->addWidget(empty_);
    centreColumn->addWidget(centre_, 1);
    status_ = new StatusBar(model_);
    centreColumn->addWidget(status_);
    row->addWidget(centre, 1);
    split->addWidget(left);
    canvas_->onCursor = [this] { status_->showCursor(); };

    auto* side = new QSplitter(Qt::Vertical);
    side->setChildrenCollapsible(false);
    sideTabs_ = new QTabWidget;
    sideTabs_->setDocumentMode(true);
    sideTabs_->addTab(new PropertiesPanel(model_), "Properties");
    sideTabs_->addTab(new AdjustPanel(model_), "Adjust");
    sideTabs_->addTab(new HistoryPanel(model_, nullptr), "History");
    side->addWidget(sideTabs_);
    side->addWidget(new LayersPanel(model_, nullptr));
    side->setSizes({460, 420});
    side->setMinimumWidth(300);
    split->addWidget(side);
    split->setStretchFactor(0, 1);
    split->setStretchFactor(1, 0);
    split->setSizes({1130, 350});
    column->addWidget(split, 1);
    setCentralWidget(root);
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
    auto* session = model_.current();
    auto* doc = model_.doc();
    centre_->setCurrentWidget(session ? static_cast<QWidget*>(canvas_) : empty_);
    canvas_->updateShapePreview();
    // A new adjustment, text, shape or fill layer is made to be set: its settings come to the front.
    const auto active = doc ? doc->activeID : std::nullopt;
    if (active != lastActive_) {
        lastActive_ = active;
        const auto layer = model_.activeLayer();
        if (layer && (layer->adjustment || layer->isVector()) &&
            doc->undoName().value_or("").starts_with("New "))
            sideTabs_->setCurrentIndex(0);
    }
    for (QAction* action : needPicture_)
        action->setEnabled(doc != nullptr);
    applyTransform_->setEnabled(model_.transform != nullptr);
    cancelTransform_->setEnabled(model_.transform != nullptr);
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
        } else if (sheet.kind == Sheet::Kind::imageSize || sheet.kind == Sheet::Kind::canvasSize) {
            SizeDialog(model_, sheet.kind == Sheet::Kind::canvasSize, this).exec();
        } else if (sheet.kind == Sheet::Kind::refine) {
            RefineDialog(model_, sheet.argument, this).exec();
        } else if (sheet.kind == Sheet::Kind::layerEffects) {
            model_.setStatus("Layer effects aren't available yet.");
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
    // A save or open under way finishes first.
    if (host_.isBusy()) {
        event->ignore();
        return;
    }
    if (quitWithoutAsking_ || model_.shouldQuit())
        event->accept();
    else
        event->ignore();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    busyOverlay_->setGeometry(rect());
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    std::vector<std::filesystem::path> files;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile()) files.emplace_back(url.toLocalFile().toStdString());
    event->acceptProposedAction();
    model_.openAll(files);
}

} // namespace korv
