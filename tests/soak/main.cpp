// soak: many runs by many clients of many owners, which are killed at random, against the real server on a real bus.
// Prints what became of the requests and what is left in the server. Ends with code 1 when something is not as it must
// be.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "board.h"
#include "ominspect/client/error.h"
#include "population.h"
#include "post.h"
#include "roles.h"
#include "server_figures.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

using namespace soak;

namespace {

using Clock = std::chrono::steady_clock;

// What may stay in the server after any number of runs, over what it held after the first tenth of them.
constexpr size_t kMostMemoryKiB = 2048;

// The queue of the server's task, and what one sender may have in it.
constexpr size_t kDepth = 512;
constexpr size_t kShare = kDepth - kDepth / 8;

bool Expect(bool good, const char* what) {
    if (!good) {
        std::printf("NOT AS IT MUST BE: %s\n", what);
    }
    return good;
}

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

void Print(const char* when, const Figures& figures) {
    std::printf("%-28s%6zu jobs%6zu threads%6zu descriptors%9zu KiB\n", when, figures.jobs, figures.threads,
                figures.descriptors, figures.memoryKiB);
}

class Soak {
public:
    explicit Soak(const Plan& plan)
        : plan_(plan),
          board_(MakeBoard(folder_ / "board")),
          server_(StartServer()),
          population_(plan, board_, folder_ / "board") {}

    bool Run() {
        if (!AtRest("at the start", first_)) {
            return false;
        }
        // The first tenth fills what is kept for reuse: the heaps of threads, the table of items.
        const int64_t warmUpRuns = plan_.runs / 10;
        const int64_t warmUpGroups = plan_.groups / 10;
        Figures warm;
        if (!population_.Work(warmUpRuns, warmUpGroups) || !AtRest("after a tenth", warm)) {
            return false;
        }
        const auto begin = Clock::now();
        if (!population_.Work(plan_.runs - warmUpRuns, plan_.groups - warmUpGroups)) {
            return false;
        }
        const double seconds = SecondsSince(begin);
        Figures last;
        bool good = AtRest("after all", last);
        good = NothingStays(warm, last) && good;
        good = AllEnded(seconds) && good;
        good = Flood() && good;
        Figures flooded;
        good = AtRest("after a flood", flooded) && good;
        return NothingStays(warm, flooded) && good;
    }

private:
    support::Child StartServer() {
        std::filesystem::create_directory(folder_ / "server");
        support::Child server({"sh", "-c", R"(cd "$0" && exec "$@")", folder_ / "server", OMINSPECT_PROGRAM,
                               "--library", OMINSPECT_TEST_LIBRARY},
                              {"KIVO_LOG_DIR=" + folder_.Path().string()});
        const bool serves = support::Eventually([this] { return post_.Ask(7, "") == OS_MSG_OK; });
        if (!serves) {
            throw std::runtime_error("the server does not start: " + server.Output());
        }
        return server;
    }

    // Waits until nothing runs any more: each job has a thread, and the server says that it is idle.
    bool AtRest(const char* when, Figures& figures) {
        constexpr std::chrono::seconds kLimit{180};
        const bool rests = support::Eventually(
            [&] {
                figures = FiguresOf(server_.Pid());
                const bool asAtFirst = first_.threads == 0 || figures.threads <= first_.threads;
                return figures.jobs == 0 && asAtFirst && post_.ServerIsIdle();
            },
            kLimit);
        Print(when, figures);
        return Expect(rests, "jobs or threads are left, or the server counts runs that nobody waits for");
    }

    // The owners' connections and those of clients are the bus's, not the server's; it has one descriptor for each
    // thread that has ever waited, and those end with their threads.
    bool NothingStays(const Figures& warm, const Figures& now) const {
        const bool descriptors = Expect(now.descriptors <= first_.descriptors, "descriptors are left");
        const bool memory = Expect(now.memoryKiB <= warm.memoryKiB + kMostMemoryKiB, "memory is left");
        return descriptors && memory;
    }

    bool AllEnded(double seconds) const {
        uint64_t errors = 0;
        for (size_t code = 0; code < board_.errors.size(); ++code) {
            if (board_.errors.at(code) > 0) {
                std::printf("errors \"%s\": %llu\n", ErrorWord(static_cast<ominspect::client::ErrorCode>(code)),
                            static_cast<unsigned long long>(board_.errors.at(code)));
            }
            errors += board_.errors.at(code);
        }
        const Deaths& deaths = population_.Killed();
        std::printf("%lld single runs: %llu results; %lld groups: %llu records; %llu errors; longest %.1f s\n",
                    static_cast<long long>(plan_.runs), static_cast<unsigned long long>(board_.results),
                    static_cast<long long>(plan_.groups), static_cast<unsigned long long>(board_.records),
                    static_cast<unsigned long long>(errors), static_cast<double>(board_.longestMs) / 1000);
        std::printf("killed: %zu owners, %zu clients with %zu requests under way\n", deaths.owners, deaths.clients,
                    deaths.requests);
        std::printf("%.1f s for the last nine tenths\n", seconds);
        const auto asked = static_cast<uint64_t>(plan_.runs + plan_.groups);
        // More when a client was killed between a result and its note of it: the request is then asked again.
        const bool all = Expect(board_.results + board_.records + errors >= asked, "a request had no end");
        const bool patient =
            Expect(board_.errors.at(static_cast<size_t>(ominspect::client::ErrorCode::kTimeLimit)) == 0,
                   "a request was forgotten: its client waited for its whole limit");
        return all && patient;
    }

    // Ten times what the queue holds, while the server waits for an owner.
    bool Flood() {
        const size_t before = post_.Results();
        post_.Hold();
        bool sent = true;
        for (size_t i = 0; i < 10 * kDepth; ++i) {
            sent = post_.Send(18, R"({"name":"nobody_has_it","cmd":"run"})") == OS_MSG_OK && sent;
        }
        bool good = Expect(sent, "the bus does not take the flood");
        good = Expect(post_.Ask(7, "x") == OS_MSG_ERR_QUEUE_FULL, "the one who floods is not refused") && good;
        const auto begin = Clock::now();
        post_.Release();
        const support::Outcome next = support::Run({OMINSPECTCTL_PROGRAM, "state", ItemOf(0, "ok")});
        const double seconds = SecondsSince(begin);
        good = Expect(next.exitCode == 0, "the next request is not answered") && good;
        good = Expect(plan_.answerWithin == 0 || seconds <= plan_.answerWithin, "the next request is answered late") &&
               good;
        good = Expect(support::Eventually([&] { return post_.Results() - before >= kShare; }) &&
                          post_.Results() - before == kShare,
                      "not as many of a flood are answered as one sender may have in the queue") &&
               good;
        const std::string log = server_.Output();
        good = Expect(log.find("queue full, message 18 from soak dropped (4096 so far)") != std::string::npos,
                      "the loss is not logged") &&
               good;
        std::printf("flood: %zu messages, %zu answered, %zu dropped; the next request was answered after %.3f s\n",
                    10 * kDepth, post_.Results() - before, 10 * kDepth - (post_.Results() - before), seconds);
        return good;
    }

    const Plan plan_;
    const support::TempFolder folder_;
    const support::PrivateBus bus_;
    Post post_;
    Board& board_;
    support::Child server_;
    Population population_;
    Figures first_;
};

int RunSoak(int argc, char** argv) {
    Plan plan;
    CLI::App app("Many runs by many clients of many owners, which are killed at random.");
    app.add_option("--seed", plan.seed, "what is asked, and who is killed when, follow from it");
    app.add_option("--runs", plan.runs, "single runs")->default_val(100000);
    app.add_option("--groups", plan.groups, "group runs")->default_val(1000);
    app.add_option("--clients", plan.clients)->check(CLI::Range(size_t{1}, kMostClients));
    app.add_option("--owners", plan.owners)->check(CLI::Range(1, 1000));
    app.add_option("--kill-every", plan.killEvery, "single runs from one death to the next")
        ->check(CLI::PositiveNumber);
    app.add_option("--answer-within", plan.answerWithin,
                   "seconds, for the next request after the flood (default: not asked for)")
        ->check(CLI::PositiveNumber)
        ->take_last();
    CLI11_PARSE(app, argc, argv);
    std::printf("seed %llu, %zu clients, %zu owners\n", static_cast<unsigned long long>(plan.seed), plan.clients,
                plan.owners);
    return Soak(plan).Run() ? kWell : kFailed;
}

}  // namespace

// The roles are started with all their arguments.
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const std::vector<std::string> words(argv + 1, argv + argc);
    try {
        if (words.size() == 2 && words[0] == "owner") {
            return RunOwner(std::stoul(words[1]));
        }
        if (words.size() == 6 && words[0] == "client") {
            return RunClient(JoinBoard(words[1]), std::stoul(words[2]), std::stoul(words[3]), words[4] == "groups",
                             std::stoull(words[5]));
        }
        return RunSoak(argc, argv);
    } catch (const std::exception& failure) {
        std::printf("%s\n", failure.what());
        return kFailed;
    }
}
