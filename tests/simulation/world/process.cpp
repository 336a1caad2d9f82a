// A process that has ended stays in the list: others may still point to it.
#include "world/process.h"

#include <algorithm>

#include "world/bus.h"
#include "world/journal.h"
#include "world/observer.h"
#include "world/outcome.h"

namespace sim {

namespace {

std::vector<std::unique_ptr<Process>>& All() {
    static auto& all = *new std::vector<std::unique_ptr<Process>>;
    return all;
}

void End(Process& process) {
    process.dead = true;
    process.killIn = 0;
    if (process.observer != nullptr) {
        process.observer->OnEnd(process);
        process.observer = nullptr;
    }
    LeaveBus(process);
    process.timers.clear();
    Wake(&process);
    if (process.onEnd) {
        process.onEnd();
    }
    EndThreads(process);
}

}  // namespace

std::shared_ptr<Task> Process::FindTask(const std::string& taskName) const {
    const auto task = std::ranges::find(
        tasks, taskName, [](const auto& each) -> const auto& { return each->name; });
    return task == tasks.end() ? nullptr : *task;
}

Process& StartProcess(const std::string& kind, std::function<void()> main) {
    const InPlatform platform;
    All().push_back(std::make_unique<Process>());
    Process& process = *All().back();
    process.number = static_cast<uint32_t>(All().size());
    process.kind = kind;
    Note({"start ", process.Label()});
    Spawn(process, "main", [&process, main = std::move(main)] {
        main();
        const InPlatform ending;
        Note({"end of ", process.Label()});
        End(process);
    });
    return process;
}

void KillProcess(Process& process) {
    if (process.dead) {
        return;
    }
    const InPlatform platform;
    Count(process.killedBy);
    Note({"kill ", process.Label()});
    End(process);
}

Process& CurrentProcess() {
    return *Self()->process;
}

Process* FindProcess(const std::string& name) {
    for (const auto& process : All()) {
        if (process->state != Process::State::kOff && process->name == name) {
            return process.get();
        }
    }
    return nullptr;
}

void ForEachProcess(const std::function<void(Process&)>& use) {
    for (const auto& process : All()) {
        use(*process);
    }
}

}  // namespace sim
