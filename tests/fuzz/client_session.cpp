// What reaches a requester's session: mail and events in the server's name and in others', and answers to what it asks.
// Results that it passes on have texts that end, and the session still works afterwards.
#include <array>
#include <atomic>
#include <cmath>
#include <memory>
#include <string>

#include "bus_envelope.h"
#include "input.h"
#include "ominspect/client/session.h"
#include "small_daemon.h"

using namespace ominspect::client;

namespace {

using fuzz::Check;

constexpr const char* kServer = ":1.9";
constexpr const char* kMail = "ic_5ftask";
constexpr const char* kEvents = "ic_5fevents";
constexpr int kInputsOfOneConnection = 2000;
constexpr int kMostSteps = 8;
constexpr std::chrono::milliseconds kLimit{10000};
constexpr std::chrono::milliseconds kNoTime{5};  // for what comes by mail

fuzz::SmallDaemon& Daemon() {
    static auto& daemon = *new fuzz::SmallDaemon;
    return daemon;
}

std::atomic<bool> g_isTold{false};

void CheckResult(const ItemResult& result) {
    g_isTold = true;
    const auto isText = [](const std::string& text, std::size_t field) {
        return text.size() < field && text.find('\0') == std::string::npos;
    };
    Check(isText(result.name, 32) && isText(result.status, 32) && isText(result.text, 128));
}

void CheckPerfData(const PerfData& data) {
    Check(data.values.size() <= 64);
    for (const PerfValue& value : data.values) {
        Check(!value.label.empty() && std::isfinite(value.value));
    }
}

std::unique_ptr<Session> Open() {
    Daemon().Add("ominspect", kServer);
    Daemon().PeerAnswers("ay", std::string(4, '\0'));
    auto session = Session::Open({CheckResult, [](bool) {}, {}}, "ic-fuzz");
    Check(static_cast<bool>(session));
    (void)(*session)->Subscribe();
    (void)(*session)->SubscribePerfData("peer", CheckPerfData);
    return std::move(*session);
}

// A record of this size, of which the first bytes are given.
std::string Record(fuzz::Input& input) {
    static constexpr std::array<std::size_t, 6> kSizes{192, 6688, 12296, 4, 48, 0};
    const std::size_t which = input.Number(1);
    const std::vector<unsigned char> bytes = input.Block();
    std::string record(bytes.begin(), bytes.end());
    if (which < kSizes.size()) {
        record.resize(kSizes[which]);
    }
    return record;
}

std::uint32_t IdOf(std::uint32_t number) {
    static constexpr std::array<std::uint32_t, 6> kIds{0, 1, 8, 9, 0x200002, 0x300001};
    return number < kIds.size() ? kIds[number] : number;
}

void Tell(fuzz::Input& input) {
    const std::uint32_t flags = input.Number(1);
    const std::uint32_t id = IdOf(input.Number(1));
    const std::string record = Record(input);
    const char* sender = (flags & 1U) == 0 ? kServer : fuzz::SmallDaemon::kPeer;
    if ((flags & 2U) != 0) {
        const char* task = (flags & 4U) != 0 ? "iom_5fsrv_5ftask" : "owner_5fitems";
        Daemon().Send(fuzz::EventOf({task, sender, id, 0, "", "", record}, Daemon().NextSerial()).Bytes());
        return;
    }
    const fuzz::BusEnvelope mail{(flags & 8U) != 0 ? kEvents : kMail, sender, id, 0, "", "", record};
    Daemon().Send(fuzz::CallOf(mail, Daemon().NextSerial(), false).Bytes());
}

// Asks the server, which answers anything.
void Ask(Session& session, fuzz::Input& input) {
    const std::uint32_t which = input.Number(1);
    std::string answer;
    fuzz::AppendBytes(answer, Record(input));
    Daemon().PeerAnswers("ay", answer);
    switch (which % 6) {
        case 0:
            if (const auto reply = session.Run({"disk", ""}, kLimit)) {
                CheckResult(reply->result);
            }
            break;
        case 1:
            (void)session.State("disk", kLimit);
            break;
        case 2:
            if (const auto list = session.List(kLimit)) {
                Check(list->items.size() <= 256);
            }
            break;
        case 3:
            if (const auto result = session.Stop("disk", kNoTime)) {
                CheckResult(*result);
            }
            break;
        case 4:
            (void)session.StopTask(which, kLimit);
            break;
        default:
            (void)session.Reset("disk", kNoTime);
    }
}

bool IsAlive(Session& session) {
    std::string idle;
    fuzz::AppendBytes(idle, std::string{1, 0, 0, 0});
    Daemon().PeerAnswers("ay", idle);
    return static_cast<bool>(session.State("disk", kLimit));
}

// Without this, inputs that nobody reads would pass.
void CheckThatEventsArrive(Session& session) {
    const std::string record(192, '\0');
    const fuzz::BusEnvelope event{"iom_5fsrv_5ftask", kServer, 8, 0, "", "", record};
    Daemon().Send(fuzz::EventOf(event, Daemon().NextSerial()).Bytes());
    for (int i = 0; i < 1000 && !g_isTold; ++i) {
        Check(IsAlive(session));
    }
    Check(g_isTold);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static int inputs = 0;
    static auto& session = *new std::unique_ptr<Session>;
    if (inputs++ % kInputsOfOneConnection == 0) {
        session.reset();
        session = Open();
        CheckThatEventsArrive(*session);
    }
    fuzz::Input input(data, size);
    for (int step = 0; step < kMostSteps && !input.IsEmpty(); ++step) {
        if (input.Number(1) % 4 == 0) {
            Ask(*session, input);
        } else {
            Tell(input);
        }
    }
    Check(IsAlive(*session));
    return 0;
}
