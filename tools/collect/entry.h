// The entries of a collection: where they come from, what each asks for, and what came of it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/error.h"
#include "ominspect/collect.h"

namespace ominspect::collect {

// Bytes of a path: the copy functions have no room for more.
constexpr std::size_t kLongestPath = 255;

// Copies `source` to `destination`; both are absolute unless the configuration says otherwise.
struct Entry {
    std::string source;
    std::string destination;
    std::uint32_t limit = 0;  // seconds; more than 60 count as 60
    InspectCopyFunction copy = nullptr;
};

// What the user allows a collection to take.
struct CopyRules {
    std::string area;                  // the folder that everything is copied into, in its plain form
    std::vector<std::string> exclude;  // patterns of fnmatch(3)
    std::string package;               // the unfinished package's path, links followed: it never goes into itself
    std::uint64_t bytesLeft = std::numeric_limits<std::uint64_t>::max();  // that may be copied
    bool dryRun = false;                                                  // count only, and change nothing

    // Whether a pattern matches the path below its source, or its last name alone.
    bool Excludes(const std::string& path) const;
};

// One path that was not collected, and why.
struct Failure {
    std::string path;
    std::string reason;
};

// The first of many: the rest is only counted.
template <typename T>
struct FirstOf {
    static constexpr std::size_t kMost = 1000;

    void Add(T value) {
        if (list.size() < kMost) {
            list.push_back(std::move(value));
        }
        ++count;
    }

    std::vector<T> list;
    std::uint64_t count = 0;
};

enum class Outcome {
    kComplete,
    kIncomplete,   // it came to its end, but some paths could not be copied
    kCutShort,     // a time limit ended it
    kInterrupted,  // the user ended it
    kMissing,      // the source does not exist
    kRefused,      // the destination is not fit; nothing was copied
    kFailed,       // it could not be started, or its process died
    kNotStarted    // the user had ended an earlier one, or the time for all was over
};

// A stable word for programs: "complete", "incomplete", "cut short", "interrupted", "missing", "refused", "failed",
// "not started".
const char* OutcomeWord(Outcome outcome);

struct EntryReport {
    Entry entry;
    Outcome outcome = Outcome::kNotStarted;
    std::string remark;  // what there is to say for people; may be empty
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    std::chrono::milliseconds duration{0};
    std::chrono::seconds limit{0};  // that held
    FirstOf<Failure> failures;
    FirstOf<std::string> messages;  // lines of the copy functions and of the tools they start
};

// Whether the copy makes the destination a mirror of a source folder, which a folder that is configured as a single
// file is, too; false for a file, and for the system log where a backup of it is kept.
bool MirrorsFolder(const Entry& entry);

// The time after which the copy is ended.
std::chrono::seconds LimitOf(const Entry& entry);

// Bytes of the old copies that the entries' copies replace.
std::uint64_t ReplacedBytes(const std::vector<Entry>& entries);

// "folder", "file" or "system log": what the entry is configured as.
const char* KindWord(InspectCopyFunction copy);

// ---- where they come from ----

struct Entries {
    std::vector<Entry> list;
    std::vector<std::string> messages;  // of the configuration's loader
};

// Those of the device's configuration file.
Result<Entries> ConfiguredEntries();

// Those of another configuration file; one that cannot be read is an error.
Result<Entries> EntriesOfFile(const std::string& path);

// Files and folders that the user names. Each is copied to its own name below `area`, with a number if the name is
// taken. A path of more than 255 bytes is an error, and so is a folder that holds the area.
Result<Entries> EntriesOfSources(const std::vector<std::string>& sources, const std::string& area, std::uint32_t limit);

}  // namespace ominspect::collect
