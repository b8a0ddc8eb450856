#include "app/model/StudioModel.h"

#include "app/model/FileNames.h"
#include "app/model/Quoting.h"
#include "engine/core/Constants.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/ExportError.h"
#include "engine/formats/ImageImport.h"
#include "engine/formats/StudioFile.h"
#include "engine/formats/StudioImport.h"
#include "engine/formats/StudioPSD.h"
#include "engine/platform/Resampling.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>

namespace korv {
namespace {

constexpr std::array<const char*, 8> kRetouchKinds{"clone", "heal",   "spotHeal", "dodge",
                                                   "burn",  "sponge", "blur",     "sharpen"};

// Throws with a sentence for the user.
std::vector<uint8_t> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        throw std::runtime_error("The file " + inQuotes(path.filename().string()) +
                                 " couldn't be read: " + std::strerror(errno) + ".");
    const std::streamoff size = in.tellg();
    // Past 4 GB no picture of 30,000 x 30,000 is plausible.
    if (size < 0 || size > (std::streamoff(4) << 30)) throw ExportError::cannotRead();
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    in.seekg(0);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), size))
        throw std::runtime_error("The file " + inQuotes(path.filename().string()) + " couldn't be read.");
    return bytes;
}

std::filesystem::path normalised(const std::filesystem::path& url) {
    std::error_code ec;
    auto absolute = std::filesystem::absolute(url, ec);
    return (ec ? url : absolute).lexically_normal();
}

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

const char* exportExtension(PhotoExportFormat format) {
    switch (format) {
    case PhotoExportFormat::jpeg:
        return "jpg";
    case PhotoExportFormat::png:
        return "png";
    case PhotoExportFormat::tiff:
        return "tiff";
    case PhotoExportFormat::heic:
        return "heic";
    }
    return "jpg";
}

} // namespace

std::string displayName(const std::filesystem::path& url) {
    return url.stem().string();
}

AlertInfo failedOpensAlert(const std::vector<OpenFailure>& failures) {
    if (failures.size() == 1)
        return {Uuid::random(), "Can't open " + inQuotes(failures[0].file.filename().string()),
                failures[0].reason};
    std::string message;
    for (const auto& f : failures)
        message += (message.empty() ? "" : "\n") + inQuotes(f.file.filename().string()) + ": " + f.reason;
    return {Uuid::random(), "Can't open " + std::to_string(failures.size()) + " pictures", message};
}

std::string Sheet::id() const {
    switch (kind) {
    case Kind::filter:
        return "filter." + argument;
    case Kind::refine:
        return "refine." + argument;
    case Kind::newDocument:
        return "newDocument";
    case Kind::exportPicture:
        return "export";
    case Kind::imageSize:
        return "imageSize";
    case Kind::canvasSize:
        return "canvasSize";
    case Kind::smoothSkin:
        return "smoothSkin";
    case Kind::recovery:
        return "recovery";
    case Kind::layerEffects:
        return "layerEffects";
    }
    return "";
}

StudioModel::StudioModel(Host& host, bool loadStores) : host_(host) {
    for (Tool t : {Tool::brush, Tool::eraser, Tool::smudge})
        brushes[std::string(toString(t))] = defaultBrush(t);
    for (const char* kind : kRetouchKinds)
        retouch[kind] = defaultRetouch(kind);
    if (loadStores) {
        prefs = Prefs::load(host_);
        loadToolSettings();
        Recovery::removeLeftovers();
    }
}

StudioModel::~StudioModel() {
    Recovery::waitForWrites();
}

nlohmann::json StudioModel::defaultBrush(Tool t) {
    switch (t) {
    case Tool::brush:
        return {{"name", "Soft Round"}, {"size", 40}};
    case Tool::eraser:
        return {{"name", "Soft Eraser"}, {"size", 60}};
    default:
        return {{"name", "Smudge"}};
    }
}

nlohmann::json StudioModel::defaultRetouch(const std::string& kind) {
    double size = 40, hardness = 0.5, strength = 0.5;
    if (kind == "clone" || kind == "heal") hardness = 0.6;
    if (kind == "spotHeal") size = 30;
    if (kind == "dodge" || kind == "burn") strength = 0.35;
    if (kind == "blur" || kind == "sharpen") size = 50;
    return {{"size", size},        {"hardness", hardness}, {"strength", strength},
            {"range", "midtones"}, {"saturate", false},    {"spacing", 0.15}};
}

int StudioModel::observe(std::function<void()> observer) {
    observers_.emplace_back(nextObserver_, std::move(observer));
    return nextObserver_++;
}

void StudioModel::unobserve(int token) {
    std::erase_if(observers_, [&](const auto& entry) { return entry.first == token; });
}

void StudioModel::notify() {
    // A copy: an observer may unsubscribe while being told.
    const auto observers = observers_;
    for (const auto& [token, observer] : observers)
        observer();
}

DocSession* StudioModel::current() const {
    if (!currentID) return nullptr;
    for (const auto& s : sessions)
        if (s->id == *currentID) return s.get();
    return nullptr;
}

StudioDocument* StudioModel::doc() const {
    auto* session = current();
    return session ? session->doc.get() : nullptr;
}

std::optional<StudioLayer> StudioModel::activeLayer() const {
    auto* d = doc();
    return d ? d->activeLayer() : std::nullopt;
}

void StudioModel::setCurrentID(std::optional<Uuid> id) {
    const bool changed = id != currentID;
    if (changed) {
        // A crop being drawn stays with its picture for when it comes back. A
        // live preview holds uncommitted pixels and ends; the status line and
        // cursor read-out speak of the picture left, so they go too.
        auto* left = current();
        const auto crop = cropRect;
        cancelLive();
        if (left) left->cropRect = crop;
        status.clear();
        cursorInfo.clear();
        statusFromHistory_ = false;
    }
    currentID = id;
    if (changed)
        if (auto* now = current()) {
            cropRect = now->cropRect;
            now->cropRect.reset();
        }
    if (changed) canvasShowCurrent();
    notify();
}

void StudioModel::canvasShowCurrent() {
    if (!canvas) return;
    if (auto* session = current())
        canvas->showSession(*session);
    else
        canvas->clear();
}

void StudioModel::setTool(Tool newTool) {
    if (newTool == tool) return;
    tool = newTool;
    status = std::string(tip(tool));
    saveToolSettings();
    notify();
}

void StudioModel::setEditMask(bool on) {
    editMask = on;
    notify();
}

void StudioModel::setStatus(std::string text) {
    status = std::move(text);
    statusFromHistory_ = false;
    notify();
}

void StudioModel::setBusy(std::optional<std::string> text) {
    busy = std::move(text);
    notify();
}

void StudioModel::setSheet(std::optional<Sheet> newSheet) {
    sheet = std::move(newSheet);
    notify();
}

void StudioModel::dismissAlert() {
    alert.reset();
    notify();
}

void StudioModel::refresh(bool all) {
    if (all)
        if (auto* d = doc()) d->markAllDirty();
    if (canvas) canvas->refresh();
    tick += 1;
    notify();
}

void StudioModel::show(const std::string& title, const std::string& message) {
    alert = AlertInfo{Uuid::random(), title, message};
    notify();
}

void StudioModel::newDocument(int64_t width, int64_t height, double dpi, std::optional<PaintColor> background,
                              const std::string& name) {
    width = std::clamp<int64_t>(width, 1, kMaxCanvasSide);
    height = std::clamp<int64_t>(height, 1, kMaxCanvasSide);
    auto document = std::make_unique<StudioDocument>(width, height, dpi, background);
    add(std::make_shared<DocSession>(std::move(document), name));
}

void StudioModel::add(DocSessionPtr session) {
    DocSession& added = *session;
    sessions.push_back(std::move(session));
    setCurrentID(added.id);
    setStatus(added.name + " \u2014 " + std::to_string(added.doc->width()) + " \u00D7 " +
              std::to_string(added.doc->height()) + " px");
}

std::filesystem::path StudioModel::dialogFolder() const {
    const auto* session = current();
    std::optional<std::filesystem::path> picture;
    if (session) picture = session->fileURL ? session->fileURL : session->sourceURL;
    const char* home = std::getenv("HOME");
    return korv::dialogFolder(picture, lastFolder,
                              home ? std::filesystem::path(home) : std::filesystem::path("/"));
}

void StudioModel::noteFolder(const std::filesystem::path& file) {
    if (file.has_parent_path()) lastFolder = file.parent_path();
}

void StudioModel::openPanel() {
    const auto urls =
        host_.openPanel({"Open pictures, Photoshop PSDs or KORV Lumenary documents", true, dialogFolder()});
    openAll(urls);
}

void StudioModel::open(const std::filesystem::path& url) {
    openAll({url});
}

void StudioModel::openAll(const std::vector<std::filesystem::path>& urls) {
    std::vector<OpenFailure> failures;
    for (const auto& url : urls)
        if (auto failure = openOne(url)) failures.push_back(std::move(*failure));
    if (!failures.empty()) {
        alert = failedOpensAlert(failures);
        notify();
    }
}

std::optional<OpenFailure> StudioModel::openOne(const std::filesystem::path& url) {
    const auto path = normalised(url);
    for (const auto& s : sessions) {
        if (s->fileURL && normalised(*s->fileURL) == path) {
            setCurrentID(s->id);
            return std::nullopt;
        }
    }
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec))
        return OpenFailure{path, inQuotes(path.filename().string()) +
                                     " is a folder, not a picture. Open the pictures inside it instead."};
    std::unique_ptr<StudioDocument> document;
    try {
        host_.runBusy("Opening " + inQuotes(path.filename().string()) + "\u2026",
                      [&] { document = StudioImport::document(readFile(path)); });
    } catch (const std::exception& e) {
        return OpenFailure{path, e.what()};
    }
    const bool native = lowercase(path.extension().string()) == "." + std::string(StudioFile::fileExtension);
    // A picture or a PSD has no file of ours yet, so that Save asks for a place.
    auto session = std::make_shared<DocSession>(std::move(document), displayName(path),
                                                native ? std::optional(path) : std::nullopt);
    session->sourceURL = path;
    add(std::move(session));
    noteFolder(path);
    host_.noteRecentDocument(path);
    return std::nullopt;
}

void StudioModel::importAsLayerPanel() {
    const auto urls = host_.openPanel({"Place pictures as new layers", true, dialogFolder()});
    for (const auto& url : urls) {
        if (!current())
            open(url);
        else
            importAsLayer(url);
    }
}

void StudioModel::importAsLayer(const std::filesystem::path& url) {
    auto* d = doc();
    if (!d) {
        open(url);
        return;
    }
    std::optional<DecodedImage> decoded;
    try {
        decoded = ImageImport::decode(readFile(url));
    } catch (const std::exception&) {
        decoded.reset();
    }
    if (!decoded || !decoded->image) {
        show("Can't place this picture",
             "This computer could not read " + inQuotes(url.filename().string()) + ".");
        return;
    }
    noteFolder(url);
    placeBuffer(*decoded->image, displayName(url), std::nullopt, *d);
}

void StudioModel::placeBuffer(const RGBABuffer& buffer, const std::string& name,
                              std::optional<std::pair<int64_t, int64_t>> at, StudioDocument& d) {
    const bool fits = buffer.width() <= d.width() && buffer.height() <= d.height();
    const double scale = fits ? 1.0
                              : std::min(double(d.width()) / double(buffer.width()),
                                         double(d.height()) / double(buffer.height()));
    const int64_t nw = std::max<int64_t>(1, int64_t(scale * double(buffer.width())));
    const int64_t nh = std::max<int64_t>(1, int64_t(scale * double(buffer.height())));
    RGBABufferPtr scaled;
    if (scale < 1) {
        scaled = resampled(buffer, nw, nh);
        if (!scaled) {
            show("Can't place this picture", "There is not enough memory to scale " + inQuotes(name) + ".");
            return;
        }
    }
    const RGBABuffer& placed = scaled ? *scaled : buffer;
    const auto [x, y] = at ? *at : std::pair{(d.width() - nw) / 2, (d.height() - nh) / 2};

    StudioLayer layer = StudioLayer::pixelLayer(name, d.grid);
    const IRect rect{x, y, nw, nh};
    layer.pixels->write(placed, rect);
    d.insert(std::move(layer), true);
    d.markDirty(rect);
    d.commit("Place " + name);
    refresh(false);
}

void StudioModel::save(bool as) {
    auto* session = current();
    if (!session) return;
    if (!as && session->fileURL) {
        write(*session, *session->fileURL);
        return;
    }
    // Layered PSD export is not offered yet, so the note does not promise it.
    const auto url = host_.savePanel({"Saves every layer, mask and setting (KORV Lumenary document). Use "
                                      "Export for JPEG, PNG, TIFF or HEIC.",
                                      session->name + "." + std::string(StudioFile::fileExtension),
                                      std::string(StudioFile::fileExtension), dialogFolder(), "Save As"});
    if (url) write(*session, *url);
}

bool StudioModel::writeFile(const std::filesystem::path& url, const std::vector<uint8_t>& bytes,
                            const char* failureTitle) {
    try {
        writeFileAtomically(url.string(), bytes);
        return true;
    } catch (const std::exception& e) {
        show(failureTitle, e.what());
        return false;
    }
}

bool StudioModel::write(DocSession& session, const std::filesystem::path& url) {
    // The capture is taken here; the encode reads only its frozen tiles, so it
    // and the write may run while the window stays alive.
    const int64_t change = session.doc->changeCount();
    try {
        const StudioFile::Snapshot snapshot = StudioFile::snapshot(*session.doc, true);
        host_.runBusy("Saving " + inQuotes(url.filename().string()) + "\u2026",
                      [&] { writeFileAtomically(url.string(), StudioFile::encode(snapshot)); });
    } catch (const std::exception& e) {
        show("Couldn't save", e.what());
        return false;
    }
    session.fileURL = url;
    session.name = displayName(url);
    session.savedChange = change;
    noteFolder(url);
    Recovery::discard(session.id, false);
    host_.noteRecentDocument(url);
    status = "Saved " + url.filename().string();
    tick += 1;
    notify();
    return true;
}

void StudioModel::exportPSD() {
    auto* session = current();
    if (!session) return;
    const auto url =
        host_.savePanel({"Layered Photoshop PSD: layers, masks, groups, blend modes and opacity are kept.",
                         session->name + ".psd", "psd"});
    if (!url) return;
    std::vector<uint8_t> bytes;
    try {
        host_.runBusy("Exporting " + inQuotes(url->filename().string()) + "\u2026",
                      [&] { bytes = StudioPSD::write(*session->doc); });
    } catch (const std::exception& e) {
        show("Couldn't export the PSD", e.what());
        return;
    }
    if (!writeFile(*url, bytes, "Couldn't export the PSD")) return;
    setStatus("Exported " + url->filename().string());
}

void StudioModel::exportPicture(const PhotoExportOptions& options) {
    auto* session = current();
    if (!session) return;
    const std::string extension = exportExtension(options.format);
    const auto url =
        host_.savePanel({"", session->name + "." + extension, extension, dialogFolder(), "Export"});
    if (!url) return;
    noteFolder(*url);
    std::vector<uint8_t> bytes;
    try {
        bytes = PhotoExport::data(*session->doc, options);
    } catch (const std::exception& e) {
        show("Couldn't export", e.what());
        return;
    }
    if (!writeFile(*url, bytes, "Couldn't export")) return;
    const auto size = PhotoExport::outputSize(*session->doc, options);
    setStatus("Exported " + url->filename().string() + " (" + std::to_string(size.width) + " \u00D7 " +
              std::to_string(size.height) + " px)");
}

void StudioModel::close(std::optional<Uuid> id) {
    if (!id) id = currentID;
    if (!id) return;
    auto it = std::find_if(sessions.begin(), sessions.end(), [&](const auto& s) { return s->id == *id; });
    if (it == sessions.end()) return;
    DocSessionPtr session = *it;
    if (session->isDirty()) {
        const int choice =
            host_.runAlert("Save changes to " + inQuotes(session->name) + "?",
                           "If you don't save, your changes are lost.", {"Save", "Cancel", "Don't Save"});
        if (choice == 0) {
            setCurrentID(session->id);
            save(false);
            if (session->doc->changeCount() != session->savedChange) return;
        } else if (choice != 2) {
            return;
        }
    }
    Recovery::discard(session->id, false);
    std::erase(sessions, session);
    setCurrentID(sessions.empty() ? std::nullopt : std::optional(sessions.back()->id));
}

bool StudioModel::shouldQuit() {
    const auto copy = sessions;
    for (const auto& session : copy) {
        if (!session->isDirty()) continue;
        setCurrentID(session->id);
        close(session->id);
        if (std::find(sessions.begin(), sessions.end(), session) != sessions.end()) return false;
    }
    return true;
}

void StudioModel::loadToolSettings() {
    // Stored entries overlay their defaults field by field: a field whose
    // value has another type than its default's is skipped, and the rest of
    // the entry is still taken. Text that can't be read changes nothing.
    auto sameKind = [](const nlohmann::json& a, const nlohmann::json& b) {
        return (a.is_number() && b.is_number()) || a.type() == b.type();
    };
    auto overlay = [&](const char* key, std::map<std::string, nlohmann::json>& into) {
        const auto stored = host_.setting(key);
        if (!stored) return;
        const auto j = nlohmann::json::parse(*stored, nullptr, false);
        if (!j.is_object()) return;
        for (const auto& [name, value] : j.items()) {
            auto entry = into.find(name);
            if (entry == into.end() || !value.is_object()) continue;
            for (const auto& [field, v] : value.items()) {
                const auto known = entry->second.find(field);
                if (known == entry->second.end() || sameKind(*known, v)) entry->second[field] = v;
            }
        }
    };
    overlay("korv.pe.brushes", brushes);
    overlay("korv.pe.retouch", retouch);
    // A record that can't be read whole keeps its default.
    auto record = [&](const char* key, auto& into) {
        const auto stored = host_.setting(key);
        if (!stored) return;
        const auto j = nlohmann::json::parse(*stored, nullptr, false);
        if (!j.is_object()) return;
        try {
            into = j.get<std::decay_t<decltype(into)>>();
        } catch (const nlohmann::json::exception&) {
        }
    };
    record("korv.pe.shapeSpec", shapeSpec);
    record("korv.pe.textSpec", textSpec);
    if (const auto stored = host_.setting("korv.pe.tool"))
        if (const auto t = toolFromString(*stored)) tool = *t;
}

void StudioModel::saveToolSettings() {
    host_.setSetting("korv.pe.brushes", nlohmann::json(brushes).dump());
    host_.setSetting("korv.pe.retouch", nlohmann::json(retouch).dump());
    host_.setSetting("korv.pe.shapeSpec", nlohmann::json(shapeSpec).dump());
    host_.setSetting("korv.pe.textSpec", nlohmann::json(textSpec).dump());
    host_.setSetting("korv.pe.tool", std::string(toString(tool)));
}

void StudioModel::startAutosave(double tickSeconds) {
    autosaveTimer_.reset();
    // The timer dies with the model, so the tick never reaches a destroyed one.
    autosaveTimer_ = host_.startRepeatingTimer(tickSeconds, [this] { autosaveTick(false); });
    if (!pendingRecovery().empty()) setSheet(Sheet{Sheet::Kind::recovery, ""});
}

void StudioModel::autosaveTick(bool force) {
    const auto now = host_.now();
    for (const auto& session : sessions) {
        const int64_t change = session->doc->changeCount();
        if (change == session->savedChange || change == session->autosavedChange) continue;
        if (!force && session->lastAutosave != std::chrono::system_clock::time_point::min() &&
            std::chrono::duration<double>(now - session->lastAutosave).count() < prefs.autosaveSeconds)
            continue;
        if (canvas && canvas->isBusy()) continue;
        Recovery::write(*session, false, now, [&host = host_](const std::string& line) { host.log(line); });
    }
}

std::vector<Recovery::Item> StudioModel::pendingRecovery() const {
    std::set<Uuid> open;
    for (const auto& s : sessions)
        open.insert(s->id);
    return Recovery::pending(open);
}

bool StudioModel::recover(const Recovery::Item& item) {
    try {
        add(Recovery::restore(item));
        return true;
    } catch (const std::exception& e) {
        show("Can't recover " + inQuotes(item.info.name), e.what());
        return false;
    }
}

} // namespace korv
