// The bus under a session: one task that receives, and sends that wait for their reply.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
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

    // Sends a request to the server and waits; the reply's payload, or the error.
    Result<std::string> Ask(std::uint32_t msgId, std::string payload, const Limit& limit, std::uint32_t param = 0);

    // Sends without a reply.
    static std::optional<Error> Post(std::uint32_t msgId, std::string payload);

    // Why nothing can be expected of the server; nothing when it is there, or too busy to say so.
    std::optional<Error> CheckPresence();

    // Begins to hear of these events of the server; of its restarts since the session joined.
    static std::optional<Error> Subscribe(std::initializer_list<std::uint32_t> eventIds);

    static std::uint64_t LostEvents();

    Inbox& Mail() { return inbox_; }

private:
    static std::uint32_t HandleMessage(TagMsgBlock* msg);
    static std::uint32_t RunTask();
    void Handle(const TagMsgBlock& msg);
    Result<std::string> AskCancellable(const TagMsgBlock& head, std::string payload, const Limit& limit);

    const Events events_;
    Inbox inbox_;
    bool joined_ = false;  // the process's place on the bus is this one's
    // A send whose caller was cancelled; it ends with its limit or the bus at the latest.
    struct Abandoned {
        std::shared_ptr<Call> call;
        std::thread thread;
    };

    void Abandon(std::shared_ptr<Call> call, std::thread thread);

    std::mutex mutex_;  // guards `abandoned_`
    std::list<Abandoned> abandoned_;
};

}  // namespace ominspect::client
