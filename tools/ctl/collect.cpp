// The command collect: gathers the device's logs into one package, without the server.
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include "collect/area.h"
#include "collect/display.h"
#include "collect/entries.h"
#include "collect/package.h"
#include "commands.h"
#include "end_signals.h"
#include "text/table.h"
#include "text/text.h"

namespace ominspect::ctl {
namespace {

using collect::Interrupts;

constexpr const char* kDeviceArea = "/data/inspect/diag/log";

struct CollectOptions {
    std::vector<std::string> sources;
    std::string config;
    std::string area;
    std::string output;
    bool force = false;
    std::uint32_t limit = 5;  // seconds, for the sources
    bool json = false;
};

ExitCode Tell(ExitCode code, const std::string& text) {
    (void)std::fprintf(stderr, "ominspectctl: %s\n", text.c_str());
    return code;
}

std::string HostName() {
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0' ? name.data() : "unknown";
}

std::string DefaultOutput(const std::string& host) {
    const std::time_t now = std::time(nullptr);
    std::tm fields{};
    std::array<char, 40> time{};
    (void)gmtime_r(&now, &fields);
    (void)std::strftime(time.data(), time.size(), "%Y%m%dT%H%M%SZ", &fields);
    return "ominspect-" + host + '-' + time.data() + ".tar.zst";
}

// Whatever is left behind by an early return is removed: the area, the unfinished package.
class Command {
public:
    explicit Command(const CollectOptions& options) : options_(options) {}

    ExitCode Run() {
        // A file-size limit is an error like a full disk, and a closed pipe behind the progress ends nothing.
        (void)std::signal(SIGXFSZ, SIG_IGN);
        (void)std::signal(SIGPIPE, SIG_IGN);
        collection_.host = HostName();
        if (const ExitCode code = OpenArea(); code != kPassed) {
            return code;
        }
        if (const ExitCode code = ReadEntries(); code != kPassed) {
            return code;
        }
        if (const ExitCode code = OpenOutput(); code != kPassed) {
            return code;
        }
        return Collect();
    }

private:
    ExitCode OpenArea() {
        if (!options_.area.empty()) {
            collection_.area = collect::AbsolutePath(options_.area);
        } else if (options_.sources.empty()) {
            collection_.area = kDeviceArea;
        } else {
            temporary_ = collect::TemporaryArea::Make();
            if (!temporary_) {
                return Tell(kFailed, std::string("no temporary folder: ") + std::strerror(errno));
            }
            collection_.area = temporary_->Path();
        }
        return kPassed;
    }

    ExitCode ReadEntries() {
        if (!options_.sources.empty()) {
            collection_.configuration = "the command line";
            entries_ = collect::EntriesOfSources(options_.sources, collection_.area, options_.limit);
            if (!entries_.error.empty()) {
                return Tell(kWrongUse, text::Escaped(entries_.error));
            }
        } else if (!options_.config.empty()) {
            collection_.configuration = options_.config;
            entries_ = collect::EntriesOfFile(options_.config);
            if (!entries_.error.empty()) {
                return Tell(kWrongUse, text::Escaped(options_.config + ": " + entries_.error));
            }
        } else {
            collection_.configuration = "the device's configuration file";
            entries_ = collect::ConfiguredEntries();
            if (!entries_.error.empty()) {
                return Tell(kFailed, entries_.error);
            }
        }
        return kPassed;
    }

    ExitCode OpenOutput() {
        const std::string path = options_.output.empty() ? DefaultOutput(collection_.host) : options_.output;
        int error = 0;
        file_ = collect::OutputFile::Create(path, options_.force, error);
        if (file_) {
            collection_.file = path.substr(path.rfind('/') + 1);
            return kPassed;
        }
        if (error == EEXIST) {
            return Tell(kWrongUse, text::Escaped(path) + " exists; --force replaces it");
        }
        return CannotWrite(error == EISDIR ? kWrongUse : kFailed, path, std::strerror(error));
    }

    static ExitCode CannotWrite(ExitCode code, const std::string& path, const std::string& why) {
        return Tell(code, "cannot write the package " + text::Escaped(path) + ": " + why);
    }

    ExitCode Collect() {
        Interrupts interrupts(signals_.Fd());
        collect::Display display(isatty(STDERR_FILENO) != 0, entries_.list.size());
        timespec since{};
        // The clock that the file system takes its times from.
        (void)clock_gettime(CLOCK_REALTIME_COARSE, &since);
        collection_.version = OMINSPECT_VERSION;
        collection_.messages = entries_.messages;
        collection_.started = std::chrono::system_clock::now();
        auto reports = collect::Drive(
            entries_.list, collection_.area, interrupts,
            {[&](const collect::Progress& progress) { display.Show(progress); },
             [&](std::size_t index, const collect::EntryReport& report) { display.ShowDone(index, report); }});
        if (!reports) {
            display.Clear();
            return Tell(kFailed, "given up; no package was written");
        }
        collection_.entries = std::move(*reports);
        collection_.collected = std::chrono::system_clock::now();
        collection_.interrupted = interrupts.Count() > 0;
        bool told = false;
        const auto goOn = [&](const collect::PackedTree& packed) {
            display.ShowPacking(packed);
            const int count = interrupts.Count();
            if (count == 1 && !std::exchange(told, true)) {
                display.Clear();
                (void)Tell(kFailed, "interrupted; packing what is there (Ctrl-C again gives up)");
            }
            return count < 2;
        };
        (void)goOn({});
        const collect::Package package = collect::WritePackage(*file_, collection_, since, goOn);
        display.Clear();
        if (!package.error.empty()) {
            return CannotWrite(kFailed, file_->Path(), package.error);
        }
        return Report(package);
    }

    ExitCode Report(const collect::Package& package) const {
        if (options_.json) {
            (void)std::fputs(package.manifest.c_str(), stdout);
        } else {
            (void)std::printf("%s\n", collect::SummaryTable(collection_.entries).c_str());
        }
        if (collection_.entries.empty()) {
            (void)Tell(kFailed, "no entries are configured");
            for (const std::string& message : collection_.messages) {
                (void)Tell(kFailed, text::Escaped(message));
            }
        }
        if (!package.packed.leftOut.empty()) {
            (void)Tell(kFailed, std::to_string(package.packed.leftOut.size()) +
                                    " paths of the area are not in the package; its manifest.json names them");
        }
        (void)std::fprintf(options_.json ? stderr : stdout, "package: %s, %s\n", text::Escaped(file_->Path()).c_str(),
                           text::Size(static_cast<double>(file_->Size())).c_str());
        return collect::IsComplete(collection_, package.packed) ? kPassed : kFailed;
    }

    const EndSignals signals_;  // from the beginning: what was made so far is removed after a Ctrl-C, too
    const CollectOptions& options_;
    std::unique_ptr<collect::TemporaryArea> temporary_;
    std::unique_ptr<collect::OutputFile> file_;
    collect::Entries entries_;
    collect::Collection collection_;
};

ExitCode RunCollect(const CollectOptions& options) {
    try {
        return Command(options).Run();
    } catch (const std::exception& error) {
        return Tell(kFailed, error.what());
    }
}

}  // namespace

void AddCollect(CLI::App& app, Chosen& chosen) {
    constexpr int kLongestLimit = 60;
    const auto options = std::make_shared<CollectOptions>();
    CLI::App* command = app.add_subcommand("collect", "Gathers the device's logs into one package, without the server");
    command->add_option("SOURCE", options->sources,
                        "Files and folders to collect instead of the configured entries; each in its own folder");
    command->add_option("--config", options->config, "Take the entries of another configuration file")
        ->type_name("FILE")
        ->excludes("SOURCE");
    command->add_option("--area", options->area, "Folder to copy into, and to pack; it is kept")->type_name("DIR");
    command->add_option("--output", options->output, "The package (default: ominspect-HOST-TIME.tar.zst)")
        ->type_name("FILE");
    command->add_flag("--force", options->force, "Replace a package that exists");
    command->add_option("--timeout", options->limit, "Time limit of each SOURCE (default: 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kLongestLimit))
        ->needs("SOURCE");
    AddJson(*command, options->json, "Print the package's manifest");
    command->callback([options, &chosen] { chosen = [options] { return RunCollect(*options); }; });
}

}  // namespace ominspect::ctl
