// For each entry: whether it may be copied, the watch over its copy, and what the copy lacks.
#include "driver.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

#include "area.h"
#include "common/fd.h"
#include "copy_process.h"

namespace ominspect::collect {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kTick{200};  // between two looks at the progress

// A copy that was told to end has this long to finish its file. One that was killed has as long to disappear.
constexpr std::chrono::seconds kPatience{3};

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
    // By their names, too: the copy's paths are told apart by them.
    if (Overlap(entry.source, entry.destination) || IsInside(entry.source, AbsolutePath(entry.destination))) {
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

// Compares a source folder with its copy, which came to its end, and tells what is not there, not excluded and not
// among the paths that are known to fail: folders that cannot be read, entries after a path that was too long (the copy
// functions say nothing of both), and whatever came meanwhile. It walks over the copy, which is finite even where links
// make the source endless.
class FolderAudit {
public:
    FolderAudit(EntryReport& report, const CopyRules& rules) : report_(report), rules_(rules) {
        for (const Failure& failure : report.failures.list) {
            known_.insert(failure.path);
        }
    }

    void Run() { Compare(report_.entry.source, report_.entry.destination); }

private:
    void Compare(const std::string& source, const std::string& copy) {
        std::vector<std::string> wanted;
        std::vector<std::string> copied;
        if (const auto error = SortedNames(AT_FDCWD, source.c_str(), wanted)) {
            report_.failures.Add({source, error->text});
        }
        if (const auto error = SortedNames(AT_FDCWD, copy.c_str(), copied)) {
            report_.failures.Add({copy, error->text});
            return;
        }
        const std::size_t longest = std::max(source.size(), copy.size());
        const auto isTooLong = [&](const std::string& name) { return longest + 1 + name.size() > kLongestPath; };
        const bool ended = std::any_of(wanted.begin(), wanted.end(), isTooLong);
        for (const std::string& name : wanted) {
            const std::string path = Joined(source, name);
            if (known_.contains(path) || IsPassedOver(path)) {
                continue;
            }
            if (std::binary_search(copied.begin(), copied.end(), name)) {
                const std::string copyPath = Joined(copy, name);
                if (IsFolder(copyPath)) {
                    Compare(path, copyPath);
                }
            } else if (isTooLong(name)) {
                report_.failures.Add({path, "the path is longer than 255 bytes, which ends the copy of its folder"});
            } else {
                report_.failures.Add({path, ended ? "comes after a path longer than 255 bytes" : "not copied"});
            }
        }
    }

    bool IsPassedOver(const std::string& path) const {
        if (rules_.Excludes(path.substr(report_.entry.source.size() + 1))) {
            return true;
        }
        // Looking where a path leads takes time: only where the name is the package's.
        const std::string name = path.substr(path.rfind('/'));
        return rules_.package.ends_with(name) && ResolvedPath(path) == rules_.package;
    }

    EntryReport& report_;
    const CopyRules& rules_;
    std::set<std::string> known_;
};

void Audit(EntryReport& report, const CopyRules& rules) {
    if (MirrorsFolder(report.entry)) {
        FolderAudit(report, rules).Run();
    } else if (report.entry.copy == InspectCopyFile && report.files == 0 && report.failures.count == 0) {
        report.failures.Add({report.entry.source, "not copied"});
    }
}

// The copy functions make no folder outside the area. What is wrong with it is told with each path that fails.
void MakeArea(const std::string& area) {
    std::error_code error;
    if (std::filesystem::create_directories(area, error)) {
        std::filesystem::permissions(area, std::filesystem::perms{0770}, error);
    }
}

std::string LimitRemark(const char* which, std::chrono::seconds limit) {
    return std::string(which) + " of " + std::to_string(limit.count()) + " s ended it";
}

// What ends a copy before it has seen everything.
enum class Cause { kNone, kLimit, kTotalLimit, kInterrupt };

class EntryRun {
public:
    EntryRun(const DriveRules& rules, EndSignals& signals, const DriverEvents& events, std::size_t count)
        : rules_(rules), copyRules_(rules.copy), signals_(signals), events_(events), count_(count) {
        if (rules.totalLimit) {
            totalEnd_ = Clock::now() + *rules.totalLimit;
        }
    }

    bool IsTimeOver() const { return Clock::now() >= totalEnd_; }

    // False: given up.
    bool Run(std::size_t index, EntryReport& report) {
        const Clock::time_point start = Clock::now();
        end_ = start + report.limit;
        const bool totalFirst = totalEnd_ < end_;
        if (totalFirst) {
            end_ = totalEnd_;
            report.limit = std::chrono::ceil<std::chrono::seconds>(end_ - start);
        }
        cause_ = Cause::kNone;
        if (!rules_.copy.dryRun) {
            MakeArea(rules_.copy.area);
        }
        const bool missing = IsMissing(report.entry.source);
        const auto started = CopyProcess::Start(report.entry, copyRules_);
        if (!started) {
            report.outcome = Outcome::kFailed;
            report.remark = "its process cannot be started: " + started.Failure().text;
            return true;
        }
        CopyProcess& process = **started;
        bool killed = false;
        bool hangs = false;
        do {
            const int count = signals_.Count();
            if (count > 1) {
                return false;
            }
            if (count == 1) {
                End(process, Cause::kInterrupt);
            }
            const Clock::time_point now = Clock::now();
            if (now >= end_) {
                End(process, totalFirst ? Cause::kTotalLimit : Cause::kLimit);
            }
            if (now >= end_ + kPatience) {
                process.Kill();
                killed = true;
            }
            if (now >= end_ + 2 * kPatience) {
                hangs = true;  // where not even SIGKILL reaches it
                break;
            }
            Show(index, report.entry, process);
        } while (process.Watch(signals_.Fd(), NextLook()));
        report.duration = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        TakeIn(report, process);
        const std::string death = hangs ? "it hangs" : process.Death();
        if (killed && !death.empty()) {
            ConcludeEnded(report);
            if (const std::string current = process.Current(); !current.empty()) {
                report.failures.Add({current, "its copy was ended in the middle"});
            }
        } else {
            Conclude(report, process, missing, death);
        }
        copyRules_.bytesLeft -= std::min(copyRules_.bytesLeft, report.bytes);
        return true;
    }

private:
    // Only the first cause counts.
    void End(CopyProcess& process, Cause cause) {
        if (cause_ == Cause::kNone) {
            cause_ = cause;
            end_ = std::min(end_, Clock::now());
            process.Stop();
        }
    }

    int NextLook() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        return static_cast<int>((left.count() > 0 ? std::min(left, kTick) : kTick).count());
    }

    void Show(std::size_t index, const Entry& entry, const CopyProcess& process) const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
        events_.onProgress(
            {index, count_, entry, process.Files(), process.Bytes(), std::max(left, std::chrono::milliseconds(0))});
    }

    static void TakeIn(EntryReport& report, const CopyProcess& process) {
        report.files = process.Files();
        report.bytes = process.Bytes();
        report.failures = process.Failures();
        report.messages = process.Messages();
    }

    void Conclude(EntryReport& report, const CopyProcess& process, bool missing, const std::string& death) const {
        if (!death.empty()) {
            report.outcome = Outcome::kFailed;
            report.remark = death;
        } else if (missing) {
            report.outcome = Outcome::kMissing;
            report.remark = "the source does not exist";
        } else if (process.WasEndedEarly()) {
            ConcludeEnded(report);
        } else {
            if (!rules_.copy.dryRun) {
                Audit(report, rules_.copy);
            }
            const std::uint64_t failed = report.failures.count;
            report.outcome = failed == 0 ? Outcome::kComplete : Outcome::kIncomplete;
            if (failed > 0) {
                report.remark = std::to_string(failed) + (failed == 1 ? " path" : " paths") + " not copied";
            }
        }
    }

    void ConcludeEnded(EntryReport& report) const {
        report.outcome = cause_ == Cause::kInterrupt ? Outcome::kInterrupted : Outcome::kCutShort;
        if (cause_ == Cause::kInterrupt) {
            report.remark = "interrupted";
        } else if (cause_ == Cause::kTotalLimit) {
            report.remark = LimitRemark("the time limit for all entries", *rules_.totalLimit);
        } else {
            report.remark = LimitRemark("the time limit", report.limit);
        }
    }

    const DriveRules& rules_;
    CopyRules copyRules_;  // with what is left of the bytes
    EndSignals& signals_;
    const DriverEvents& events_;
    const std::size_t count_;
    Clock::time_point totalEnd_ = Clock::time_point::max();
    Clock::time_point end_;  // when the current copy is told to end
    Cause cause_ = Cause::kNone;
};

}  // namespace

std::optional<std::vector<EntryReport>> Drive(const std::vector<Entry>& entries, const DriveRules& rules,
                                              EndSignals& signals, const DriverEvents& events) {
    std::vector<EntryReport> reports;
    EntryRun run(rules, signals, events, entries.size());
    for (std::size_t index = 0; index < entries.size(); ++index) {
        EntryReport report;
        report.entry = entries[index];
        report.limit = LimitOf(report.entry);
        if (signals.Count() > 0) {
            report.remark = "interrupted before";
        } else if (!Answers(report.entry.source)) {
            report.outcome = Outcome::kFailed;
            report.remark = "the source does not answer";
        } else if (const std::string refusal = Refusal(report.entry, rules.copy.area); !refusal.empty()) {
            report.outcome = Outcome::kRefused;
            report.remark = refusal;
        } else if (ReplacesEarlier(report.entry, reports)) {
            report.outcome = Outcome::kRefused;
            report.remark = "it would replace the copy of an earlier entry";
        } else if (run.IsTimeOver()) {
            report.remark = "the time for all entries was over";
        } else if (!run.Run(index, report)) {
            return std::nullopt;
        }
        events.onDone(index, report);
        reports.push_back(std::move(report));
    }
    return reports;
}

}  // namespace ominspect::collect
