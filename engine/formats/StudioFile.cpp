#include "engine/formats/StudioFile.h"

#include "engine/core/ParallelFor.h"
#include "engine/core/Require.h"
#include "engine/document/StudioDocument.h"
#include "engine/formats/ImageExport.h"
#include "engine/formats/ImageImport.h"
#include "engine/render/StudioRenderer.h"
#include "lzfse/Lzfse.h"

#include <algorithm>
#include <cstdio>
#include <unordered_set>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <thread>
#include <unistd.h>

namespace korv {

namespace {
constexpr const char* kDamagedPrefix = "The KORV Lumenary document is damaged (";
constexpr const char* kDamagedSuffix = "). Try File \u2192 Recover Autosaved Work.";
} // namespace

StudioFileError StudioFileError::damaged(std::string detail) {
    std::string message = kDamagedPrefix + detail + kDamagedSuffix;
    return {Kind::damaged, std::move(detail), message};
}
StudioFileError StudioFileError::notStudioFile() {
    return {Kind::notStudioFile, "", "This file is not an KORV Lumenary document."};
}
StudioFileError StudioFileError::outOfMemory(double gigabytes) {
    char amount[32];
    std::snprintf(amount, sizeof amount, "%.1f", gigabytes);
    return {Kind::outOfMemory, "",
            std::string("This KORV Lumenary document needs more memory than this computer has (") + amount +
                " GB for its pixels)."};
}
StudioFileError StudioFileError::tooLarge() {
    return {Kind::tooLarge, "", "This picture is larger than KORV Lumenary can open (30,000 \u00D7 30,000 pixels)."};
}

namespace StudioFile {

namespace {

using json = nlohmann::json;

constexpr size_t kPrefixBytes = 12;
constexpr size_t kWorkBytes = 0x41000;
constexpr int64_t kMaxPreviewSide = 320;
// Groups nest at most this deep in a file we open; deeper is a damaged (or
// hostile) manifest, and refusing it keeps the recursive readers off the stack's edge.
constexpr int kMaxDepth = 200;
constexpr const char* kApp = "KORV Lumenary by Quillmere (KORV), engine 1";

// Where a decoded tile goes: a cell of a layer's pixels or mask.
struct TileTask {
    TileSet* set;
    TileEntry entry;
};

struct CellHash {
    size_t operator()(const std::pair<const TileSet*, int64_t>& c) const {
        return std::hash<const void*>()(c.first) ^ (std::hash<int64_t>()(c.second) * 0x9E3779B97F4A7C15ull);
    }
};

[[noreturn]] void damagedManifest() { throw StudioFileError::damaged("manifest"); }

// Integers must be stored as integers: a float or an out-of-range number is
// not silently cast.
int64_t readInt(const json& j, const char* key) {
    const json& v = j.at(key);
    if (v.is_number_integer() && !v.is_number_unsigned()) return v.get<int64_t>();
    if (v.is_number_unsigned() && v.get<uint64_t>() <= uint64_t(INT64_MAX)) return int64_t(v.get<uint64_t>());
    damagedManifest();
}
double readDouble(const json& j, const char* key) {
    const json& v = j.at(key);
    if (!v.is_number()) damagedManifest();
    return v.get<double>();
}
bool readBool(const json& j, const char* key) {
    const json& v = j.at(key);
    if (!v.is_boolean()) damagedManifest();
    return v.get<bool>();
}
const std::string& readString(const json& j, const char* key) {
    const json& v = j.at(key);
    if (!v.is_string()) damagedManifest();
    return v.get_ref<const std::string&>();
}
Uuid readUuid(const json& v) {
    if (!v.is_string()) damagedManifest();
    auto id = Uuid::parse(v.get_ref<const std::string&>());
    if (!id) damagedManifest();
    return *id;
}
template <class T>
T readRecord(const json& v) {
    T out;
    from_json(v, out); // throws on a missing key or a wrong value
    return out;
}

TileEntry readTileEntry(const json& v) {
    if (!v.is_object()) damagedManifest();
    return {readInt(v, "i"), readInt(v, "o"), readInt(v, "n"), readInt(v, "c")};
}

std::vector<TileEntry> readTileEntries(const json& v) {
    if (!v.is_array()) damagedManifest();
    std::vector<TileEntry> out;
    out.reserve(v.size());
    for (const json& e : v) out.push_back(readTileEntry(e));
    return out;
}

bool validIsoDate(const std::string& s) {
    // yyyy-MM-ddTHH:mm:ss, optional fraction, then Z or +hh:mm / -hh:mm.
    auto digits = [&](size_t at, size_t n) {
        if (at + n > s.size()) return false;
        for (size_t k = at; k < at + n; ++k)
            if (s[k] < '0' || s[k] > '9') return false;
        return true;
    };
    if (!digits(0, 4) || s.size() < 20 || s[4] != '-' || !digits(5, 2) || s[7] != '-' || !digits(8, 2) ||
        s[10] != 'T' || !digits(11, 2) || s[13] != ':' || !digits(14, 2) || s[16] != ':' || !digits(17, 2))
        return false;
    size_t p = 19;
    if (p < s.size() && s[p] == '.') {
        ++p;
        size_t start = p;
        while (p < s.size() && s[p] >= '0' && s[p] <= '9') ++p;
        if (p == start) return false;
    }
    if (p < s.size() && s[p] == 'Z') return p + 1 == s.size();
    return p + 6 == s.size() && (s[p] == '+' || s[p] == '-') && digits(p + 1, 2) && s[p + 3] == ':' &&
           digits(p + 4, 2);
}

std::string isoNow() {
    const std::time_t t = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

// One layer entry with its tile entries, as read from the manifest.
struct StoredLayer {
    StudioLayer layer; // records and settings; no tiles, no children
    std::optional<std::vector<TileEntry>> pixels;
    std::optional<std::vector<TileEntry>> mask;
    std::vector<StoredLayer> children;
};

StoredLayer readLayer(const json& v, int depth) {
    if (!v.is_object() || depth > kMaxDepth) damagedManifest();
    StoredLayer s;
    StudioLayer& l = s.layer;
    l.id = readUuid(v.at("id"));
    l.name = readString(v, "name");
    l.kind = layerKindFromString(readString(v, "kind")).value_or(StudioLayerKind::pixel);
    l.opacity = std::clamp(readDouble(v, "opacity"), 0.0, 1.0);
    l.fillOpacity = std::clamp(readDouble(v, "fill"), 0.0, 1.0);
    l.blendMode = blendModeFromString(readString(v, "blend")).value_or(BlendMode::normal);
    l.isVisible = readBool(v, "visible");
    l.isLocked = readBool(v, "locked");
    l.isClipping = readBool(v, "clipping");
    l.maskEnabled = readBool(v, "maskEnabled");
    l.isExpanded = readBool(v, "expanded");
    if (auto it = v.find("pixels"); it != v.end()) s.pixels = readTileEntries(*it);
    if (auto it = v.find("mask"); it != v.end()) s.mask = readTileEntries(*it);
    if (auto it = v.find("adjustment"); it != v.end()) l.adjustment = readRecord<AdjustmentSpec>(*it);
    if (auto it = v.find("fillSpec"); it != v.end()) l.fill = readRecord<FillSpec>(*it);
    if (auto it = v.find("text"); it != v.end()) l.text = readRecord<TextSpec>(*it);
    if (auto it = v.find("shape"); it != v.end()) l.shape = readRecord<ShapeSpec>(*it);
    l.effects = readRecord<EffectsSpec>(v.at("effects"));
    const json& children = v.at("children");
    if (!children.is_array()) damagedManifest();
    for (const json& c : children) s.children.push_back(readLayer(c, depth + 1));
    return s;
}

struct ParsedManifest {
    Manifest manifest;
    std::vector<StoredLayer> stored;
    size_t areaStart = 0;
};

ParsedManifest parseManifest(std::span<const uint8_t> bytes) {
    if (bytes.size() < kPrefixBytes || !std::equal(magic.begin(), magic.end(), bytes.begin()))
        throw StudioFileError::notStudioFile();
    const uint64_t m =
        uint64_t(bytes[8]) | uint64_t(bytes[9]) << 8 | uint64_t(bytes[10]) << 16 | uint64_t(bytes[11]) << 24;
    if (m == 0 || bytes.size() - kPrefixBytes < m) throw StudioFileError::damaged("manifest size");
    ParsedManifest out;
    out.areaStart = kPrefixBytes + size_t(m);
    try {
        const json j = json::parse(bytes.begin() + kPrefixBytes, bytes.begin() + std::ptrdiff_t(out.areaStart));
        if (!j.is_object()) damagedManifest();
        Manifest& man = out.manifest;
        man.format = readString(j, "format");
        man.formatVersion = readInt(j, "formatVersion");
        man.app = readString(j, "app");
        man.width = readInt(j, "width");
        man.height = readInt(j, "height");
        man.dpi = readDouble(j, "dpi");
        if (auto it = j.find("active"); it != j.end()) man.active = readUuid(*it);
        const json& layers = j.at("layers");
        if (!layers.is_array()) damagedManifest();
        for (const json& l : layers) out.stored.push_back(readLayer(l, 0));
        if (auto it = j.find("thumbnail"); it != j.end()) man.thumbnail = readTileEntry(*it);
        if (auto it = j.find("saved"); it != j.end()) {
            if (!it->is_string() || !validIsoDate(it->get_ref<const std::string&>())) damagedManifest();
            man.saved = it->get<std::string>();
        }
    } catch (const StudioFileError&) {
        throw;
    } catch (const std::exception&) {
        damagedManifest();
    }
    return out;
}

// Layers of the manifest without their tiles, for callers that only look.
std::vector<StudioLayer> treeOf(const std::vector<StoredLayer>& stored) {
    std::vector<StudioLayer> out;
    for (const StoredLayer& s : stored) {
        StudioLayer l = s.layer;
        l.children = treeOf(s.children);
        out.push_back(std::move(l));
    }
    return out;
}

// Builds the layers with empty tile sets and lists every tile to decode, in
// file order.
std::vector<StudioLayer> buildLayers(const std::vector<StoredLayer>& stored, const TileGrid& grid) {
    std::vector<StudioLayer> out;
    out.reserve(stored.size());
    for (const StoredLayer& s : stored) {
        StudioLayer l = s.layer;
        if (s.pixels || l.kind == StudioLayerKind::pixel) l.pixels = TileSet(grid);
        if (s.mask) l.mask = TileSet(grid);
        l.children = buildLayers(s.children, grid);
        out.push_back(std::move(l));
    }
    return out;
}

void collectTasks(const std::vector<StoredLayer>& stored, std::vector<StudioLayer>& built,
                  std::vector<TileTask>& tasks) {
    for (size_t k = 0; k < stored.size(); ++k) {
        if (stored[k].pixels)
            for (const TileEntry& e : *stored[k].pixels) tasks.push_back({&*built[k].pixels, e});
        if (stored[k].mask)
            for (const TileEntry& e : *stored[k].mask) tasks.push_back({&*built[k].mask, e});
        collectTasks(stored[k].children, built[k].children, tasks);
    }
}

std::string tileDetail(int64_t i, const char* what = "") { return "tile " + std::to_string(i) + what; }

uint64_t physicalMemory() {
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? uint64_t(pages) * uint64_t(size) : (uint64_t(8) << 30);
}

// --- encoding ---

// A tile to store, and what the compressor made of it.
struct Payload {
    const Tile* tile = nullptr;
    int64_t index = 0;
    bool empty = false;
    std::vector<uint8_t> compressed; // empty: store raw
};

void listTiles(const std::optional<TileSet>& set, std::vector<Payload>& out) {
    if (!set) return;
    for (int64_t i = 0; i < int64_t(set->tiles.size()); ++i)
        if (const Tile* t = set->tiles[size_t(i)].get()) out.push_back({t, i, false, {}});
}

void listLayerTiles(const std::vector<StudioLayer>& layers, std::vector<Payload>& out) {
    for (const StudioLayer& l : layers) {
        listTiles(l.pixels, out);
        listTiles(l.mask, out);
        listLayerTiles(l.children, out);
    }
}

// Compresses in parallel; every chunk of work has its own buffers, and the
// result of each tile depends on the tile alone, so the bytes equal a serial run.
void compressAll(std::vector<Payload>& payloads) {
    const int64_t count = int64_t(payloads.size());
    const int64_t chunks = std::min<int64_t>(count, int64_t(std::max(1u, std::thread::hardware_concurrency())) * 4);
    parallelFor(chunks, [&](int64_t chunk) {
        std::vector<uint8_t> work(kWorkBytes);
        std::vector<uint8_t> scratch(lzfse::encodeScratchSize());
        for (int64_t k = chunk; k < count; k += chunks) {
            Payload& p = payloads[size_t(k)];
            if (p.tile->isEmpty()) {
                p.empty = true;
                continue;
            }
            const size_t n = lzfse::encode(work.data(), kWorkBytes, p.tile->pixels(), size_t(kTileBytes),
                                           scratch.data());
            if (n >= 1 && n < size_t(kTileBytes)) p.compressed.assign(work.begin(), work.begin() + std::ptrdiff_t(n));
        }
    });
}

struct Writer {
    std::vector<Payload>& payloads;
    size_t next = 0;
    std::vector<uint8_t> area;

    json storeSet(const std::optional<TileSet>& set) {
        json entries = json::array();
        if (!set) return entries;
        for (const TilePtr& t : set->tiles) {
            if (!t) continue;
            Payload& p = payloads[next++];
            if (p.empty) continue;
            const int64_t offset = int64_t(area.size());
            if (!p.compressed.empty()) {
                area.insert(area.end(), p.compressed.begin(), p.compressed.end());
                entries.push_back({{"i", p.index}, {"o", offset}, {"n", int64_t(p.compressed.size())}, {"c", 1}});
                std::vector<uint8_t>().swap(p.compressed);
            } else {
                area.insert(area.end(), p.tile->pixels(), p.tile->pixels() + kTileBytes);
                entries.push_back({{"i", p.index}, {"o", offset}, {"n", kTileBytes}, {"c", 0}});
            }
        }
        return entries;
    }

    json layerEntry(const StudioLayer& l) {
        json j = {{"id", l.id.toString()},
                  {"name", l.name},
                  {"kind", std::string(toString(l.kind))},
                  {"opacity", l.opacity},
                  {"fill", l.fillOpacity},
                  {"blend", std::string(toString(l.blendMode))},
                  {"visible", l.isVisible},
                  {"locked", l.isLocked},
                  {"clipping", l.isClipping},
                  {"maskEnabled", l.maskEnabled},
                  {"expanded", l.isExpanded}};
        if (l.pixels) j["pixels"] = storeSet(l.pixels);
        if (l.mask) j["mask"] = storeSet(l.mask);
        if (l.adjustment) j["adjustment"] = *l.adjustment;
        if (l.fill) j["fillSpec"] = *l.fill;
        if (l.text) j["text"] = *l.text;
        if (l.shape) j["shape"] = *l.shape;
        j["effects"] = l.effects;
        json children = json::array();
        for (const StudioLayer& c : l.children) children.push_back(layerEntry(c));
        j["children"] = std::move(children);
        return j;
    }
};

} // namespace

bool isStudioFile(std::span<const uint8_t> bytes) noexcept {
    return bytes.size() >= magic.size() && std::equal(magic.begin(), magic.end(), bytes.begin());
}

Snapshot snapshot(const StudioDocument& doc, bool preview) {
    Snapshot s;
    s.width = doc.width();
    s.height = doc.height();
    s.dpi = doc.dpi;
    s.layers = doc.layers;
    // The copies share the document's tiles, so this freezes those: later
    // painting copies a tile first, and the encoder reads without a lock.
    for (StudioLayer& l : s.layers) l.freezeAll();
    s.active = doc.activeID;
    if (preview) s.preview = ImageExport::scaled(StudioRenderer::flatten(doc), kMaxPreviewSide);
    return s;
}

std::vector<uint8_t> encode(const StudioDocument& doc) { return encode(snapshot(doc, true)); }

std::vector<uint8_t> encode(const Snapshot& snap) {
    std::vector<Payload> payloads;
    listLayerTiles(snap.layers, payloads);
    compressAll(payloads);

    Writer writer{payloads};
    json layers = json::array();
    for (const StudioLayer& l : snap.layers) layers.push_back(writer.layerEntry(l));

    json j = {{"format", std::string(formatName)},
              {"formatVersion", 1},
              {"app", kApp},
              {"width", snap.width},
              {"height", snap.height},
              {"dpi", snap.dpi}};
    if (snap.active) j["active"] = snap.active->toString();
    j["layers"] = std::move(layers);
    j["saved"] = isoNow();
    if (snap.preview) {
        // A file without a preview is still a whole document.
        const std::optional<std::vector<uint8_t>> png = ImageExport::pngData(snap.preview, 72.0);
        if (png && !png->empty()) {
            j["thumbnail"] = {{"i", -1}, {"o", int64_t(writer.area.size())}, {"n", int64_t(png->size())}, {"c", 2}};
            writer.area.insert(writer.area.end(), png->begin(), png->end());
        }
    }
    const std::string text = j.dump();
    KORV_REQUIRE(text.size() < (uint64_t(1) << 32));
    std::vector<uint8_t> out;
    out.reserve(kPrefixBytes + text.size() + writer.area.size());
    out.insert(out.end(), magic.begin(), magic.end());
    const uint32_t m = uint32_t(text.size());
    for (int k = 0; k < 4; ++k) out.push_back(uint8_t(m >> (8 * k)));
    out.insert(out.end(), text.begin(), text.end());
    out.insert(out.end(), writer.area.begin(), writer.area.end());
    return out;
}

std::pair<Manifest, size_t> manifest(std::span<const uint8_t> bytes) {
    ParsedManifest p = parseManifest(bytes);
    p.manifest.layers = treeOf(p.stored);
    return {std::move(p.manifest), p.areaStart};
}

std::unique_ptr<StudioDocument> decode(std::span<const uint8_t> bytes) {
    ParsedManifest p = parseManifest(bytes);
    const Manifest& man = p.manifest;
    if (man.width < 1 || man.height < 1) throw StudioFileError::damaged("canvas size");
    if (man.width > kMaxCanvasSide || man.height > kMaxCanvasSide) throw StudioFileError::tooLarge();

    // Tile sets start without cells: a layer the file leaves empty costs nothing.
    const TileGrid grid(man.width, man.height);
    std::vector<StudioLayer> layers = buildLayers(p.stored, grid);
    std::vector<TileTask> tasks;
    collectTasks(p.stored, layers, tasks);

    // Range checks in file order; tiles after the first bad entry are never read.
    const uint64_t areaSize = bytes.size() - p.areaStart;
    size_t valid = 0;
    for (; valid < tasks.size(); ++valid) {
        const TileEntry& e = tasks[valid].entry;
        if (e.i < 0 || e.i >= grid.count() || e.o < 0 || e.n < 1 || uint64_t(e.o) > areaSize ||
            uint64_t(e.n) > areaSize - uint64_t(e.o))
            break;
    }

    // A later entry for the same cell replaces an earlier one, so only the
    // last valid one of each is decoded: repeated entries cost nothing.
    // `position` keeps each one's place in the file, so that the first fault
    // in file order is the one reported.
    std::vector<TileTask> work;
    std::vector<size_t> position;
    {
        std::unordered_set<std::pair<const TileSet*, int64_t>, CellHash> seen;
        seen.reserve(valid);
        for (size_t k = valid; k-- > 0;)
            if (seen.insert({tasks[k].set, tasks[k].entry.i}).second) {
                work.push_back(tasks[k]);
                position.push_back(k);
            }
        std::reverse(work.begin(), work.end());
        std::reverse(position.begin(), position.end());
    }
    // What the tiles will take: a file can't be opened in less.
    const uint64_t needed = uint64_t(work.size()) * uint64_t(kTileBytes);
    if (needed > physicalMemory()) throw StudioFileError::outOfMemory(double(needed) / 1e9);

    // Every tile decodes straight from the input into its own storage, in
    // parallel; each chunk of work has one decoder scratch buffer.
    const int64_t count = int64_t(work.size());
    std::vector<TilePtr> tiles(static_cast<size_t>(count));
    std::vector<uint8_t> failed(static_cast<size_t>(count), 0);
    const uint8_t* area = bytes.data() + p.areaStart;
    const int64_t chunks = std::min<int64_t>(count, int64_t(std::max(1u, std::thread::hardware_concurrency())) * 4);
    parallelFor(chunks, [&](int64_t chunk) {
        std::vector<uint8_t> scratch(lzfse::decodeScratchSize());
        for (int64_t k = chunk; k < count; k += chunks) {
            const TileEntry& e = work[size_t(k)].entry;
            auto tile = std::make_shared<Tile>(Tile::Uninitialized{});
            const uint8_t* src = area + e.o;
            if (e.c == 1) {
                if (lzfse::decode(tile->pixels(), size_t(kTileBytes), src, size_t(e.n), scratch.data()) !=
                    size_t(kTileBytes)) {
                    failed[size_t(k)] = 1;
                    continue;
                }
            } else if (e.n != kTileBytes) {
                failed[size_t(k)] = 2;
                continue;
            } else {
                std::memcpy(tile->pixels(), src, size_t(kTileBytes));
            }
            tiles[size_t(k)] = std::move(tile);
        }
    });
    for (size_t k = 0; k < size_t(count); ++k) {
        const int64_t i = work[k].entry.i;
        if (failed[k] && position[k] < valid) {
            throw StudioFileError::damaged(tileDetail(i, failed[k] == 1 ? " data" : " length"));
        }
        work[k].set->setTile(i, std::move(tiles[k]));
    }
    if (valid < tasks.size()) throw StudioFileError::damaged(tileDetail(tasks[valid].entry.i));

    const double dpi = man.dpi > 0 ? man.dpi : 72.0;
    std::optional<Uuid> active = man.active;
    return std::make_unique<StudioDocument>(man.width, man.height, dpi, std::move(layers), active);
}

std::optional<std::vector<uint8_t>> thumbnailData(std::span<const uint8_t> bytes) noexcept {
    try {
        ParsedManifest p = parseManifest(bytes);
        if (!p.manifest.thumbnail) return std::nullopt;
        const TileEntry& e = *p.manifest.thumbnail;
        const uint64_t areaSize = bytes.size() - p.areaStart;
        if (e.o < 0 || e.n < 0 || uint64_t(e.o) > areaSize || uint64_t(e.n) > areaSize - uint64_t(e.o))
            return std::nullopt;
        const uint8_t* start = bytes.data() + p.areaStart + e.o;
        return std::vector<uint8_t>(start, start + e.n);
    } catch (...) {
        return std::nullopt;
    }
}

RGBABufferPtr thumbnail(std::span<const uint8_t> bytes) noexcept {
    const auto png = thumbnailData(bytes);
    if (!png) return nullptr;
    try {
        auto decoded = ImageImport::decode(*png);
        return decoded ? decoded->image : nullptr;
    } catch (...) {
        return nullptr;
    }
}

} // namespace StudioFile
} // namespace korv
