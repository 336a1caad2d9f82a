// The last result of each item, in a small JSON file: {"buses":{ADDRESS:{ITEM:{"status","text","timeMs"}}}}.
#include "history.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cjson/cJSON.h>

#include "text/text.h"

namespace ominspect::ctl {
namespace {

constexpr std::uintmax_t kMaxFile = 8U << 20U;  // a file of this program's is far smaller
// The oldest go first: buses come and go, and so do items.
constexpr int kMaxBuses = 16;
constexpr int kMaxItems = 1024;

void Limit(cJSON* object, int count) {
    while (cJSON_GetArraySize(object) > count) {
        cJSON_DeleteItemFromArray(object, 0);
    }
}

struct Delete {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, Delete>;

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string PathOfHistory() {
    std::string state = Environment("XDG_STATE_HOME");
    if (state.empty() || state[0] != '/') {
        const std::string home = Environment("HOME");
        if (home.empty() || home[0] != '/') {
            return {};
        }
        state = home + "/.local/state";
    }
    return state + "/ominspect/results.json";
}

Json ReadDocument(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || size > kMaxFile || !file) {
        return Json(cJSON_CreateObject());
    }
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    Json document(cJSON_ParseWithLength(content.data(), content.size()));
    return cJSON_IsObject(document.get()) != 0 ? std::move(document) : Json(cJSON_CreateObject());
}

// The member of this name, made when there is none that is an object. Null when there is no memory.
cJSON* ObjectIn(cJSON* parent, const char* name) {
    cJSON* found = cJSON_GetObjectItemCaseSensitive(parent, name);
    if (cJSON_IsObject(found) != 0) {
        return found;
    }
    cJSON_DeleteItemFromObjectCaseSensitive(parent, name);
    return cJSON_AddObjectToObject(parent, name);
}

std::string TextIn(const cJSON* object, const char* name) {
    const char* text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, name));
    return text == nullptr ? "" : text;
}

// Where the number of milliseconds is none, or beyond what a double holds exactly, there is no time.
std::optional<TimePoint> TimeIn(const cJSON* object) {
    constexpr double kLatest = 9007199254740992.0 / 1024;
    const cJSON* number = cJSON_GetObjectItemCaseSensitive(object, "timeMs");
    if (cJSON_IsNumber(number) == 0 || !(number->valuedouble >= 0 && number->valuedouble < kLatest)) {
        return std::nullopt;
    }
    return TimePoint(std::chrono::milliseconds(static_cast<std::int64_t>(number->valuedouble)));
}

bool WriteAll(int fd, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t size = write(fd, text.data() + done, text.size() - done);
        if (size < 0 && errno != EINTR) {
            return false;
        }
        if (size > 0) {
            done += static_cast<std::size_t>(size);
        }
    }
    return true;
}

// Held by whoever reads, changes and replaces the file.
class FileLock {
public:
    explicit FileLock(const std::string& path) : fd_(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
        while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~FileLock() {
        if (fd_ >= 0) {
            (void)close(fd_);
        }
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

bool Replace(const std::string& path, const std::string& text) {
    const std::string temporary = path + ".new";
    const int fd = open(temporary.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return false;
    }
    const bool written = WriteAll(fd, text);
    const int why = errno;
    if (close(fd) == 0 && written) {
        return rename(temporary.c_str(), path.c_str()) == 0;
    }
    (void)unlink(temporary.c_str());
    errno = written ? errno : why;
    return false;
}

}  // namespace

History::History() : path_(PathOfHistory()), bus_(text::ToUtf8(Environment("KIVO_BUS_ADDRESS"))) {
    if (bus_.empty()) {
        bus_ = "system";
    }
    if (path_.empty()) {
        return;
    }
    const Json document = ReadDocument(path_);
    const cJSON* buses = cJSON_GetObjectItemCaseSensitive(document.get(), "buses");
    const cJSON* results = cJSON_GetObjectItemCaseSensitive(buses, bus_.c_str());
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, results) {
        const auto time = TimeIn(entry);
        if (time && entry->string != nullptr) {
            saved_[entry->string] = {TextIn(entry, "status"), TextIn(entry, "text"), *time};
        }
    }
}

void History::Add(const client::ItemResult& result, TimePoint time) {
    if (result.status.empty() || result.status == "running" || result.status == "idle") {
        return;
    }
    if (client::IsUnknownItem(result)) {
        return;
    }
    added_[text::ToUtf8(result.name)] = {text::ToUtf8(result.status), text::ToUtf8(result.text), time};
}

bool History::Save() {
    if (path_.empty() || added_.empty()) {
        return true;
    }
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
    std::filesystem::create_directories(folder, error);
    const FileLock lock(path_ + ".lock");
    if (!lock) {
        return false;
    }
    const Json document = ReadDocument(path_);
    cJSON* buses = ObjectIn(document.get(), "buses");
    cJSON* results = ObjectIn(buses, bus_.c_str());
    // The one that was used last stands last.
    (void)cJSON_AddItemToObject(buses, bus_.c_str(), cJSON_DetachItemFromObjectCaseSensitive(buses, bus_.c_str()));
    for (const auto& [item, last] : added_) {
        cJSON_DeleteItemFromObjectCaseSensitive(results, item.c_str());
        cJSON* entry = cJSON_AddObjectToObject(results, item.c_str());
        cJSON_AddStringToObject(entry, "status", last.status.c_str());
        cJSON_AddStringToObject(entry, "text", last.text.c_str());
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(last.time.time_since_epoch());
        cJSON_AddNumberToObject(entry, "timeMs", static_cast<double>(time.count()));
    }
    Limit(results, kMaxItems);
    Limit(buses, kMaxBuses);
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(document.get()), &cJSON_free);
    if (!text) {
        errno = ENOMEM;
        return false;
    }
    if (!Replace(path_, std::string(text.get()) + "\n")) {
        return false;
    }
    for (const auto& [item, last] : added_) {
        saved_[item] = last;
    }
    added_.clear();
    return true;
}

std::optional<LastResult> History::Find(const std::string& item) const {
    const auto found = saved_.find(text::ToUtf8(item));
    if (found == saved_.end()) {
        return std::nullopt;
    }
    return found->second;
}

}  // namespace ominspect::ctl
