// Joins and leaves the bus, and runs tasks.
#include "msg/process.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <system_error>

#include "common/msg_rules.h"
#include "msg/log.h"
#include "msg/names.h"
#include "msg/open_bus.h"
#include "msg/task_thread.h"

namespace kivo::msg {

namespace {

// For OsProcRequestDetach in a signal handler, which must not construct TheProcess.
std::atomic<Reader*> g_reader{nullptr};

// Why the calling thread's last attempt to join the bus failed.
std::string& JoinFailure() {
    thread_local std::string reason;
    return reason;
}

// The result of an attempt to join that failed with this errno.
uint32_t CannotJoin(int negativeErrno) {
    const bool closed = negativeErrno == -ENOTCONN || negativeErrno == -ECONNRESET || negativeErrno == -EPIPE;
    JoinFailure() = closed ? "it closed the connection, as a bus does when it does not let a user in"
                           : strerrordesc_np(-negativeErrno);
    const uint32_t result = ResultOf(negativeErrno);
    return result == OS_MSG_ERR_DENIED || result == OS_MSG_ERR_NO_MEMORY ? result : OS_MSG_ERR_NO_BUS;
}

// Makes the task's queue and object; StartThread starts its thread later.
uint32_t AddTask(Process& process, const OsTaskDescriptor& descriptor, std::shared_ptr<Task>& task) {
    const std::string name = ReadName(descriptor.name, sizeof descriptor.name);
    if (process.tasks.contains(name)) {
        return OS_MSG_ERR_NAME_TAKEN;
    }
    task = std::make_shared<Task>(descriptor, name, process.peers);
    const int published = task->Publish(process.bus.get());
    if (published < 0) {
        return ResultOf(published);
    }
    process.tasks.emplace(name, task);
    return OS_MSG_OK;
}

void RunTask(const std::shared_ptr<Task>& task) {
    pthread_setname_np(pthread_self(), task->name.c_str());
    const TaskThreadScope taskThread(task->name);
    const uint32_t result =
        Guarded([&] { return task->entry != nullptr ? task->entry() : OsMsgTaskRoutineByName(task->name.c_str()); });
    if (result != OS_MSG_OK) {
        Log(kLogWarning, "task %s ended with %#x (%s)", task->name.c_str(), result, OsMsgResultText(result));
    }
    Process& process = TheProcess();
    const Reader::Lock lock(process.lock);
    task->ended = true;
    process.changed.notify_all();
}

uint32_t StartThread(const std::shared_ptr<Task>& task) {
    try {
        task->thread = std::thread(RunTask, task);
    } catch (const std::exception&) {
        task->ended = true;
        return OS_MSG_ERR_NO_MEMORY;
    }
    return OS_MSG_OK;
}

// Drops everything that refers to the connection, then the connection.
void Dismantle(Process& process, Reader::Lock& lock) {
    process.reader.Stop(lock);
    process.owed.clear();
    process.deferredCount = 0;
    process.events.clear();
    process.restartWatchers.clear();
    process.subscribers.Clear();
    process.daemon.Clear();
    process.peers.Clear();
    process.dispatch.reset();
    for (const auto& [name, task] : process.tasks) {
        task->Retract();
    }
    process.tasks.clear();
    if (process.state == BusState::kStopping) {
        Unsent::WriteOut(process.bus.get(), lock);
    }
    process.unsent.Clear();
    process.bus.reset();
    process.name.clear();
    process.detaching = false;
    ++process.session;
    process.state = BusState::kOff;
    process.changed.notify_all();
}

// What is done when a process appears, a connection ends, or its user is known.
Peers::Callbacks PeerCallbacks(Process& process, std::function<void(int)> started) {
    const auto appeared = [&process](const std::string& procName) {
        SubscribeAgain(process, procName);
        const auto watchers = process.restartWatchers.find(procName);
        if (watchers == process.restartWatchers.end()) {
            return;
        }
        for (const auto& task : watchers->second) {
            auto message = std::make_unique<Incoming>();
            message->block.uid = UINT32_MAX;
            message->block.msgId = OS_MSG_EVENT_PROC_RESTART;
            WriteName(message->block.srcProcName, procName);
            task->DeliverRestart(std::move(message));
        }
    };
    const auto left = [&process](const std::string& connection) {
        process.ForgetOwed(connection);
        process.subscribers.Forget(connection);
    };
    const auto identified = [&process](const std::string& connection, std::optional<uint32_t> uid) {
        for (const auto& [taskName, task] : process.tasks) {
            task->Identify(connection, uid);
        }
    };
    return {std::move(started), appeared, left, identified};
}

// A process joins the bus with as few round trips as can be. The connection is made while the first questions wait in
// it; when the names on the bus are known, their owners and the process's own name are asked for together. The daemon
// answers in this order, so all others are known when the first message to the name can come.
class Joining {
public:
    Joining(Process& process, const std::string& name) : process_(process), name_(name) {}

    // A negative errno on failure. Throws std::bad_alloc.
    int Begin() {
        int result = OpenBus(process_.bus);
        if (result >= 0) {
            result = StartDispatch(process_);
        }
        if (result >= 0) {
            result = process_.peers.Start(process_.bus.get(),
                                          PeerCallbacks(process_, [this](int started) { OnPeers(started); }));
        }
        return result;
    }

    // Reads until the bus has given the name, or says why it does not. A negative errno on failure.
    int End() {
        const auto deadline = Reader::Clock::now() + kJoinLimit;
        while (!result_) {
            const int worked = sd_bus_process(process_.bus.get(), nullptr);
            if (worked < 0) {
                return worked;
            }
            const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Reader::Clock::now()).count();
            if (left <= 0) {
                return -ETIMEDOUT;
            }
            if (worked == 0) {
                (void)sd_bus_wait(process_.bus.get(), static_cast<uint64_t>(left));
            }
        }
        return *result_;
    }

private:
    static constexpr std::chrono::seconds kJoinLimit{25};

    void OnPeers(int started) {
        try {
            const int result = started >= 0 ? AskForName() : started;
            if (result < 0) {
                Fail(result);
            }
        } catch (const std::bad_alloc&) {
            Fail(-ENOMEM);
        }
    }

    int AskForName() {
        sd_bus* bus = process_.bus.get();
        const MessagePtr question = MakeQuestion(bus, "RequestName", BusNameOf(name_).c_str());
        if (!question || sd_bus_message_append(question.get(), "u", kDoNotQueue) < 0) {
            return -ENOMEM;
        }
        return process_.daemon.Ask(bus, question, [this](sd_bus_message* answer) { OnName(answer); });
    }

    void OnName(sd_bus_message* answer) {
        uint32_t given = 0;
        if (sd_bus_message_is_method_error(answer, nullptr) > 0) {
            Fail(-sd_bus_message_get_errno(answer));
        } else if (sd_bus_message_read_basic(answer, SD_BUS_TYPE_UINT32, &given) <= 0 || given != kIsOwner) {
            Fail(-EEXIST);
        } else if (!result_) {
            result_ = 0;
        }
    }

    // The first failure is the cause of those after it.
    void Fail(int result) {
        if (!result_) {
            result_ = result;
        }
    }

    // As D-Bus has them for RequestName.
    static constexpr uint32_t kDoNotQueue = 4;
    static constexpr uint32_t kIsOwner = 1;

    Process& process_;
    const std::string& name_;
    std::optional<int> result_;
};

// Joins the bus. The queues of all tasks are in place before the name is taken; their threads are not started yet.
uint32_t Join(Process& process, const std::string& name, const OsTaskDescriptor* tasks, uint32_t count) {
    Joining joining(process, name);
    int result = joining.Begin();
    if (result < 0) {
        return CannotJoin(result);
    }
    result = process.subscribers.Publish(process.bus.get());
    if (result >= 0) {
        result = PublishVersion(process);
    }
    if (result < 0) {
        return ResultOf(result);
    }
    for (uint32_t i = 0; i < count; ++i) {
        std::shared_ptr<Task> task;
        const uint32_t added = AddTask(process, tasks[i], task);
        if (added != OS_MSG_OK) {
            return added;
        }
    }
    result = joining.End();
    if (result == -EEXIST) {
        return OS_MSG_ERR_NAME_TAKEN;
    }
    if (result < 0) {
        return CannotJoin(result);
    }
    process.name = name;
    process.unsent.Look(process.bus.get());  // the questions have been sent
    return process.reader.Start(process.bus.get(), process.lock) ? OS_MSG_OK : OS_MSG_ERR_NO_MEMORY;
}

uint32_t Attach(Process& process, Reader::Lock& lock, const char* procName, const OsTaskDescriptor* tasks,
                uint32_t count) {
    const std::string name = procName != nullptr ? std::string(procName) : std::string();
    if (!IsValidName(name)) {
        return OS_MSG_ERR_PARAM;
    }
    if (process.state != BusState::kOff) {
        return OS_MSG_ERR_ATTACHED;
    }
    process.state = BusState::kAttaching;
    g_reader = &process.reader;
    process.reader.Open();
    JoinFailure().clear();
    uint32_t result = OS_MSG_ERR_NO_MEMORY;
    try {
        result = Join(process, name, tasks, count);
    } catch (const std::bad_alloc&) {
        Log(kLogError, "out of memory while joining the bus");
    }
    if (result == OS_MSG_OK) {
        process.state = BusState::kAttached;
    } else {
        Log(kLogError, "process %s cannot join the bus at %s: %s%s%s", name.c_str(), OsMsgBusAddress(),
            OsMsgResultText(result), JoinFailure().empty() ? "" : ": ", JoinFailure().c_str());
        Dismantle(process, lock);
    }
    return result;
}

void BeginStop(Process& process, BusState state) {
    if (process.state != BusState::kAttached && process.state != BusState::kStopping) {
        return;
    }
    process.state = state;
    process.reader.WakeAll();
    process.changed.notify_all();
}

bool HasEnded(const std::shared_ptr<Task>& task) {
    return task->ended;
}

}  // namespace

Process::Process()
    : reader([this](bool lost) { BeginStop(*this, lost ? BusState::kLost : BusState::kStopping); }, unsent) {}

uint32_t Process::CheckUsable() const {
    switch (state) {
        case BusState::kAttached:
            return OS_MSG_OK;
        case BusState::kLost:
            return OS_MSG_ERR_NO_BUS;
        default:
            return OS_MSG_ERR_NOT_ATTACHED;
    }
}

std::shared_ptr<Task> Process::FindTask(const std::string& taskName) const {
    const auto found = tasks.find(taskName);
    return found != tasks.end() ? found->second : nullptr;
}

void Process::ForgetOwed(const std::string& connection) {
    std::erase_if(owed, [&](const auto& entry) {
        const char* receiver = sd_bus_message_get_destination(entry.second.reply.get());
        if (receiver == nullptr || connection != receiver) {
            return false;
        }
        if (entry.second.deferred) {
            --deferredCount;
        }
        return true;
    });
}

void Process::KickIfUnsent() {
    if (Unsent::CountIn(bus.get()) > 0) {
        reader.Kick();
    }
}

Process& TheProcess() {
    static auto* process = new Process;
    return *process;
}

uint32_t ResultOf(int negativeErrno) {
    switch (-negativeErrno) {
        case ENOMEM:
        case ENOBUFS:
        case EMFILE:
            return OS_MSG_ERR_NO_MEMORY;
        case EACCES:
        case EPERM:
            return OS_MSG_ERR_DENIED;
        case ENOTCONN:
        case ECONNRESET:
        case EPIPE:
            return OS_MSG_ERR_NO_BUS;
        case EINVAL:
            return OS_MSG_ERR_PARAM;
        default:
            return OS_MSG_ERR_BUS;
    }
}

}  // namespace kivo::msg

using namespace kivo;
using namespace kivo::msg;

uint32_t OsProcAttach(const char* procName) {
    return Guarded([&] {
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        return Attach(process, lock, procName, nullptr, 0);
    });
}

void OsProcRequestDetach(void) {
    Reader* reader = g_reader.load();
    if (reader != nullptr) {
        reader->RequestStop();
    }
}

void OsProcDetach(void) {
    Guarded([] {
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        if (process.state == BusState::kOff || process.state == BusState::kAttaching) {
            return OS_MSG_OK;
        }
        BeginStop(process, process.state == BusState::kLost ? BusState::kLost : BusState::kStopping);
        if (TaskThreadScope::IsHere()) {
            return OS_MSG_ERR_PARAM;  // it would wait for itself; OsTaskRun or another thread detaches
        }
        if (process.detaching) {
            process.changed.wait(lock, [&process] { return !process.detaching; });
            return OS_MSG_OK;
        }
        process.detaching = true;
        process.changed.wait(lock, [&process] {
            return process.activeCalls == 0 && std::all_of(process.tasks.begin(), process.tasks.end(),
                                                           [](const auto& entry) { return HasEnded(entry.second); });
        });
        for (const auto& [name, task] : process.tasks) {
            lock.unlock();
            if (task->thread.joinable()) {
                task->thread.join();
            }
            lock.lock();
        }
        Dismantle(process, lock);
        return OS_MSG_OK;
    });
}

uint32_t OsTaskCreate(const struct OsTaskDescriptor* task) {
    return Guarded([&] {
        if (task == nullptr || CheckTask(*task) != OS_MSG_OK) {
            return OS_MSG_ERR_PARAM;
        }
        Process& process = TheProcess();
        const Reader::Lock lock(process.lock);
        const uint32_t unusable = process.CheckUsable();
        if (unusable != OS_MSG_OK) {
            return unusable;
        }
        std::shared_ptr<Task> added;
        uint32_t result = AddTask(process, *task, added);
        if (result != OS_MSG_OK) {
            return result;
        }
        result = StartThread(added);
        if (result != OS_MSG_OK) {
            process.tasks.erase(added->name);
        }
        return result;
    });
}

uint32_t OsTaskRun(const char* procName, const struct OsTaskDescriptor* tasks, uint32_t count) {
    return Guarded([&] {
        if (tasks == nullptr || count == 0 ||
            !std::all_of(tasks, tasks + count, [](const auto& task) { return CheckTask(task) == OS_MSG_OK; })) {
            return OS_MSG_ERR_PARAM;
        }
        Process& process = TheProcess();
        Reader::Lock lock(process.lock);
        std::vector<std::shared_ptr<Task>> own;
        own.reserve(count);  // nothing may fail between joining the bus and the start of the threads
        uint32_t result = Attach(process, lock, procName, tasks, count);
        if (result != OS_MSG_OK) {
            return result;
        }
        const uint64_t session = process.session;
        for (const auto& [name, task] : process.tasks) {
            own.push_back(task);
        }
        for (const auto& task : own) {
            const uint32_t started = StartThread(task);
            if (started != OS_MSG_OK) {
                result = started;
            }
        }
        if (result != OS_MSG_OK) {
            BeginStop(process, BusState::kStopping);
        }
        process.changed.wait(lock, [&own] { return std::all_of(own.begin(), own.end(), HasEnded); });
        if (process.session != session) {
            return result;  // another thread has detached
        }
        if (process.state == BusState::kLost) {
            result = OS_MSG_ERR_NO_BUS;
        }
        lock.unlock();
        OsProcDetach();
        return result;
    });
}

const char* OsMsgBusAddress(void) {
    // The second is where the clients of the system bus look for it.
    for (const char* variable : {"KIVO_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"}) {
        const char* address = std::getenv(variable);
        if (address != nullptr && *address != '\0') {
            return address;
        }
    }
    return "unix:path=/run/dbus/system_bus_socket";
}

const char* OsMsgJoinFailure(void) {
    return JoinFailure().c_str();
}
