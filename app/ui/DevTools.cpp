#include "app/ui/DevTools.h"

#include "app/model/AppFolders.h"
#include "app/ui/CanvasView.h"
#include "app/ui/CurvesEditor.h"
#include "app/ui/FillEditorPanel.h"
#include "app/ui/MainWindow.h"
#include "app/ui/QtHost.h"
#include "app/ui/ShapeEditorPanel.h"
#include "app/ui/TextEditorPanel.h"
#include "app/ui/ValueSlider.h"
#include "engine/core/Selection.h"
#include "engine/document/SampleDocument.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/PhotoExport.h"
#include "engine/formats/StudioFile.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QSlider>
#include <QTemporaryDir>
#include <QToolButton>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace korv {
namespace {

// A host that answers save panels with a set path and keeps nothing of the
// user's: no recent documents, no settings.
class ToolHost : public QtHost {
public:
    std::optional<std::filesystem::path> saveTo;
    std::optional<std::filesystem::path> savePanel(const SavePanelRequest&) override { return saveTo; }
    void noteRecentDocument(const std::filesystem::path&) override {}
    std::optional<std::string> setting(const std::string&) override { return std::nullopt; }
    void setSetting(const std::string&, const std::string&) override {}
};

// Lets the window lay itself out and paint.
void settle() {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 150)
        QApplication::processEvents(QEventLoop::AllEvents, 20);
}

bool check(bool condition, const char* what) {
    std::printf("%s %s\n", condition ? "ok  " : "FAIL", what);
    return condition;
}

// The visible child of type W, if any; the widgets carry no meta-object of
// their own, so they are told apart by their C++ type.
template <class W>
W* shown(QWidget& window) {
    for (auto* w : window.findChildren<QWidget*>())
        if (auto* found = dynamic_cast<W*>(w); found && found->isVisible()) return found;
    return nullptr;
}

// The Text and Shape tools on the canvas, the text editor in Properties, and
// both kinds still editable after a save and reopen.
bool vectorLayersWork(StudioModel& model, MainWindow& window, ToolHost& host,
                      const std::filesystem::path& folder) {
    bool passed = true;
    auto* viewport = window.canvas().viewport();
    auto mouse = [viewport](QEvent::Type type, QPointF at) {
        QMouseEvent e(type, at, viewport->mapToGlobal(at), Qt::LeftButton,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(viewport, &e);
    };
    const QPointF middle(viewport->width() / 2.0, viewport->height() / 2.0);
    const auto layers = model.doc()->rows().size();
    model.setTool(Tool::text);
    mouse(QEvent::MouseButtonPress, middle);
    mouse(QEvent::MouseButtonRelease, middle);
    settle();
    const auto text = model.activeLayer();
    passed &= check(text && text->kind == StudioLayerKind::text && model.doc()->rows().size() == layers + 1 &&
                        model.doc()->undoName() == std::optional<std::string>("New Text"),
                    "a Text tool click places a text layer");
    auto* editor = shown<TextEditorPanel>(window);
    passed &= check(editor != nullptr, "the Properties panel shows the text editor");
    if (!editor || !text) return false;
    passed &=
        check(editor->textBox()->textCursor().selectedText() == QString::fromStdString(text->text->text),
              "the placed text's words are chosen, ready to be typed over");

    const auto steps = model.doc()->history().size();
    auto* size = editor->sizeSlider()->slider();
    size->setSliderDown(true);
    for (int v = size->maximum() * 6 / 10; v <= size->maximum() * 7 / 10; v += size->maximum() / 40)
        size->setValue(v);
    size->setSliderDown(false);
    settle();
    const double newSize = model.activeLayer()->text->size;
    passed &= check(model.doc()->history().size() == steps + 1 && newSize > text->text->size,
                    "a drag of the text size is one history step");

    // Typing goes on in the same editor: a rebuilt one would lose the caret.
    editor->textBox()->moveCursor(QTextCursor::End);
    for (const char* more : {" a", "nd", " more"})
        editor->textBox()->insertPlainText(more);
    settle();
    passed &= check(shown<TextEditorPanel>(window) == editor &&
                        model.activeLayer()->text->text == text->text->text + " and more" &&
                        model.doc()->history().size() == steps + 2,
                    "typing in the text box is one step, and the editor stays");

    // A click on the text selects it rather than placing another.
    model.select(model.doc()->layers.front().id);
    mouse(QEvent::MouseButtonPress, middle + QPointF(4, 4));
    mouse(QEvent::MouseButtonRelease, middle + QPointF(4, 4));
    settle();
    passed &= check(model.doc()->activeID == text->id && model.doc()->rows().size() == layers + 1,
                    "a Text tool click on text selects it");

    model.setTool(Tool::shape);
    mouse(QEvent::MouseButtonPress, middle - QPointF(80, 60));
    mouse(QEvent::MouseMove, middle);
    mouse(QEvent::MouseMove, middle + QPointF(40, 30));
    mouse(QEvent::MouseButtonRelease, middle + QPointF(40, 30));
    settle();
    const auto shape = model.activeLayer();
    passed &=
        check(shape && shape->shape && model.doc()->undoName() == std::optional<std::string>("New Shape") &&
                  shape->shape->w > 50 && shown<ShapeEditorPanel>(window) != nullptr,
              "a Shape tool drag makes a shape layer and shows its editor");
    if (!shape || !shape->shape) return false;

    // Layer ▸ New Fill Layer, then its kind changed in Properties: one step, and the pattern's controls show.
    for (QAction* action : window.findChildren<QAction*>())
        if (action->text() == "Linear Gradient" && action->parent() &&
            qobject_cast<QMenu*>(action->parent()) &&
            qobject_cast<QMenu*>(action->parent())->title() == "New Fill Layer")
            action->trigger();
    settle();
    auto* fill = shown<FillEditorPanel>(window);
    passed &= check(fill && model.activeLayer()->fill &&
                        model.activeLayer()->fill->kind == FillKind::linearGradient,
                    "Layer \u2192 New Fill Layer shows the fill editor");
    if (fill) {
        QComboBox* kind = nullptr;
        for (auto* box : fill->findChildren<QComboBox*>())
            if (box->findText("Radial Gradient") >= 0) kind = box;
        const auto before = model.doc()->history().size();
        if (kind) {
            kind->setCurrentIndex(3);
            emit kind->activated(3);
        }
        settle();
        bool patternShows = false;
        for (auto* box : fill->findChildren<QComboBox*>())
            patternShows |= box->findText("Checker") >= 0 && box->isVisible();
        passed &= check(kind && model.activeLayer()->fill->kind == FillKind::pattern &&
                            model.doc()->history().size() == before + 1 && patternShows,
                        "choosing Pattern is one step and shows the pattern's settings");
    }

    host.saveTo = folder / "vector.korvstudio";
    model.save(true);
    StudioModel again(host, false);
    again.open(*host.saveTo);
    const StudioLayer* reText = again.doc() ? again.doc()->find(text->id) : nullptr;
    const StudioLayer* reShape = again.doc() ? again.doc()->find(shape->id) : nullptr;
    passed &= check(reText && reText->text && reText->text->text == text->text->text + " and more" &&
                        reShape && reShape->shape && *reShape->shape == *shape->shape,
                    "text and shapes stay editable after saving and reopening");
    model.setTool(Tool::move);
    return passed;
}

} // namespace

int runSelfTest() {
    QTemporaryDir temp;
    if (!temp.isValid()) return check(false, "a temporary folder") ? 0 : 1;
    const std::filesystem::path folder = temp.path().toStdString();
    AppFolders::setBaseOverride(folder / "support");
    bool passed = true;
    {
        ToolHost host;
        StudioModel model(host, false);
        auto sample = makeSampleDocument(640, 400);
        const auto png = folder / "sample.png";
        writeFileAtomically(png.string(),
                            PhotoExport::data(*sample, PhotoExportOptions(PhotoExportFormat::png)));
        model.open(png);
        passed &= check(model.current() && !model.alert, "the generated picture opens");
        if (!model.current()) return 1;
        passed &=
            check(!model.current()->isDirty() && model.doc()->width() == 640, "it opens clean, at its size");

        host.saveTo = folder / "sample.korvstudio";
        model.save(false);
        passed &= check(!model.current()->isDirty() && model.current()->fileURL == host.saveTo, "it saves");

        StudioModel reader(host, false);
        reader.open(*host.saveTo);
        passed &= check(reader.doc() && reader.doc()->fingerprint() == model.doc()->fingerprint(),
                        "the saved document reopens with the same fingerprint");

        MainWindow window(reader, host);
        window.resize(800, 600);
        window.show();
        settle();
        const QImage shot = window.canvas().grab().toImage();
        if (const char* keep = std::getenv("KORV_SELFTEST_SHOT")) shot.save(keep);
        const QColor centre = shot.pixelColor(shot.width() / 2, shot.height() / 2);
        const auto pixel = sample->flattened()->pixel(320, 200);
        passed &= check(std::abs(centre.red() - pixel[0]) <= 8 && std::abs(centre.green() - pixel[1]) <= 8 &&
                            std::abs(centre.blue() - pixel[2]) <= 8,
                        "the canvas shows the picture");

        // A second picture in its own tab, then back to the first: each shows its own pixels.
        auto centreOfCanvas = [&window] {
            settle();
            const QImage now = window.canvas().grab().toImage();
            return now.pixelColor(now.width() / 2, now.height() / 2);
        };
        const Uuid firstID = *reader.currentID;
        reader.newDocument(300, 200, 72, PaintColor(0.9, 0.1, 0.1, 1), "Red");
        const QColor red = centreOfCanvas();
        reader.setCurrentID(firstID);
        const QColor back = centreOfCanvas();
        passed &= check(red.red() > 200 && red.green() < 40 && back == centre,
                        "switching tabs shows each picture's own pixels");
        reader.setCurrentID(reader.sessions.back()->id);
        reader.close();
        passed &=
            check(reader.sessions.size() == 1 && reader.currentID == firstID && centreOfCanvas() == centre,
                  "closing a tab shows the picture left");
        if (!passed)
            std::printf("     canvas %d,%d,%d, picture %d,%d,%d (%dx%d)\n", centre.red(), centre.green(),
                        centre.blue(), pixel[0], pixel[1], pixel[2], shot.width(), shot.height());

        // The menus, the panels and the wand reach the document.
        const auto layerCount = reader.doc()->rows().size();
        for (QAction* action : window.findChildren<QAction*>())
            if (action->text() == "Duplicate Layer") action->trigger();
        settle();
        passed &= check(reader.doc()->rows().size() == layerCount + 1 &&
                            reader.doc()->undoName() == std::optional<std::string>("Duplicate Layer"),
                        "Layer → Duplicate Layer adds a layer as one step");
        auto* layersPanel = window.findChild<QWidget*>("layers");
        auto* historyPanel = window.findChild<QWidget*>("history");
        passed &= check(layersPanel && historyPanel && layersPanel->isVisible(), "the Layers panel shows");
        reader.setTool(Tool::magicWand);
        auto* viewport = window.canvas().viewport();
        const QPointF middle(viewport->width() / 2.0, viewport->height() / 2.0);
        QMouseEvent press(QEvent::MouseButtonPress, middle, viewport->mapToGlobal(middle), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(viewport, &press);
        settle();
        passed &= check(reader.doc()->selection &&
                            reader.doc()->undoName() == std::optional<std::string>("Magic Wand"),
                        "a magic wand click on the canvas selects");
        reader.undo();
        reader.undo();
        passed &= check(!reader.doc()->selection && reader.doc()->rows().size() == layerCount,
                        "undo takes both steps back");

        // A new Levels layer shows its editor; a slider drag there is one step.
        reader.addAdjustment(AdjustmentType::levels);
        settle();
        const auto steps = reader.doc()->history().size();
        ValueSlider* inBlack = nullptr;
        // The widgets carry no meta-object of their own, so they are told apart by their C++ type.
        for (auto* w : window.findChildren<QWidget*>())
            if (auto* s = dynamic_cast<ValueSlider*>(w); s && s->label() == "Input black" && s->isVisible())
                inBlack = s;
        passed &= check(inBlack != nullptr, "the Properties panel shows the Levels editor");
        if (inBlack) {
            inBlack->slider()->setSliderDown(true);
            for (int v = 10; v <= 60; v += 10)
                inBlack->slider()->setValue(v);
            inBlack->slider()->setSliderDown(false);
            settle();
            const LevelsChannel levels = reader.doc()->activeLayer()->adjustment->levels[0];
            passed &= check(reader.doc()->history().size() == steps + 1 && levels.inBlack > 0.2,
                            "a drag of its slider is one history step");
            if (!passed)
                std::printf("     steps %zu -> %zu, black %.3f, last %s\n", steps,
                            reader.doc()->history().size(), levels.inBlack,
                            reader.doc()->undoName().value_or("").c_str());
        }
        // The curve graph: a click adds a point, a drag off the graph takes it away again.
        reader.addAdjustment(AdjustmentType::curves);
        settle();
        CurvesEditor* graph = nullptr;
        for (auto* w : window.findChildren<QWidget*>())
            if (auto* g = dynamic_cast<CurvesEditor*>(w); g && g->isVisible()) graph = g;
        passed &= check(graph != nullptr, "the Properties panel shows the curve graph");
        if (graph) {
            auto mouse = [graph](QEvent::Type type, QPointF at) {
                QMouseEvent e(type, at, graph->mapToGlobal(at), Qt::LeftButton,
                              type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                              Qt::NoModifier);
                QApplication::sendEvent(graph, &e);
            };
            auto curve = [&reader] { return reader.doc()->activeLayer()->adjustment->curves[0]; };
            const auto before = reader.doc()->history().size();
            const QPointF middle(graph->width() / 2.0, graph->height() / 2.0);
            mouse(QEvent::MouseButtonPress, middle);
            mouse(QEvent::MouseMove, middle - QPointF(0, 30));
            mouse(QEvent::MouseButtonRelease, middle - QPointF(0, 30));
            const auto shaped = curve();
            passed &= check(shaped.size() == 3 && shaped[1].y > 0.55 &&
                                reader.doc()->history().size() == before + 1,
                            "a click and drag on the graph adds a raised point as one step");
            mouse(QEvent::MouseButtonPress, middle - QPointF(0, 30));
            mouse(QEvent::MouseMove, QPointF(middle.x(), -200));
            mouse(QEvent::MouseButtonRelease, QPointF(middle.x(), -200));
            passed &= check(curve().size() == 2, "a point dragged off the graph is removed");
        }

        // Every adjustment type has its editor, each with a control for the user.
        int withControls = 0;
        for (int i = 0; i < kAdjustmentTypeCount; ++i) {
            reader.addAdjustment(AdjustmentType(i));
            settle();
            auto* editor = window.findChild<QWidget*>("properties");
            int controls = 0;
            for (auto* w : editor ? editor->findChildren<QWidget*>() : QList<QWidget*>())
                if (w->isVisible() &&
                    (dynamic_cast<ValueSlider*>(w) || dynamic_cast<CurvesEditor*>(w) ||
                     (dynamic_cast<QLabel*>(w) &&
                      static_cast<QLabel*>(w)->text().startsWith("Turns every color into its opposite"))))
                    ++controls;
            withControls += controls > 0 ? 1 : 0;
        }
        passed &= check(withControls == kAdjustmentTypeCount, "every adjustment type shows its controls");

        // A double click on a layer's name renames it in place.
        const std::string oldName = reader.doc()->activeLayer()->name;
        QLabel* nameLabel = nullptr;
        for (auto* l : window.findChildren<QLabel*>())
            if (l->isVisible() && l->toolTip().startsWith(QString::fromStdString(oldName))) nameLabel = l;
        if (nameLabel) {
            QMouseEvent twice(QEvent::MouseButtonDblClick, QPointF(5, 5),
                              nameLabel->mapToGlobal(QPointF(5, 5)), Qt::LeftButton, Qt::LeftButton,
                              Qt::NoModifier);
            QApplication::sendEvent(nameLabel, &twice);
        }
        QLineEdit* field = nullptr;
        for (auto* f : window.findChildren<QLineEdit*>())
            if (f->placeholderText() == "Layer name") field = f;
        if (field) {
            field->setText("Warm grade");
            QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
            QApplication::sendEvent(field, &enter);
            settle();
        }
        passed &= check(nameLabel && field && reader.doc()->activeLayer()->name == "Warm grade" &&
                            reader.doc()->undoName() == std::optional<std::string>("Rename Layer"),
                        "a double click on a layer's name renames it in place");

        bool menusOpenOnClick = true;
        int menuButtons = 0;
        for (auto* b : window.findChildren<QToolButton*>())
            if (b->menu()) {
                ++menuButtons;
                menusOpenOnClick &= b->popupMode() == QToolButton::InstantPopup;
            }
        passed &=
            check(menuButtons >= 3 && menusOpenOnClick, "the Layers panel's menu buttons open on a click");

        passed &= vectorLayersWork(reader, window, host, folder);
    }
    AppFolders::setBaseOverride(std::nullopt);
    std::printf("%s\n", passed ? "selftest passed" : "selftest FAILED");
    return passed ? 0 : 1;
}

int writeSnapshots(const std::string& folderName) {
    QDir().mkpath(QString::fromStdString(folderName));
    const std::filesystem::path folder = folderName;
    QTemporaryDir temp;
    AppFolders::setBaseOverride(std::filesystem::path(temp.path().toStdString()));
    bool ok = true;
    {
        ToolHost host;
        StudioModel model(host, false);
        MainWindow window(model, host);
        window.show();
        settle();
        ok &= window.grab().save(QString::fromStdString((folder / "empty-window.png").string()));

        model.add(std::make_shared<DocSession>(makeSampleDocument(1600, 1000), "Sample"));
        settle();
        ok &= window.grab().save(QString::fromStdString((folder / "main-window.png").string()));

        // A masked layer with a selection, as the panels and the ants show them.
        model.act("Ellipse Select", [](StudioDocument& d) {
            Path oval;
            oval.addEllipse(Rect{300, 200, 800, 500});
            d.setSelection(Selection::make(oval, SelectionOp::replace, nullptr, d.width(), d.height(), true));
            return true;
        });
        model.refineSelection("feather", 12);
        model.addMask(NewMask::revealSelection);
        model.duplicateLayer();
        model.setTool(Tool::magicWand);
        settle();
        ok &= window.grab().save(QString::fromStdString((folder / "layers-and-selection.png").string()));

        window.canvas().actualPixels();
        window.canvas().zoomStep(true);
        settle();
        ok &= window.grab().save(QString::fromStdString((folder / "main-window-zoomed.png").string()));

        // The adjustment editors, as a photographer meets them after adding a layer.
        auto shoot = [&](const char* name) {
            settle();
            ok &= window.grab().save(QString::fromStdString((folder / name).string()));
        };
        model.deselect();
        window.sideTabs().setCurrentIndex(0);
        model.addAdjustment(AdjustmentType::levels);
        model.autoLevels(*model.doc()->activeID, 0);
        shoot("properties-levels.png");
        model.addAdjustment(AdjustmentType::curves);
        model.setLayer(*model.doc()->activeID, "Adjust", true, [](StudioLayer& l) {
            l.adjustment->curves[0] = {{0, 0}, {0.25, 0.18}, {0.7, 0.82}, {1, 1}};
        });
        shoot("properties-curves.png");
        model.addAdjustment(AdjustmentType::hueSaturation);
        model.setLayer(*model.doc()->activeID, "Adjust", true, [](StudioLayer& l) {
            l.adjustment->hue = 24;
            l.adjustment->saturation = 35;
        });
        shoot("properties-hue-saturation.png");
        for (auto [type, name] : {std::pair{AdjustmentType::colorBalance, "properties-color-balance.png"},
                                  std::pair{AdjustmentType::blackWhite, "properties-black-white.png"},
                                  std::pair{AdjustmentType::gradientMap, "properties-gradient-map.png"}}) {
            model.addAdjustment(type);
            shoot(name);
            model.undo();
        }
        window.sideTabs().setCurrentIndex(1);
        shoot("adjust-panel.png");
        window.sideTabs().setCurrentIndex(2);
        shoot("history-panel.png");
        window.sideTabs().setCurrentIndex(0);

        // A second picture opens in a tab of its own beside the first.
        model.add(std::make_shared<DocSession>(makeSampleDocument(900, 1200), "Portrait"));
        model.addLayer();
        shoot("two-pictures.png");

        // Transforms as they are dragged: the free box turned, then a warp.
        model.select(model.doc()->layers[0].id);
        model.beginTransform(TransformMode::free);
        if (model.transform) {
            const IRect src = model.transform->source;
            const double cx = double(src.x) + double(src.w) / 2, cy = double(src.y) + double(src.h) / 2;
            model.transform->affine = AffineTransform::translation(-cx, -cy)
                                          .then(AffineTransform::rotation(0.25))
                                          .then(AffineTransform::scale(0.7, 0.7))
                                          .then(AffineTransform::translation(cx, cy));
            model.updateTransform();
        }
        shoot("transform-free.png");
        model.setTransformMode(TransformMode::warp);
        if (model.transform) {
            model.transform->warp[5].x += 150;
            model.transform->warp[10].y += 120;
            model.updateTransform();
        }
        shoot("transform-warp.png");
        model.cancelTransform();

        // The Crop tool with a rectangle waiting to be applied.
        model.setTool(Tool::crop);
        model.cropRect = CanvasRect{120, 200, 600, 700};
        model.refresh(false);
        shoot("crop-tool.png");
        model.cropRect.reset();
        model.setTool(Tool::move);

        // Text and shapes over a photograph, each kind's editor in Properties.
        model.add(std::make_shared<DocSession>(makeSampleDocument(1600, 1000), "Poster"));
        TextSpec title("Golden Hour\nin the hills");
        title.fontFamily = model.textSpec.fontFamily;
        title.size = 120;
        title.x = 90;
        title.y = 70;
        title.lineSpacing = 1.1;
        model.addText(title);
        const Uuid titleID = *model.doc()->activeID;
        TextSpec caption("Saturday, 7 pm · bring a blanket");
        caption.fontFamily = model.textSpec.fontFamily;
        caption.size = 44;
        caption.bold = false;
        caption.italic = true;
        caption.x = 96;
        caption.y = 420;
        caption.color = RGBA(1, 0.86, 0.55, 1);
        model.addText(caption);
        ShapeSpec badge(ShapeKind::star);
        badge.x = 1220, badge.y = 80, badge.w = 260, badge.h = 260, badge.sides = 5;
        badge.fillColor = RGBA(1, 0.78, 0.2, 1);
        badge.strokeEnabled = true;
        badge.strokeColor = RGBA(1, 1, 1, 1);
        badge.strokeWidth = 6;
        model.addShape(badge);
        ShapeSpec panel(ShapeKind::roundedRectangle);
        panel.x = 80, panel.y = 700, panel.w = 520, panel.h = 200, panel.cornerRadius = 28;
        panel.fillColor = RGBA(0.1, 0.12, 0.2, 0.75);
        model.addShape(panel);
        ShapeSpec ring(ShapeKind::ellipse);
        ring.x = 700, ring.y = 640, ring.w = 260, ring.h = 260;
        ring.fillEnabled = false;
        ring.strokeEnabled = true;
        ring.strokeWidth = 10;
        model.addShape(ring);
        ShapeSpec arrow(ShapeKind::arrow);
        arrow.x = 1040, arrow.y = 720, arrow.w = 360, arrow.h = 140;
        arrow.fillColor = RGBA(0.95, 0.35, 0.3, 1);
        model.addShape(arrow);
        ShapeSpec rule(ShapeKind::line);
        rule.x = 96, rule.y = 390, rule.w = 700, rule.h = 0;
        rule.strokeWidth = 4;
        rule.fillColor = RGBA(1, 1, 1, 1);
        model.addShape(rule);
        model.select(titleID);
        model.setTool(Tool::text);
        window.sideTabs().setCurrentIndex(0);
        shoot("properties-text.png");
        model.select(model.doc()->layers[model.doc()->layers.size() - 5].id); // the star
        model.setTool(Tool::shape);
        shoot("properties-shape.png");
        // A polygon being dragged out, its rubber band before the button comes up.
        {
            model.shapeSpec.kind = ShapeKind::polygon;
            model.notify();
            auto* viewport = window.canvas().viewport();
            auto mouse = [viewport](QEvent::Type type, QPointF at) {
                QMouseEvent e(type, at, viewport->mapToGlobal(at), Qt::LeftButton,
                              type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                              Qt::NoModifier);
                QApplication::sendEvent(viewport, &e);
            };
            const QPointF from(viewport->width() * 0.55, viewport->height() * 0.12);
            const QPointF to(viewport->width() * 0.72, viewport->height() * 0.45);
            mouse(QEvent::MouseButtonPress, from);
            mouse(QEvent::MouseMove, to);
            shoot("shape-drag.png");
            mouse(QEvent::MouseButtonRelease, to);
            shoot("shape-made.png");
            model.undo();
            model.shapeSpec = StudioModel::defaultShapeSpec();
            model.notify();
        }
        model.setTool(Tool::move);
        model.addFill(FillKind::linearGradient);
        model.setLayer(*model.doc()->activeID, "Fill", false, [](StudioLayer& l) {
            l.fill->color1 = RGBA(0.95, 0.45, 0.15, 1);
            l.fill->color2 = RGBA(0.2, 0.1, 0.45, 1);
            l.opacity = 0.45;
            l.blendMode = BlendMode::overlay;
        });
        shoot("properties-fill.png");
        model.addFill(FillKind::pattern);
        shoot("properties-fill-pattern.png");
        model.undo();

        // What a save or open that takes a while shows over the window.
        model.setBusy("Saving \u201CPortrait.korvstudio\u201D\u2026");
        settle();
        ok &= window.grab().save(QString::fromStdString((folder / "busy-saving.png").string()));
        model.setBusy(std::nullopt);
    }
    AppFolders::setBaseOverride(std::nullopt);
    std::printf("%s\n", ok ? "snapshots written" : "snapshots FAILED");
    return ok ? 0 : 1;
}

void applyTestEdit(StudioModel& model) {
    if (!model.current()) model.newDocument(800, 600, 72, PaintColor::white(), "Crash Test");
    RGBABuffer block(200, 150);
    block.fill(PaintColor(0.85, 0.3, 0.15, 1));
    model.placeBuffer(block, "Test Edit", std::pair{100, 100}, *model.doc());
    std::printf("edited %016" PRIx64 "\n", model.doc()->fingerprint());
    std::fflush(stdout);
}

void printSessions(const StudioModel& model) {
    for (const auto& session : model.sessions)
        std::printf("session %s\t%016" PRIx64 "\t%s\n", session->name.c_str(), session->doc->fingerprint(),
                    session->isDirty() ? "dirty" : "clean");
    std::fflush(stdout);
}

} // namespace korv
