// From the options to the package, with everything that is made on the way.
#include "collect_command.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "area.h"
#include "common/end_signals.h"
#include "common/live_lines.h"
#include "common/output_file.h"
#include "common/table.h"
#include "common/text.h"
#include "common/times.h"
#include "driver.h"
#include "entry.h"
#include "package.h"
#include "places.h"
#include "redaction.h"

namespace ominspect::collect {
namespace {

std::string HostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0' ? name.data() : "unknown";
}

std::string DefaultOutput(const std::string& host) {
    return "ominspect-" + host + '-' + UtcName(std::chrono::system_clock::now()) + ".tar.zst";
}

std::string Position(std::size_t index, std::size_t count) {
    return '[' + std::to_string(index + 1) + '/' + std::to_string(count) + "] ";
}

std::string Amount(std::uint64_t files, std::uint64_t bytes) {
    return std::to_string(files) + (files == 1 ? " file, " : " files, ") + text::Size(static_cast<double>(bytes));
}

std::string Seconds(std::chrono::milliseconds time) {
    std::array<char, 32> out{};
    (void)std::snprintf(out.data(), out.size(), "%.1f s", static_cast<double>(time.count()) / 1000);
    return out.data();
}

std::string Remark(const EntryReport& report) {
    const std::string word = OutcomeWord(report.outcome);
    return report.remark.empty() ? word : word + ": " + text::Escaped(report.remark);
}

// Progress on standard error: on a terminal one line that is drawn again and again (the table comes at the end), else
// one line per finished entry.
class Display {
public:
    explicit Display(std::size_t count) : count_(count) {}
    ~Display() { Clear(); }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    void Show(const Progress& progress) {
        if (!IsDue()) {
            return;
        }
        std::string line = Position(progress.index, progress.count) + text::Escaped(progress.entry.source) + ": " +
                           Amount(progress.files, progress.bytes);
        line += ", " + Seconds(progress.left) + " left";
        screen_.Draw({line});
    }

    void ShowDone(std::size_t index, const EntryReport& report) const {
        if (terminal_) {
            return;
        }
        (void)std::fprintf(stderr, "%s%s: %s, %s, %s\n", Position(index, count_).c_str(),
                           text::Escaped(report.entry.source).c_str(), Amount(report.files, report.bytes).c_str(),
                           Seconds(report.duration).c_str(), Remark(report).c_str());
    }

    void ShowPacking(const PackedTree& packed) {
        if (IsDue()) {
            screen_.Draw({"packing: " + Amount(packed.files.size(), packed.bytes)});
        }
    }

    // Takes the drawn line away.
    void Clear() { screen_.Erase(); }

private:
    bool IsDue() {
        const auto now = std::chrono::steady_clock::now();
        if (!terminal_ || now < next_) {
            return false;
        }
        next_ = now + kRedrawPeriod;
        return true;
    }

    const bool terminal_ = IsTerminal(stderr);
    const std::size_t count_;
    LiveLines screen_{stderr};
    std::chrono::steady_clock::time_point next_;  // when the line is drawn again
};

// Entry, files, bytes, time and remark of each entry; without the last line end.
std::string SummaryTable(const std::vector<EntryReport>& reports) {
    std::vector<std::vector<std::string>> rows{{"ENTRY", "FILES", "BYTES", "TIME", "REMARK"}};
    for (const EntryReport& report : reports) {
        rows.push_back({text::Escaped(report.entry.source), std::to_string(report.files), std::to_string(report.bytes),
                        Seconds(report.duration), Remark(report)});
    }
    return text::Table(rows);
}

// Removes the temporary area and the unfinished package, however it ends.
class Command {
public:
    explicit Command(const CollectOptions& options) : options_(options) {}

    ExitCode Run() {
        // So a file-size limit is an error like a full disk, and a closed pipe of the progress does not end the
        // program.
        (void)std::signal(SIGXFSZ, SIG_IGN);
        (void)std::signal(SIGPIPE, SIG_IGN);
        collection_.host = HostName();
        auto error = OpenArea();
        if (!error) {
            error = ReadEntries();
        }
        if (!error) {
            error = ReadPatterns();
        }
        if (!error && options_.dryRun) {
            return DryRun();
        }
        if (!error) {
            error = OpenOutput();
        }
        if (!error) {
            error = LookForRoom();
        }
        if (error) {
            Complain(error->text);
            return error->code == ErrorCode::kInvalidArgument ? kWrongUse : kFailed;
        }
        return Collect();
    }

private:
    std::optional<Error> OpenArea() {
        if (!options_.area.empty() || options_.sources.empty()) {
            const std::string area = options_.area.empty() ? ThePlaces().area : options_.area;
            if (!Answers(area)) {
                return OtherError("the area " + text::Escaped(area) + " does not answer");
            }
            collection_.area = options_.area.empty() ? area : AbsolutePath(area);
        } else {
            auto made = TemporaryArea::Make();
            if (!made) {
                return OtherError("no temporary folder: " + made.Failure().text);
            }
            temporary_ = std::move(*made);
            collection_.area = temporary_->Path();
        }
        return std::nullopt;
    }

    std::optional<Error> ReadEntries() {
        auto entries = [this] {
            if (!options_.sources.empty()) {
                collection_.configuration = "the command line";
                return EntriesOfSources(options_.sources, collection_.area, options_.limit);
            }
            if (!options_.config.empty()) {
                collection_.configuration = options_.config;
                return EntriesOfFile(options_.config);
            }
            const Places places = ThePlaces();
            if (!places.isDevice) {
                collection_.configuration = places.config;
                return EntriesOfFile(places.config);
            }
            collection_.configuration = "the device's configuration file";
            return ConfiguredEntries();
        }();
        if (!entries) {
            Error error = entries.Failure();
            error.text = text::Escaped(error.text);
            return error;
        }
        entries_ = std::move(entries->list);
        if (options_.sources.empty()) {
            for (Entry& entry : entries_) {
                entry.destination = Moved(entry.destination, kDeviceArea, collection_.area);
            }
        }
        collection_.messages = std::move(entries->messages);
        return std::nullopt;
    }

    std::optional<Error> ReadPatterns() {
        if (!options_.redact) {
            return std::nullopt;
        }
        std::vector<std::string> files = options_.patterns;
        if (access(kPatternsFile, F_OK) == 0) {
            files.emplace_back(kPatternsFile);
        }
        auto made = Redaction::Make(files);
        if (!made) {
            return WrongUse(text::Escaped(made.Failure().text));
        }
        redaction_ = std::move(*made);
        collection_.redacted = true;
        return std::nullopt;
    }

    std::optional<Error> OpenOutput() {
        const std::string path = options_.output.empty() ? DefaultOutput(collection_.host) : options_.output;
        auto file = OutputFile::Create(path, options_.force);
        if (!file) {
            const int number = file.Failure().number;
            if (number == EEXIST) {
                return WrongUse(text::Escaped(path) + " exists; --force replaces it");
            }
            return CannotWrite(path, number == EISDIR ? WrongUse(file.Failure().text) : file.Failure());
        }
        file_ = std::move(*file);
        collection_.file = path.substr(path.rfind('/') + 1);
        return std::nullopt;
    }

    static Error CannotWrite(const std::string& path, const Error& error) {
        return {error.code, "cannot write the package " + text::Escaped(path) + ": " + error.text};
    }

    // What the copy functions would copy, with all limits. Nothing when it was given up.
    std::optional<std::vector<EntryReport>> Count(const DriverEvents& events) {
        DriveRules rules = Rules();
        rules.copy.dryRun = true;
        return Drive(entries_, rules, signals_, events);
    }

    static std::uint64_t Sum(const std::vector<EntryReport>& reports) {
        return std::accumulate(reports.begin(), reports.end(), std::uint64_t{0},
                               [](std::uint64_t sum, const EntryReport& report) { return sum + report.bytes; });
    }

    ExitCode DryRun() {
        Start();
        auto reports = Count({[](const Progress&) {}, [](std::size_t, const EntryReport&) {}});
        if (!reports) {
            Complain("given up");
            return kFailed;
        }
        End(std::move(*reports));
        collection_.dryRun = true;
        if (options_.json) {
            (void)std::printf("%s\n", ManifestText(collection_, {}).c_str());
        } else {
            (void)std::printf("%s\nnothing was copied: %s in all, ", SummaryTable(collection_.entries).c_str(),
                              text::Size(static_cast<double>(Sum(collection_.entries))).c_str());
            const auto room = FreeBytes(collection_.area);
            (void)std::printf("%s free in %s\n", room ? text::Size(static_cast<double>(*room)).c_str() : "unknown",
                              text::Escaped(collection_.area).c_str());
        }
        return IsComplete(collection_, {}) ? kPassed : kFailed;
    }

    // Finds out beforehand whether the logs fit, and not only when the disk is full.
    std::optional<Error> LookForRoom() {
        const auto room = FreeBytes(collection_.area);
        const auto reports = Count({[](const Progress&) {}, [](std::size_t, const EntryReport&) {}});
        if (!room || !reports) {
            return std::nullopt;
        }
        const std::uint64_t needed = Sum(*reports);
        const std::uint64_t free = *room + ReplacedBytes(entries_);
        if (needed <= free) {
            return std::nullopt;
        }
        return OtherError("not enough room in " + text::Escaped(collection_.area) + ": " +
                          text::Size(static_cast<double>(needed)) + " are needed, " +
                          text::Size(static_cast<double>(free)) + " are free; --max-size and --exclude take less");
    }

    void Start() {
        collection_.version = OMINSPECT_VERSION;
        collection_.started = std::chrono::system_clock::now();
    }

    void End(std::vector<EntryReport> reports) {
        collection_.entries = std::move(reports);
        collection_.collected = std::chrono::system_clock::now();
        collection_.interrupted = signals_.Count() > 0;
    }

    ExitCode Collect() {
        Display display(entries_.size());
        timespec since{};
        // The clock that the file system takes its times from.
        (void)clock_gettime(CLOCK_REALTIME_COARSE, &since);
        Start();
        auto vendor = CallVendorHook(signals_);
        if (!vendor) {
            Complain("given up; no package was written");
            return kFailed;
        }
        collection_.vendor = std::move(*vendor);
        auto reports = Drive(entries_, Rules(), signals_,
                             {[&](const Progress& progress) { display.Show(progress); },
                              [&](std::size_t index, const EntryReport& report) { display.ShowDone(index, report); }});
        if (!reports) {
            display.Clear();
            Complain("given up; no package was written");
            return kFailed;
        }
        End(std::move(*reports));
        bool told = false;
        const auto goOn = [&](const PackedTree& packed) {
            display.ShowPacking(packed);
            const int count = signals_.Count();
            if (count == 1 && !std::exchange(told, true)) {
                display.Clear();
                Complain("interrupted; packing what is there (Ctrl-C again gives up)");
            }
            return count < 2;
        };
        (void)goOn({});
        const auto package = WritePackage(*file_, collection_, since, redaction_.get(), goOn);
        display.Clear();
        if (!package) {
            Complain(CannotWrite(file_->Path(), package.Failure()).text);
            return kFailed;
        }
        return Report(*package);
    }

    DriveRules Rules() const {
        DriveRules rules;
        rules.copy.area = collection_.area;
        rules.copy.exclude = options_.exclude;
        rules.copy.package = file_ ? ResolvedPath(file_->TemporaryPath()) : "";
        if (options_.maxSize > 0) {
            rules.copy.bytesLeft = options_.maxSize;
        }
        if (options_.totalLimit > 0) {
            rules.totalLimit = std::chrono::seconds(options_.totalLimit);
        }
        return rules;
    }

    ExitCode Report(const Package& package) const {
        if (options_.json) {
            (void)std::fputs(package.manifest.c_str(), stdout);
        } else {
            (void)std::printf("%s\n", SummaryTable(collection_.entries).c_str());
        }
        if (collection_.entries.empty()) {
            Complain("no entries are configured");
            for (const std::string& message : collection_.messages) {
                Complain(text::Escaped(message));
            }
        }
        if (!package.packed.leftOut.empty()) {
            Complain(std::to_string(package.packed.leftOut.size()) +
                     " paths of the area are not in the package; its manifest.json names them");
        }
        if (const VendorReport& vendor = collection_.vendor; !vendor.IsGood()) {
            Complain("the product's own collection failed: " + (vendor.remark.empty()
                                                                    ? "result " + std::to_string(vendor.result)
                                                                    : text::Escaped(vendor.remark)));
        }
        const auto& files = package.packed.files;
        const std::uint64_t masked =
            std::accumulate(files.begin(), files.end(), std::uint64_t{0},
                            [](std::uint64_t sum, const PackedFile& file) { return sum + file.masked.value_or(0); });
        if (masked > 0) {
            Complain(std::to_string(masked) + (masked == 1 ? " secret is masked" : " secrets are masked"));
        }
        (void)std::fprintf(options_.json ? stderr : stdout, "package: %s, %s\n", text::Escaped(file_->Path()).c_str(),
                           text::Size(static_cast<double>(file_->Size())).c_str());
        return IsComplete(collection_, package.packed) ? kPassed : kFailed;
    }

    EndSignals signals_;  // made first, so that a Ctrl-C at any time leaves nothing behind
    const CollectOptions& options_;
    std::unique_ptr<TemporaryArea> temporary_;
    std::unique_ptr<Redaction> redaction_;  // null: everything stays as it is
    std::unique_ptr<OutputFile> file_;
    std::vector<Entry> entries_;
    Collection collection_;
};

}  // namespace

ExitCode RunCollect(const CollectOptions& options) {
    try {
        return Command(options).Run();
    } catch (const std::exception& error) {
        Complain(error.what());
        return kFailed;
    }
}

}  // namespace ominspect::collect
