// simulate: lives many lives of a device and tells what they reached, and what went wrong.
#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "report.h"
#include "runner.h"
#include "schedule.h"
#include "support/temp_folder.h"

using namespace sim;

namespace {

struct Options {
    uint64_t seed = 1;
    uint64_t runs = 1;
    double minutes = 0;
    std::string journal;
    std::string schedule;
    std::string images;
    bool minimise = true;
    bool quiet = false;
    bool goOn = false;
};

// The program's own clocks are the simulated ones.
double RealSeconds() {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// A number as printf(3) wants it.
unsigned long long Big(uint64_t number) {
    return number;
}

std::filesystem::path Below(const std::filesystem::path& folder, const std::string& name) {
    std::filesystem::path path = folder / name;
    std::filesystem::create_directory(path);
    return path;
}

// What a life of a seed did wrong, how to live it again, and a shorter one that goes wrong in the same way.
void TellFailure(Runner& runner, uint64_t seed, const Outcome& outcome, const Options& options) {
    // The next life takes the outcome's place.
    const std::string text = outcome.text;
    const Schedule whole = ScheduleOf(outcome);
    std::printf("VIOLATION: %s\n  again:    ./scripts/simulate --seed %llu --runs 1\n", text.c_str(), Big(seed));
    if (!options.minimise) {
        return;
    }
    std::fflush(stdout);  // what follows takes a while
    const Schedule small = Minimise(runner, whole, 1000);
    const std::string path =
        (std::filesystem::temp_directory_path() / ("simulate-" + std::to_string(seed) + ".schedule")).string();
    if (WriteSchedule(path, small, text.substr(0, text.find('\n')))) {
        std::printf("  shortest: ./scripts/simulate --schedule %s (%zu choices of %zu)\n", path.c_str(),
                    CountChoices(small), CountChoices(whole));
    }
}

const Outcome& LiveOne(Runner& runner, Choices choices, const Options& options) {
    const double begin = RealSeconds();
    const Outcome& outcome = runner.RunOne(std::move(choices), options.journal);
    Report report;
    report.Add(outcome);
    if (!options.quiet) {
        report.Print(RealSeconds() - begin);
    }
    std::printf("journal %016llx\n", Big(outcome.sum));
    return outcome;
}

int RunSeed(Runner& runner, const Options& options) {
    const Outcome& outcome = LiveOne(runner, Choices(options.seed), options);
    if (!outcome.violated) {
        return 0;
    }
    TellFailure(runner, options.seed, outcome, options);
    return 1;
}

// A schedule was told with its command, and is as short as it gets.
int RunSchedule(Runner& runner, const Schedule& schedule, const Options& options) {
    const Outcome& outcome = LiveOne(runner, Choices(schedule), options);
    if (!outcome.violated) {
        return 0;
    }
    std::printf("VIOLATION: %s\n", outcome.text);
    return 1;
}

int RunMany(Runner& runner, const Options& options) {
    const double begin = RealSeconds();
    Report report;
    uint64_t failed = 0;
    bool violated = false;
    const auto next = [&](uint64_t number) -> std::unique_ptr<Choices> {
        const bool over = options.minutes > 0 ? RealSeconds() - begin > options.minutes * 60 : number >= options.runs;
        return over ? nullptr : std::make_unique<Choices>(options.seed + number);
    };
    // Of several that fail side by side the first one counts, so that the answer is always the same.
    const auto ended = [&](uint64_t number, const Outcome& outcome) {
        report.Add(outcome);
        if (outcome.violated && (!violated || number < failed)) {
            violated = true;
            failed = number;
        }
        if (outcome.violated && options.goOn) {
            std::printf("seed %llu: %s\n", Big(options.seed + number), outcome.text);
        }
        return !violated || options.goOn;
    };
    runner.Run(next, ended);
    if (!options.quiet) {
        std::printf("seeds from %llu on\n", Big(options.seed));
        report.Print(RealSeconds() - begin);
    }
    if (!violated) {
        return 0;
    }
    std::printf("found after %llu seeds\n", Big(failed + 1));
    const uint64_t seed = options.seed + failed;
    TellFailure(runner, seed, runner.RunOne(Choices(seed)), options);
    return 1;
}

int Simulate(int argc, char** argv) {
    Options options;
    CLI::App app("Lives many lives of a device, in virtual time.");
    const auto* const seed =
        app.add_option("--seed", options.seed, "The first run's seed; the next runs have the next ones");
    app.add_option("--runs", options.runs, "How many lives");
    app.add_option("--minutes", options.minutes, "Instead of --runs: for how long");
    app.add_option("--journal", options.journal, "One life: write down all that happens in it");
    app.add_option("--schedule", options.schedule, "One life: by these choices instead of a seed");
    app.add_option("--images", options.images, "Where the images are, if not beside the program");
    app.add_flag("!--no-minimise", options.minimise, "Leave a failing schedule as it is");
    app.add_flag("--go-on", options.goOn, "Name all seeds that go wrong, instead of ending with the first");
    app.add_flag("--quiet", options.quiet, "No report");
    CLI11_PARSE(app, argc, argv);

    if (seed->count() == 0 && options.minutes > 0) {
        options.seed = static_cast<uint64_t>(RealSeconds() * 1e6);
    }
    if (!options.journal.empty()) {
        options.journal = std::filesystem::absolute(options.journal).string();
    }
    Schedule schedule;
    if (!options.schedule.empty() && !ReadSchedule(options.schedule, schedule)) {
        std::fprintf(stderr, "simulate: %s is no schedule\n", options.schedule.c_str());
        return 2;
    }
    const std::filesystem::path images = options.images.empty()
                                             ? std::filesystem::canonical("/proc/self/exe").parent_path()
                                             : std::filesystem::absolute(options.images);
    const support::TempFolder folder;  // the device's paths lie below it, and there is nothing
    std::filesystem::current_path(folder.Path());
    Images server((images / "libsimulated_server.so").string(), Below(folder.Path(), "server").string(), 12);
    Images owner((images / "libsimulated_owner.so").string(), Below(folder.Path(), "owner").string(), 12);
    Images requester((images / "libsimulated_requester.so").string(), Below(folder.Path(), "requester").string(), 16);
    const size_t sideBySide = std::max(1U, std::thread::hardware_concurrency());
    Runner runner({server, owner, requester}, sideBySide);

    if (!options.schedule.empty()) {
        return RunSchedule(runner, schedule, options);
    }
    if (options.runs == 1 && options.minutes <= 0) {
        return RunSeed(runner, options);
    }
    return RunMany(runner, options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Simulate(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "simulate: %s\n", error.what());
        return 2;
    }
}
