// The command collect: gathers the device's logs into one package, without the server.
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
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
#include "common/end_signals.h"
#include "common/output_file.h"
#include "common/table.h"
#include "common/text.h"
#include "common/times.h"

namespace ominspect::ctl {
namespace {

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
    return "ominspect-" + host + '-' + UtcName(std::chrono::system_clock::now()) + ".tar.zst";
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
        auto error = OpenArea();
        if (!error) {
            error = ReadEntries();
        }
        if (!error) {
            error = OpenOutput();
        }
        if (error) {
            return Tell(error->code == ErrorCode::kInvalidArgument ? kWrongUse : kFailed, error->text);
        }
        return Collect();
    }

private:
    std::optional<Error> OpenArea() {
        if (!options_.area.empty()) {
            collection_.area = collect::AbsolutePath(options_.area);
        } else if (options_.sources.empty()) {
            collection_.area = kDeviceArea;
        } else {
            auto made = collect::TemporaryArea::Make();
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
                return collect::EntriesOfSources(options_.sources, collection_.area, options_.limit);
            }
            if (!options_.config.empty()) {
                collection_.configuration = options_.config;
                return collect::EntriesOfFile(options_.config);
            }
            collection_.configuration = "the device's configuration file";
            return collect::ConfiguredEntries();
        }();
        if (!entries) {
            Error error = entries.Failure();
            error.text = text::Escaped(error.text);
            return error;
        }
        entries_ = std::move(entries->list);
        collection_.messages = std::move(entries->messages);
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

    ExitCode Collect() {
        collect::Display display(entries_.size());
        timespec since{};
        // The clock that the file system takes its times from.
        (void)clock_gettime(CLOCK_REALTIME_COARSE, &since);
        collection_.version = OMINSPECT_VERSION;
        collection_.started = std::chrono::system_clock::now();
        auto reports = collect::Drive(
            entries_, collection_.area, signals_,
            {[&](const collect::Progress& progress) { display.Show(progress); },
             [&](std::size_t index, const collect::EntryReport& report) { display.ShowDone(index, report); }});
        if (!reports) {
            display.Clear();
            return Tell(kFailed, "given up; no package was written");
        }
        collection_.entries = std::move(*reports);
        collection_.collected = std::chrono::system_clock::now();
        collection_.interrupted = signals_.Count() > 0;
        bool told = false;
        const auto goOn = [&](const collect::PackedTree& packed) {
            display.ShowPacking(packed);
            const int count = signals_.Count();
            if (count == 1 && !std::exchange(told, true)) {
                display.Clear();
                (void)Tell(kFailed, "interrupted; packing what is there (Ctrl-C again gives up)");
            }
            return count < 2;
        };
        (void)goOn({});
        const auto package = collect::WritePackage(*file_, collection_, since, goOn);
        display.Clear();
        return package ? Report(*package) : Tell(kFailed, CannotWrite(file_->Path(), package.Failure()).text);
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

    EndSignals signals_;  // from the beginning: what was made so far is removed after a Ctrl-C, too
    const CollectOptions& options_;
    std::unique_ptr<collect::TemporaryArea> temporary_;
    std::unique_ptr<OutputFile> file_;
    std::vector<collect::Entry> entries_;
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
