// How long log collection takes to copy, beside cp(1).
//
// Two comparisons in one run, in alternating rounds on the same file system with a warm page cache:
//   one large file     OsCopyFile, cp, cp --reflink=never
//   many small files   InspectCopyDirFile, cp -a, and the bare cost of its touch -r commands
// Prints medians, their ratios, and whether the file system shares blocks between copies.
//
//     copy_run [--size MIB] [--files N] [--rounds N] [--folder PATH]
#include <fcntl.h>
#include <getopt.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kivo/os_file.h"
#include "ominspect/collect.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    uint64_t mebibytes = 512;
    uint64_t files = 1000;
    uint64_t rounds = 9;
    std::string folder = fs::temp_directory_path();
};

std::optional<support::TempFolder> g_folder;  // holds everything, removed by exit(3)

[[noreturn]] void Fail(const std::string& what) {
    (void)std::fprintf(stderr, "copy_run: %s failed\n", what.c_str());
    std::exit(1);
}

void Check(bool good, const std::string& what) {
    if (!good) {
        Fail(what);
    }
}

Options ParseOptions(int argc, char** argv) {
    constexpr option kOptions[] = {{"size", required_argument, nullptr, 's'},
                                   {"files", required_argument, nullptr, 'f'},
                                   {"rounds", required_argument, nullptr, 'r'},
                                   {"folder", required_argument, nullptr, 'd'},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    for (int found = 0; (found = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        if (found == 's') {
            options.mebibytes = std::strtoull(optarg, nullptr, 10);
        }
        if (found == 'f') {
            options.files = std::strtoull(optarg, nullptr, 10);
        }
        if (found == 'r') {
            options.rounds = std::strtoull(optarg, nullptr, 10);
        }
        if (found == 'd') {
            options.folder = optarg;
        }
        if (found == '?') {
            std::exit(2);
        }
    }
    if (options.mebibytes == 0 || options.files == 0 || options.rounds == 0) {
        (void)std::fputs("copy_run: size, files and rounds must be numbers above 0\n", stderr);
        std::exit(2);
    }
    return options;
}

bool RunProgram(const std::vector<std::string>& command) {
    std::vector<char*> argv(command.size() + 1, nullptr);
    std::transform(command.begin(), command.end(), argv.begin(),
                   [](const std::string& word) { return const_cast<char*>(word.c_str()); });
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

// ---- what is copied ----

// No block is like another, so that nothing can be left out.
void MakeLargeFile(const fs::path& path, uint64_t mebibytes) {
    std::vector<uint64_t> block((1U << 20U) / sizeof(uint64_t));
    uint64_t state = 88172645463325252U;
    std::ofstream file(path, std::ios::binary);
    for (uint64_t i = 0; i < mebibytes; ++i) {
        for (uint64_t& word : block) {
            state ^= state << 13U;
            state ^= state >> 7U;
            state ^= state << 17U;
            word = state;
        }
        file.write(reinterpret_cast<const char*>(block.data()), 1 << 20);
    }
    Check(static_cast<bool>(file.flush()), "writing the large file");
}

std::string SmallFile(uint64_t number) {
    return "file" + std::to_string(number);
}

void MakeTree(const fs::path& path, uint64_t files) {
    fs::create_directories(path);
    for (uint64_t i = 0; i < files; ++i) {
        std::ofstream(path / SmallFile(i)) << std::string(2000, 'x') << i;
    }
}

bool SharesBlocks(const fs::path& folder) {
    std::ofstream(folder / "probe") << std::string(1U << 20U, 'x');
    const int from = open((folder / "probe").c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open((folder / "probe_copy").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const bool shares = ioctl(to, FICLONE, from) == 0;
    close(from);
    close(to);
    return shares;
}

// ---- measuring ----

struct Contender {
    std::string name;
    std::function<bool()> copy;
    std::vector<double> milliseconds{};
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Before each turn `clear` removes the copy; another one begins each round.
void Measure(std::vector<Contender>& contenders, uint64_t rounds, const std::function<void()>& clear) {
    for (uint64_t turn = 0; turn < rounds * contenders.size(); ++turn) {
        Contender& contender = contenders[(turn + turn / contenders.size()) % contenders.size()];
        clear();
        sync();  // no one pays for what another one wrote
        const auto begin = std::chrono::steady_clock::now();
        const bool good = contender.copy();
        const auto end = std::chrono::steady_clock::now();
        Check(good, contender.name);
        contender.milliseconds.push_back(std::chrono::duration<double, std::milli>(end - begin).count());
    }
}

// Each ratio is that of the first to this one.
void Print(const std::string& title, const std::vector<Contender>& contenders) {
    std::printf("%-42s %10s %10s\n", title.c_str(), "median ms", "our ratio");
    const double ours = Median(contenders[0].milliseconds);
    for (const Contender& contender : contenders) {
        const double median = Median(contender.milliseconds);
        std::printf("  %-40s %10.1f %10.2f\n", contender.name.c_str(), median, ours / median);
    }
}

void CompareLargeFile(const Options& options) {
    const fs::path source = *g_folder / "large";
    const fs::path target = *g_folder / "large_copy";
    MakeLargeFile(source, options.mebibytes);
    std::vector<Contender> contenders{
        {"OsCopyFile", [&] { return OsCopyFile(source.c_str(), target.c_str()) == 0; }},
        {"cp",
         [&] {
             return RunProgram({"cp", source, target});
         }},
        {"cp --reflink=never",
         [&] {
             return RunProgram({"cp", "--reflink=never", source, target});
         }},
    };
    Measure(contenders, options.rounds, [&] { fs::remove(target); });
    Check(RunProgram({"cmp", source, target}), "comparing the last copy");
    Print("one file of " + std::to_string(options.mebibytes) + " MiB", contenders);
    fs::remove(source);
    fs::remove(target);
}

void CompareTree(const Options& options) {
    const fs::path source = *g_folder / "tree";
    const fs::path target = *g_folder / "tree_copy";
    const fs::path touched = *g_folder / "touched";
    MakeTree(source, options.files);
    MakeTree(touched, options.files);
    const auto collect = [&] {
        CollectConfig config;
        config.running = true;
        InspectCopyDirFile(source.c_str(), target.c_str(), config);
        const fs::directory_iterator copies(target);
        return static_cast<uint64_t>(std::distance(begin(copies), end(copies))) == options.files;
    };
    const auto touchAll = [&] {
        for (uint64_t i = 0; i < options.files; ++i) {
            const std::string name = SmallFile(i);
            const std::string command = "touch -r " + (source / name).string() + " " + (touched / name).string();
            // NOLINTNEXTLINE(cert-env33-c): as the device's own collection does it
            if (std::system(command.c_str()) != 0) {
                return false;
            }
        }
        return true;
    };
    std::vector<Contender> contenders{
        {"InspectCopyDirFile", collect},
        {"cp -a",
         [&] {
             return RunProgram({"cp", "-a", source, target});
         }},
        {"system(\"touch -r\") alone", touchAll},
    };
    Measure(contenders, options.rounds, [&] { fs::remove_all(target); });
    Print("tree of " + std::to_string(options.files) + " files of 2 kB", contenders);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    try {
        g_folder.emplace(options.folder);
    } catch (const std::exception&) {
        Fail("making a folder in " + options.folder);
    }
    Check(fs::space(g_folder->Path()).available > (2 * options.mebibytes + 512) << 20U,
          "finding room for two large files");
    std::printf("%s, shared blocks: %s, %llu rounds\n", options.folder.c_str(),
                SharesBlocks(g_folder->Path()) ? "yes" : "no", static_cast<unsigned long long>(options.rounds));
    CompareLargeFile(options);
    CompareTree(options);
    return 0;
}
