#include "app/ui/QtHost.h"

#include "app/model/FileNames.h"

#include <QApplication>
#include <QBuffer>
#include <QClipboard>
#include <QEventLoop>
#include <QFileDialog>
#include <QImage>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <syslog.h>
#include <thread>

namespace korv {
namespace {

constexpr const char* kRecentKey = "korv.recentDocuments";
constexpr const char* kOriginType = "application/x-com.quillmere.lumenary.origin";
constexpr int kRecentLimit = 10;

QSettings settings() {
    return QSettings("KORV", "KORV Lumenary");
}

QString pictureFilter() {
    return "Pictures and documents (*.korvstudio *.korvpaint *.psd *.png *.jpg *.jpeg *.tif *.tiff *.heic "
           "*.heif *.avif *.gif *.bmp *.tga *.webp);;All files (*)";
}

class QtTimer : public HostTimer {
public:
    QtTimer(double seconds, std::function<void()> tick) {
        QObject::connect(&timer_, &QTimer::timeout, [tick = std::move(tick)] { tick(); });
        timer_.start(std::max(1, int(seconds * 1000)));
    }

private:
    QTimer timer_;
};

} // namespace

std::vector<std::filesystem::path> QtHost::openPanel(const OpenPanelRequest& request) {
    QStringList names;
    const QString folder = QString::fromStdString(request.folder.string());
    if (request.multiple)
        names = QFileDialog::getOpenFileNames(window_, QString::fromStdString(request.message), folder,
                                              pictureFilter());
    else if (auto one = QFileDialog::getOpenFileName(window_, QString::fromStdString(request.message), folder,
                                                     pictureFilter());
             !one.isEmpty())
        names << one;
    std::vector<std::filesystem::path> paths;
    for (const auto& name : names)
        paths.emplace_back(name.toStdString());
    return paths;
}

std::optional<std::filesystem::path> QtHost::savePanel(const SavePanelRequest& request) {
    const QString extension = QString::fromStdString(request.extension);
    // The message is a sentence, too long for a title bar: it goes in the tooltip.
    const auto proposed = request.folder.empty() ? std::filesystem::path(request.suggestedName)
                                                 : request.folder / request.suggestedName;
    QFileDialog dialog(window_,
                       request.title.empty() ? QString("Save") : QString::fromStdString(request.title),
                       QString::fromStdString(proposed.parent_path().string()),
                       QString("%1 (*.%2)").arg(extension.toUpper(), extension));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.selectFile(QString::fromStdString(proposed.string()));
    dialog.setToolTip(QString::fromStdString(request.message));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    QString name = dialog.selectedFiles().first();
    if (name.isEmpty()) return std::nullopt;
    return std::filesystem::path(withExtension(name.toStdString(), request.extension));
}

int QtHost::runAlert(const std::string& message, const std::string& informative,
                     const std::vector<std::string>& buttons) {
    QMessageBox box(window_);
    box.setIcon(QMessageBox::Warning);
    box.setText(QString::fromStdString(message));
    box.setInformativeText(QString::fromStdString(informative));
    std::vector<QPushButton*> made;
    for (size_t i = 0; i < buttons.size(); ++i) {
        // The usual roles place "Save" and "Cancel" where the desktop expects them.
        const auto role =
            i == 0 ? QMessageBox::AcceptRole
                   : (buttons[i] == "Cancel" ? QMessageBox::RejectRole : QMessageBox::DestructiveRole);
        made.push_back(box.addButton(QString::fromStdString(buttons[i]), role));
    }
    if (!made.empty()) box.setDefaultButton(made[0]);
    box.exec();
    for (size_t i = 0; i < made.size(); ++i)
        if (box.clickedButton() == made[i]) return int(i);
    return 1;
}

void QtHost::noteRecentDocument(const std::filesystem::path& path) {
    QStringList list = recentDocuments();
    const QString entry = QString::fromStdString(path.string());
    list.removeAll(entry);
    list.prepend(entry);
    while (list.size() > kRecentLimit)
        list.removeLast();
    settings().setValue(kRecentKey, list);
}

QStringList QtHost::recentDocuments() const {
    return settings().value(kRecentKey).toStringList();
}

void QtHost::clearRecentDocuments() {
    settings().remove(kRecentKey);
}

std::optional<std::string> QtHost::setting(const std::string& key) {
    const QVariant value = settings().value(QString::fromStdString(key));
    if (!value.isValid()) return std::nullopt;
    return value.toString().toStdString();
}

void QtHost::setSetting(const std::string& key, const std::string& value) {
    settings().setValue(QString::fromStdString(key), QString::fromStdString(value));
}

std::unique_ptr<HostTimer> QtHost::startRepeatingTimer(double seconds, std::function<void()> tick) {
    return std::make_unique<QtTimer>(seconds, std::move(tick));
}

void QtHost::runOnMain(std::function<void()> work) {
    QMetaObject::invokeMethod(
        qApp, [work = std::move(work)] { work(); }, Qt::QueuedConnection);
}

void QtHost::runBusy(const std::string& label, const std::function<void()>& work) {
    // No window (tests, the command line) or a nested call: run in place.
    if (!window_ || busy_) {
        work();
        return;
    }
    busy_ = true;
    window_->setEnabled(false);
    QEventLoop loop;
    std::exception_ptr failure;
    std::thread worker([&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    // Quick work never flashes the overlay.
    QTimer later;
    later.setSingleShot(true);
    QObject::connect(&later, &QTimer::timeout, [&] {
        if (onBusy) onBusy(label);
    });
    later.start(500);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    worker.join();
    later.stop();
    if (onBusy) onBusy(std::nullopt);
    window_->setEnabled(true);
    busy_ = false;
    if (failure) std::rethrow_exception(failure);
}

void QtHost::log(const std::string& line) {
    syslog(LOG_ERR, "%s", line.c_str());
    std::fprintf(stderr, "%s\n", line.c_str());
}

void QtHost::copyImage(const RGBABuffer& image, const std::string& origin) {
    const QImage picture(image.data(), int(image.width()), int(image.height()), int(image.width() * 4),
                         QImage::Format_RGBA8888_Premultiplied);
    auto* data = new QMimeData;
    data->setImageData(picture.copy());
    data->setData(kOriginType, QByteArray::fromStdString(origin));
    QApplication::clipboard()->setMimeData(data);
}

RGBABufferPtr QtHost::pasteImage(std::optional<std::string>* origin) {
    const QMimeData* data = QApplication::clipboard()->mimeData();
    if (!data || !data->hasImage()) return nullptr;
    const QImage picture =
        qvariant_cast<QImage>(data->imageData()).convertToFormat(QImage::Format_RGBA8888_Premultiplied);
    if (picture.isNull()) return nullptr;
    auto buffer = std::make_shared<RGBABuffer>(picture.width(), picture.height());
    for (int y = 0; y < picture.height(); ++y)
        std::memcpy(buffer->row(y), picture.constScanLine(y), size_t(picture.width()) * 4);
    if (origin) {
        if (data->hasFormat(kOriginType))
            *origin = data->data(kOriginType).toStdString();
        else
            origin->reset();
    }
    return buffer;
}

} // namespace korv
