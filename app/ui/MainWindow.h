#pragma once
// The one window: menus wired to the model, the canvas, the status line, a
// busy overlay, and the model's alerts and sheets presented as dialogs.
#include "app/model/StudioModel.h"

#include <QMainWindow>

class QLabel;
class QMenu;
class QAction;
class QStackedWidget;
class QTabWidget;
class QToolBar;

namespace korv {

class CanvasView;
class EmptyState;
class HeaderBar;
class PropertiesPanel;
class QtHost;
class StatusBar;

class MainWindow : public QMainWindow {
public:
    MainWindow(StudioModel& model, QtHost& host);
    ~MainWindow() override;

    CanvasView& canvas() { return *canvas_; }
    HeaderBar& header() { return *header_; }
    // The tabbed column on the right: "Properties", "Adjust", "History".
    QTabWidget& sideTabs() { return *sideTabs_; }
    // Lets the window close without asking (tests and tooling).
    void setQuitWithoutAsking(bool on) { quitWithoutAsking_ = on; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    // Files dropped on the window open as if chosen in the open panel.
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void buildMenus();
    void buildLayerMenus();
    // The header, the tool palette, the centre column and the panels on the right.
    void buildLayout();
    void rebuildRecentMenu();
    void sync();
    void presentAlertAndSheet();

    StudioModel& model_;
    QtHost& host_;
    CanvasView* canvas_;
    HeaderBar* header_ = nullptr;
    StatusBar* status_ = nullptr;
    EmptyState* empty_ = nullptr;
    QStackedWidget* centre_ = nullptr;
    QTabWidget* sideTabs_ = nullptr;
    QLabel* busyOverlay_;
    // Commands that mean nothing without a picture; greyed while none is open.
    QList<QAction*> needPicture_;
    QMenu* recentMenu_ = nullptr;
    QAction* undo_ = nullptr;
    QAction* redo_ = nullptr;
    QAction* applyTransform_ = nullptr;
    QAction* cancelTransform_ = nullptr;
    int observer_ = 0;
    std::optional<Uuid> lastActive_;
    std::optional<Uuid> shownAlert_;
    bool presenting_ = false;
    bool quitWithoutAsking_ = false;
};

// The dark look, on the Fusion style.
void applyDarkLook();

} // namespace korv
