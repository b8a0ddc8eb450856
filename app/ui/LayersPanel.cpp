#include "app/ui/LayersPanel.h"

#include "app/ui/Icons.h"
#include "app/ui/ValueSlider.h"
#include "engine/core/Fnv.h"
#include "engine/document/RecordCoding.h"
#include "engine/render/StudioRenderer.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollArea>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace korv {
namespace {

constexpr int kThumbSide = 36;

QString text(std::string_view s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

// Changes whenever what a thumbnail draws may have changed, without reading pixels:
// frozen tiles are never written, so a new picture means new tile objects.
uint64_t drawnIdentity(const StudioLayer& l, bool mask) {
    FnvMixer m;
    m.mix(uint64_t(l.version));
    auto mixTiles = [&m](const std::optional<TileSet>& set) {
        if (!set) return;
        for (const auto& t : set->tiles)
            m.mix(uint64_t(reinterpret_cast<uintptr_t>(t.get())));
    };
    if (mask) {
        mixTiles(l.mask);
        return m.h;
    }
    mixTiles(l.pixels);
    auto mixRecord = [&m](const auto& record) {
        if (auto h = recordHash(record)) m.mix(*h);
    };
    if (l.fill) mixRecord(*l.fill);
    if (l.text) mixRecord(*l.text);
    if (l.shape) mixRecord(*l.shape);
    for (const auto& c : l.children)
        m.mix(drawnIdentity(c, false) ^ (c.isVisible ? 0 : 1));
    return m.h;
}

// A label that reports clicks and double clicks to the panel.
class ClickLabel : public QLabel {
public:
    std::function<void()> clicked;
    std::function<void()> doubleClicked;

protected:
    void mousePressEvent(QMouseEvent* e) override {
        if (e->button() == Qt::LeftButton && clicked) clicked();
        QLabel::mousePressEvent(e);
    }
    void mouseDoubleClickEvent(QMouseEvent* e) override {
        if (doubleClicked) doubleClicked();
        QLabel::mouseDoubleClickEvent(e);
    }
};

// A layer name that is shortened with an ellipsis when the row is narrow, so
// that the lock beside it always stays in view.
class NameLabel : public ClickLabel {
public:
    explicit NameLabel(const QString& name) : full_(name) {
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        setMinimumWidth(24);
        setToolTip(name);
    }
    QSize sizeHint() const override {
        return {fontMetrics().horizontalAdvance(full_), fontMetrics().height()};
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setPen(palette().color(QPalette::WindowText));
        p.drawText(rect(), Qt::AlignVCenter | Qt::AlignLeft,
                   fontMetrics().elidedText(full_, Qt::ElideRight, width()));
    }

private:
    QString full_;
};

// The in-place name field, which tells Esc apart from Return.
class RenameField : public QLineEdit {
public:
    using QLineEdit::QLineEdit;
    std::function<void()> cancelled;

protected:
    void keyPressEvent(QKeyEvent* e) override {
        if (e->key() == Qt::Key_Escape && cancelled) {
            cancelled();
            return;
        }
        QLineEdit::keyPressEvent(e);
    }
};

QToolButton* toolButton(Glyph glyph, const QString& help) {
    auto* b = new QToolButton;
    b->setIcon(glyphIcon(glyph));
    b->setToolTip(help);
    b->setAutoRaise(true);
    return b;
}

} // namespace

LayersPanel::LayersPanel(StudioModel& model, QWidget* parent)
    : QWidget(parent), model_(model), blend_(new QComboBox),
      opacity_(new ValueSlider("Opacity", 0, 100, 0, 100, "%")),
      fillOpacity_(new ValueSlider("Fill", 0, 100, 0, 100, "%")), rowsHost_(new QWidget),
      rowsLayout_(new QVBoxLayout(rowsHost_)) {
    setObjectName("layers");
    auto* body = new QWidget;
    auto* column = new QVBoxLayout(body);
    column->setContentsMargins(6, 6, 6, 6);

    auto* title = new QLabel("Layers");
    title->setStyleSheet("font-weight: bold;");
    column->addWidget(title);
    for (int i = 0; i < kBlendModeCount; ++i)
        blend_->addItem(text(displayName(BlendMode(i))));
    auto* modeRow = new QHBoxLayout;
    modeRow->addWidget(blend_, 1);
    column->addLayout(modeRow);
    blend_->setToolTip("Blend mode");
    column->addWidget(opacity_);
    fillOpacity_->setToolTip("Fill opacity: fades the layer's own pixels but not its effects");
    column->addWidget(fillOpacity_);

    connect(blend_, &QComboBox::activated, this, [this](int index) {
        if (auto l = model_.activeLayer())
            model_.setLayer(l->id, "Blend Mode", false,
                            [index](StudioLayer& x) { x.blendMode = BlendMode(index); });
    });
    // The sliders write through the layer bindings, so one drag is one step.
    auto bindSlider = [this](ValueSlider* slider, const char* name, double StudioLayer::*field) {
        slider->changed = [this, name, field](double value) {
            if (syncing_) return;
            const auto l = model_.activeLayer();
            if (!l) return;
            auto binding = model_.bindLayer<double>(
                l->id, name, [field](const StudioLayer& x) { return x.*field; },
                [field](StudioLayer& x, const double& v) { x.*field = v; }, 1.0);
            binding.set(value);
        };
    };
    bindSlider(opacity_, "Opacity", &StudioLayer::opacity);
    bindSlider(fillOpacity_, "Fill Opacity", &StudioLayer::fillOpacity);

    rowsLayout_->setContentsMargins(0, 0, 0, 0);
    rowsLayout_->setSpacing(1);
    auto* scroll = new QScrollArea;
    scroll->setWidgetResizable(true);
    scroll->setWidget(rowsHost_);
    column->addWidget(scroll, 1);

    auto* foot = new QHBoxLayout;
    auto addButton = [&](Glyph glyph, const QString& help, std::function<void()> action) {
        auto* b = toolButton(glyph, help);
        if (action) connect(b, &QToolButton::clicked, this, [action = std::move(action)] { action(); });
        foot->addWidget(b);
        footButtons_ << b;
        return b;
    };
    addButton(Glyph::plus, "New layer", [this] { model_.addLayer(); });
    addButton(Glyph::group, "Group the layer", [this] { model_.addGroup(); });

    auto* adjustments = new QMenu(this);
    for (int i = 0; i < kAdjustmentTypeCount; ++i)
        adjustments->addAction(text(displayName(AdjustmentType(i))).replace("&", "&&"), this,
                               [this, i] { model_.addAdjustment(AdjustmentType(i)); });
    // The pop-up mode is set with the menu: a button given it later opens its menu only on a long press.
    auto withMenu = [](QToolButton* b, QMenu* menu) {
        b->setMenu(menu);
        b->setPopupMode(QToolButton::InstantPopup);
    };
    withMenu(addButton(Glyph::adjust, "New adjustment layer", {}), adjustments);

    auto* fills = new QMenu(this);
    const std::pair<const char*, FillKind> fillKinds[] = {{"Solid Color", FillKind::solid},
                                                          {"Linear Gradient", FillKind::linearGradient},
                                                          {"Radial Gradient", FillKind::radialGradient},
                                                          {"Pattern", FillKind::pattern}};
    for (const auto& [title, kind] : fillKinds)
        fills->addAction(title, this, [this, kind = kind] { model_.addFill(kind); });
    withMenu(addButton(Glyph::fill, "New fill layer", {}), fills);

    auto* masks = new QMenu(this);
    const std::pair<const char*, NewMask> maskKinds[] = {{"Reveal All", NewMask::revealAll},
                                                         {"Hide All", NewMask::hideAll},
                                                         {"Reveal Selection", NewMask::revealSelection},
                                                         {"Hide Selection", NewMask::hideSelection}};
    for (const auto& [title, kind] : maskKinds)
        masks->addAction(title, this, [this, kind = kind] { model_.addMask(kind); });
    masks->addSeparator();
    masks->addAction("Invert Mask", this, [this] { model_.invertMask(); });
    masks->addAction("Mask On / Off", this, [this] { model_.toggleMaskEnabled(); });
    masks->addAction("Apply Mask", this, [this] { model_.applyMask(); });
    masks->addAction("Delete Mask", this, [this] { model_.deleteMask(); });
    withMenu(addButton(Glyph::mask, "Layer mask", {}), masks);
    auto* effects = addButton(Glyph::plus, "Layer effects (shadow, stroke, glow, color)", [this] {
        model_.setSheet(Sheet{Sheet::Kind::layerEffects, ""});
    });
    effects->setIcon(QIcon());
    effects->setText("fx");

    addButton(Glyph::up, "Move up", [this] { model_.moveLayer(true); });
    addButton(Glyph::down, "Move down", [this] { model_.moveLayer(false); });
    addButton(Glyph::duplicate, "Duplicate", [this] { model_.duplicateLayer(); });
    addButton(Glyph::trash, "Delete layer", [this] { model_.deleteLayer(); });
    foot->addStretch(1);
    column->addLayout(foot);

    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(body);
    observer_ = model_.observe([this] { sync(); });
    sync();
}

LayersPanel::~LayersPanel() {
    model_.unobserve(observer_);
}

void LayersPanel::sync() {
    syncing_ = true;
    const auto active = model_.activeLayer();
    const bool hasLayer = active.has_value();
    blend_->setEnabled(hasLayer);
    opacity_->setEnabled(hasLayer);
    for (auto* b : footButtons_)
        b->setEnabled(model_.doc() != nullptr);
    if (!active) opacity_->setValue(1.0);
    const bool fillApplies = hasLayer && (active->kind == StudioLayerKind::pixel || active->isVector());
    fillOpacity_->setVisible(fillApplies);
    if (active) {
        blend_->setCurrentIndex(int(active->blendMode));
        opacity_->setValue(active->opacity);
        fillOpacity_->setValue(active->fillOpacity);
    }
    syncing_ = false;
    rebuildRows();
}

void LayersPanel::rebuildRows() {
    auto* doc = model_.doc();
    std::string signature = doc ? std::to_string(reinterpret_cast<uintptr_t>(doc)) : "none";
    std::vector<LayerRow> rows;
    // Per row, the thumbnail keys of its content and of its mask (empty without one).
    std::vector<std::pair<std::string, std::string>> keys;
    if (doc) {
        rows = doc->rows();
        signature += model_.editMask ? "m" : "-";
        if (doc->activeID) signature += doc->activeID->toString();
        for (const auto& r : rows) {
            const StudioLayer& l = r.layer;
            keys.emplace_back(r.id.toString() + "p" + std::to_string(drawnIdentity(l, false)),
                              l.mask ? r.id.toString() + "m" + std::to_string(drawnIdentity(l, true)) : "");
            signature += "|" + l.name + std::to_string(r.depth) + (l.isVisible ? "v" : "h") +
                         (l.isLocked ? "l" : "u") + (l.isClipping ? "c" : "n") + (l.maskEnabled ? "e" : "d") +
                         keys.back().first + "/" + keys.back().second;
        }
    }
    if (signature == shownSignature_) return;
    shownSignature_ = signature;

    // A row may be the one whose click started this notification: it goes later.
    while (QLayoutItem* item = rowsLayout_->takeAt(0)) {
        if (QWidget* old = item->widget()) {
            old->hide();
            old->deleteLater();
        }
        delete item;
    }
    std::map<std::string, QPixmap> kept;
    if (doc) {
        for (size_t i = 0; i < rows.size(); ++i)
            rowsLayout_->addWidget(makeRow(rows[i], keys[i], doc->activeID == rows[i].id));
        // Only thumbnails of rows still shown survive the rebuild.
        for (const auto& [pixelKey, maskKey] : keys)
            for (const std::string* key : {&pixelKey, &maskKey})
                if (auto it = thumbnails_.find(*key); it != thumbnails_.end()) kept.insert(*it);
    } else {
        auto* empty = new QLabel("Open a picture to see its layers.");
        empty->setWordWrap(true);
        rowsLayout_->addWidget(empty);
    }
    thumbnails_ = std::move(kept);
    rowsLayout_->addStretch(1);
}

QPixmap LayersPanel::thumbnail(const StudioLayer& layer, bool mask, const std::string& key) {
    if (auto it = thumbnails_.find(key); it != thumbnails_.end()) return it->second;
    // An adjustment has no pixels to show: its sign stands in for them.
    if (!mask && layer.kind == StudioLayerKind::adjustment)
        return glyphIcon(Glyph::adjust).pixmap(kThumbSide - 8);
    auto* doc = model_.doc();
    QPixmap pixmap;
    if (doc) {
        const auto image = mask ? StudioRenderer::maskThumbnail(layer, *doc, kThumbSide)
                                : StudioRenderer::thumbnail(layer, *doc, kThumbSide);
        if (image) {
            const QImage view(image->data(), int(image->width()), int(image->height()),
                              int(image->width() * 4), QImage::Format_RGBA8888_Premultiplied);
            pixmap = QPixmap::fromImage(view.copy());
        }
    }
    thumbnails_[key] = pixmap;
    return pixmap;
}

QWidget* LayersPanel::makeRow(const LayerRow& row, const std::pair<std::string, std::string>& keys,
                              bool active) {
    const StudioLayer& l = row.layer;
    const Uuid id = row.id;
    auto* w = new QWidget;
    w->setAutoFillBackground(true);
    if (active) {
        QPalette p = w->palette();
        p.setColor(QPalette::Window, palette().color(QPalette::Highlight).darker(160));
        w->setPalette(p);
    }
    auto* h = new QHBoxLayout(w);
    h->setContentsMargins(4 + int(row.depth) * 16, 2, 4, 2);

    auto* eye = toolButton(l.isVisible ? Glyph::eye : Glyph::eyeClosed, "Show / hide");
    connect(eye, &QToolButton::clicked, this, [this, id] { model_.toggleVisible(id); });
    h->addWidget(eye);
    if (l.isClipping) {
        auto* clip = new QLabel("↳");
        clip->setToolTip("Clipped to the layer below");
        h->addWidget(clip);
    }

    auto* thumb = new ClickLabel;
    thumb->setFixedSize(kThumbSide + 4, kThumbSide + 4);
    thumb->setAlignment(Qt::AlignCenter);
    thumb->setStyleSheet(active && !model_.editMask ? "border: 2px solid rgb(64,128,230);"
                                                    : "border: 1px solid rgb(70,70,75);");
    thumb->setPixmap(thumbnail(l, false, keys.first));
    thumb->clicked = [this, id] {
        model_.select(id);
        model_.setEditMask(false);
    };
    h->addWidget(thumb);
    if (l.mask) {
        auto* maskThumb = new ClickLabel;
        maskThumb->setFixedSize(kThumbSide + 4, kThumbSide + 4);
        maskThumb->setAlignment(Qt::AlignCenter);
        maskThumb->setToolTip("Layer mask — click to paint on it (black hides, white shows)");
        maskThumb->setStyleSheet(active && model_.editMask ? "border: 2px solid rgb(64,128,230);"
                                                           : "border: 1px solid rgb(70,70,75);");
        maskThumb->setPixmap(thumbnail(l, true, keys.second));
        maskThumb->clicked = [this, id] {
            model_.select(id);
            model_.setEditMask(true);
        };
        h->addWidget(maskThumb);
    }

    auto* name =
        new NameLabel(QString::fromStdString(l.name) +
                      (l.kind == StudioLayerKind::pixel ? QString() : "  · " + text(displayName(l.kind))));
    if (!l.isVisible) name->setStyleSheet("color: rgb(130,130,135);");
    name->clicked = [this, id] { model_.select(id); };
    // A double click renames in place: Return or leaving the field keeps the name, Esc drops it.
    name->doubleClicked = [this, id, h, name, current = QString::fromStdString(l.name)] {
        auto* field = new RenameField(current);
        field->setPlaceholderText("Layer name");
        delete h->replaceWidget(name, field); // the layout hands back the old item to free
        name->hide();
        field->setFocus();
        field->selectAll();
        auto done = std::make_shared<bool>(false);
        auto finish = [this, id, field, done](bool keep) {
            if (*done) return;
            *done = true;
            const std::string text = field->text().trimmed().toStdString();
            // The rows are rebuilt by the rename; the field goes after its signal.
            QTimer::singleShot(0, this, [this, id, text, keep] {
                if (keep) model_.rename(id, text);
                shownSignature_.clear();
                rebuildRows();
            });
        };
        connect(field, &QLineEdit::editingFinished, this, [finish] { finish(true); });
        field->cancelled = [finish] { finish(false); };
    };
    h->addWidget(name, 1);

    auto* lock = toolButton(l.isLocked ? Glyph::lock : Glyph::unlock, "Lock");
    lock->setCheckable(true);
    lock->setChecked(l.isLocked);
    connect(lock, &QToolButton::clicked, this, [this, id] { model_.toggleLock(id); });
    h->addWidget(lock);

    w->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(w, &QWidget::customContextMenuRequested, this,
            [this, row, w](const QPoint& at) { showRowMenu(row, w->mapToGlobal(at)); });
    return w;
}

void LayersPanel::showRowMenu(const LayerRow& row, const QPoint& at) {
    const Uuid id = row.id;
    model_.select(id);
    QMenu menu;
    menu.addAction("Duplicate", [this] { model_.duplicateLayer(); });
    menu.addAction(row.layer.isClipping ? "Release Clipping Mask" : "Clip to Layer Below",
                   [this, id] { model_.toggleClip(id); });
    menu.addAction("Select Layer Shape", [this] { model_.selectLayerShape(); });
    if (row.layer.isVector()) menu.addAction("Rasterize", [this] { model_.rasterize(); });
    if (row.layer.isGroup()) menu.addAction("Ungroup", [this] { model_.ungroup(); });
    menu.addAction("Delete", [this, id] { model_.deleteLayer(id); });
    menu.exec(at);
}

} // namespace korv
