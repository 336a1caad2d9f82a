// What an owner's process gets: requests to run an item, by whoever sends them, and the server's restarts. Handlers see
// texts that end, and the next request is answered.
#include <array>
#include <atomic>
#include <cstring>
#include <string>

#include "bus_envelope.h"
#include "input.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "ominspect/records.h"
#include "small_daemon.h"

namespace {

using fuzz::Check;

constexpr const char* kServer = ":1.9";
constexpr const char* kTask = "items";
constexpr std::uint32_t kRunRequest = 4;
constexpr int kMostSteps = 8;
constexpr std::size_t kNameSize = 32;

fuzz::SmallDaemon& Daemon() {
    static auto& daemon = *new fuzz::SmallDaemon;
    return daemon;
}

std::atomic<bool> g_isHandled{false};

// What the request says decides how it is answered.
std::uint32_t Handle(const char* item, const char* request, tagKivoOmInspectionResult* result) {
    g_isHandled = true;
    Check(std::strcmp(result->name, item) == 0 && std::strlen(item) < kNameSize);
    std::array<char, 16> argument{};
    argument.fill('x');
    const std::uint32_t read = InspectGetArgument(request, argument.data(), argument.size());
    Check(std::memchr(argument.data(), '\0', argument.size()) != nullptr);
    std::memcpy(result->status, "success", sizeof "success");
    std::uint64_t run = 0;
    if (read == OS_MSG_OK && argument[0] == 'd') {
        Check(InspectDeferRun(&run) == OS_MSG_OK || run == 0);
        if (argument[1] != 'd') {
            Check(run == 0 || InspectAnswerRun(run, result) != OS_MSG_ERR_PARAM);
        }
    }
    return argument[0] == 'f' ? 1 : 0;
}

void Attach() {
    Daemon().Add("ominspect", kServer);
    Daemon().PeerAnswers("ay", std::string(8, '\0'));
    Check(OsProcAttach("tester") == OS_MSG_OK && InspectClientInit(kTask) == OS_MSG_OK);
    std::array<InspectHandlerRecord, 2> records{};
    std::memcpy(records[0].name, "disk", sizeof "disk");
    std::memcpy(records[1].name, "an_item_with_a_name_of_31_bytes", kNameSize);
    for (InspectHandlerRecord& record : records) {
        record.handler = Handle;
        record.timeout = 1000;
    }
    (void)InspectRegHandler(records.data(), records.size());
}

// As the server sends it: the item, the length of the text, the text and its end.
std::string RunRequest(std::string_view item, std::string_view text) {
    std::string payload(item);
    payload.resize(kNameSize);
    fuzz::AppendNumber(payload, static_cast<std::uint32_t>(text.size()));
    return payload.append(text).append(1, '\0');
}

std::string RunRequest(fuzz::Input& input) {
    static constexpr std::array<std::string_view, 4> kItems{"disk", "an_item_with_a_name_of_31_bytes", "nobodys", ""};
    const std::uint32_t flags = input.Number(1);
    const std::vector<unsigned char> text = input.Block();
    return RunRequest(kItems[flags % kItems.size()], {reinterpret_cast<const char*>(text.data()), text.size()});
}

void Send(fuzz::Input& input) {
    const std::uint32_t flags = input.Number(1);
    const bool isOfServer = (flags & 0x80U) == 0;
    const bool wantsReply = (flags & 0x40U) == 0;
    std::string payload;
    std::uint32_t id = kRunRequest;
    if ((flags & 0x20U) == 0) {
        payload = RunRequest(input);
    } else {
        id = (flags & 0x10U) == 0 ? kRunRequest : input.Number(4);
        const std::vector<unsigned char> bytes = input.Block();
        payload.assign(bytes.begin(), bytes.end());
    }
    const fuzz::BusEnvelope call{kTask, isOfServer ? kServer : fuzz::SmallDaemon::kPeer, id, 0, "", "", payload};
    Daemon().Send(fuzz::CallOf(call, Daemon().NextSerial(), wantsReply).Bytes());
}

// The server leaves, or comes as another connection.
void ChangeServer(bool isThere) {
    std::string body;
    fuzz::AppendText(body, "com.kivo.proc.ominspect");
    fuzz::AppendText(body, isThere ? "" : kServer);
    fuzz::AppendText(body, isThere ? kServer : "");
    fuzz::BusMessage signal(fuzz::BusMessage::kSignal, Daemon().NextSerial());
    signal.Text(fuzz::BusMessage::kPath, 'o', "/org/freedesktop/DBus");
    signal.Text(fuzz::BusMessage::kInterface, 's', "org.freedesktop.DBus");
    signal.Text(fuzz::BusMessage::kMember, 's', "NameOwnerChanged");
    signal.Text(fuzz::BusMessage::kSender, 's', "org.freedesktop.DBus");
    Daemon().Send(signal.Body("sss", body).Bytes());
}

bool IsAlive() {
    const std::uint32_t serial = Daemon().NextSerial();
    fuzz::BusMessage probe =
        fuzz::CallOf({kTask, kServer, kRunRequest, 0, "", "", RunRequest("disk", "")}, serial, true);
    return Daemon().Ask(probe, serial);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Without the check, inputs that nobody reads would pass.
    fuzz::JoinNowAndThen([] {
        Attach();
        Check(IsAlive() && g_isHandled);
    });
    fuzz::Input input(data, size);
    for (int step = 0; step < kMostSteps && !input.IsEmpty(); ++step) {
        const std::uint32_t which = input.Number(1) % 16;
        if (which < 2) {
            ChangeServer(which == 1);
        } else {
            Send(input);
        }
    }
    ChangeServer(true);
    Check(IsAlive());
    return 0;
}
