#include "app/model/Recovery.h"

#include "app/model/AppFolders.h"
#include "app/model/SerialQueue.h"
#include "app/model/Trash.h"
#include "engine/formats/AtomicFile.h"
#include "engine/formats/StudioFile.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <nlohmann/json.hpp>

namespace korv {

std::string isoDate(std::chrono::system_clock::time_point t) {
    const std::time_t secs = std::chrono::system_clock::to_time_t(t);
    std::tm utc{};
    gmtime_r(&secs, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::optional<std::chrono::system_clock::time_point> parseIsoDate(const std::string& text) {
    std::tm utc{};
    char zone = 0;
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c%n", &utc.tm_year, &utc.tm_mon, &utc.tm_mday,
                    &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &zone, &consumed) != 7 ||
        zone != 'Z' || size_t(consumed) != text.size())
        return std::nullopt;
    utc.tm_year -= 1900;
    utc.tm_mon -= 1;
    return std::chrono::system_clock::from_time_t(timegm(&utc));
}

namespace Recovery {
namespace {

SerialQueue& queue() {
    static SerialQueue q;
    return q;
}

std::optional<std::vector<uint8_t>> readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

} // namespace

void to_json(nlohmann::json& j, const Info& info) {
    j = nlohmann::json{{"name", info.name},
                       {"date", isoDate(info.date)},
                       {"width", info.width},
                       {"height", info.height},
                       {"layers", info.layers}};
    if (info.originalPath) j["originalPath"] = *info.originalPath;
}

void from_json(const nlohmann::json& j, Info& info) {
    info.name = j.at("name").get<std::string>();
    info.originalPath.reset();
    if (auto it = j.find("originalPath"); it != j.end() && !it->is_null())
        info.originalPath = it->get<std::string>();
    const auto date = parseIsoDate(j.at("date").get<std::string>());
    if (!date) throw std::invalid_argument("bad date");
    info.date = *date;
    info.width = j.at("width").get<int64_t>();
    info.height = j.at("height").get<int64_t>();
    info.layers = j.at("layers").get<int64_t>();
}

std::filesystem::path fileURL(const Uuid& id) {
    return AppFolders::autosave() / (id.toString() + "." + std::string(StudioFile::fileExtension));
}

std::filesystem::path infoURL(const Uuid& id) {
    return AppFolders::autosave() / (id.toString() + ".json");
}

RGBABufferPtr Item::thumbnail() const {
    const auto bytes = readBytes(file);
    return bytes ? StudioFile::thumbnail(*bytes) : nullptr;
}

void write(DocSession& session, bool synchronously, std::chrono::system_clock::time_point now, LogSink log) {
    const StudioDocument& doc = *session.doc;
    auto snapshot = std::make_shared<StudioFile::Snapshot>(StudioFile::snapshot(doc, true));
    Info info;
    info.name = session.name;
    if (session.fileURL) info.originalPath = session.fileURL->string();
    info.date = now;
    info.width = doc.width();
    info.height = doc.height();
    info.layers = int64_t(doc.allLayers().size());
    session.autosavedChange = doc.changeCount();
    session.lastAutosave = now;

    auto work = [snapshot, info, id = session.id, log = std::move(log)] {
        try {
            const auto bytes = StudioFile::encode(*snapshot);
            writeFileAtomically(fileURL(id).string(), bytes);
            // A name that is not valid UTF-8 still gets its description, with the
            // broken bytes replaced.
            const std::string text = nlohmann::json(info).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
            writeFileAtomically(infoURL(id).string(),
                                std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
        } catch (const std::exception& e) {
            if (log) log(std::string("KORV Lumenary autosave failed: ") + e.what());
        }
    };
    if (synchronously)
        queue().sync(std::move(work));
    else
        queue().async(std::move(work));
}

std::vector<Item> pending(const std::set<Uuid>& excluding) {
    std::vector<Item> items;
    std::error_code ec;
    const auto folder = AppFolders::autosave();
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        const auto& path = it->path();
        if (path.extension() != "." + std::string(StudioFile::fileExtension)) continue;
        const auto id = Uuid::parse(path.stem().string());
        if (!id || excluding.count(*id)) continue;
        const auto text = readBytes(infoURL(*id));
        if (!text) continue;
        try {
            Item item{*id, nlohmann::json::parse(text->begin(), text->end()).get<Info>(), path};
            items.push_back(std::move(item));
        } catch (const std::exception&) {
            // A copy without a readable description stays on disk but isn't offered.
        }
    }
    std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
        return a.info.date != b.info.date ? a.info.date < b.info.date : a.id < b.id;
    });
    return items;
}

DocSessionPtr restore(const Item& item) {
    const auto bytes = readBytes(item.file);
    if (!bytes) throw StudioFileError::damaged("file");
    auto doc = StudioFile::decode(*bytes);
    return std::make_shared<DocSession>(std::move(doc), item.info.name + " (recovered)", std::nullopt, true,
                                        item.id);
}

bool discard(const Uuid& id, bool moveToTrash) {
    bool done = true;
    queue().sync([&] {
        // The work itself first: a copy whose file the trash refuses keeps its
        // description, so it is still offered.
        for (const auto& path : {fileURL(id), infoURL(id)}) {
            std::error_code ec;
            if (!std::filesystem::exists(path, ec)) continue;
            if (!moveToTrash) {
                std::filesystem::remove(path, ec);
            } else if (!Trash::moveToTrash(path)) {
                done = false;
                return;
            }
        }
    });
    return done;
}

int64_t removeLeftovers() {
    // The atomic writer's temporaries are ".<name>.XXXXXX" beside their target;
    // one still there at start was cut off by a crash.
    int64_t removed = 0;
    queue().sync([&] {
        std::error_code ec;
        for (std::filesystem::directory_iterator it(AppFolders::autosave(), ec), end; !ec && it != end;
             it.increment(ec)) {
            const std::string name = it->path().filename().string();
            const bool temporary = name.size() > 1 && name[0] == '.' &&
                                   (name.find(".korvstudio.") != std::string::npos ||
                                    name.find(".json.") != std::string::npos);
            std::error_code removeError;
            if (temporary && it->is_regular_file(removeError) && std::filesystem::remove(it->path(), removeError))
                ++removed;
        }
    });
    return removed;
}

void waitForWrites() {
    queue().sync([] {});
}

} // namespace Recovery
} // namespace korv
