// Which connection on the bus is which process, and which user it belongs to.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "msg/handles.h"

namespace kivo::msg {

// The connection that sent a message; empty when the message does not say.
std::string ConnectionOf(sd_bus_message* message);

// Whether the bus daemon itself sent the message. To be asked of everything that only the daemon may say: any
// connection may send a signal or a reply straight to this one, and sd-bus compares its sender with that of a match
// only if both are unique or both well-known names. Nobody can take the daemon's own name.
bool IsFromDaemon(sd_bus_message* message);

// Follows which connection owns which process name (NameOwnerChanged), and asks the bus once per sender for its user
// id. Used under the process's lock.
class Peers {
public:
    struct Callbacks {
        // A process appeared under a name.
        std::function<void(const std::string& procName)> appeared;
        // A connection has ended.
        std::function<void(const std::string& connection)> left;
        // The user id of a connection is known now; none when it ended first.
        std::function<void(const std::string& connection, std::optional<uint32_t> uid)> identified;
    };

    // Subscribes to changes, then takes in who is there now. A negative errno on failure.
    int Start(sd_bus* bus, Callbacks callbacks);

    // Takes in the process's own name, so that its own start is not reported as a process that appeared.
    void NoteOwn(const std::string& procName, const std::string& connection);

    // Forgets everything; before the bus is closed.
    void Clear();

    // Makes up for a change that could not be noted for want of memory. To be called before a message is looked at.
    void CatchUp();

    // The user id of a sender. If it is not known yet, the daemon is asked without waiting for the answer, which comes
    // as a call of `identified`. Throws std::bad_alloc.
    std::optional<uint32_t> UidOf(const std::string& connection);

    // To be shown every message that comes in. Whether it claims to answer such a question; nobody else should see it.
    bool TakeAnswer(sd_bus_message* message);

    // Whether a sender, identified or about to be, is still there.
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

    sd_bus* bus_ = nullptr;
    Callbacks callbacks_;
    SlotPtr processChanges_;
    SlotPtr connectionEnds_;
    bool behind_ = false;                                                  // a change could not be noted
    std::map<std::string, std::string> owners_;                            // process name -> connection
    std::unordered_map<std::string, std::vector<std::string>> processes_;  // connection -> its names, oldest first
    // Of the senders, by connection; none while the daemon is asked.
    std::unordered_map<std::string, std::optional<uint32_t>> uids_;
    std::unordered_map<uint64_t, std::string> asked_;  // connections whose user id is asked for, by the call's cookie
};

}  // namespace kivo::msg
