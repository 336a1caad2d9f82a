// The configuration is read by the server's own loader, so that both read it alike.
#include "entry.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <fnmatch.h>
#include <sys/stat.h>

#include <tinyxml2.h>

#include "area.h"
#include "intercept.h"
#include "kivo/om_log_client.h"
#include "ominspect/config.h"

namespace ominspect::collect {
namespace {

std::vector<Entry> Converted(InspectConfigMgr& config) {
    std::vector<Entry> entries;
    for (const InspectOneDiagFile& file : config.GetLogCollectList()) {
        entries.push_back(
            {static_cast<const char*>(file.srcPath), static_cast<const char*>(file.dstPath), file.timeout, file.copy});
    }
    return entries;
}

// What fill(config) loads, with the loader's lines.
template <typename Fill>
Result<Entries> Loaded(const Fill& fill) {
    InspectConfigMgr* config = InspectConfigMgr::GetInstance();
    if (config == nullptr) {
        return OtherError("no memory for the configuration");
    }
    Entries entries;
    const LogCapture log([&](unsigned level, const std::string& text) {
        if (level <= KIVO_OM_LOG_WARNING) {
            entries.messages.push_back(text);
        }
    });
    fill(*config);
    entries.list = Converted(*config);
    return entries;
}

bool Exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// A name that neither the area nor an earlier entry has.
std::string UniquePlace(const std::string& area, const std::string& source, const std::vector<Entry>& earlier) {
    const std::string name = std::filesystem::path(source).filename().string();
    const std::string base = area + '/' + (name.empty() ? "root" : name);
    std::string place = base;
    const auto isTaken = [&] {
        return Exists(place) || std::any_of(earlier.begin(), earlier.end(),
                                            [&](const Entry& entry) { return entry.destination == place; });
    };
    for (int number = 2; isTaken(); ++number) {
        place.assign(base).append(1, '-').append(std::to_string(number));
    }
    return place;
}

}  // namespace

bool CopyRules::Excludes(const std::string& path) const {
    const std::string name = path.substr(path.rfind('/') + 1);
    return std::any_of(exclude.begin(), exclude.end(), [&](const std::string& pattern) {
        return fnmatch(pattern.c_str(), path.c_str(), 0) == 0 || fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
    });
}

const char* OutcomeWord(Outcome outcome) {
    switch (outcome) {
        case Outcome::kComplete:
            return "complete";
        case Outcome::kIncomplete:
            return "incomplete";
        case Outcome::kCutShort:
            return "cut short";
        case Outcome::kInterrupted:
            return "interrupted";
        case Outcome::kMissing:
            return "missing";
        case Outcome::kRefused:
            return "refused";
        case Outcome::kFailed:
            return "failed";
        case Outcome::kNotStarted:
            break;
    }
    return "not started";
}

bool MirrorsFolder(const Entry& entry) {
    return entry.copy == InspectCopyDirFile || (entry.copy == InspectCopyWylogsFile && !InspectIsNeedBackupWylog()) ||
           (entry.copy == InspectCopyFile && IsFolder(entry.source));
}

std::chrono::seconds LimitOf(const Entry& entry) {
    constexpr std::uint32_t kLongest = 60;
    return std::chrono::seconds(std::min(entry.limit, kLongest));
}

std::uint64_t ReplacedBytes(const std::vector<Entry>& entries) {
    std::uint64_t bytes = 0;
    for (const Entry& entry : entries) {
        std::error_code error;
        for (std::filesystem::recursive_directory_iterator file(entry.destination, error), end; !error && file != end;
             file.increment(error)) {
            std::error_code ignored;
            if (std::filesystem::is_regular_file(file->symlink_status(ignored))) {
                const std::uintmax_t size = file->file_size(ignored);
                bytes += ignored ? 0 : size;
            }
        }
    }
    return bytes;
}

const char* KindWord(InspectCopyFunction copy) {
    if (copy == InspectCopyDirFile) {
        return "folder";
    }
    return copy == InspectCopyWylogsFile ? "system log" : "file";
}

Result<Entries> ConfiguredEntries() {
    return Loaded([](InspectConfigMgr& config) { config.InitInspectConfig(); });
}

Result<Entries> EntriesOfFile(const std::string& path) {
    const auto wrong = [&path](const std::string& text) { return WrongUse(path + ": " + text); };
    tinyxml2::XMLDocument document(true, tinyxml2::PRESERVE_WHITESPACE);  // as the loader reads it
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return wrong("not a regular file");  // a pipe would be waited for
    }
    if (document.LoadFile(path.c_str()) != tinyxml2::XML_SUCCESS) {
        return wrong(document.ErrorStr());
    }
    if (document.RootElement() == nullptr) {
        return wrong("there is no document element");
    }
    return Loaded([&](InspectConfigMgr& config) { config.InitLogCollectList(document.RootElement()); });
}

Result<Entries> EntriesOfSources(const std::vector<std::string>& sources, const std::string& area,
                                 std::uint32_t limit) {
    Entries entries;
    for (const std::string& source : sources) {
        Entry entry;
        entry.source = source.empty() ? "" : AbsolutePath(source);
        entry.destination = UniquePlace(area, entry.source, entries.list);
        entry.limit = limit;
        const bool answers = Answers(entry.source);
        entry.copy = answers && IsFolder(entry.source) ? InspectCopyDirFile : InspectCopyFile;
        if (entry.source.empty()) {
            return WrongUse("a source is empty");
        }
        if (entry.source.size() > kLongestPath) {
            return WrongUse("the path is longer than 255 bytes: " + source);
        }
        if (entry.destination.size() > kLongestPath) {
            return WrongUse("the path in the area would be longer than 255 bytes: " + entry.destination);
        }
        if (answers && Overlap(entry.source, entry.destination)) {
            std::string text = "the area ";
            text.append(area).append(" lies inside the source ").append(source);
            return WrongUse(text.append("; --area names another one"));
        }
        entries.list.push_back(std::move(entry));
    }
    return entries;
}

}  // namespace ominspect::collect
