// How long whole commands take: ominspectctl beside check_nrpe(8), both as a user starts them.
//
// All run the same check, /bin/echo ok, on this machine: ominspectctl through the server and ominspect-owner,
// check_nrpe through an nrpe(8) of its own on the loopback address, without TLS. They take turns. Prints the median
// time from the start of each process to its end, and the ratios to check_nrpe, or to true(1) when nrpe is not
// installed.
//
//     program_run [rounds]
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "bench.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace {

using bench::Check;
using support::Child;
using Command = std::vector<std::string>;

constexpr const char* kNrpe = "/usr/sbin/nrpe";
constexpr const char* kCheckNrpe = "/usr/lib/nagios/plugins/check_nrpe";

// Runs a command to its end, its output thrown away; whether it succeeded.
bool Succeeds(const Command& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int status = -1;
    const bool started = posix_spawn(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return started && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

double Micros(const Command& command) {
    const auto begin = std::chrono::steady_clock::now();
    Check(Succeeds(command), command[0].c_str());
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
}

Child StartNrpe(const support::TempFolder& folder, const std::string& port) {
    const std::string config = folder / "nrpe.cfg";
    support::WriteFile(config, "server_address=127.0.0.1\nallowed_hosts=127.0.0.1\nserver_port=" + port +
                                   "\npid_file=" + (folder / "nrpe.pid") +
                                   "\nnrpe_user=nobody\nnrpe_group=nogroup\ncommand[echo]=/bin/echo ok\n");
    std::filesystem::permissions(folder.Path(), std::filesystem::perms(0755));
    return Child({kNrpe, "-n", "-f", "-c", config});
}

Child StartOwner(const support::TempFolder& folder) {
    const std::string config = folder / "owner.xml";
    support::WriteFile(config,
                       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Owner process=\"benchowner\" maxParallel=\"8\">"
                       "<Item name=\"echo\" timeout=\"10\" isSync=\"true\"><Command>/bin/echo</Command><Arg>ok</Arg>"
                       "</Item></Owner>\n");
    return Child({OMINSPECT_OWNER_PROGRAM, config});
}

int Measure(int argc, char** argv) {
    const size_t rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 60;
    Check(rounds >= 10, "rounds of at least 10");
    const support::PrivateBus privateBus;
    const support::TempFolder folder;
    setenv("XDG_STATE_HOME", folder.Path().c_str(), 1);
    const Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder.Path().string()});
    const Child owner = StartOwner(folder);
    const Command run{OMINSPECTCTL_PROGRAM, "run", "echo"};
    Check(support::Eventually([&run] { return Succeeds(run); }), "waiting for the server and the owner");

    std::vector<Command> commands{run, {OMINSPECTCTL_PROGRAM, "state", "echo"}};
    std::optional<Child> nrpe;
    if (access(kNrpe, X_OK) == 0 && access(kCheckNrpe, X_OK) == 0) {
        const std::string port = bench::FreePort();
        nrpe.emplace(StartNrpe(folder, port));
        commands.push_back({kCheckNrpe, "-n", "-H", "127.0.0.1", "-p", port, "-c", "echo"});
        Check(support::Eventually([&commands] { return Succeeds(commands.back()); }), "waiting for nrpe");
    } else {
        std::puts("nrpe is not installed (packages nagios-nrpe-server, nagios-nrpe-plugin): compared with true(1)");
        commands.push_back({"/bin/true"});
    }
    sleep(11);  // the server has come to rest, and sends events to subscribers only

    std::vector<std::vector<double>> micros(commands.size());
    for (size_t i = 0; i < rounds; ++i) {
        for (size_t each = 0; each < commands.size(); ++each) {
            micros[each].push_back(Micros(commands[each]));
        }
    }
    const double yardstick = bench::Evaluate(micros.back()).median;
    std::printf("%-44s%10s%10s%10s\n", (std::to_string(rounds) + " rounds, milliseconds").c_str(), "median", "p99",
                "ratio");
    for (size_t each = 0; each < commands.size(); ++each) {
        const bench::Figures figures = bench::Evaluate(micros[each]);
        const Command& command = commands[each];
        const std::string name = std::filesystem::path(command[0]).filename().string() + ' ' +
                                 (command.size() == 3 ? command[1] + ' ' + command[2] : "");
        std::printf("%-44s%10.2f%10.2f%10.2f\n", name.c_str(), figures.median / 1000, figures.p99 / 1000,
                    figures.median / yardstick);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(Measure, argc, argv);
}
