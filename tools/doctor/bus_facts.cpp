// The client library joins the bus as every requester does. What else is asked of the bus daemon and of the server goes
// over a connection of its own, which takes no name.
#include "doctor/bus_facts.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

#include "common/bus_connection.h"
#include "common/freed.h"
#include "doctor/person.h"
#include "kivo/os_msg.h"
#include "ominspect/client/session.h"
#include "ominspect/messages.h"

namespace ominspect::doctor {
namespace {

constexpr std::chrono::seconds kLimit{5};
constexpr std::chrono::seconds kCallLimit{2};
constexpr const char* kServer = "com.kivo.proc." OM_INSPECT_PROC_NAME;
constexpr const char* kSystemBus = "unix:path=/run/dbus/system_bus_socket";

using Credentials = std::unique_ptr<sd_bus_creds, Freed<sd_bus_creds_unref>>;

class Errors {
public:
    Errors() = default;
    ~Errors() { sd_bus_error_free(&error_); }
    Errors(const Errors&) = delete;
    Errors& operator=(const Errors&) = delete;
    sd_bus_error* Get() { return &error_; }
    bool Has(const char* name) const { return sd_bus_error_has_name(&error_, name) > 0; }

private:
    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

// Reads a text property of the server.
std::optional<std::string> Version(sd_bus* bus) {
    char* text = nullptr;
    if (sd_bus_get_property_string(bus, kServer, "/com/kivo/process", "com.kivo.Msg.Process", "Version", nullptr,
                                   &text) < 0) {
        return std::nullopt;
    }
    const std::unique_ptr<char, Freed<std::free>> owner(text);
    return std::string(text);
}

// Sends something harmless that the shipped policy allows nobody to send.
std::optional<bool> IsGuarded(sd_bus* bus) {
    Errors error;
    sd_bus_message* raw = nullptr;
    (void)sd_bus_call_method(bus, kServer, "/com/kivo/policy", "org.freedesktop.DBus.Properties", "Get", error.Get(),
                             &raw, "ss", "com.kivo.Policy", "None");
    const BusMessage reply(raw);
    if (error.Has(SD_BUS_ERROR_ACCESS_DENIED)) {
        return true;
    }
    const bool isUnanswered = error.Has(SD_BUS_ERROR_NO_REPLY) || error.Has(SD_BUS_ERROR_TIMEOUT) ||
                              error.Has(SD_BUS_ERROR_SERVICE_UNKNOWN) || error.Has(SD_BUS_ERROR_NAME_HAS_NO_OWNER);
    return isUnanswered ? std::nullopt : std::optional(false);
}

std::optional<ServerFacts> LookAtServer() {
    BusConnection bus;
    if (OpenBus(bus, kCallLimit) < 0) {
        return std::nullopt;
    }
    sd_bus_creds* raw = nullptr;
    if (sd_bus_get_name_creds(bus.get(), kServer, SD_BUS_CREDS_PID | SD_BUS_CREDS_EUID, &raw) < 0) {
        return std::nullopt;
    }
    const Credentials credentials(raw);
    ServerFacts server;
    uid_t uid = 0;
    (void)sd_bus_creds_get_pid(raw, &server.process);
    server.user = sd_bus_creds_get_euid(raw, &uid) >= 0 ? UserName(uid) : "";
    server.version = Version(bus.get());
    server.isGuarded = IsGuarded(bus.get());
    return server;
}

}  // namespace

BusFacts LookAtBus(client::Catalogue configured) {
    BusFacts facts{OsMsgBusAddress(), std::string(OsMsgBusAddress()) == kSystemBus};
    const auto session = client::Session::Open();
    if (!session) {
        facts.joinFailure = session.Failure();
        return facts;
    }
    facts.server = LookAtServer();
    if (facts.server) {
        auto items = (*session)->Items(kLimit);
        if (items) {
            facts.inventory = std::move(*items);
            return facts;
        }
        facts.listError = items.Failure();
    }
    if (auto owners = (*session)->OwnersOf(std::move(configured), kLimit)) {
        facts.inventory = std::move(*owners);
    }
    return facts;
}

}  // namespace ominspect::doctor
