// All of this is asked of the bus daemon, and believed from nobody else.
#include "msg/peers.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "msg/names.h"

namespace kivo::msg {

namespace {

constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kDaemonPath = "/org/freedesktop/DBus";
constexpr std::chrono::seconds kAskLimit{5};
constexpr int kMostAttempts = 1000;

using Clock = std::chrono::steady_clock;

std::string NameOwnerRule() {
    return std::string("type='signal',sender='") + kDaemon + "',path='" + kDaemonPath + "',interface='" + kDaemon +
           "',member='NameOwnerChanged'";
}

// A question to the bus daemon, with one text as argument or none; null when there is no memory.
MessagePtr MakeQuestion(sd_bus* bus, const char* method, const char* argument) {
    sd_bus_message* raw = nullptr;
    if (sd_bus_message_new_method_call(bus, &raw, kDaemon, kDaemonPath, kDaemon, method) < 0) {
        return nullptr;
    }
    MessagePtr question(raw);
    return argument == nullptr || sd_bus_message_append(raw, "s", argument) >= 0 ? std::move(question) : nullptr;
}

// Asks the bus daemon once, with one text as argument. The answer may be another's.
MessagePtr AskOnce(sd_bus* bus, const char* method, const char* argument, std::chrono::microseconds time) {
    const MessagePtr question = MakeQuestion(bus, method, argument);
    if (!question) {
        return nullptr;
    }
    sd_bus_message* received = nullptr;
    BusError error;
    if (sd_bus_call(bus, question.get(), static_cast<uint64_t>(time.count()), error.Out(), &received) < 0) {
        return nullptr;
    }
    return MessagePtr(received);
}

// Asks until the daemon itself answers; null when it does not. sd_bus_call takes the first answer to come, whoever sent
// it, and does not say whose an error is. So a forged answer costs one attempt, and after an error `again` decides.
template <typename Again>
MessagePtr Ask(sd_bus* bus, const char* method, const char* argument, Clock::time_point deadline, Again again) {
    for (int i = 0; i < kMostAttempts; ++i) {
        const auto left = std::chrono::ceil<std::chrono::microseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            break;
        }
        MessagePtr answer = AskOnce(bus, method, argument, left);
        if (answer && IsFromDaemon(answer.get())) {
            return answer;
        }
        if (!answer && !again()) {
            break;
        }
    }
    return nullptr;
}

// To these two the daemon never answers with an error.
MessagePtr ListNames(sd_bus* bus) {
    return Ask(bus, "ListNames", nullptr, Clock::now() + kAskLimit, [] { return true; });
}

bool HasOwner(sd_bus* bus, const char* name, Clock::time_point deadline) {
    const MessagePtr answer = Ask(bus, "NameHasOwner", name, deadline, [] { return true; });
    int hasOwner = 0;
    return answer && sd_bus_message_read_basic(answer.get(), SD_BUS_TYPE_BOOLEAN, &hasOwner) > 0 && hasOwner != 0;
}

// Asks for something of a name; null when it has no owner.
MessagePtr AskAbout(sd_bus* bus, const char* method, const char* name) {
    const Clock::time_point deadline = Clock::now() + kAskLimit;
    return Ask(bus, method, name, deadline, [&] { return HasOwner(bus, name, deadline); });
}

}  // namespace

bool IsFromDaemon(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr && std::string_view(sender) == kDaemon;
}

std::string ConnectionOf(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr ? sender : "";
}

int Peers::Start(sd_bus* bus, Callbacks callbacks) {
    bus_ = bus;
    callbacks_ = std::move(callbacks);
    int result = Match(std::string(",arg0namespace='") + kProcNamespace + "'", OnProcessChanged, processChanges_);
    if (result >= 0) {
        result = Match(",arg2=''", OnConnectionEnded, connectionEnds_);
    }
    return result >= 0 ? Load() : result;
}

int Peers::Match(const std::string& rule, sd_bus_message_handler_t handler, SlotPtr& slot) {
    sd_bus_slot* raw = nullptr;
    const int result = sd_bus_add_match(bus_, &raw, (NameOwnerRule() + rule).c_str(), handler, this);
    slot.reset(raw);
    return result;
}

int Peers::Load() {
    const MessagePtr list = ListNames(bus_);
    if (!list) {
        return -EIO;
    }
    behind_ = false;
    std::map<std::string, std::string> present;
    sd_bus_message_enter_container(list.get(), SD_BUS_TYPE_ARRAY, "s");
    const char* name = nullptr;
    while (sd_bus_message_read_basic(list.get(), SD_BUS_TYPE_STRING, &name) > 0) {
        const std::string procName = ProcNameOf(name);
        if (procName.empty()) {
            continue;
        }
        const char* owner = nullptr;
        const MessagePtr answer = AskAbout(bus_, "GetNameOwner", name);
        if (answer && sd_bus_message_read_basic(answer.get(), SD_BUS_TYPE_STRING, &owner) > 0) {
            present.emplace(procName, owner);
        } else {
            behind_ = true;  // gone meanwhile, or no memory: the next message looks again
            present.emplace(procName, OwnerOf(procName));
        }
    }
    for (const auto& [procName, owner] : std::map(owners_)) {
        if (!present.contains(procName)) {
            SetOwner(procName, "");
        }
    }
    for (const auto& [procName, owner] : present) {
        SetOwner(procName, owner);
    }
    return 0;
}

void Peers::CatchUp() {
    if (!behind_) {
        return;
    }
    try {
        Load();
    } catch (const std::bad_alloc&) {
        behind_ = true;
    }
}

void Peers::NoteOwn(const std::string& procName, const std::string& connection) {
    owners_[procName] = connection;
    processes_[connection] = {procName};
}

void Peers::Clear() {
    processChanges_.reset();
    connectionEnds_.reset();
    owners_.clear();
    processes_.clear();
    uids_.clear();
    asked_.clear();
    behind_ = false;
    bus_ = nullptr;
}

std::optional<uint32_t> Peers::UidOf(const std::string& connection) {
    const auto [known, isNew] = uids_.try_emplace(connection);
    if (!isNew) {
        return known->second;
    }
    try {
        const MessagePtr question = MakeQuestion(bus_, "GetConnectionUnixUser", connection.c_str());
        uint64_t cookie = 0;
        if (!question || sd_bus_send(bus_, question.get(), &cookie) < 0) {
            throw std::bad_alloc();
        }
        asked_.emplace(cookie, connection);
    } catch (const std::bad_alloc&) {
        uids_.erase(known);
        throw;
    }
    return std::nullopt;
}

// Of a connection that is there the daemon may still not know the user; it is then nobody's.
bool Peers::TakeAnswer(sd_bus_message* message) {
    uint64_t cookie = 0;
    if (asked_.empty() || sd_bus_message_get_reply_cookie(message, &cookie) < 0) {
        return false;
    }
    const auto asked = asked_.find(cookie);
    if (asked == asked_.end()) {
        return false;
    }
    if (!IsFromDaemon(message)) {
        return true;
    }
    const std::string connection = std::move(asked->second);
    asked_.erase(asked);
    std::optional<uint32_t> uid;
    if (sd_bus_message_is_method_error(message, SD_BUS_ERROR_NAME_HAS_NO_OWNER) <= 0) {
        uid = UINT32_MAX;
        sd_bus_message_read_basic(message, SD_BUS_TYPE_UINT32, &*uid);
    }
    const auto known = uids_.find(connection);
    if (known != uids_.end() && uid) {
        known->second = uid;
    } else if (known != uids_.end()) {
        uids_.erase(known);
    }
    callbacks_.identified(connection, uid);
    return true;
}

std::string Peers::ProcessOf(const std::string& connection) const {
    const auto found = processes_.find(connection);
    return found != processes_.end() && !found->second.empty() ? found->second.front() : std::string();
}

std::string_view Peers::OwnerOf(const std::string& procName) const {
    const auto found = owners_.find(procName);
    return found != owners_.end() ? found->second : std::string_view();
}

int Peers::OnProcessChanged(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* oldOwner = nullptr;
    const char* newOwner = nullptr;
    if (!IsFromDaemon(message) || sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0) {
        return 0;
    }
    auto* peers = static_cast<Peers*>(self);
    try {
        const std::string procName = ProcNameOf(name);
        if (!procName.empty()) {
            peers->SetOwner(procName, newOwner);
        }
    } catch (const std::bad_alloc&) {
        peers->behind_ = true;
    }
    return 0;
}

// The news of a process comes first: if there is no memory for it, nothing has been noted, and CatchUp repeats it.
void Peers::SetOwner(const std::string& procName, const std::string& connection) {
    const std::string before(OwnerOf(procName));
    if (connection == before) {
        return;
    }
    if (!connection.empty()) {
        callbacks_.appeared(procName);
        std::vector<std::string>& names = processes_[connection];
        if (std::find(names.begin(), names.end(), procName) == names.end()) {
            names.push_back(procName);
        }
        owners_[procName] = connection;
    } else {
        owners_.erase(procName);
    }
    const auto former = processes_.find(before);
    if (former != processes_.end()) {
        std::erase(former->second, procName);
        if (former->second.empty()) {
            processes_.erase(former);
        }
    }
}

// Comes for every name that loses its last owner; a connection has ended when it loses its unique name.
int Peers::OnConnectionEnded(sd_bus_message* message, void* self, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    if (!IsFromDaemon(message) || sd_bus_message_read(message, "s", &name) < 0 || *name != ':') {
        return 0;
    }
    auto* peers = static_cast<Peers*>(self);
    peers->uids_.erase(name);
    peers->processes_.erase(name);
    peers->callbacks_.left(name);
    return 0;
}

}  // namespace kivo::msg
