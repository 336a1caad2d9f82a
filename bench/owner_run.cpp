// How long a run takes that starts a command, beside the same work in a bare program.
//
//   owner   client -> ominspect -> ominspect-owner, which runs /bin/echo ok, and back (message 0)
//   server  client -> ominspect -> a process that answers at once, and back; then the command as below
//   bare    client -> a process that only forwards -> a process that only answers, and back; then posix_spawn(3) of the
//           same command by the client, its output read to the end, and waitpid(2)
//
//     owner_run [rounds]
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bare_road.h"
#include "bench.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;
using support::Child;

// Runs /bin/echo ok; whether it succeeded and said so.
bool RunCommand() {
    int ends[2] = {-1, -1};
    Check(pipe2(ends, O_CLOEXEC) == 0, "making a pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    char command[] = "/bin/echo";
    char word[] = "ok";
    char* arguments[] = {command, word, nullptr};
    pid_t pid = -1;
    const bool started = posix_spawn(&pid, command, &actions, nullptr, arguments, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<size_t>(got));
    }
    close(ends[0]);
    int status = -1;
    return started && waitpid(pid, &status, 0) == pid && status == 0 && output == "ok\n";
}

int MeasureAll(int argc, char** argv) {
    bench::BareRoad::Serve(argc, argv);
    if (argc > 1 && std::strcmp(argv[1], "--owner") == 0) {
        bench::ServeItems("bareowner", {"at_once"});
    }
    const size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000;
    Check(rounds >= 100, "rounds of at least 100");

    const support::PrivateBus privateBus;
    const support::TempFolder folder;
    const bench::BareRoad road(argv[0], 1);
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder.Path().string()});
    const std::string config = folder / "owner.xml";
    support::WriteFile(config,
                       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Owner process=\"benchowner\">"
                       "<Item name=\"ok\" timeout=\"10\" isSync=\"true\"><Command>/bin/echo</Command><Arg>ok</Arg>"
                       "</Item></Owner>\n");
    const Child owner({OMINSPECT_OWNER_PROGRAM, config});
    sd_bus* bus = bench::OpenBus();
    Check(support::Eventually([bus] { return bench::IsThere(bus, "com.kivo.proc.ominspect"); }),
          "waiting for the server");
    const Child bareOwner({argv[0], "--owner"});
    const auto succeeds = [bus](const char* request) {
        return bench::StatusOfRun(bus, bench::ServerCall(bus, 0, request)) == "success";
    };
    const auto run = [&] { return succeeds(bench::kRequest); };
    const auto atOnce = [&] { return succeeds(R"({"name":"at_once","cmd":"run"})"); };
    Check(support::Eventually([&] { return road.IsReady(bus); }) && support::Eventually(run) &&
              support::Eventually(atOnce),
          "waiting for all processes");
    sleep(11);  // the server has come to rest, and sends events to subscribers only
    const auto bare = [bus] {
        return bench::SizeOfAnswer(bus, bench::BareRoad::Forwarded(bus)) == bench::kRecordSize && RunCommand();
    };
    const auto atOnceAndBare = [&] { return atOnce() && RunCommand(); };
    bench::MeasureRows({{"run of a command by ominspect-owner", run, {}},
                        {"bare forwarded call and bare command", bare, {}},
                        {"run of a command by ominspect-owner", run, {}},
                        {"run by a bare owner, and bare command", atOnceAndBare, {}}},
                       rounds);
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
