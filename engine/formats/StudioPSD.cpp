#include "engine/formats/StudioPSD.h"

#include "engine/document/RecordCoding.h"
#include "engine/formats/PSDFile.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <unordered_set>

namespace korv::StudioPSD {

void to_json(nlohmann::json& j, const Extra& e) {
    j = nlohmann::json::object();
    j["id"] = e.id.toString();
    j["kind"] = std::string(toString(e.kind));
    j["opacity"] = e.opacity;
    j["fill"] = e.fill;
    j["locked"] = e.locked;
    j["maskEnabled"] = e.maskEnabled;
    j["expanded"] = e.expanded;
    if (e.adjustment) j["adjustment"] = *e.adjustment;
    if (e.fillSpec) j["fillSpec"] = *e.fillSpec;
    if (e.text) j["text"] = *e.text;
    if (e.shape) j["shape"] = *e.shape;
    j["effects"] = e.effects;
}

void from_json(const nlohmann::json& j, Extra& e) {
    Extra out;
    const auto id = Uuid::parse(j.at("id").get<std::string>());
    const auto kind = layerKindFromString(j.at("kind").get<std::string>());
    if (!id || !kind) throw std::invalid_argument("bad private block");
    out.id = *id;
    out.kind = *kind;
    j.at("opacity").get_to(out.opacity);
    j.at("fill").get_to(out.fill);
    j.at("locked").get_to(out.locked);
    j.at("maskEnabled").get_to(out.maskEnabled);
    j.at("expanded").get_to(out.expanded);
    if (j.contains("adjustment")) out.adjustment = j.at("adjustment").get<AdjustmentSpec>();
    if (j.contains("fillSpec")) out.fillSpec = j.at("fillSpec").get<FillSpec>();
    if (j.contains("text")) out.text = j.at("text").get<TextSpec>();
    if (j.contains("shape")) out.shape = j.at("shape").get<ShapeSpec>();
    j.at("effects").get_to(out.effects);
    if (!std::isfinite(out.opacity) || !std::isfinite(out.fill)) throw std::invalid_argument("bad opacity");
    e = std::move(out);
}

namespace {

using PSDFile::OutRec;

uint8_t byteOf(double v) {
    return uint8_t(std::lround(std::clamp(v, 0.0, 1.0) * 255));
}

Extra extraOf(const StudioLayer& l) {
    Extra e;
    e.id = l.id;
    e.kind = l.kind;
    e.opacity = l.opacity;
    e.fill = l.fillOpacity;
    e.locked = l.isLocked;
    e.maskEnabled = l.maskEnabled;
    e.expanded = l.isExpanded;
    e.adjustment = l.adjustment;
    e.fillSpec = l.fill;
    e.text = l.text;
    e.shape = l.shape;
    e.effects = l.effects;
    return e;
}

// The mask as other programs read it: grey over the whole canvas, white where it shows.
std::vector<uint8_t> maskChannel(const TileSet& mask) {
    const TileGrid& grid = mask.grid;
    std::vector<uint8_t> plane(size_t(grid.width * grid.height), 255);
    for (int64_t i = 0; i < grid.count(); ++i) {
        const Tile* t = mask.tile(i);
        if (!t) continue;
        const IRect r = grid.rect(i);
        for (int64_t y = 0; y < r.h; ++y) {
            const uint8_t* src = t->row(y);
            uint8_t* dst = plane.data() + (r.y + y) * grid.width + r.x;
            for (int64_t x = 0; x < r.w; ++x)
                dst[x] = uint8_t(255 - src[x * 4 + 3]);
        }
    }
    return PSDFile::packedChannel(plane.data(), grid.width, grid.height);
}

OutRec record(const StudioLayer& l, const StudioDocument& doc, bool groupEnd) {
    OutRec rec;
    rec.name = l.name;
    rec.key = std::string(psdKey(l.blendMode));
    rec.opacity = byteOf(l.opacity);
    rec.clip = l.isClipping ? 1 : 0;
    rec.flags = l.isVisible ? 0 : 2;
    if (l.fillOpacity < 1) rec.fill = byteOf(l.fillOpacity);
    rec.privateData = nlohmann::json(extraOf(l)).dump();
    rec.channels = PSDFile::emptyChannels();
    if (groupEnd) {
        rec.lsct = l.isExpanded ? 1 : 2;
    } else if (!l.isAdjustment()) {
        if (const auto raster = StudioRenderer::contentRaster(l, doc.grid, doc.cache())) {
            if (const auto bounds = raster->contentBounds()) {
                rec.rect = *bounds;
                rec.channels = PSDFile::channels(*raster->region(*bounds));
            }
        }
    }
    if (l.mask) {
        rec.mask = true;
        rec.maskEnabled = l.maskEnabled;
        rec.channels.emplace_back(PSDFile::kUserMask, maskChannel(*l.mask));
    }
    return rec;
}

void walk(const std::vector<StudioLayer>& layers, const StudioDocument& doc, std::vector<OutRec>& out) {
    for (const auto& l : layers) {
        if (!l.isGroup()) {
            out.push_back(record(l, doc, false));
            continue;
        }
        OutRec divider;
        divider.name = "</Layer group>";
        divider.lsct = 3;
        divider.channels = PSDFile::emptyChannels();
        out.push_back(std::move(divider));
        walk(l.children, doc, out);
        out.push_back(record(l, doc, true));
    }
}

std::optional<Extra> decodeExtra(const std::optional<std::string>& data) {
    if (!data) return std::nullopt;
    const auto j = nlohmann::json::parse(*data, nullptr, false);
    if (j.is_discarded() || !j.is_object()) return std::nullopt;
    return decoded<Extra>(j);
}

std::optional<TileSet> buildMask(const PSDFile::Rec& rec, const TileGrid& grid) {
    const bool declared = std::any_of(rec.chans.begin(), rec.chans.end(),
                                      [](const auto& c) { return c.first == PSDFile::kUserMask; });
    if (!declared || !rec.hasMaskData) return std::nullopt;
    TileSet mask(grid);
    const uint8_t outside = uint8_t(255 - rec.maskDefault);
    if (outside != 0) {
        // One shared frozen tile stands for the whole default area; writes copy it.
        auto tile = std::make_shared<Tile>();
        std::fill(tile->pixels(), tile->pixels() + kTileBytes, outside);
        tile->freeze();
        mask.ensureCells();
        for (auto& t : mask.tiles)
            t = tile;
    }
    const auto it = rec.planes.find(PSDFile::kUserMask);
    const IRect clip = rec.maskRect.intersection(grid.bounds());
    if (it != rec.planes.end() && !clip.isEmpty()) {
        RGBABuffer buffer(clip.w, clip.h, RGBABuffer::Uninitialized{});
        for (int64_t y = 0; y < clip.h; ++y) {
            const uint8_t* src = it->second.data() + (clip.y - rec.maskRect.y + y) * rec.maskRect.w +
                                 (clip.x - rec.maskRect.x);
            uint8_t* dst = buffer.row(y);
            for (int64_t x = 0; x < clip.w; ++x)
                std::fill(dst + x * 4, dst + x * 4 + 4, uint8_t(255 - src[x]));
        }
        mask.write(buffer, clip);
    }
    return mask;
}

struct Builder {
    const PSDFile::Layout& layout;
    TileGrid grid;
    std::unordered_set<Uuid> ids;

    StudioLayer build(const PSDFile::Rec& rec, std::optional<StudioLayerKind> kindOverride) {
        const std::optional<Extra> extra = decodeExtra(rec.privateData);
        StudioLayer l;
        l.kind = kindOverride ? *kindOverride : extra ? extra->kind : StudioLayerKind::pixel;
        // A layer whose parameters did not arrive can only keep its pixels.
        const bool specMissing = extra && ((l.kind == StudioLayerKind::adjustment && !extra->adjustment) ||
                                           (l.kind == StudioLayerKind::fill && !extra->fillSpec) ||
                                           (l.kind == StudioLayerKind::text && !extra->text) ||
                                           (l.kind == StudioLayerKind::shape && !extra->shape));
        if (specMissing || (!kindOverride && l.kind == StudioLayerKind::group))
            l.kind = StudioLayerKind::pixel;
        l.id = extra && !ids.count(extra->id) ? extra->id : Uuid::random();
        ids.insert(l.id);
        l.name = rec.name.empty() ? "Layer" : rec.name;
        l.opacity = extra ? extra->opacity : rec.opacity / 255.0;
        l.fillOpacity = extra ? extra->fill : rec.fill ? *rec.fill / 255.0 : 1.0;
        l.blendMode = blendModeFromPSD(rec.key);
        l.isClipping = rec.clip != 0;
        l.isVisible = (rec.flags & 2) == 0;
        l.isLocked = extra ? extra->locked : false;
        l.isExpanded = extra ? extra->expanded : rec.lsct != 2;
        if (extra) {
            l.adjustment = extra->adjustment;
            l.fill = extra->fillSpec;
            l.text = extra->text;
            l.shape = extra->shape;
            l.effects = extra->effects;
        }
        if (l.kind == StudioLayerKind::pixel) {
            l.pixels = TileSet(grid);
            if (const auto px = PSDFile::pixels(rec, layout.width, layout.height))
                l.pixels->write(*px->first, px->second);
        }
        l.mask = buildMask(rec, grid);
        l.maskEnabled = extra ? extra->maskEnabled : (rec.maskFlags & 2) == 0;
        return l;
    }
};

} // namespace

std::vector<uint8_t> write(const StudioDocument& doc) {
    std::vector<OutRec> records;
    walk(doc.layers, doc, records);
    const RGBABufferPtr merged = StudioRenderer::flatten(doc);
    return PSDFile::assemble(doc.width(), doc.height(), doc.dpi, records, *merged);
}

std::unique_ptr<StudioDocument> read(std::span<const uint8_t> bytes) {
    PSDFile::Layout layout = PSDFile::parse(bytes, false);
    if (layout.records.empty()) layout = PSDFile::parse(bytes, true);
    Builder b{layout, TileGrid(layout.width, layout.height), {}};
    std::vector<std::vector<StudioLayer>> levels(1);
    for (const auto& rec : layout.records) {
        if (rec.lsct == 3) {
            levels.emplace_back();
        } else if (rec.lsct == 1 || rec.lsct == 2) {
            std::vector<StudioLayer> children;
            if (levels.size() > 1) {
                children = std::move(levels.back());
                levels.pop_back();
            }
            StudioLayer group = b.build(rec, StudioLayerKind::group);
            group.children = std::move(children);
            levels.back().push_back(std::move(group));
        } else {
            levels.back().push_back(b.build(rec, std::nullopt));
        }
    }
    // A group opened and never closed gives its layers to the level around it.
    while (levels.size() > 1) {
        auto open = std::move(levels.back());
        levels.pop_back();
        for (auto& l : open)
            levels.back().push_back(std::move(l));
    }
    if (layout.records.empty() && layout.merged) {
        StudioLayer background = StudioLayer::pixelLayer("Background", b.grid);
        background.pixels->load(*layout.merged);
        levels[0].push_back(std::move(background));
    }
    return std::make_unique<StudioDocument>(layout.width, layout.height, layout.dpi, std::move(levels[0]));
}

} // namespace korv::StudioPSD
