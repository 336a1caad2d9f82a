// Calls of the typed interface, com.kivo.Inspect1, by anybody on the bus: any method and any arguments, of the right
// form or not. Each ordered operation is one that may be, and the interface still answers.
#include <array>
#include <chrono>
#include <memory>
#include <string>

#include "common/bus_connection.h"
#include "dbus/interface.h"
#include "input.h"
#include "small_daemon.h"

using namespace ominspect;
using namespace ominspect::gateway;

using fuzz::Check;

namespace {

constexpr int kInputsOfOneConnection = 1000;
constexpr int kMostSteps = 6;

fuzz::SmallDaemon& Daemon() {
    static auto& daemon = *new fuzz::SmallDaemon;
    return daemon;
}

// A gateway without a server: what is ordered fails.
struct World {
    Feed feed{nullptr, 1};
    Runs runs;
    Link link;
    Picture picture;
    Operations operations{link, runs, picture, feed};
    BusConnection bus;
    std::unique_ptr<dbus::Interface> interface;

    World() {
        client::Inventory inventory;
        inventory.items = {{"disk", client::ConfiguredItem{"disk", "warn", true}, {}}, {"clock", {}, {}}};
        inventory.configured = 1;
        (void)picture.SetInventory(inventory);
        Check(OpenBus(bus, std::chrono::seconds(5)) >= 0);
        while (sd_bus_is_ready(bus.get()) == 0) {
            Check(sd_bus_process(bus.get(), nullptr) > 0 || sd_bus_wait(bus.get(), UINT64_MAX) >= 0);
        }
        interface = std::make_unique<dbus::Interface>(bus.get(), picture, operations);
        Check(interface->Begin() >= 0);
    }
};

std::string Text(fuzz::Input& input) {
    std::string text(input.Take(input.Number(1) % 48));
    std::replace(text.begin(), text.end(), '\0', '?');
    return text;
}

struct Method {
    const char* path;
    const char* interface;
    const char* name;
    const char* signature;
};

constexpr const char* kRoot = "/com/kivo/Inspect1";
constexpr const char* kOwn = "com.kivo.Inspect1";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr std::array kMethods{
    Method{kRoot, kOwn, "ListItems", ""},
    Method{kRoot, kOwn, "Run", "ss"},
    Method{kRoot, kOwn, "RunGroup", "ass"},
    Method{kRoot, kOwn, "Stop", "s"},
    Method{kRoot, kOwn, "Reset", "s"},
    Method{kRoot, kProperties, "Get", "ss"},
    Method{kRoot, kProperties, "GetAll", "s"},
    Method{kRoot, kProperties, "Set", "ssv"},
    Method{"/com/kivo/Inspect1/item/disk", kProperties, "GetAll", "s"},
    Method{"/com/kivo/Inspect1/item/nobodys", kProperties, "Get", "ss"},
    Method{kRoot, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", ""},
    Method{"/com/kivo/Inspect1/item", "org.freedesktop.DBus.Introspectable", "Introspect", ""},
};

void AppendArguments(std::string& body, std::string_view signature, fuzz::Input& input) {
    for (std::size_t i = 0; i < signature.size(); ++i) {
        if (signature[i] == 's') {
            fuzz::AppendText(body, Text(input));
        } else if (signature[i] == 'a') {
            std::string items;
            for (std::uint32_t left = input.Number(2) % 300; left > 0; --left) {
                fuzz::AppendText(items, input.IsEmpty() ? "disk" : Text(input));
            }
            fuzz::AppendNumber(body, static_cast<std::uint32_t>(items.size()));
            body += items;
            ++i;
        } else {
            body.append({1, 's', 0});
            fuzz::AppendText(body, Text(input));
        }
    }
}

std::string Call(fuzz::Input& input) {
    const Method& method = kMethods[input.Number(1) % kMethods.size()];
    const std::uint32_t flags = input.Number(1);
    fuzz::BusMessage message(fuzz::BusMessage::kCall, Daemon().NextSerial(), (flags & 1U) == 0);
    message.Text(fuzz::BusMessage::kPath, 'o', method.path).Text(fuzz::BusMessage::kInterface, 's', method.interface);
    message.Text(fuzz::BusMessage::kMember, 's', method.name);
    message.Text(fuzz::BusMessage::kSender, 's', ":1." + std::to_string(20 + (flags >> 4U) % 4));
    if ((flags & 2U) == 0) {
        std::string body;
        AppendArguments(body, method.signature, input);
        return message.Body(method.signature, body).Bytes();
    }
    // The right signature, or another one, over anything.
    const std::vector<unsigned char> body = input.Block();
    const char* signature = (flags & 4U) == 0 ? method.signature : "sasa(sus)";
    return message.Body(signature, std::string(body.begin(), body.end())).Bytes();
}

// A caller leaves, or the daemon says so.
std::string Leave(fuzz::Input& input) {
    const std::uint32_t flags = input.Number(1);
    const std::string caller = ":1." + std::to_string(20 + flags % 4);
    std::string body;
    for (const std::string& text : {caller, caller, std::string()}) {
        fuzz::AppendText(body, text);
    }
    fuzz::BusMessage signal(fuzz::BusMessage::kSignal, Daemon().NextSerial());
    signal.Text(fuzz::BusMessage::kPath, 'o', "/org/freedesktop/DBus");
    signal.Text(fuzz::BusMessage::kInterface, 's', "org.freedesktop.DBus");
    signal.Text(fuzz::BusMessage::kMember, 's', "NameOwnerChanged");
    signal.Text(fuzz::BusMessage::kSender, 's', (flags & 8U) == 0 ? "org.freedesktop.DBus" : caller.c_str());
    return signal.Body("sss", body).Bytes();
}

// Until this call was answered. False: the connection was ended, which sd-bus does with what is no message.
bool ProcessUntilAnswered(World& world, std::uint32_t serial) {
    while (!Daemon().HasAnswerTo(serial)) {
        int result = sd_bus_process(world.bus.get(), nullptr);
        if (result == 0) {
            result = sd_bus_wait(world.bus.get(), 1000);
        }
        if (result < 0 || world.interface->TellOperations() < 0) {
            return false;
        }
    }
    return true;
}

// Until the last call was read.
bool Process(World& world) {
    const std::uint32_t serial = Daemon().NextSerial();
    fuzz::BusMessage probe(fuzz::BusMessage::kCall, serial, true);
    probe.Text(fuzz::BusMessage::kPath, 'o', kRoot)
        .Text(fuzz::BusMessage::kInterface, 's', "org.freedesktop.DBus.Peer");
    probe.Text(fuzz::BusMessage::kMember, 's', "Ping").Text(fuzz::BusMessage::kSender, 's', ":1.77");
    Daemon().Send(probe.Bytes());
    if (!ProcessUntilAnswered(world, serial)) {
        return false;
    }
    for (const OperationView& operation : world.operations.Changed(0)) {
        Check(!operation.items.empty() && operation.items.size() <= 256 && !operation.who.empty());
    }
    return true;
}

// Without this, inputs that nobody reads would pass.
void CheckThatCallsArrive(World& world) {
    const std::uint32_t serial = Daemon().NextSerial();
    fuzz::BusMessage call(fuzz::BusMessage::kCall, serial, true);
    call.Text(fuzz::BusMessage::kPath, 'o', kRoot).Text(fuzz::BusMessage::kInterface, 's', kOwn);
    call.Text(fuzz::BusMessage::kMember, 's', "Stop").Text(fuzz::BusMessage::kSender, 's', ":1.20");
    std::string body;
    fuzz::AppendText(body, "disk");
    Daemon().Send(call.Body("s", body).Bytes());
    Check(ProcessUntilAnswered(world, serial) && !world.operations.Changed(0).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static int inputs = 0;
    static auto& world = *new std::unique_ptr<World>;
    (void)Daemon();
    if (inputs++ % kInputsOfOneConnection == 0) {
        world.reset();
        world = std::make_unique<World>();
        CheckThatCallsArrive(*world);
    }
    fuzz::Input input(data, size);
    for (int step = 0; step < kMostSteps && !input.IsEmpty(); ++step) {
        Daemon().Send(input.Number(1) % 8 == 0 ? Leave(input) : Call(input));
    }
    if (!Process(*world)) {
        world.reset();
        world = std::make_unique<World>();
        Check(Process(*world));
    }
    return 0;
}
