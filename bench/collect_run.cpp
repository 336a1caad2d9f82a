// How long a collection takes as a whole command, beside cp(1) and tar(1) doing the same.
//
// A folder with many small files of log text, and one with a large file, are copied into an area and packed with zstd:
// by ominspectctl collect, with and without the masking of secrets, and by cp -a and tar --zstd. In turns, with a warm
// page cache, on the file system of temporary files.
//
//     collect_run [rounds]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench.h"
#include "support/child.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr std::size_t kFiles = 1000;
constexpr std::size_t kSmall = 20'000;
constexpr std::size_t kLarge = 64'000'000;

// Log text: lines that differ in their times and numbers.
void WriteLog(const fs::path& path, std::size_t bytes, unsigned seed) {
    std::ofstream file(path);
    for (std::size_t written = 0; file && written < bytes;) {
        seed = seed * 1103515245U + 12345U;
        char line[160];
        written += static_cast<std::size_t>(std::snprintf(
            line, sizeof line, "2026-11-%02u %02u:%02u:%02u.%03u info audio mixer/%u channel %u level %u\n",
            1 + seed % 28, seed / 28 % 24, seed / 61 % 60, seed / 67 % 60, seed / 71 % 1000, seed / 73 % 100,
            seed / 79 % 16, seed / 83 % 4096));
        file << line;
    }
    Check(file.good(), "writing a log");
}

class Collection {
public:
    explicit Collection(const support::TempFolder& folder) : folder_(folder) {}

    double Ours(const std::string& source, bool masked) const {
        Clear();
        std::vector<std::string> command{OMINSPECTCTL_PROGRAM, "collect",           "--area", folder_ / "area",
                                         "--output",           folder_ / "package", source};
        if (!masked) {
            command.insert(command.begin() + 2, "--no-redact");
        }
        return Millis(command);
    }

    double Theirs(const std::string& source) const {
        Clear();
        return Millis({"/bin/sh", "-c",
                       "mkdir '" + (folder_ / "area") + "' && cp -a '" + source + "' '" + (folder_ / "area") +
                           "' && tar --zstd -cf '" + (folder_ / "package") + "' -C '" + (folder_ / "area") + "' ."});
    }

private:
    void Clear() const {
        fs::remove_all(folder_ / "area");
        fs::remove_all(folder_ / "package");
    }

    static double Millis(const std::vector<std::string>& command) {
        const auto begin = Clock::now();
        const support::Outcome outcome = support::Run(command);
        const double millis = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        if (outcome.exitCode != 0) {
            (void)std::fputs(outcome.output.c_str(), stderr);
        }
        Check(outcome.exitCode == 0, command[0].c_str());
        return millis;
    }

    const support::TempFolder& folder_;
};

void Compare(const Collection& collection, const std::string& source, const char* what, std::size_t rounds) {
    std::vector<double> masked;
    std::vector<double> plain;
    std::vector<double> theirs;
    for (std::size_t round = 0; round < rounds; ++round) {
        masked.push_back(collection.Ours(source, true));
        plain.push_back(collection.Ours(source, false));
        theirs.push_back(collection.Theirs(source));
    }
    const double yardstick = bench::Evaluate(theirs).median;
    std::printf("%-44s%10s%10s\n", what, "median ms", "ratio");
    std::printf("  %-42s%10.0f%10.2f\n", "ominspectctl collect", bench::Evaluate(masked).median,
                bench::Evaluate(masked).median / yardstick);
    std::printf("  %-42s%10.0f%10.2f\n", "ominspectctl collect --no-redact", bench::Evaluate(plain).median,
                bench::Evaluate(plain).median / yardstick);
    std::printf("  %-42s%10.0f\n", "cp -a, then tar --zstd", yardstick);
}

int MeasureAll(int argc, char** argv) {
    const std::size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 7;
    Check(rounds >= 3, "rounds of at least 3");
    const support::TempFolder folder;
    fs::create_directory(folder / "small");
    fs::create_directory(folder / "large");
    for (std::size_t i = 0; i < kFiles; ++i) {
        WriteLog(folder / ("small/" + std::to_string(i) + ".log"), kSmall, static_cast<unsigned>(i));
    }
    WriteLog(folder / "large/all.log", kLarge, 1);
    const Collection collection(folder);
    Compare(collection, folder / "small", "1000 files of 20 kB", rounds);
    Compare(collection, folder / "large", "one file of 64 MB", rounds);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
