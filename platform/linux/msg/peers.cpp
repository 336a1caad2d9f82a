// All of this is asked of the bus daemon, and believed from nobody else.
#include "msg/peers.h"

#include <cerrno>
#include <chrono>
#include <map>
#include <new>
#include <utility>
#include <vector>

#include "msg/names.h"

namespace kivo::msg {

namespace {

constexpr const char* kChange = "NameOwnerChanged";
constexpr const char* kChangeRule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
    "member='NameOwnerChanged'";

// For all questions of one look at who is there; a daemon that hangs must not hold the process up for each of them.
constexpr std::chrono::seconds kLoadLimit{5};

// The names of a list that stand for processes: bus name and process name.
std::vector<std::pair<std::string, std::string>> ProcessesOf(sd_bus_message* names) {
    std::vector<std::pair<std::string, std::string>> processes;
    sd_bus_message_enter_container(names, SD_BUS_TYPE_ARRAY, "s");
    const char* name = nullptr;
    while (sd_bus_message_read_basic(names, SD_BUS_TYPE_STRING, &name) > 0) {
        std::string procName = ProcNameOf(name);
        if (!procName.empty()) {
            processes.emplace_back(name, std::move(procName));
        }
    }
    return processes;
}

}  // namespace

std::string ConnectionOf(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr ? sender : "";
}

int Peers::Start(sd_bus* bus, Callbacks callbacks) {
    bus_ = bus;
    callbacks_ = std::move(callbacks);
    int result = AskForChanges(std::string(",arg0namespace='") + kProcNamespace + "'");
    if (result >= 0) {
        result = AskForChanges(",arg2=''");
    }
    if (result >= 0) {
        result = daemon_.Ask(bus_, MakeQuestion(bus_, "ListNames", nullptr),
                             [this](sd_bus_message* answer) { TakeNames(answer); });
    }
    return result;
}

int Peers::AskForChanges(const std::string& rule) {
    return daemon_.Ask(bus_, MakeQuestion(bus_, "AddMatch", (kChangeRule + rule).c_str()),
                       [this](sd_bus_message* answer) {
                           if (sd_bus_message_is_method_error(answer, nullptr) > 0) {
                               callbacks_.started(-sd_bus_message_get_errno(answer));
                           }
                       });
}

void Peers::TakeNames(sd_bus_message* answer) {
    int result = -sd_bus_message_get_errno(answer);
    try {
        if (result >= 0) {
            result = AskForOwners(answer);
        }
    } catch (const std::bad_alloc&) {
        result = -ENOMEM;
    }
    callbacks_.started(result);
}

int Peers::AskForOwners(sd_bus_message* names) {
    int result = 0;
    for (const auto& [name, procName] : ProcessesOf(names)) {
        result = daemon_.Ask(bus_, MakeQuestion(bus_, "GetNameOwner", name.c_str()),
                             [this, procName = procName](sd_bus_message* answer) { TakeOwner(procName, answer); });
        if (result < 0) {
            break;
        }
    }
    return result;
}

// One that is gone meanwhile needs no owner; after any other error the next message looks again.
void Peers::TakeOwner(const std::string& procName, sd_bus_message* answer) {
    const char* owner = nullptr;
    if (sd_bus_message_is_method_error(answer, nullptr) > 0) {
        behind_ = behind_ || sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NAME_HAS_NO_OWNER) <= 0;
        return;
    }
    try {
        if (sd_bus_message_read_basic(answer, SD_BUS_TYPE_STRING, &owner) > 0) {
            SetOwner(procName, owner);
        }
    } catch (const std::bad_alloc&) {
        behind_ = true;
    }
}

void Peers::Load() {
    const Deadline deadline = std::chrono::steady_clock::now() + kLoadLimit;
    const MessagePtr names = AskForNames(bus_, deadline);
    if (!names) {
        return;
    }
    behind_ = false;
    std::map<std::string, std::string> present;
    for (const auto& [name, procName] : ProcessesOf(names.get())) {
        const char* owner = nullptr;
        const MessagePtr answer = AskAboutName(bus_, "GetNameOwner", name.c_str(), deadline);
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

void Peers::Clear() {
    owners_.clear();
    processes_.clear();
    uids_.clear();
    behind_ = false;
    callbacks_ = {};
    bus_ = nullptr;
}

std::optional<uint32_t> Peers::UidOf(const std::string& connection) {
    const auto [known, isNew] = uids_.try_emplace(connection);
    if (!isNew) {
        return known->second;
    }
    try {
        const int asked = daemon_.Ask(bus_, MakeQuestion(bus_, "GetConnectionUnixUser", connection.c_str()),
                                      [this, connection](sd_bus_message* answer) { TakeUid(connection, answer); });
        if (asked < 0) {
            throw std::bad_alloc();
        }
    } catch (const std::bad_alloc&) {
        uids_.erase(known);
        throw;
    }
    return std::nullopt;
}

// The daemon may not know the user of a connection that exists; it then has no user.
void Peers::TakeUid(const std::string& connection, sd_bus_message* answer) {
    std::optional<uint32_t> uid;
    if (sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NAME_HAS_NO_OWNER) <= 0) {
        uid = UINT32_MAX;
        sd_bus_message_read_basic(answer, SD_BUS_TYPE_UINT32, &*uid);
    }
    const auto known = uids_.find(connection);
    if (known != uids_.end() && uid) {
        known->second = uid;
    } else if (known != uids_.end()) {
        uids_.erase(known);
    }
    callbacks_.identified(connection, uid);
}

const std::set<std::string>& Peers::NamesOf(const std::string& connection) const {
    static const std::set<std::string> none;
    const auto found = processes_.find(connection);
    return found != processes_.end() ? found->second : none;
}

std::string Peers::ProcessOf(const std::string& connection) const {
    const std::set<std::string>& names = NamesOf(connection);
    return !names.empty() ? *names.begin() : std::string();
}

std::string_view Peers::OwnerOf(const std::string& procName) const {
    const auto found = owners_.find(procName);
    return found != owners_.end() ? found->second : std::string_view();
}

// Comes for a process name with every change, and for every other name when it loses its last owner; a connection has
// ended when it loses its unique name.
bool Peers::TakeChange(sd_bus_message* message) {
    const char* name = nullptr;
    const char* oldOwner = nullptr;
    const char* newOwner = nullptr;
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus", kChange) <= 0) {
        return false;
    }
    if (!IsFromDaemon(message) || sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0) {
        return true;
    }
    if (*name == ':' && *newOwner == '\0') {
        uids_.erase(name);
        processes_.erase(name);
        callbacks_.left(name);
        return true;
    }
    try {
        const std::string procName = ProcNameOf(name);
        if (!procName.empty()) {
            SetOwner(procName, newOwner);
        }
    } catch (const std::bad_alloc&) {
        behind_ = true;
    }
    return true;
}

// The news of a process comes first: if there is no memory for it, nothing has been noted, and CatchUp repeats it.
void Peers::SetOwner(const std::string& procName, const std::string& connection) {
    const std::string before(OwnerOf(procName));
    if (connection == before) {
        return;
    }
    if (!connection.empty()) {
        if (!IsOwn(connection)) {
            callbacks_.appeared(procName);
        }
        processes_[connection].insert(procName);
        owners_[procName] = connection;
    } else {
        owners_.erase(procName);
    }
    const auto former = processes_.find(before);
    if (former != processes_.end()) {
        former->second.erase(procName);
        if (former->second.empty()) {
            processes_.erase(former);
        }
    }
}

bool Peers::IsOwn(const std::string& connection) const {
    const char* own = nullptr;
    return sd_bus_get_unique_name(bus_, &own) >= 0 && connection == own;
}

}  // namespace kivo::msg
