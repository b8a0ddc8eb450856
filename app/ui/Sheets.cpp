#include "app/ui/Sheets.h"

#include "app/ui/ValueSlider.h"
#include "engine/core/Constants.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

namespace korv {

namespace {

// A side of a picture in pixels, 1 to 30,000.
QSpinBox* sideBox(int value) {
    auto* box = new QSpinBox;
    box->setRange(1, int(kMaxCanvasSide));
    box->setSuffix(" px");
    box->setValue(value);
    return box;
}

// OK, renamed to what it does, and Cancel, which closes the dialog.
QDialogButtonBox* okCancel(QDialog* dialog, const QString& ok) {
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(ok);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    return buttons;
}

} // namespace

NewPictureDialog::NewPictureDialog(StudioModel& model, QWidget* parent) : QDialog(parent) {
    setWindowTitle("New Picture");
    auto* form = new QFormLayout;
    auto* width = sideBox(1920);
    auto* height = sideBox(1080);
    auto* dpi = new QDoubleSpinBox;
    dpi->setRange(1, 3000);
    dpi->setValue(72);
    dpi->setSuffix(" ppi");
    auto* background = new QComboBox;
    background->addItems({"White", "Black", "Transparent"});
    form->addRow("Width", width);
    form->addRow("Height", height);
    form->addRow("Resolution", dpi);
    form->addRow("Background", background);
    auto* buttons = okCancel(this, "Create");
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, [=, this, &model] {
        std::optional<PaintColor> colour;
        if (background->currentIndex() == 0) colour = PaintColor::white();
        if (background->currentIndex() == 1) colour = PaintColor::black();
        model.newDocument(width->value(), height->value(), dpi->value(), colour);
        accept();
    });
}

SizeDialog::SizeDialog(StudioModel& model, bool canvas, QWidget* parent) : QDialog(parent) {
    const StudioDocument* doc = model.doc();
    if (!doc) return;
    const int64_t docW = doc->width(), docH = doc->height();
    setWindowTitle(canvas ? "Canvas Size" : "Image Size");
    auto* note = new QLabel(canvas ? "Adds or trims space around the picture. Pixels are not resampled."
                                   : "Resamples every layer (text and shapes stay sharp).");
    note->setWordWrap(true);
    auto* form = new QFormLayout;
    auto* width = sideBox(int(docW));
    auto* height = sideBox(int(docH));
    for (auto* box : {width, height})
        box->setKeyboardTracking(false);
    auto* keep = new QCheckBox("Keep proportions");
    keep->setChecked(true);
    form->addRow("Width", width);
    form->addRow("Height", height);
    form->addRow("", keep);
    // One side's change sets the other by the picture's ratio, rounded.
    auto follow = [=, this](QSpinBox* from, QSpinBox* to, double ratio) {
        connect(from, &QSpinBox::valueChanged, this, [=](int v) {
            if (!keep->isChecked() || to->hasFocus()) return;
            const QSignalBlocker block(to);
            to->setValue(std::clamp(int(std::lround(v * ratio)), 1, int(kMaxCanvasSide)));
        });
    };
    follow(width, height, double(docH) / double(docW));
    follow(height, width, double(docW) / double(docH));

    auto* anchorGrid = new QGridLayout;
    auto* anchors = new QButtonGroup(this);
    if (canvas) {
        anchorGrid->setSpacing(2);
        for (int i = 0; i < 9; ++i) {
            auto* b = new QToolButton;
            b->setCheckable(true);
            b->setFixedSize(26, 26);
            b->setToolTip(QString("Anchor %1").arg(i + 1));
            anchors->addButton(b, i);
            anchorGrid->addWidget(b, i / 3, i % 3);
        }
        anchors->button(4)->setChecked(true);
        form->addRow("Anchor", anchorGrid);
    }
    auto* buttons = okCancel(this, "Apply");
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(note);
    layout->addLayout(form);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, [=, this, &model] {
        accept();
        if (canvas) {
            const int anchor = std::max(anchors->checkedId(), 0);
            model.resizeCanvas(width->value(), height->value(), double(anchor % 3) / 2,
                               double(anchor / 3) / 2);
        } else {
            model.resizeImage(width->value(), height->value());
        }
    });
}

RefineDialog::RefineDialog(StudioModel& model, const std::string& kind, QWidget* parent) : QDialog(parent) {
    QString title = QString::fromStdString(kind);
    if (!title.isEmpty()) title[0] = title[0].toUpper();
    setWindowTitle(title + " Selection");
    // The number beside the slider shows the amount and takes a typed one.
    auto* amount = new ValueSlider(kind == "smooth" ? "Smoothness" : "Pixels", 1, 200, 0, 1, " px");
    amount->setValue(kind == "border" ? 10 : 5);
    auto* row = new QHBoxLayout;
    row->addWidget(amount, 1);
    auto* buttons = okCancel(this, "Apply");
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(row);
    layout->addWidget(buttons);
    resize(380, sizeHint().height());
    connect(buttons, &QDialogButtonBox::accepted, this, [=, this, &model] {
        accept();
        model.refineSelection(kind, amount->value());
    });
}

ExportDialog::ExportDialog(StudioModel& model, QWidget* parent) : QDialog(parent) {
    setWindowTitle("Export");
    auto* form = new QFormLayout;
    auto* format = new QComboBox;
    for (auto f : kAllPhotoExportFormats)
        format->addItem(QString::fromUtf8(displayName(f).data(), int(displayName(f).size())));
    auto* quality = new QSpinBox;
    quality->setRange(5, 100);
    quality->setValue(90);
    quality->setSuffix(" %");
    auto* scale = new QSpinBox;
    scale->setRange(1, 400);
    scale->setValue(100);
    scale->setSuffix(" %");
    auto* size = new QLabel;
    form->addRow("Format", format);
    form->addRow("Quality", quality);
    form->addRow("Scale", scale);
    form->addRow("Size", size);
    auto options = [=] {
        PhotoExportOptions o(kAllPhotoExportFormats[size_t(format->currentIndex())]);
        o.quality = quality->value() / 100.0;
        o.scale = scale->value() / 100.0;
        return o;
    };
    auto update = [=, &model] {
        quality->setEnabled(hasQuality(options().format));
        if (auto* doc = model.doc()) {
            const auto out = PhotoExport::outputSize(*doc, options());
            size->setText(QString("%1 \u00D7 %2 px").arg(out.width).arg(out.height));
        }
    };
    connect(format, &QComboBox::currentIndexChanged, this, update);
    connect(scale, &QSpinBox::valueChanged, this, update);
    update();
    auto* buttons = okCancel(this, "Export…");
    // Every layer kept, for other programs: the other way out of this sheet.
    auto* psd = buttons->addButton("Layered PSD…", QDialogButtonBox::ActionRole);
    connect(psd, &QPushButton::clicked, this, [this, &model] {
        accept();
        model.exportPSD();
    });
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, [=, this, &model] {
        accept();
        model.exportPicture(options());
    });
}

RecoveryDialog::RecoveryDialog(StudioModel& model, QWidget* parent)
    : QDialog(parent), model_(model), list_(new QListWidget) {
    setWindowTitle("Recover Autosaved Work");
    resize(560, 420);
    auto* intro =
        new QLabel("KORV Lumenary kept copies of pictures that were not saved when it last stopped. "
                   "Recover them to keep working, or move them to the trash.");
    intro->setWordWrap(true);
    list_->setIconSize(QSize(96, 96));
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    auto* buttons = new QDialogButtonBox;
    auto* recover = buttons->addButton("Recover", QDialogButtonBox::AcceptRole);
    auto* discard = buttons->addButton("Move to Trash", QDialogButtonBox::DestructiveRole);
    auto* later = buttons->addButton("Later", QDialogButtonBox::RejectRole);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(intro);
    layout->addWidget(list_);
    layout->addWidget(buttons);
    connect(recover, &QPushButton::clicked, this, [this] {
        for (const auto& item : selected())
            model_.recover(item);
        reload();
    });
    connect(discard, &QPushButton::clicked, this, [this] {
        int64_t kept = 0;
        for (const auto& item : selected())
            if (!Recovery::discard(item.id, true)) ++kept;
        reload();
        if (kept > 0)
            QMessageBox::warning(this, "The Trash is not available",
                                 "The autosaved copies could not be moved to the Trash, so they were kept.");
    });
    connect(later, &QPushButton::clicked, this, &QDialog::reject);
    reload();
}

void RecoveryDialog::reload() {
    items_ = model_.pendingRecovery();
    list_->clear();
    for (const auto& item : items_) {
        const auto date = QDateTime::fromSecsSinceEpoch(
            std::chrono::duration_cast<std::chrono::seconds>(item.info.date.time_since_epoch()).count());
        auto* row = new QListWidgetItem(QString("%1\n%2 \u00D7 %3 px, %4 layers, %5")
                                            .arg(QString::fromStdString(item.info.name))
                                            .arg(item.info.width)
                                            .arg(item.info.height)
                                            .arg(item.info.layers)
                                            .arg(QLocale().toString(date, QLocale::ShortFormat)));
        if (auto thumb = item.thumbnail()) {
            const QImage image(thumb->data(), int(thumb->width()), int(thumb->height()),
                               int(thumb->width() * 4), QImage::Format_RGBA8888_Premultiplied);
            row->setIcon(QIcon(QPixmap::fromImage(image.copy())));
        }
        list_->addItem(row);
    }
    if (!items_.empty()) list_->setCurrentRow(0);
    if (items_.empty()) accept();
}

std::vector<Recovery::Item> RecoveryDialog::selected() const {
    std::vector<Recovery::Item> chosen;
    for (int row = 0; row < list_->count(); ++row)
        if (list_->item(row)->isSelected()) chosen.push_back(items_[size_t(row)]);
    return chosen;
}

} // namespace korv
