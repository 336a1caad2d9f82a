// What the server costs while nothing is asked of it, beside agents that a user might run instead.
//
// Starts the server, and those of nrpe(8), zabbix_agentd(8) and monit(1) that are installed, and prints for each with
// all its processes: anonymous and resident memory, threads, and how often one of them was woken while nobody asked.
// Besides, the time from the server's start to its first reply.
//
//     idle_run [seconds]
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
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
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

struct Cost {
    unsigned long anonymous = 0;  // KiB
    unsigned long resident = 0;   // KiB
    unsigned long threads = 0;
    unsigned long switches = 0;
};

// A line "Name:  number" of a file of /proc; 0 when it is not there.
unsigned long NumberIn(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(name + ':', 0) == 0) {
            return std::strtoul(line.c_str() + name.size() + 1, nullptr, 10);
        }
    }
    return 0;
}

// Adds a process and its children.
void AddCost(const std::string& pid, Cost& cost) {
    const std::string folder = "/proc/" + pid;
    cost.anonymous += NumberIn(folder + "/status", "RssAnon");
    cost.resident += NumberIn(folder + "/status", "VmRSS");
    std::error_code gone;
    for (const auto& thread : fs::directory_iterator(folder + "/task", gone)) {
        ++cost.threads;
        cost.switches += NumberIn(thread.path() / "status", "voluntary_ctxt_switches");
        std::ifstream children(thread.path() / "children");
        for (std::string child; children >> child;) {
            AddCost(child, cost);
        }
    }
}

Cost CostOf(const Child& child) {
    Cost cost;
    AddCost(std::to_string(child.Pid()), cost);
    return cost;
}

struct Agent {
    std::string name;
    Child process;
};

void AddAgents(const support::TempFolder& folder, std::vector<Agent>& agents) {
    fs::permissions(folder.Path(), fs::perms(0755));
    if (access("/usr/sbin/nrpe", X_OK) == 0) {
        const std::string config = folder / "nrpe.cfg";
        support::WriteFile(config,
                           "server_address=127.0.0.1\nallowed_hosts=127.0.0.1\nserver_port=" + bench::FreePort() +
                               "\npid_file=" + (folder / "nrpe.pid") + "\nnrpe_user=nobody\nnrpe_group=nogroup\n");
        agents.push_back({"nrpe", Child({"/usr/sbin/nrpe", "-n", "-f", "-c", config})});
    }
    if (access("/usr/sbin/zabbix_agentd", X_OK) == 0) {
        const std::string config = folder / "zabbix.conf";
        support::WriteFile(config, "Server=127.0.0.1\nListenIP=127.0.0.1\nListenPort=" + bench::FreePort() +
                                       "\nPidFile=" + (folder / "zabbix.pid") + "\nLogType=console\nAllowRoot=1\n");
        agents.push_back({"zabbix_agentd", Child({"/usr/sbin/zabbix_agentd", "-f", "-c", config})});
    }
    if (access("/usr/bin/monit", X_OK) == 0) {
        const std::string config = folder / "monitrc";
        support::WriteFile(config, "set daemon 5\nset pidfile " + (folder / "monit.pid") + "\nset idfile " +
                                       (folder / "monit.id") + "\nset statefile " + (folder / "monit.state") +
                                       "\ncheck system here\n");
        fs::permissions(config, fs::perms(0600));
        agents.push_back({"monit, a check every 5 s", Child({"/usr/bin/monit", "-I", "-c", config})});
    }
}

// Milliseconds from the start of a server to its first reply; the server runs on.
std::pair<double, Child> StartServer(sd_bus* bus, const support::TempFolder& folder) {
    const auto begin = Clock::now();
    Child server({OMINSPECT_PROGRAM}, {"KIVO_LOG_DIR=" + folder.Path().string()});
    const auto serves = [bus] { return bench::SizeOfAnswer(bus, bench::ServerCall(bus, 7, "ok")) == sizeof(uint32_t); };
    Check(support::Eventually(serves, std::chrono::seconds(10), std::chrono::microseconds(100)),
          "waiting for the server");
    return {std::chrono::duration<double, std::milli>(Clock::now() - begin).count(), std::move(server)};
}

double TrueMillis() {
    const auto begin = Clock::now();
    Child command({"/bin/true"});
    Check(command.Wait() == 0, "true");
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

int MeasureAll(int argc, char** argv) {
    const unsigned long seconds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 30;
    Check(seconds >= 5, "seconds of at least 5");
    const support::PrivateBus privateBus;
    const support::TempFolder folder;
    sd_bus* bus = bench::OpenBus();
    std::vector<double> starts;
    std::vector<double> trues;
    std::optional<Child> server;
    for (int round = 0; round < 11; ++round) {
        server.reset();
        Check(support::Eventually([bus] { return !bench::IsThere(bus, "com.kivo.proc.ominspect"); }),
              "waiting for the server's end");
        auto [millis, started] = StartServer(bus, folder);
        starts.push_back(millis);
        trues.push_back(TrueMillis());
        server.emplace(std::move(started));
    }
    std::printf("%-44s%10.1f\n", "start to first reply, milliseconds, median", bench::Evaluate(starts).median);
    std::printf("%-44s%10.1f\n", "start to end of true(1)", bench::Evaluate(trues).median);

    std::vector<Agent> agents;
    agents.push_back({"ominspect", std::move(*server)});
    AddAgents(folder, agents);
    sleep(15);  // all have come to rest
    std::vector<Cost> before;
    for (const Agent& agent : agents) {
        before.push_back(CostOf(agent.process));
        if (before.back().resident == 0) {
            (void)std::fprintf(stderr, "%s does not run: %s\n", agent.name.c_str(), agent.process.Output().c_str());
        }
        Check(before.back().resident > 0, "starting an agent");
    }
    sleep(static_cast<unsigned>(seconds));
    std::printf("%-44s%10s%10s%10s%10s\n", ("idle for " + std::to_string(seconds) + " s").c_str(), "RssAnon", "VmRSS",
                "threads", "wake-ups");
    for (std::size_t i = 0; i < agents.size(); ++i) {
        const Cost now = CostOf(agents[i].process);
        std::printf("%-44s%7lu kB%7lu kB%10lu%10lu\n", agents[i].name.c_str(), now.anonymous, now.resident, now.threads,
                    now.switches - before[i].switches);
    }
    // Asked to end, they end their children too.
    for (const Agent& agent : agents) {
        agent.process.Signal(SIGTERM);
    }
    for (Agent& agent : agents) {
        Check(agent.process.Wait(std::chrono::seconds(20)).has_value(), "the end of an agent");
    }
    sd_bus_flush_close_unref(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(MeasureAll, argc, argv);
}
