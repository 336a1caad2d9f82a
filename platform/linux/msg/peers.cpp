// All of this is asked of the bus daemon, and believed from nobody else.
#include "msg/peers.h"

#include <cerrno>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "msg/names.h"

namespace kivo::msg {

namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";
constexpr uint64_t kAskTimeout = 5'000'000;  // microseconds

// Any connection may send a signal straight to this one, and sd-bus compares its sender with that of a match only if
// both are unique or both well-known names. The bus daemon's name cannot be taken by anybody else.
bool IsFromDaemon(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr && std::string_view(sender) == kDaemon;
}

std::string NameOwnerRule() {
    return std::string("type='signal',sender='") + kDaemon + "',path='" + kDaemonPath + "',interface='" + kDaemon +
           "',member='NameOwnerChanged'";
}

// One question to the bus daemon with one text as argument; null when it is refused.
MessagePtr Ask(sd_bus* bus, const char* method, const char* argument) {
    sd_bus_message* raw = nullptr;
    if (sd_bus_message_new_method_call(bus, &raw, kDaemon, kDaemonPath, kDaemon, method) < 0) {
        return nullptr;
    }
    const MessagePtr question(raw);
    if (argument != nullptr && sd_bus_message_append(question.get(), "s", argument) < 0) {
        return nullptr;
    }
    sd_bus_message* answer = nullptr;
    BusError error;
    if (sd_bus_call(bus, question.get(), kAskTimeout, error.Out(), &answer) < 0) {
        return nullptr;
    }
    return MessagePtr(answer);
}

}  // namespace

int Peers::Start(sd_bus* bus, Appeared appeared, Left left) {
    bus_ = bus;
    appeared_ = std::move(appeared);
    left_ = std::move(left);
    const std::string rule = NameOwnerRule() + ",arg0namespace='" + kProcNamespace + "'";
    sd_bus_slot* slot = nullptr;
    const int matched = sd_bus_add_match(bus, &slot, rule.c_str(), OnNameOwnerChanged, this);
    if (matched < 0) {
        return matched;
    }
    match_.reset(slot);

    const MessagePtr list = Ask(bus, "ListNames", nullptr);
    if (!list) {
        return -EIO;
    }
    std::vector<std::string> names;
    sd_bus_message_enter_container(list.get(), SD_BUS_TYPE_ARRAY, "s");
    const char* name = nullptr;
    while (sd_bus_message_read_basic(list.get(), SD_BUS_TYPE_STRING, &name) > 0) {
        names.emplace_back(name);
    }
    for (const std::string& busName : names) {
        if (ProcNameOf(busName.c_str()).empty()) {
            continue;
        }
        const char* owner = nullptr;
        const MessagePtr answer = Ask(bus, "GetNameOwner", busName.c_str());
        if (answer && sd_bus_message_read_basic(answer.get(), SD_BUS_TYPE_STRING, &owner) > 0) {
            Change(busName, "", owner);
        }
    }
    return 0;
}

void Peers::NoteOwn(const std::string& procName, const std::string& connection) {
    present_.insert(procName);
    processes_.emplace(connection, procName);
}

void Peers::Clear() {
    match_.reset();
    present_.clear();
    processes_.clear();
    senders_.clear();
    bus_ = nullptr;
}

Identity Peers::Identify(sd_bus_message* message) {
    const char* connection = sd_bus_message_get_sender(message);
    if (connection == nullptr) {
        return {"", UINT32_MAX, false};
    }
    Identity identity{ProcessOf(connection), UINT32_MAX, false};
    const auto known = senders_.find(connection);
    if (known != senders_.end()) {
        identity.uid = known->second.uid;
        identity.followed = true;
        return identity;
    }
    Sender sender;
    // Watched before it is asked for: it cannot leave unnoticed in between.
    if (identity.procName.empty()) {
        sender.watch = Watch(connection);
    }
    sender.uid = AskUid(connection);
    identity.uid = sender.uid;
    identity.followed = sender.uid != UINT32_MAX && (sender.watch || !identity.procName.empty());
    if (identity.followed) {
        senders_.emplace(connection, std::move(sender));
    }
    return identity;
}

std::string Peers::ProcessOf(const std::string& connection) const {
    const auto found = processes_.find(connection);
    return found != processes_.end() ? found->second : std::string();
}

int Peers::OnNameOwnerChanged(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* oldOwner = nullptr;
    const char* newOwner = nullptr;
    if (!IsFromDaemon(message) || sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0) {
        return 0;
    }
    try {
        static_cast<Peers*>(self)->Change(name, oldOwner, newOwner);
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return 0;
}

void Peers::Change(const std::string& busName, const std::string& oldOwner, const std::string& newOwner) {
    const std::string procName = ProcNameOf(busName.c_str());
    if (procName.empty()) {
        return;
    }
    if (!oldOwner.empty()) {
        present_.erase(procName);
        if (ProcessOf(oldOwner) == procName) {
            processes_.erase(oldOwner);
        }
        Forget(oldOwner);
    }
    if (newOwner.empty()) {
        return;
    }
    const bool isNew = present_.insert(procName).second;
    processes_.emplace(newOwner, procName);
    // A sender that was watched while it had no name is followed through its name from now on.
    const auto sender = senders_.find(newOwner);
    if (sender != senders_.end()) {
        sender->second.watch.reset();
    }
    if (isNew) {
        appeared_(procName);
    }
}

void Peers::Forget(const std::string& connection) {
    senders_.erase(connection);
    left_(connection);
}

uint32_t Peers::AskUid(const char* connection) {
    const MessagePtr answer = Ask(bus_, "GetConnectionUnixUser", connection);
    uint32_t uid = UINT32_MAX;
    if (answer) {
        sd_bus_message_read_basic(answer.get(), SD_BUS_TYPE_UINT32, &uid);
    }
    return uid;
}

SlotPtr Peers::Watch(const char* connection) {
    const std::string rule = NameOwnerRule() + ",arg0='" + connection + "'";
    sd_bus_slot* slot = nullptr;
    if (sd_bus_add_match(bus_, &slot, rule.c_str(), OnSenderLeft, this) < 0) {
        return nullptr;
    }
    return SlotPtr(slot);
}

int Peers::OnSenderLeft(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    auto* peers = static_cast<Peers*>(self);
    const char* connection = nullptr;
    if (!IsFromDaemon(message) || sd_bus_message_read(message, "s", &connection) < 0) {
        return 0;
    }
    try {
        // The watch that called goes with the entry, once this function has returned.
        const auto entry = peers->senders_.extract(connection);
        if (!entry.empty()) {
            peers->left_(entry.key());
        }
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    }
    return 0;
}

}  // namespace kivo::msg
