// A session's connection to the bus: it sends requests and receives results and events.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

#include "inbox.h"
#include "kivo/os_msg.h"
#include "ominspect/client/error.h"
#include "ominspect/client/limit.h"
#include "ominspect/client/session.h"
#include "ominspect/messages.h"

namespace ominspect::client {

struct Call;

class Connection {
public:
    explicit Connection(Events events);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Joins the bus. To be called once.
    std::optional<Error> Join(std::string_view processName);

    // Sends a request to the server, waits, and gives the payload of the reply. A request whose answer must be known
    // is waited for `grace` longer, beyond the limit or after a cancellation.
    Result<std::string> Ask(std::uint32_t msgId, std::string payload, const Limit& limit, std::uint32_t param = 0,
                            std::chrono::milliseconds grace = {});

    // Sends a request that has no reply. Its results arrive at this lane of the inbox.
    std::optional<Error> PostByLane(std::size_t lane, std::uint32_t msgId, std::string payload);

    // Calls `work` on a new thread and gives its result. After a cancellation it waits for `grace` and then gives up;
    // the thread then ends by itself, which must not take long after OsProcDetach. Throws std::bad_alloc, also when
    // `work` did.
    Result<std::string> Cancellable(std::function<Result<std::string>()> work, const std::stop_token& cancel,
                                    std::chrono::milliseconds grace = {});

    // True: the server is there and answers; false: it is there, but too busy to answer. Cancelled, ServerAbsent,
    // BusUnreachable, Denied.
    Result<bool> CheckPresence(const Limit& limit);

    // Begins to receive the server's events, if there is a function to be called.
    std::optional<Error> SubscribeEvents() const;

    // Begins to receive what a process says that its items measure.
    std::optional<Error> SubscribePerfData(std::string_view process, std::function<void(const PerfData&)> take);

    [[nodiscard]] std::uint64_t LostEvents() const;

    Inbox& Mail() { return inbox_; }

private:
    static Connection* Addressee(const TagMsgBlock& msg);
    static std::uint32_t HandleMail(TagMsgBlock* msg);
    static std::uint32_t HandleEvent(TagMsgBlock* msg);
    static std::uint32_t RunMail();
    static std::uint32_t RunEvents();
    struct Source {
        std::string_view process;
        std::string_view task;
    };
    static constexpr Source kServer{OM_INSPECT_PROC_NAME, OM_INSPECT_TASK_NAME};
    static std::optional<Error> Subscribe(const std::string& task, const Source& source,
                                          std::initializer_list<std::uint32_t> eventIds);
    void TakeMail(const TagMsgBlock& msg);
    std::optional<Error> OpenLane(std::size_t lane);
    [[nodiscard]] bool HasListeners() const;
    void TellEvent(const TagMsgBlock& msg) const;
    void TellPerfData(const TagMsgBlock& msg);

    const Events events_;
    Inbox inbox_;
    std::atomic<std::uint64_t> thrownEvents_{0};  // events whose function threw, mostly for want of memory
    bool joined_ = false;                         // this object has joined the bus for the process
    // Work whose caller was cancelled. A send ends at its limit or when the process leaves the bus.
    struct Abandoned {
        std::shared_ptr<Call> call;
        std::thread thread;
    };

    void Abandon(std::list<Abandoned>& place);

    using PerfDataTaker = std::shared_ptr<const std::function<void(const PerfData&)>>;

    std::mutex mutex_;                                     // guards `abandoned_`, `openLanes_` and `perfDataTakers_`
    std::map<std::string, PerfDataTaker> perfDataTakers_;  // by process
    std::list<Abandoned> abandoned_;
    std::size_t openLanes_ = 0;  // the number of lanes that have a task and receive event 8
};

}  // namespace ominspect::client
