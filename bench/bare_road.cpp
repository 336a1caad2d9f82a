// One message at a time, as the server's task handles them, with sd-bus and nothing around it.
#include "bare_road.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "bench.h"

namespace bench {

namespace {

using Record = std::array<char, kRecordSize>;

constexpr const char* kForwarder = "com.kivo.proc.benchforwarder";
constexpr const char* kBackend = "com.kivo.proc.benchbackend";

// Where the status stands in a result.
constexpr std::size_t kStatusAt = 32;

// Waits for the answer of a call, which it frees: the byte array in it.
std::string AnswerOf(sd_bus* bus, sd_bus_message* call) {
    sd_bus_message* reply = nullptr;
    const void* data = nullptr;
    std::size_t size = 0;
    std::string answer;
    if (sd_bus_call(bus, call, 0, nullptr, &reply) >= 0 && sd_bus_message_read_array(reply, 'y', &data, &size) >= 0) {
        answer.assign(static_cast<const char*>(data), size);
    }
    sd_bus_message_unref(reply);
    sd_bus_message_unref(call);
    return answer;
}

std::string BackendName(std::size_t backend) {
    return kBackend + std::to_string(backend);
}

sd_bus_message* Call(sd_bus* bus, const std::string& destination, const void* data, std::size_t size) {
    sd_bus_message* call = nullptr;
    Check(sd_bus_message_new_method_call(bus, &call, destination.c_str(), "/bench", "bench.Road", "Go") >= 0 &&
              sd_bus_message_append_array(call, 'y', data, size) >= 0,
          "making a call");
    return call;
}

sd_bus_message* CallFor(sd_bus* bus, const std::string& destination, std::size_t backend) {
    return Call(bus, destination, (BackendName(backend) + '\n' + kRequest).c_str(),
                BackendName(backend).size() + 1 + std::strlen(kRequest));
}

int Answer(sd_bus_message* call, const Record& record) {
    sd_bus_message* reply = nullptr;
    sd_bus_message_new_method_return(call, &reply);
    sd_bus_message_append_array(reply, 'y', record.data(), record.size());
    const int sent = sd_bus_send(nullptr, reply, nullptr);
    sd_bus_message_unref(reply);
    return sent;
}

int OnGo(sd_bus_message* call, void* forward, sd_bus_error* /*error*/) {
    const void* data = nullptr;
    std::size_t size = 0;
    sd_bus_message_read_array(call, 'y', &data, &size);
    if (forward != nullptr) {
        const std::string_view text(static_cast<const char*>(data), size);
        sd_bus* bus = sd_bus_message_get_bus(call);
        Check(SizeOfAnswer(bus, Call(bus, std::string(text.substr(0, text.find('\n'))), data, size)) == kRecordSize,
              "forwarding a call");
    }
    return Answer(call, {});
}

int OnRun(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
    Record record{};
    constexpr std::string_view kStatus = "success";
    std::copy(kStatus.begin(), kStatus.end(), record.begin() + kStatusAt);
    return Answer(call, record);
}

const sd_bus_vtable kRoad[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Go", "ay", "ay", OnGo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable kOwner[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Send", "uussay", "ay", OnRun, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

[[noreturn]] void ServeRoad(const char* name, bool forwards) {
    static char forward;
    sd_bus* bus = OpenBus();
    Check(sd_bus_add_object_vtable(bus, nullptr, "/bench", "bench.Road", kRoad, forwards ? &forward : nullptr) >= 0 &&
              sd_bus_request_name(bus, name, 0) >= 0,
          "serving the bare road");
    ServeBus(bus);
}

}  // namespace

std::size_t SizeOfAnswer(sd_bus* bus, sd_bus_message* call) {
    return AnswerOf(bus, call).size();
}

std::string StatusOfRun(sd_bus* bus, sd_bus_message* run) {
    const std::string result = AnswerOf(bus, run);
    return result.size() == kRecordSize ? result.c_str() + kStatusAt : "";
}

bool IsThere(sd_bus* bus, const char* name) {
    return sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                              "GetNameOwner", nullptr, nullptr, "s", name) >= 0;
}

BareRoad::BareRoad(const char* program, std::size_t backends) : backends_(backends) {
    children_.emplace_back(std::vector<std::string>{program, "--forwarder"});
    for (std::size_t i = 0; i < backends; ++i) {
        children_.emplace_back(std::vector<std::string>{program, "--backend", std::to_string(i)});
    }
}

void BareRoad::Serve(int argc, char** argv) {
    const std::string_view mode = argc > 1 ? argv[1] : "";
    if (mode == "--forwarder") {
        ServeRoad(kForwarder, true);
    } else if (mode == "--backend" && argc > 2) {
        ServeRoad(BackendName(std::strtoul(argv[2], nullptr, 10)).c_str(), false);
    }
}

sd_bus_message* BareRoad::Forwarded(sd_bus* bus, std::size_t backend) {
    return CallFor(bus, kForwarder, backend);
}

sd_bus_message* BareRoad::Straight(sd_bus* bus, std::size_t backend) {
    return CallFor(bus, BackendName(backend), backend);
}

bool BareRoad::IsReady(sd_bus* bus) const {
    bool ready = IsThere(bus, kForwarder);
    for (std::size_t i = 0; ready && i < backends_; ++i) {
        ready = IsThere(bus, BackendName(i).c_str());
    }
    return ready;
}

void ServeItems(const std::string& process, const std::vector<std::string>& items) {
    sd_bus* bus = OpenBus();
    Check(sd_bus_add_object_vtable(bus, nullptr, "/com/kivo/task/owner", "com.kivo.Msg", kOwner, nullptr) >= 0 &&
              sd_bus_request_name(bus, ("com.kivo.proc." + process).c_str(), 0) >= 0,
          "serving items");
    for (const std::string& item : items) {
        sd_bus_message* registration = ServerCall(bus, 2, item.c_str(), "owner");
        // Not waited for: the server may be waiting for this process, which answers nobody meanwhile.
        Check(sd_bus_message_set_expect_reply(registration, 0) >= 0 && sd_bus_send(bus, registration, nullptr) >= 0,
              "registering an item");
        sd_bus_message_unref(registration);
    }
    ServeBus(bus);
}

void ServeBus(sd_bus* bus) {
    for (;;) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

}  // namespace bench
