#pragma once
// Recovery copies: while the user works, each changed picture is copied to
// the autosave folder as a native document beside a small JSON description,
// so that a crash loses at most the time since the last copy. Encoding and
// writing run on one serial background queue, from a snapshot taken on the
// calling (main) thread.
#include "app/model/DocSession.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace korv {

namespace Recovery {

struct Info {
    std::string name;
    std::optional<std::string> originalPath;
    std::chrono::system_clock::time_point date;
    int64_t width = 0;
    int64_t height = 0;
    int64_t layers = 0;

    bool operator==(const Info&) const = default;
};

struct Item {
    Uuid id;
    Info info;
    std::filesystem::path file;

    // The copy's preview, or nothing when the file has none or can't be read.
    RGBABufferPtr thumbnail() const;
};

using LogSink = std::function<void(const std::string&)>;

std::filesystem::path fileURL(const Uuid& id);
std::filesystem::path infoURL(const Uuid& id);

// Marks the session copied at `now` before the write happens, so a failed
// write waits for the next change. A failure is only logged, from the queue.
void write(DocSession& session, bool synchronously, std::chrono::system_clock::time_point now, LogSink log);
// Copies in the autosave folder that no session in `excluding` owns, oldest first.
std::vector<Item> pending(const std::set<Uuid>& excluding);
// A dirty session named "<name> (recovered)" with the copy's id and no file;
// throws the reader's error.
DocSessionPtr restore(const Item& item);
// Removes both files (to the trash if asked), after any write in flight.
// False when the trash could not take them: then the copy stays where it was.
bool discard(const Uuid& id, bool moveToTrash);
// Removes the temporary files a crash left in the autosave folder; gives their count.
int64_t removeLeftovers();
// Returns when every queued write has finished.
void waitForWrites();

void to_json(nlohmann::json& j, const Info& info);
void from_json(const nlohmann::json& j, Info& info);

} // namespace Recovery

// ISO 8601 in UTC with a "Z", to the second.
std::string isoDate(std::chrono::system_clock::time_point t);
std::optional<std::chrono::system_clock::time_point> parseIsoDate(const std::string& text);

} // namespace korv
