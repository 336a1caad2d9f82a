// The file is JSON: {"buses":{ADDRESS:{ITEM:{"status","text","timeMs"}}}}.
#include "history.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>

#include "common/fd.h"
#include "common/json.h"
#include "common/output_file.h"
#include "common/text.h"

namespace ominspect::ctl {
namespace {

constexpr std::size_t kMaxFile = 8U << 20U;  // a file of this program's is far smaller
// The oldest go first: buses come and go, and so do items.
constexpr std::size_t kMaxBuses = 16;
constexpr std::size_t kMaxItems = 1024;

// Both in the order of their last change.
using Items = std::vector<std::pair<std::string, LastResult>>;
using Buses = std::vector<std::pair<std::string, Items>>;

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string PathOfHistory() {
    std::string state = Environment("XDG_STATE_HOME");
    if (state.empty() || state[0] != '/') {
        const std::string home = Environment("HOME");
        std::error_code ignored;
        // The home of a service's user may not exist, and must not be made then.
        if (home.empty() || home[0] != '/' || !std::filesystem::is_directory(home, ignored)) {
            return {};
        }
        state = home + "/.local/state";
    }
    return state + "/ominspect/results.json";
}

// No time for what is not a number, or later than a TimePoint surely holds.
std::optional<TimePoint> TimeOf(json::View entry) {
    constexpr double kLatest = 9007199254740992.0 / 1024;
    const auto number = entry["timeMs"].Number();
    if (!number || !(*number >= 0 && *number < kLatest)) {
        return std::nullopt;
    }
    return TimePoint(std::chrono::milliseconds(static_cast<std::int64_t>(*number)));
}

Items ReadItems(json::View results) {
    Items items;
    for (const auto& [item, entry] : results.Members()) {
        const auto time = TimeOf(entry);
        if (time && !item.empty()) {
            items.emplace_back(
                item, LastResult{entry["status"].Text().value_or(""), entry["text"].Text().value_or(""), *time});
        }
    }
    return items;
}

// Empty for a file that is not there, or is no history.
Buses ReadBuses(const std::string& path) {
    Buses buses;
    const auto content = ReadSmallFile(path, kMaxFile);
    const auto document = content ? json::Value::Parse(*content) : content.Failure();
    if (document) {
        for (const auto& [address, results] : document->Read()["buses"].Members()) {
            buses.emplace_back(address, ReadItems(results));
        }
    }
    return buses;
}

std::string Document(const Buses& buses) {
    auto all = json::Value::Object();
    for (const auto& [address, items] : buses) {
        auto results = json::Value::Object();
        for (const auto& [item, last] : items) {
            const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(last.time.time_since_epoch());
            auto entry = json::Value::Object();
            entry.Text("status", last.status).Text("text", last.text);
            results.Put(item.c_str(), std::move(entry.Number("timeMs", static_cast<std::uint64_t>(time.count()))));
        }
        all.Put(address.c_str(), std::move(results));
    }
    return json::Value::Object().Put("buses", std::move(all)).Print() + '\n';
}

// Puts the entry of this name last; made when there is none.
template <typename T>
T& MovedToTheEnd(std::vector<std::pair<std::string, T>>& list, const std::string& name) {
    std::pair<std::string, T> entry(name, T());
    const auto found = std::find_if(list.begin(), list.end(), [&](const auto& one) { return one.first == name; });
    if (found != list.end()) {
        entry = std::move(*found);
        list.erase(found);
    }
    return list.emplace_back(std::move(entry)).second;
}

template <typename List>
void KeepLast(List& list, std::size_t count) {
    if (list.size() > count) {
        list.erase(list.begin(), list.end() - static_cast<std::ptrdiff_t>(count));
    }
}

// Held by whoever reads, changes and replaces the file; released with the descriptor.
Result<UniqueFd> Lock(const std::string& path) {
    UniqueFd fd(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    if (!fd) {
        return SystemError();
    }
    while (flock(fd.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    return fd;
}

Error FileError(const std::string& what, Error error) {
    error.text = text::Escaped(what) + ": " + error.text;
    return error;
}

}  // namespace

History::History() : path_(PathOfHistory()), bus_(text::ToUtf8(Environment("KIVO_BUS_ADDRESS"))) {
    if (bus_.empty()) {
        bus_ = "system";
    }
    if (path_.empty()) {
        return;
    }
    for (const auto& [address, items] : ReadBuses(path_)) {
        if (address == bus_) {
            saved_.insert(items.begin(), items.end());
        }
    }
}

void History::Add(const client::ItemResult& result, TimePoint time) {
    if (result.status.empty() || result.status == "running" || result.status == "idle") {
        return;
    }
    added_[text::ToUtf8(result.name)] = {text::ToUtf8(result.status), text::ToUtf8(result.text), time};
}

std::optional<Error> History::Save() {
    if (path_.empty() || added_.empty()) {
        return std::nullopt;
    }
    std::error_code failed;
    const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
    std::filesystem::create_directories(folder, failed);
    if (failed) {
        return FileError("cannot make the folder " + folder.string(), SystemError(failed.value()));
    }
    const auto lock = Lock(path_ + ".lock");
    if (!lock) {
        return FileError("cannot open " + path_ + ".lock", lock.Failure());
    }
    Buses buses = ReadBuses(path_);
    Items& items = MovedToTheEnd(buses, bus_);
    for (const auto& [item, last] : added_) {
        MovedToTheEnd(items, item) = last;
    }
    KeepLast(items, kMaxItems);
    KeepLast(buses, kMaxBuses);
    if (const auto error = ReplaceFile(path_, Document(buses))) {
        return FileError("cannot write " + path_, *error);
    }
    for (const auto& [item, last] : added_) {
        saved_[item] = last;
    }
    added_.clear();
    return std::nullopt;
}

std::optional<LastResult> History::Find(const std::string& item) const {
    const auto found = saved_.find(text::ToUtf8(item));
    if (found == saved_.end()) {
        return std::nullopt;
    }
    return found->second;
}

}  // namespace ominspect::ctl
