// Which connection on the bus is which process, and which user it belongs to.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include "msg/daemon.h"
#include "msg/handles.h"

namespace kivo::msg {

// The connection that sent a message; empty when the message does not say.
std::string ConnectionOf(sd_bus_message* message);

// Follows which connection owns which process name (NameOwnerChanged), and asks the bus once per sender for its user
// id. The process's own name is followed, too, but its own start is not reported. Used under the process's lock.
class Peers {
public:
    struct Callbacks {
        // Who is there now is known, or a negative errno says why that cannot be; then it may come more than once.
        std::function<void(int result)> started;
        // A process appeared under a name.
        std::function<void(const std::string& procName)> appeared;
        // A connection has ended.
        std::function<void(const std::string& connection)> left;
        // The user id of a connection is known now; none when it ended first.
        std::function<void(const std::string& connection, std::optional<uint32_t> uid)> identified;
    };

    explicit Peers(Daemon& daemon) : daemon_(daemon) {}

    // Asks for changes, then for who is there now, and calls `started` when the answers have come. The connection may
    // still be in the making. A negative errno on failure. Throws std::bad_alloc.
    int Start(sd_bus* bus, Callbacks callbacks);

    // Forgets everything; before the bus is closed.
    void Clear();

    // Makes up for a change that could not be noted for want of memory. To be called before a message is looked at.
    void CatchUp();

    // The user id of a sender. If it is not known yet, the daemon is asked without waiting for the answer, which comes
    // as a call of `identified`. Throws std::bad_alloc.
    std::optional<uint32_t> UidOf(const std::string& connection);

    // To be called for every message that comes in. Returns whether it claims to be the daemon's news of a name.
    bool TakeChange(sd_bus_message* message);

    // Whether a sender, identified or about to be, is still there.
    bool Follows(const std::string& connection) const { return uids_.contains(connection); }

    // The process names of a connection.
    const std::set<std::string>& NamesOf(const std::string& connection) const;

    // The process name under which its messages are seen: of several the first in byte order, so that everybody sees
    // the same, whoever joined the bus first. Empty when it has none.
    std::string ProcessOf(const std::string& connection) const;

    // The connection that owns a process name; empty when there is none.
    std::string_view OwnerOf(const std::string& procName) const;

private:
    int AskForChanges(const std::string& rule);
    int AskForOwners(sd_bus_message* names);
    void TakeNames(sd_bus_message* answer);
    void TakeOwner(const std::string& procName, sd_bus_message* answer);
    void TakeUid(const std::string& connection, sd_bus_message* answer);
    void Load();
    void SetOwner(const std::string& procName, const std::string& connection);
    bool IsOwn(const std::string& connection) const;

    Daemon& daemon_;
    sd_bus* bus_ = nullptr;
    Callbacks callbacks_;
    bool behind_ = false;                                               // a change could not be noted
    std::map<std::string, std::string> owners_;                         // process name -> connection
    std::unordered_map<std::string, std::set<std::string>> processes_;  // connection -> its names
    // Of the senders, by connection; none while the daemon is asked.
    std::unordered_map<std::string, std::optional<uint32_t>> uids_;
};

}  // namespace kivo::msg
