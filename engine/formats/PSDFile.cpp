#include "engine/formats/PSDFile.h"

#include "engine/core/ParallelFor.h"
#include "engine/core/Require.h"
#include "engine/core/TileSet.h"
#include "engine/formats/BEWriter.h"
#include "engine/formats/StudioFile.h"
#include "engine/paint/PaintDocument.h"
#include "engine/render/RenderCache.h"
#include "engine/render/StudioRenderer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>

namespace korv {

PSDError PSDError::unsupported(const std::string& what) {
    return {Kind::unsupported, what,
            "This Photoshop file uses a feature KORV Paint can't read (" + what + ")."};
}

PSDError PSDError::damaged(const std::string& detail) {
    return {Kind::damaged, detail,
            "The KORV Paint document is damaged (" + detail + "). Try File \u2192 Recover Autosaved Work."};
}

namespace PSDFile {

namespace {

// PackBits turns at most two input bytes into 128 output bytes. A channel
// that claims more than this many bytes of pixels per stored byte can only be
// padding, so it is refused before its plane is allocated.
constexpr int64_t kMaxExpansion = 128;
// Layer rectangles may reach past the canvas, but not without bound.
constexpr int64_t kMaxLayerSide = int64_t(1) << 30;
// Groups nest at most this deep; the layer tree is walked recursively.
constexpr int kMaxDepth = 200;

bool isSignature(std::span<const uint8_t> s) {
    return s.size() >= 4 && s[0] == '8' && s[1] == 'B' &&
           (std::memcmp(s.data(), "8BIM", 4) == 0 || std::memcmp(s.data(), "8B64", 4) == 0);
}

std::string text(std::span<const uint8_t> s) {
    return {s.begin(), s.end()};
}

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out += char(cp);
    } else if (cp < 0x800) {
        out += char(0xC0 | cp >> 6);
        out += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += char(0xE0 | cp >> 12);
        out += char(0x80 | (cp >> 6 & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    } else {
        out += char(0xF0 | cp >> 18);
        out += char(0x80 | (cp >> 12 & 0x3F));
        out += char(0x80 | (cp >> 6 & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    }
}

// Pascal names are in the writer's 8-bit encoding; read as Latin-1 they are
// at least valid UTF-8, which the rest of the program relies on.
std::string latin1(std::span<const uint8_t> s) {
    std::string out;
    for (uint8_t c : s)
        appendUtf8(out, c);
    return out;
}

std::string utf16(BEReader& r, int64_t units) {
    std::string out;
    for (int64_t i = 0; i < units; ++i) {
        uint32_t u = r.u16();
        if (u >= 0xD800 && u < 0xDC00 && i + 1 < units) {
            const uint32_t lo = r.u16();
            ++i;
            if (lo >= 0xDC00 && lo < 0xE000)
                u = 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
            else
                u = 0xFFFD;
        } else if (u >= 0xD800 && u < 0xE000) {
            u = 0xFFFD;
        }
        if (u == 0) break;
        appendUtf8(out, u);
    }
    return out;
}

std::vector<uint16_t> utf16Units(const std::string& s) {
    std::vector<uint16_t> out;
    for (size_t i = 0; i < s.size();) {
        const uint8_t c = uint8_t(s[i]);
        uint32_t cp = 0xFFFD;
        size_t n = 1;
        if (c < 0x80) {
            cp = c;
        } else if ((c >> 5) == 6 && i + 1 < s.size()) {
            cp = (c & 0x1Fu) << 6 | (uint8_t(s[i + 1]) & 0x3Fu), n = 2;
        } else if ((c >> 4) == 14 && i + 2 < s.size()) {
            cp = (c & 0x0Fu) << 12 | (uint8_t(s[i + 1]) & 0x3Fu) << 6 | (uint8_t(s[i + 2]) & 0x3Fu), n = 3;
        } else if ((c >> 3) == 30 && i + 3 < s.size()) {
            cp = (c & 0x07u) << 18 | (uint8_t(s[i + 1]) & 0x3Fu) << 12 | (uint8_t(s[i + 2]) & 0x3Fu) << 6 |
                 (uint8_t(s[i + 3]) & 0x3Fu),
            n = 4;
        }
        i += n;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(uint16_t(0xD800 + (cp >> 10)));
            out.push_back(uint16_t(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(uint16_t(cp));
        }
    }
    return out;
}

// Keys whose length is 64-bit in the large document format.
bool hasLongLength(std::span<const uint8_t> key) {
    static constexpr const char* kKeys[] = {"LMsk", "Lr16", "Lr32", "Layr", "Mt16", "Mt32", "Mtrn",
                                            "Alph", "FMsk", "lnk2", "FEid", "FXid", "PxSD"};
    for (const char* k : kKeys)
        if (std::memcmp(key.data(), k, 4) == 0) return true;
    return false;
}

void checkPlaneSize(int64_t pixels, int64_t storedBytes) {
    if (pixels > kMaxExpansion * std::max<int64_t>(storedBytes, 0)) throw PSDError::damaged("channels");
}

// Reads the rows of one RLE plane after its counts were read.
void unpackRows(BEReader& r, const std::vector<int64_t>& counts, size_t first, uint8_t* out, int64_t w,
                int64_t h) {
    for (int64_t y = 0; y < h; ++y)
        unpackBits(r.slice(counts[first + size_t(y)]), out + y * w, w);
}

std::vector<uint8_t> readChannel(std::span<const uint8_t> data, int64_t w, int64_t h, bool big) {
    BEReader r(data);
    const uint16_t code = r.u16();
    if (code == 2 || code == 3) throw PSDError::unsupported("ZIP-compressed layers");
    if (code > 3) throw PSDError::damaged("channels");
    checkPlaneSize(w * h, r.remaining());
    std::vector<uint8_t> plane(size_t(w * h));
    if (code == 0) {
        auto raw = r.slice(w * h);
        std::memcpy(plane.data(), raw.data(), raw.size());
        return plane;
    }
    if (h * (big ? 4 : 2) > r.remaining()) throw BEReader::Short();
    std::vector<int64_t> counts(static_cast<size_t>(h));
    for (auto& c : counts)
        c = big ? int64_t(r.u32()) : int64_t(r.u16());
    unpackRows(r, counts, 0, plane.data(), w, h);
    return plane;
}

void readRecordHead(BEReader& r, Rec& rec, bool big) {
    rec.top = r.i32();
    rec.left = r.i32();
    rec.bottom = r.i32();
    rec.right = r.i32();
    if (rec.right < rec.left || rec.bottom < rec.top || rec.right - rec.left > kMaxLayerSide ||
        rec.bottom - rec.top > kMaxLayerSide)
        throw PSDError::damaged("layer record");
    const uint16_t n = r.u16();
    if (n > 56) throw PSDError::damaged("channels");
    for (uint16_t i = 0; i < n; ++i) {
        const int16_t id = r.i16();
        const uint64_t len = big ? r.u64() : r.u32();
        if (len > uint64_t(r.d.size())) throw BEReader::Short();
        rec.chans.emplace_back(id, int64_t(len));
    }
    if (!isSignature(r.slice(4))) throw PSDError::damaged("layer record");
    rec.key = text(r.slice(4));
    rec.opacity = r.u8();
    rec.clip = r.u8();
    rec.flags = r.u8();
    r.u8();
}

void readTaggedBlocks(BEReader& e, Rec& rec, bool big) {
    while (e.remaining() >= 12) {
        if (!isSignature(e.d.subspan(size_t(e.pos), 4))) break;
        e.skip(4);
        const auto key = e.slice(4);
        const uint64_t len = big && hasLongLength(key) ? e.u64() : e.u32();
        if (len > uint64_t(e.remaining())) break;
        BEReader b(e.slice(int64_t(len)));
        const std::string k = text(key);
        if (k == "luni" && b.remaining() >= 4) {
            const int64_t units = std::min<int64_t>(b.u32(), b.remaining() / 2);
            rec.name = utf16(b, units);
        } else if ((k == "lsct" || k == "lsdk") && b.remaining() >= 4) {
            rec.lsct = b.u32();
            rec.isSection = rec.lsct >= 1 && rec.lsct <= 3;
        } else if (k == "iOpa" && b.remaining() >= 1) {
            rec.fill = b.u8();
        } else if (k == "KOrv") {
            rec.privateData = text(b.d);
        }
        // Writers pad blocks to an even or a four-byte length without always counting it.
        for (int pad = 0; pad < 3 && e.remaining() > 0 && e.d[size_t(e.pos)] == 0; ++pad)
            e.skip(1);
    }
}

void readRecord(BEReader& r, Rec& rec, bool big) {
    readRecordHead(r, rec, big);
    BEReader e(r.slice(r.u32()));
    BEReader m(e.slice(e.u32()));
    if (m.remaining() >= 18) {
        const int64_t top = m.i32(), left = m.i32(), bottom = m.i32(), right = m.i32();
        rec.maskDefault = m.u8();
        rec.maskFlags = m.u8();
        rec.hasMaskData = true;
        if (right >= left && bottom >= top && right - left <= kMaxLayerSide && bottom - top <= kMaxLayerSide)
            rec.maskRect = {left, top, right - left, bottom - top};
    }
    e.skip(e.u32()); // blending ranges
    const uint8_t nameLength = e.u8();
    rec.name = latin1(e.slice(nameLength));
    const int64_t pad = (4 - (1 + nameLength) % 4) % 4;
    if (!isSignature(e.d.subspan(size_t(e.pos))) && e.remaining() >= pad) e.skip(pad);
    readTaggedBlocks(e, rec, big);
}

void readChannels(BEReader& r, Rec& rec, bool big) {
    struct Job {
        int16_t id;
        std::span<const uint8_t> data;
        IRect area;
        std::vector<uint8_t> plane;
        std::exception_ptr failure;
    };
    std::vector<Job> jobs;
    for (const auto& [id, len] : rec.chans) {
        const auto data = r.slice(len);
        IRect area;
        if (id >= kAlpha && id <= 2)
            area = rec.rect();
        else if (id == kUserMask && rec.hasMaskData)
            area = rec.maskRect;
        else
            continue;
        if (data.size() < 2 || area.isEmpty()) continue;
        jobs.push_back({id, data, area, {}, nullptr});
    }
    // Channels decode side by side; the first failure, in channel order, is the one reported.
    parallelFor(int64_t(jobs.size()), [&](int64_t i) {
        Job& job = jobs[size_t(i)];
        try {
            job.plane = readChannel(job.data, job.area.w, job.area.h, big);
        } catch (...) {
            job.failure = std::current_exception();
        }
    });
    for (auto& job : jobs) {
        if (job.failure) std::rethrow_exception(job.failure);
        rec.planes[job.id] = std::move(job.plane);
    }
}

double readResolution(std::span<const uint8_t> section) {
    BEReader r(section);
    while (r.remaining() >= 12) {
        if (!isSignature(r.slice(4))) break;
        const uint16_t id = r.u16();
        const uint8_t n = r.u8();
        r.skip(std::min<int64_t>(n + ((n + 1) & 1), r.remaining()));
        const uint32_t size = r.u32();
        if (size > uint64_t(r.remaining())) break;
        BEReader data(r.slice(size));
        if (size & 1 && r.remaining() > 0) r.skip(1);
        if (id == 1005 && data.remaining() >= 4) {
            const double dpi = double(data.u32()) / 65536.0;
            if (dpi >= 1 && std::isfinite(dpi)) return dpi;
        }
    }
    return 72;
}

RGBABufferPtr readMerged(BEReader& r, int64_t w, int64_t h, int64_t channels, bool big) {
    const uint16_t code = r.u16();
    if (code == 2 || code == 3) throw PSDError::unsupported("ZIP-compressed picture");
    if (code > 3) throw PSDError::damaged("channels");
    const int64_t used = std::min<int64_t>(channels, 4);
    std::vector<std::vector<uint8_t>> planes(static_cast<size_t>(used));
    if (code == 0) {
        checkPlaneSize(w * h * used, r.remaining());
        for (auto& p : planes) {
            auto raw = r.slice(w * h);
            p.assign(raw.begin(), raw.end());
        }
    } else {
        const int64_t rows = channels * h;
        if (rows * (big ? 4 : 2) > r.remaining()) throw BEReader::Short();
        std::vector<int64_t> counts(static_cast<size_t>(rows));
        int64_t total = 0;
        for (auto& c : counts)
            total += c = big ? int64_t(r.u32()) : int64_t(r.u16());
        checkPlaneSize(w * h * used, std::min(total, r.remaining()));
        for (int64_t c = 0; c < used; ++c) {
            planes[size_t(c)].resize(size_t(w * h));
            unpackRows(r, counts, size_t(c * h), planes[size_t(c)].data(), w, h);
        }
    }
    auto out = std::make_shared<RGBABuffer>(w, h, RGBABuffer::Uninitialized{});
    uint8_t* px = out->data();
    const uint8_t* alpha = used == 4 ? planes[3].data() : nullptr;
    for (int64_t i = 0; i < w * h; ++i) {
        const unsigned a = alpha ? alpha[i] : 255;
        for (int64_t c = 0; c < 3; ++c)
            px[i * 4 + c] = c < used ? premultiply(planes[size_t(c)][size_t(i)], a) : 0;
        px[i * 4 + 3] = uint8_t(a);
    }
    return out;
}

// One row of premultiplied pixels into the four straight planes at `at`.
void straightRow(const uint8_t* src, int64_t w, std::array<std::vector<uint8_t>, 4>& out, size_t at) {
    uint8_t* r = out[0].data() + at;
    uint8_t* g = out[1].data() + at;
    uint8_t* b = out[2].data() + at;
    uint8_t* a = out[3].data() + at;
    for (int64_t x = 0; x < w; ++x) {
        const unsigned alpha = src[x * 4 + 3];
        a[x] = uint8_t(alpha);
        if (alpha == 0) {
            r[x] = g[x] = b[x] = 0;
            continue;
        }
        const auto straight = [alpha](unsigned c) {
            return uint8_t(std::min(((c * 255 + (alpha >> 1)) & 0xFFFF) / alpha, 255u));
        };
        r[x] = straight(src[x * 4]);
        g[x] = straight(src[x * 4 + 1]);
        b[x] = straight(src[x * 4 + 2]);
    }
}

} // namespace

void packBits(const uint8_t* b, int64_t n, std::vector<uint8_t>& into) {
    int64_t i = 0;
    while (i < n) {
        int64_t r = 1;
        while (i + r < n && r < 128 && b[i + r] == b[i])
            ++r;
        if (r > 1) {
            into.push_back(uint8_t(1 - r));
            into.push_back(b[i]);
            i += r;
            continue;
        }
        const int64_t start = i;
        while (i < n && i - start < 128) {
            if (i + 2 < n && b[i] == b[i + 1] && b[i + 1] == b[i + 2]) break;
            ++i;
        }
        into.push_back(uint8_t(i - start - 1));
        into.insert(into.end(), b + start, b + i);
    }
}

void unpackBits(std::span<const uint8_t> s, uint8_t* out, int64_t expected) {
    int64_t o = 0;
    size_t i = 0;
    while (o < expected && i < s.size()) {
        const int8_t h = int8_t(s[i++]);
        if (h >= 0) {
            const size_t count = size_t(h) + 1;
            if (s.size() - i < count) throw BEReader::Short();
            const int64_t n = std::min<int64_t>(int64_t(count), expected - o);
            std::memcpy(out + o, s.data() + i, size_t(n));
            o += n;
            i += count;
        } else if (h != -128) {
            if (i >= s.size()) throw BEReader::Short();
            const int64_t n = std::min<int64_t>(1 - h, expected - o);
            std::memset(out + o, s[i++], size_t(n));
            o += n;
        }
    }
    if (o < expected) std::memset(out + o, 0, size_t(expected - o));
}

std::vector<uint8_t> unpackBits(std::span<const uint8_t> slice, int64_t expected) {
    std::vector<uint8_t> out(size_t(std::max<int64_t>(expected, 0)));
    unpackBits(slice, out.data(), int64_t(out.size()));
    return out;
}

Packed rle(const uint8_t* plane, int64_t w, int64_t h) {
    Packed p;
    p.rowCounts.resize(size_t(h));
    p.data.reserve(size_t(h * (w + w / 128 + 1)));
    for (int64_t y = 0; y < h; ++y) {
        const size_t before = p.data.size();
        packBits(plane + y * w, w, p.data);
        const size_t count = p.data.size() - before;
        KORV_REQUIRE(count <= 65535);
        p.rowCounts[size_t(y)] = uint16_t(count);
    }
    return p;
}

std::array<std::vector<uint8_t>, 4> planes(const RGBABuffer& buffer, const IRect& rect) {
    KORV_REQUIRE(rect.x >= 0 && rect.y >= 0 && rect.maxX() <= buffer.width() &&
                 rect.maxY() <= buffer.height());
    std::array<std::vector<uint8_t>, 4> out;
    const size_t n = size_t(std::max<int64_t>(rect.w, 0) * std::max<int64_t>(rect.h, 0));
    for (auto& p : out)
        p.resize(n);
    constexpr int64_t kRowsPerBlock = 64;
    parallelFor((rect.h + kRowsPerBlock - 1) / kRowsPerBlock, [&](int64_t block) {
        const int64_t end = std::min(rect.h, (block + 1) * kRowsPerBlock);
        for (int64_t y = block * kRowsPerBlock; y < end; ++y)
            straightRow(buffer.row(rect.y + y) + rect.x * 4, rect.w, out, size_t(y * rect.w));
    });
    return out;
}

Layout parse(std::span<const uint8_t> bytes, bool withMerged) {
    if (bytes.size() < 4 || std::memcmp(bytes.data(), "8BPS", 4) != 0) throw StudioFileError::notStudioFile();
    BEReader r(bytes);
    r.skip(4);
    const uint16_t version = r.u16();
    if (version != 1 && version != 2) throw PSDError::damaged("layer record");
    const bool big = version == 2;
    r.skip(6);
    const uint16_t channels = r.u16();
    Layout out;
    out.height = r.u32();
    out.width = r.u32();
    const uint16_t depth = r.u16();
    const uint16_t mode = r.u16();
    if (out.width < 1 || out.height < 1 || out.width > kMaxCanvasSide || out.height > kMaxCanvasSide)
        throw StudioFileError::tooLarge();
    if (depth != 8) throw PSDError::unsupported(std::to_string(depth) + "-bit color");
    if (mode != 3) throw PSDError::unsupported("color mode " + std::to_string(mode) + "; only RGB");
    if (channels < 3 || channels > 56) throw PSDError::damaged("channels");
    r.skip(r.u32());
    out.dpi = readResolution(r.slice(r.u32()));

    BEReader section(r.slice(big ? int64_t(std::min<uint64_t>(r.u64(), uint64_t(INT64_MAX))) : r.u32()));
    if (section.remaining() >= (big ? 8 : 4)) {
        const uint64_t infoLength = big ? section.u64() : section.u32();
        BEReader info(section.slice(int64_t(std::min<uint64_t>(infoLength, uint64_t(INT64_MAX)))));
        if (info.remaining() >= 2) {
            const int64_t count = std::abs(int64_t(info.i16()));
            for (int64_t i = 0; i < count; ++i) {
                Rec rec;
                readRecord(info, rec, big);
                out.records.push_back(std::move(rec));
            }
            int depthNow = 0;
            for (auto& rec : out.records) {
                readChannels(info, rec, big);
                if (rec.lsct == 3 && ++depthNow > kMaxDepth) throw PSDError::damaged("layer record");
                if ((rec.lsct == 1 || rec.lsct == 2) && depthNow > 0) --depthNow;
            }
        }
    }
    if (withMerged) out.merged = readMerged(r, out.width, out.height, channels, big);
    return out;
}

std::optional<std::pair<RGBABufferPtr, IRect>> pixels(const Rec& rec, int64_t width, int64_t height) {
    const IRect rect = rec.rect();
    const IRect clip = rect.intersection({0, 0, width, height});
    if (clip.isEmpty()) return std::nullopt;
    const uint8_t* plane[4] = {};
    bool any = false;
    for (int c = 0; c < 4; ++c) {
        const auto it = rec.planes.find(int16_t(c == 3 ? kAlpha : c));
        if (it != rec.planes.end()) plane[c] = it->second.data(), any = true;
    }
    if (!any) return std::nullopt;
    auto out = std::make_shared<RGBABuffer>(clip.w, clip.h, RGBABuffer::Uninitialized{});
    for (int64_t y = 0; y < clip.h; ++y) {
        const int64_t from = (clip.y - rect.y + y) * rect.w + (clip.x - rect.x);
        uint8_t* px = out->row(y);
        for (int64_t x = 0; x < clip.w; ++x) {
            const unsigned a = plane[3] ? plane[3][from + x] : 255;
            for (int c = 0; c < 3; ++c)
                px[x * 4 + c] = plane[c] ? premultiply(plane[c][from + x], a) : 0;
            px[x * 4 + 3] = uint8_t(a);
        }
    }
    return std::pair{out, clip};
}

std::vector<uint8_t> packedChannel(const uint8_t* plane, int64_t w, int64_t h) {
    const Packed p = rle(plane, w, h);
    std::vector<uint8_t> out;
    out.reserve(2 + p.rowCounts.size() * 2 + p.data.size());
    out.push_back(0);
    out.push_back(1);
    for (uint16_t c : p.rowCounts) {
        out.push_back(uint8_t(c >> 8));
        out.push_back(uint8_t(c));
    }
    out.insert(out.end(), p.data.begin(), p.data.end());
    return out;
}

std::vector<std::pair<int16_t, std::vector<uint8_t>>> channels(const RGBABuffer& buffer) {
    const IRect all{0, 0, buffer.width(), buffer.height()};
    const auto split = planes(buffer, all);
    std::vector<std::pair<int16_t, std::vector<uint8_t>>> out{{kAlpha, {}}, {0, {}}, {1, {}}, {2, {}}};
    parallelFor(4, [&](int64_t i) {
        const size_t plane = i == 0 ? 3 : size_t(i - 1);
        out[size_t(i)].second = packedChannel(split[plane].data(), all.w, all.h);
    });
    return out;
}

std::vector<std::pair<int16_t, std::vector<uint8_t>>> emptyChannels() {
    const std::vector<uint8_t> raw{0, 0};
    return {{kAlpha, raw}, {0, raw}, {1, raw}, {2, raw}};
}

namespace {

void writeRecord(BEWriter& w, const OutRec& rec, int64_t width, int64_t height) {
    w.u32(uint32_t(int32_t(rec.rect.y)));
    w.u32(uint32_t(int32_t(rec.rect.x)));
    w.u32(uint32_t(int32_t(rec.rect.maxY())));
    w.u32(uint32_t(int32_t(rec.rect.maxX())));
    w.u16(uint16_t(rec.channels.size()));
    for (const auto& [id, data] : rec.channels) {
        w.u16(uint16_t(id));
        w.u32(uint32_t(data.size()));
    }
    w.append("8BIM");
    w.append(rec.key);
    w.u8(rec.opacity);
    w.u8(rec.clip);
    w.u8(rec.flags);
    w.u8(0);
    const int64_t extraAt = w.size();
    w.u32(0);
    if (rec.mask) {
        w.u32(20);
        w.u32(0);
        w.u32(0);
        w.u32(uint32_t(height));
        w.u32(uint32_t(width));
        w.u8(255);
        w.u8(rec.maskEnabled ? 0 : 2);
        w.u16(0);
    } else {
        w.u32(0);
    }
    w.u32(0); // blending ranges
    // At most 255 bytes, cut where a UTF-8 sequence begins.
    size_t n = std::min<size_t>(rec.name.size(), 255);
    while (n > 0 && n < rec.name.size() && (uint8_t(rec.name[n]) & 0xC0) == 0x80)
        --n;
    w.u8(uint8_t(n));
    w.append(std::string_view(rec.name).substr(0, n));
    w.zeros((4 - int64_t(1 + n) % 4) % 4);

    const auto units = utf16Units(rec.name);
    w.append("8BIMluni");
    // The count stays the name's; the padding keeps the block a multiple of four.
    w.u32(uint32_t(4 + (units.size() + (units.size() & 1)) * 2));
    w.u32(uint32_t(units.size()));
    for (uint16_t u : units)
        w.u16(u);
    if (units.size() & 1) w.u16(0);
    if (rec.lsct) {
        w.append("8BIMlsct");
        w.u32(12);
        w.u32(*rec.lsct);
        w.append("8BIM");
        w.append(rec.key);
    }
    if (rec.fill) {
        w.append("8BIMiOpa");
        w.u32(4);
        w.u8(*rec.fill);
        w.zeros(3);
    }
    if (rec.privateData) {
        std::string data = *rec.privateData;
        data.append((4 - data.size() % 4) % 4, ' ');
        w.append("8BIMKOrv");
        w.u32(uint32_t(data.size()));
        w.append(data);
    }
    w.patchU32(extraAt, uint32_t(w.size() - extraAt - 4));
}

void writeMerged(BEWriter& w, const RGBABuffer& merged) {
    const auto split = planes(merged, {0, 0, merged.width(), merged.height()});
    std::array<Packed, 4> packed;
    parallelFor(4, [&](int64_t i) {
        packed[size_t(i)] = rle(split[size_t(i)].data(), merged.width(), merged.height());
    });
    w.u16(1);
    for (const auto& p : packed)
        for (uint16_t c : p.rowCounts)
            w.u16(c);
    for (const auto& p : packed)
        w.append(p.data);
}

} // namespace

std::vector<uint8_t> assemble(int64_t width, int64_t height, double dpi, const std::vector<OutRec>& records,
                              const RGBABuffer& merged) {
    KORV_REQUIRE(records.size() <= 32767);
    KORV_REQUIRE(merged.width() == width && merged.height() == height);
    BEWriter w;
    // The channels are most of the file: reserving for them (and for a merged
    // picture that packs no smaller than its raw size) keeps the buffer from regrowing.
    size_t expected = 4096 + size_t(width * height) * 4 + size_t(height) * 8;
    for (const auto& rec : records) {
        expected += 512 + rec.name.size() * 3 + (rec.privateData ? rec.privateData->size() : 0);
        for (const auto& channel : rec.channels)
            expected += channel.second.size();
    }
    w.bytes.reserve(expected);
    w.append("8BPS");
    w.u16(1);
    w.zeros(6);
    w.u16(4);
    w.u32(uint32_t(height));
    w.u32(uint32_t(width));
    w.u16(8);
    w.u16(3);
    w.u32(0);

    const double clamped = std::isfinite(dpi) ? std::clamp(dpi, 1.0, 65535.0) : 72.0;
    const uint32_t fixed = uint32_t(std::lround(clamped * 65536.0));
    w.u32(28);
    w.append("8BIM");
    w.u16(1005);
    w.u16(0);
    w.u32(16);
    w.u32(fixed);
    w.u16(1);
    w.u16(1);
    w.u32(fixed);
    w.u16(1);
    w.u16(1);

    const int64_t sectionAt = w.size();
    w.u32(0);
    if (!records.empty()) {
        const int64_t infoAt = w.size();
        w.u32(0);
        w.u16(uint16_t(-int16_t(records.size())));
        for (const auto& rec : records)
            writeRecord(w, rec, width, height);
        for (const auto& rec : records)
            for (const auto& channel : rec.channels)
                w.append(channel.second);
        if ((w.size() - infoAt - 4) & 1) w.u8(0);
        w.patchU32(infoAt, uint32_t(w.size() - infoAt - 4));
        w.u32(0); // global mask
        w.patchU32(sectionAt, uint32_t(w.size() - sectionAt - 4));
    }
    writeMerged(w, merged);
    return std::move(w.bytes);
}

namespace {

std::vector<StudioLayer> studioLayers(const PaintDocument& doc) {
    std::vector<StudioLayer> out;
    for (const auto& layer : doc.layers) {
        StudioLayer s(layer->id, layer->name, StudioLayerKind::pixel);
        s.pixels = TileSet(layer->grid, layer->tiles);
        s.opacity = layer->opacity;
        s.blendMode = layer->blendMode;
        s.isVisible = layer->isVisible;
        s.isClipping = layer->isClipping;
        out.push_back(std::move(s));
    }
    return out;
}

} // namespace

std::vector<uint8_t> write(const PaintDocument& doc, bool layered) {
    const auto layers = studioLayers(doc);
    RenderCache cache;
    const RGBABufferPtr merged =
        StudioRenderer::flatten(StudioRenderer::plan(layers, doc.grid, cache), doc.grid);
    std::vector<OutRec> records;
    if (layered) {
        for (const auto& layer : layers) {
            OutRec rec;
            rec.name = layer.name;
            rec.key = std::string(psdKey(layer.blendMode));
            rec.opacity = uint8_t(std::lround(std::clamp(layer.opacity, 0.0, 1.0) * 255));
            rec.clip = layer.isClipping ? 1 : 0;
            rec.flags = layer.isVisible ? 0 : 2;
            if (const auto bounds = layer.pixels->contentBounds()) {
                rec.rect = *bounds;
                rec.channels = channels(*layer.pixels->region(*bounds));
            } else {
                rec.channels = emptyChannels();
            }
            records.push_back(std::move(rec));
        }
    }
    return assemble(doc.grid.width, doc.grid.height, doc.dpi, records, *merged);
}

std::unique_ptr<PaintDocument> read(std::span<const uint8_t> bytes) {
    Layout layout = parse(bytes, false);
    if (layout.records.empty()) layout = parse(bytes, true);
    auto doc = std::make_unique<PaintDocument>(layout.width, layout.height, layout.dpi);
    std::vector<LayerPtr> layers;
    for (const Rec& rec : layout.records) {
        if (rec.lsct >= 1 && rec.lsct <= 3) continue;
        auto layer = std::make_shared<Layer>(rec.name.empty() ? "Layer" : rec.name, doc->grid);
        layer->opacity = rec.opacity / 255.0;
        layer->blendMode = blendModeFromPSD(rec.key);
        layer->isVisible = (rec.flags & 2) == 0;
        layer->isClipping = rec.clip != 0;
        if (const auto px = pixels(rec, layout.width, layout.height)) {
            TileSet set(doc->grid);
            set.write(*px->first, px->second);
            if (!set.tiles.empty()) layer->tiles = std::move(set.tiles);
        }
        layers.push_back(std::move(layer));
    }
    if (layout.records.empty() && layout.merged) {
        auto layer = std::make_shared<Layer>("Background", doc->grid);
        layer->load(*layout.merged);
        layers.push_back(std::move(layer));
    }
    if (!layers.empty()) doc->layers = std::move(layers);
    doc->setActiveIndex(int64_t(doc->layers.size()) - 1);
    doc->resetHistory();
    return doc;
}

} // namespace PSDFile
} // namespace korv
