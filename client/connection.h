// The bus under a session: tasks that receive, and sends that wait for their reply.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <list>
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

namespace ominspect::client {

struct Call;

class Connection {
public:
    explicit Connection(Events events);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Joins the bus; once.
    std::optional<Error> Join(std::string_view processName);

    // Sends a request to the server and waits; the reply's payload, or the error. Waits for `grace` longer than the
    // limit or after a cancellation: for a request whose answer must be known.
    Result<std::string> Ask(std::uint32_t msgId, std::string payload, const Limit& limit, std::uint32_t param = 0,
                            std::chrono::milliseconds grace = {});

    // Sends without a reply; results will come by this lane of the inbox.
    std::optional<Error> PostByLane(std::size_t lane, std::uint32_t msgId, std::string payload);

    // Calls `work` on a thread of its own, and waits for its result until a cancellation, and then for `grace` longer:
    // a thread whose caller has gone is left to end by itself, which must not take long after OsProcDetach.
    Result<std::string> Cancellable(std::function<Result<std::string>()> work, const std::stop_token& cancel,
                                    std::chrono::milliseconds grace = {});

    // Whether the server is there and answers; false: it is too busy to say so. Cancelled, ServerAbsent,
    // BusUnreachable, Denied.
    Result<bool> CheckPresence(const Limit& limit);

    // Begins to tell the server's events.
    static std::optional<Error> SubscribeEvents();

    static std::uint64_t LostEvents();

    Inbox& Mail() { return inbox_; }

private:
    static Connection* Addressee(const TagMsgBlock& msg);
    static std::uint32_t HandleMail(TagMsgBlock* msg);
    static std::uint32_t HandleEvent(TagMsgBlock* msg);
    static std::uint32_t RunMail();
    static std::uint32_t RunEvents();
    static std::optional<Error> Subscribe(const std::string& task, std::initializer_list<std::uint32_t> eventIds);
    void TakeMail(const TagMsgBlock& msg);
    std::optional<Error> OpenLane(std::size_t lane);
    void TellEvent(const TagMsgBlock& msg) const;

    const Events events_;
    Inbox inbox_;
    bool joined_ = false;  // the process's place on the bus is this one's
    // A send whose caller was cancelled; it ends with its limit or the bus at the latest.
    struct Abandoned {
        std::shared_ptr<Call> call;
        std::thread thread;
    };

    void Abandon(std::shared_ptr<Call> call, std::thread thread);

    std::mutex mutex_;  // guards `abandoned_` and `openLanes_`
    std::list<Abandoned> abandoned_;
    std::size_t openLanes_ = 0;  // so many lanes, from the first on, have their task and hear of runs that begin
};

}  // namespace ominspect::client
