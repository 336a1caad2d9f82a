// Which connection on the bus is which process, and which user it belongs to.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "msg/handles.h"

namespace kivo::msg {

// What the bus vouches for about a sender.
struct Identity {
    std::string procName;  // empty: it has no process name
    uint32_t uid;          // UINT32_MAX: it had left before it could be asked for
    bool followed;         // the end of its connection will be noticed
};

// Whether the bus daemon itself sent the message. To be asked of everything that only the daemon may say: any
// connection may send a signal or a reply straight to this one, and sd-bus compares its sender with that of a match
// only if both are unique or both well-known names. Nobody can take the daemon's own name.
bool IsFromDaemon(sd_bus_message* message);

// Follows which connection owns which process name (NameOwnerChanged), and asks the bus once per sender for its user
// id. Used under the process's lock.
class Peers {
public:
    // Called when a process appeared under a name, and when a connection has ended.
    using Appeared = std::function<void(const std::string& procName)>;
    using Left = std::function<void(const std::string& connection)>;

    // Subscribes to changes, then takes in who is there now. A negative errno on failure.
    int Start(sd_bus* bus, Appeared appeared, Left left);

    // Takes in the process's own name, so that its own start is not reported as a process that appeared.
    void NoteOwn(const std::string& procName, const std::string& connection);

    // Forgets everything; before the bus is closed.
    void Clear();

    // Makes up for a change that could not be noted for want of memory. To be called before a message is looked at.
    void CatchUp();

    // May block for one round trip to the bus daemon, for a sender's first message.
    Identity Identify(sd_bus_message* message);

    // Whether a sender that was identified is still there.
    bool Follows(const std::string& connection) const { return uids_.contains(connection); }

    // The process name of a connection, the oldest of several; empty when it has none.
    std::string ProcessOf(const std::string& connection) const;

    // The connection that owns a process name; empty when there is none.
    std::string_view OwnerOf(const std::string& procName) const;

private:
    static int OnProcessChanged(sd_bus_message* message, void* self, sd_bus_error* error);
    static int OnConnectionEnded(sd_bus_message* message, void* self, sd_bus_error* error);
    int Match(const std::string& rule, sd_bus_message_handler_t handler, SlotPtr& slot);
    int Load();
    void SetOwner(const std::string& procName, const std::string& connection);
    uint32_t AskUid(const char* connection);

    sd_bus* bus_ = nullptr;
    Appeared appeared_;
    Left left_;
    SlotPtr processChanges_;
    SlotPtr connectionEnds_;
    bool behind_ = false;                                                  // a change could not be noted
    std::map<std::string, std::string> owners_;                            // process name -> connection
    std::unordered_map<std::string, std::vector<std::string>> processes_;  // connection -> its names, oldest first
    std::unordered_map<std::string, uint32_t> uids_;                       // of the senders, by connection
};

}  // namespace kivo::msg
