// The connection to a broker, as a publisher sees it.
#pragma once

#include <optional>
#include <string>

#include "common/error.h"

namespace ominspect::gateway::mqtt {

struct Outgoing {
    std::string topic;
    std::string payload;
    bool isRetained = false;
    std::string correlation;  // of a reply
};

struct Incoming {
    std::string topic;
    std::string payload;
    bool isRetained = false;
    std::string responseTopic;
    std::string correlation;
};

class LineUser {
public:
    virtual ~LineUser() = default;

    virtual void Opened() = 0;
    // The broker has taken a message; or has not, and says why.
    virtual void Acked(int number, const std::string& refusal) = 0;
    virtual void Came(Incoming message) = 0;
    // Also when it could not be opened. Everything that was not acknowledged is to be sent anew.
    virtual void Lost(const std::string& why) = 0;
};

// One thread.
class Line {
public:
    virtual ~Line() = default;

    // Begins to open it; the user is told how that went. An error: it was not begun.
    virtual std::optional<Error> Open(LineUser& user, const Outgoing& will) = 0;

    // Sends a message at least once, and gives its number. InvalidArgument: this message cannot be sent at all; any
    // other error: nothing can.
    virtual Result<int> Publish(const Outgoing& message) = 0;

    // Messages of the past that the broker keeps do not come.
    virtual std::optional<Error> Subscribe(const std::string& topic) = 0;

    // The user is told nothing any more. Without `politely` the broker publishes the will.
    virtual void Close(bool politely) = 0;
};

}  // namespace ominspect::gateway::mqtt
