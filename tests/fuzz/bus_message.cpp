// What comes over the bus: calls, signals and replies with any bodies, from processes, from the daemon and in its name;
// and bytes that are no message at all. After each input the message layer still answers, or has noticed that the bus
// is gone.
#include <array>
#include <atomic>
#include <string>

#include "bus_envelope.h"
#include "input.h"
#include "kivo/os_msg.h"
#include "small_daemon.h"

namespace {

using fuzz::BusMessage;
using fuzz::Check;

constexpr std::uint32_t kProbe = 0x7fffffff;
constexpr std::uint32_t kEvent = 8;
constexpr int kMostSteps = 6;

fuzz::SmallDaemon& Daemon() {
    static auto& daemon = *new fuzz::SmallDaemon;
    return daemon;
}

std::atomic<bool> g_isHandled{false};

std::uint32_t Handle(TagMsgBlock* message) {
    g_isHandled = true;
    for (const char* name :
         {message->srcProcName, message->srcTaskName, message->dstTaskName, message->replyTaskName}) {
        Check(std::char_traits<char>::find(name, OS_MSG_NAME_SIZE, '\0') != nullptr);
    }
    Check((message->data == nullptr) == (message->dataLen == 0) && message->dataLen <= OS_MSG_MAX_PAYLOAD);
    if (message->msgType == 1) {
        (void)OsMsgSynSendResp(message, message->data, message->dataLen);
    }
    return 0;
}

void Attach() {
    Daemon().PeerAnswers("", "");
    Check(OsProcAttach("tester") == OS_MSG_OK);
    const OsTaskDescriptor task{"inbox", 0, 64, &Handle, nullptr};
    Check(OsTaskCreate(&task) == OS_MSG_OK);
    const OsMsgSubscription event{kEvent, 0, "peer", "task", "inbox"};
    Check(OsMsgSubscribeEvent(&event, 1, 0) == OS_MSG_OK);
    const OsMsgSubscription restart{OS_MSG_EVENT_PROC_RESTART, 0, "other", "", "inbox"};
    Check(OsMsgSubscribeEvent(&restart, 1, 0) == OS_MSG_OK);
}

std::string Sender(std::uint32_t number) {
    return number % 8 == 0 ? "org.freedesktop.DBus" : ":1." + std::to_string(number % 8 + 2);
}

std::string Signature(std::uint32_t number) {
    static const std::array<const char*, 8> kSignatures{"uussay", "uay", "sss", "ay", "u", "s", "as", "a(sus)"};
    return kSignatures[number % kSignatures.size()];
}

// A message whose head is right and whose body may be anything.
std::string Message(fuzz::Input& input) {
    const std::uint32_t kind = input.Number(1) % 6;
    const std::string sender = Sender(input.Number(1));
    const std::string signature = Signature(input.Number(1));
    const std::vector<unsigned char> body = input.Block();
    const std::string_view bytes(reinterpret_cast<const char*>(body.data()), body.size());
    const auto call = [&](const char* path, const char* interface, const char* member, BusMessage::Type type) {
        BusMessage message(type, Daemon().NextSerial());
        message.Text(BusMessage::kPath, 'o', path).Text(BusMessage::kInterface, 's', interface);
        message.Text(BusMessage::kMember, 's', member).Text(BusMessage::kSender, 's', sender);
        return message.Body(signature, bytes).Bytes();
    };
    switch (kind) {
        case 0:
            return call("/com/kivo/task/inbox", "com.kivo.Msg", "Send", BusMessage::kCall);
        case 1:
            return call("/com/kivo/task/task", "com.kivo.Msg", "Event", BusMessage::kSignal);
        case 2:
            return call("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged", BusMessage::kSignal);
        case 3:
            return call("/com/kivo/process", "com.kivo.Msg.Publisher", "Subscribe", BusMessage::kCall);
        case 4:
            return call("/com/kivo/process", "com.kivo.Msg.Publisher", "Unsubscribe", BusMessage::kCall);
        default: {
            BusMessage message(BusMessage::kReturn, Daemon().NextSerial());
            message.ReplyTo(input.Number(1)).Text(BusMessage::kSender, 's', sender);
            return message.Body(signature, bytes).Bytes();
        }
    }
}

// A call whose arguments are right in form.
std::string Call(fuzz::Input& input) {
    const auto name = [&input] {
        std::string text(input.Take(input.Number(1) % 24));
        std::replace_if(
            text.begin(), text.end(), [](unsigned char c) { return c == 0 || c >= 0x80; }, '?');
        return text;
    };
    fuzz::BusEnvelope call{"inbox", "", input.Number(4), input.Number(4), name(), name(), {}};
    const std::vector<unsigned char> payload = input.Block();
    call.payload = {reinterpret_cast<const char*>(payload.data()), payload.size()};
    const bool wantsReply = (input.Number(1) & 1U) != 0;
    call.sender = Sender(input.Number(1));
    return fuzz::CallOf(call, Daemon().NextSerial(), wantsReply).Bytes();
}

// A process of which the messages are read is asked something, and answers anything.
void AskPeer(fuzz::Input& input) {
    const std::string signature = Signature(input.Number(1));
    const std::vector<unsigned char> body = input.Block();
    Daemon().PeerAnswers(signature, {body.begin(), body.end()});
    TagMsgBlock question{};
    std::copy_n("peer", 5, question.dstProcName);
    std::copy_n("task", 5, question.dstTaskName);
    TagMsgBlock* answer = nullptr;
    if (OsMsgSynSend(&question, &answer, 10000) == OS_MSG_OK) {
        Check(answer != nullptr && (answer->data == nullptr) == (answer->dataLen == 0));
        OsMsgSynRespFree(answer);
    }
}

// Whether the message layer still reads: it answers, whatever it answers.
bool IsAlive() {
    const std::uint32_t serial = Daemon().NextSerial();
    BusMessage probe = fuzz::CallOf({"inbox", ":1.77", kProbe, 0, "", "", {}}, serial, true);
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
        switch (input.Number(1) % 16) {
            case 0:
                AskPeer(input);
                break;
            case 1: {
                const std::vector<unsigned char> bytes = input.Block();
                Daemon().SendLast({bytes.begin(), bytes.end()});
                break;
            }
            case 2:
            case 3:
            case 4:
            case 5:
                Daemon().Send(Call(input));
                break;
            default:
                Daemon().Send(Message(input));
        }
    }
    if (!IsAlive()) {
        OsProcDetach();
        Attach();
        Check(IsAlive());
    }
    return 0;
}
