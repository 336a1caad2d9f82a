// Which connection on the bus is which process, and which user it belongs to.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_map>

#include "msg/handles.h"

namespace kivo::msg {

// What the bus vouches for about a sender.
struct Identity {
    std::string procName;  // empty: it has no process name
    uint32_t uid;          // UINT32_MAX: it had left before it could be asked for
    bool followed;         // the end of its connection will be noticed
};

// Follows which connection owns which process name (NameOwnerChanged), and asks the bus once per sender for its user
// id. Used under the process's lock.
class Peers {
public:
    // Called when a process appeared under a name, and when a connection is gone (or gave its name up).
    using Appeared = std::function<void(const std::string& procName)>;
    using Left = std::function<void(const std::string& connection)>;

    // Subscribes to changes, then takes in who is there now. A negative errno on failure.
    int Start(sd_bus* bus, Appeared appeared, Left left);

    // Takes in the process's own name, so that its own start is not reported as a process that appeared.
    void NoteOwn(const std::string& procName, const std::string& connection);

    // Forgets everything; before the bus is closed.
    void Clear();

    // May block for one round trip to the bus daemon, for a sender's first message.
    Identity Identify(sd_bus_message* message);

    // Whether a sender that was identified is still there.
    bool Follows(const std::string& connection) const { return senders_.contains(connection); }

    // The process name of a connection; empty when it has none.
    std::string ProcessOf(const std::string& connection) const;

private:
    struct Sender {
        uint32_t uid = UINT32_MAX;
        SlotPtr watch;  // tells when a sender without a process name leaves
    };

    static int OnNameOwnerChanged(sd_bus_message* message, void* self, sd_bus_error* error);
    static int OnSenderLeft(sd_bus_message* message, void* self, sd_bus_error* error);
    void Change(const std::string& busName, const std::string& oldOwner, const std::string& newOwner);
    void Forget(const std::string& connection);
    uint32_t AskUid(const char* connection);
    SlotPtr Watch(const char* connection);

    sd_bus* bus_ = nullptr;
    Appeared appeared_;
    Left left_;
    SlotPtr match_;
    std::set<std::string> present_;                           // process names that somebody owns
    std::unordered_map<std::string, std::string> processes_;  // connection -> the first process name it took
    std::unordered_map<std::string, Sender> senders_;         // connection -> what was asked for
};

}  // namespace kivo::msg
