// What a log line costs beside the bare write(2) of the same bytes, in the same run and the same folder in memory.
//
//     log_run [rounds]
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench.h"
#include "kivo/om_log_client.h"
#include "scratch.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;

constexpr int kBatch = 50;                                              // lines of a round
constexpr KivoOmLogCreation kCreation{512, 2, 2097152, "inspect.log"};  // as the server creates it
constexpr const char* kText = "inspect server recv msg id 0 from [ominspectctl_1a2b:main_task]";

template <typename Line>
double MicrosOfOne(const Line& line) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kBatch; ++i) {
        line();
    }
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() / kBatch;
}

void Print(const char* what, const bench::Figures& figures) {
    std::printf("%-48s%10.2f%10.2f\n", what, figures.median, figures.p99);
}

int Measure(int argc, char** argv) {
    const unsigned long rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 4000;
    Check(rounds > 0, "a number of rounds above 0");
    const support::TempFolder folder(bench::ScratchParent());
    Check(setenv("KIVO_LOG_DIR", folder.Path().c_str(), 1) == 0, "naming the log's folder");
    KivoOmLogHandle log = 0;
    Check(KivoOmLogClientInit("om_inspect", 10) == 0 && KivoOmLogCreateLog(&kCreation, &log) == 0, "opening the log");
    const auto record = [log] { KivoOmLogModuleLogRecord(3, log, "inspect_server", 18, 48, "%s", kText); };

    record();
    const std::string bytes = support::Contents(folder.Path() / "inspect.log");
    const int bare = open((folder / "bare").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    Check(!bytes.empty() && bare >= 0, "opening the files");
    const auto append = [bare, &bytes] {
        Check(write(bare, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "writing a line");
    };

    std::vector<double> lines;
    std::vector<double> writes;
    std::size_t size = 0;
    for (unsigned long round = 0; round < rounds; ++round) {
        lines.push_back(MicrosOfOne(record));
        writes.push_back(MicrosOfOne(append));
        size += kBatch * bytes.size();
        if (size > kCreation.fileSize) {  // where the log begins a new file
            Check(ftruncate(bare, 0) == 0, "emptying the file");
            size = 0;
        }
    }
    close(bare);
    const bench::Figures line = bench::Evaluate(lines);
    const bench::Figures call = bench::Evaluate(writes);
    std::printf("%-48s%10s%10s\n", ("a line of " + std::to_string(bytes.size()) + " bytes, microseconds").c_str(),
                "median", "p99");
    Print("log client", line);
    Print("write(2)", call);
    std::printf("%-48s%10.2f\n", "more than the write", line.median - call.median);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(Measure, argc, argv);
}
