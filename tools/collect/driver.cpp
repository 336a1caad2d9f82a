// For each entry: whether it may be copied, the watch over its copy, and what the copy lacks.
#include "driver.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>

#include "area.h"
#include "common/fd.h"
#include "copy_process.h"

namespace ominspect::collect {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTick = 200;  // milliseconds between two looks at the progress

bool IsMissing(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

// Why the entry must not be copied, because that would write or delete elsewhere; empty when it may.
std::string Refusal(const Entry& entry, const std::string& area) {
    if (entry.source.empty()) {
        return "no source is configured";
    }
    if (entry.destination.empty()) {
        return "no destination is configured";
    }
    if (!PlaceIn(area, entry.destination)) {
        return "the destination " + entry.destination + " is outside the area " + area;
    }
    if (Overlap(entry.source, entry.destination)) {
        return "source and destination overlap";
    }
    return {};
}

// Whether the entry's copy would replace that of an earlier one.
bool ReplacesEarlier(const Entry& entry, const std::vector<EntryReport>& earlier) {
    return std::any_of(earlier.begin(), earlier.end(), [&](const EntryReport& report) {
        return report.outcome != Outcome::kRefused &&
               IsInside(AbsolutePath(report.entry.destination), AbsolutePath(entry.destination));
    });
}

std::string Joined(const std::string& folder, const std::string& name) {
    std::string path = folder;
    return path.append(1, '/').append(name);
}

bool IsFolder(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Compares a source folder with its copy, which came to its end, and tells what is not there and not among the paths in
// `known`: folders that cannot be read, entries after a path that was too long (the copy functions say nothing of
// both), and whatever came meanwhile. It walks over the copy, which is finite even where links make the source endless.
void AuditFolder(const std::string& source, const std::string& copy, const std::set<std::string>& known,
                 const std::function<void(Failure)>& tell) {
    std::vector<std::string> wanted;
    std::vector<std::string> copied;
    if (const auto error = SortedNames(AT_FDCWD, source.c_str(), wanted)) {
        tell({source, error->text});
    }
    if (const auto error = SortedNames(AT_FDCWD, copy.c_str(), copied)) {
        tell({copy, error->text});
        return;
    }
    const std::size_t longest = std::max(source.size(), copy.size());
    const bool ended = std::any_of(wanted.begin(), wanted.end(),
                                   [&](const std::string& name) { return longest + 1 + name.size() > kLongestPath; });
    for (const std::string& name : wanted) {
        const std::string path = Joined(source, name);
        const std::string copyPath = Joined(copy, name);
        if (known.contains(path)) {
            continue;
        }
        if (std::binary_search(copied.begin(), copied.end(), name)) {
            if (IsFolder(copyPath)) {
                AuditFolder(path, copyPath, known, tell);
            }
        } else if (longest + 1 + name.size() > kLongestPath) {
            tell({path, "the path is longer than 255 bytes, which ends the copy of its folder"});
        } else {
            tell({path, ended ? "comes after a path longer than 255 bytes" : "not copied"});
        }
    }
}

void Audit(EntryReport& report) {
    std::set<std::string> known;
    for (const Failure& failure : report.failures.list) {
        known.insert(failure.path);
    }
    if (MirrorsFolder(report.entry)) {
        AuditFolder(report.entry.source, report.entry.destination, known,
                    [&](Failure failure) { report.failures.Add(std::move(failure)); });
    } else if (report.entry.copy == InspectCopyFile && report.files == 0 && known.empty()) {
        report.failures.Add({report.entry.source, "not copied"});
    }
}

std::string LimitRemark(const Entry& entry) {
    const auto limit = LimitOf(entry).value_or(std::chrono::seconds(0));
    return "the time limit of " + std::to_string(limit.count()) + " s ended it";
}

class EntryRun {
public:
    EntryRun(EndSignals& signals, const DriverEvents& events, std::size_t count)
        : signals_(signals), events_(events), count_(count) {}

    // False: given up.
    bool Run(std::size_t index, EntryReport& report) {
        const Clock::time_point start = Clock::now();
        const auto started = CopyProcess::Start(report.entry);
        if (!started) {
            report.outcome = Outcome::kFailed;
            report.remark = "its process cannot be started: " + started.Failure().text;
            return true;
        }
        CopyProcess& process = **started;
        const bool missing = IsMissing(report.entry.source);
        bool interrupted = false;
        bool stopped = false;
        do {
            const int count = signals_.Count();
            if (count > 1) {
                return false;
            }
            if (count == 1 && !interrupted) {
                interrupted = true;
                stopped = process.Stop();
            }
            Show(index, report.entry, process, Clock::now() - start);
        } while (process.Watch(signals_.Fd(), kTick));
        report.duration = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        Conclude(report, process, missing, stopped);
        return true;
    }

private:
    void Show(std::size_t index, const Entry& entry, const CopyProcess& process, Clock::duration passed) const {
        std::optional<std::chrono::milliseconds> left;
        if (const auto limit = LimitOf(entry)) {
            left = std::max(std::chrono::duration_cast<std::chrono::milliseconds>(*limit - passed),
                            std::chrono::milliseconds(0));
        }
        events_.onProgress({index, count_, entry, process.Files(), process.Bytes(), left});
    }

    static void Conclude(EntryReport& report, CopyProcess& process, bool missing, bool stopped) {
        report.files = process.Files();
        report.bytes = process.Bytes();
        report.failures = process.Failures();
        report.messages = process.Messages();
        if (const std::string death = process.Death(); !death.empty()) {
            report.outcome = Outcome::kFailed;
            report.remark = death;
        } else if (missing) {
            report.outcome = Outcome::kMissing;
            report.remark = "the source does not exist";
        } else if (process.WasEndedEarly()) {
            report.outcome = stopped ? Outcome::kInterrupted : Outcome::kCutShort;
            report.remark = stopped ? "interrupted" : LimitRemark(report.entry);
        } else {
            Audit(report);
            const std::uint64_t failed = report.failures.count;
            report.outcome = failed == 0 ? Outcome::kComplete : Outcome::kIncomplete;
            if (failed > 0) {
                report.remark = std::to_string(failed) + (failed == 1 ? " path" : " paths") + " not copied";
            }
        }
    }

    EndSignals& signals_;
    const DriverEvents& events_;
    std::size_t count_;
};

}  // namespace

std::optional<std::vector<EntryReport>> Drive(const std::vector<Entry>& entries, const std::string& area,
                                              EndSignals& signals, const DriverEvents& events) {
    std::vector<EntryReport> reports;
    EntryRun run(signals, events, entries.size());
    for (std::size_t index = 0; index < entries.size(); ++index) {
        EntryReport report;
        report.entry = entries[index];
        if (signals.Count() > 0) {
            report.remark = "interrupted before";
        } else if (const std::string refusal = Refusal(report.entry, area); !refusal.empty()) {
            report.outcome = Outcome::kRefused;
            report.remark = refusal;
        } else if (ReplacesEarlier(report.entry, reports)) {
            report.outcome = Outcome::kRefused;
            report.remark = "it would replace the copy of an earlier entry";
        } else if (!run.Run(index, report)) {
            return std::nullopt;
        }
        events.onDone(index, report);
        reports.push_back(std::move(report));
    }
    return reports;
}

}  // namespace ominspect::collect
