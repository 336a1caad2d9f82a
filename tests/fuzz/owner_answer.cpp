// What an owner answers to a run: a synchronous one, one in the background and one of a group.
#include <array>
#include <cstring>
#include <string_view>

#include "fake/fake.h"
#include "input.h"
#include "ominspect/records.h"
#include "result/result_mgr.h"
#include "server/dispatch.h"

namespace {

constexpr const char* kItem = "disk";

void Send(std::uint32_t id, std::uint32_t param, std::string_view text) {
    std::vector<unsigned char> payload(text.begin(), text.end());
    TagMsgBlock message{};
    message.msgType = 1;
    message.msgId = id;
    message.param = param;
    std::memcpy(message.srcProcName, "owner", 5);
    std::memcpy(message.replyTaskName, "own_task", 8);
    message.dataLen = static_cast<std::uint32_t>(payload.size());
    message.data = payload.data();
    fuzz::Check(InspectMsgProcess(&message) == 0);
}

bool IsText(const unsigned char* field, std::size_t size) {
    return std::memchr(field, 0, size) != nullptr;
}

// Every record that the server passes on is one of the item's. Its status and text are the owner's, even if they do not
// end.
void CheckRecords() {
    for (const kivo::fake::Entry& entry : kivo::fake::Journal()) {
        const bool isRecord = (entry.kind == kivo::fake::Kind::kReply && entry.id == 0) ||
                              (entry.kind == kivo::fake::Kind::kAsyncSend && entry.id == 0) ||
                              (entry.kind == kivo::fake::Kind::kBroadcast && entry.id == 8);
        if (!isRecord) {
            continue;
        }
        const unsigned char* bytes = entry.data.data();
        fuzz::Check(entry.data.size() == sizeof(tagKivoOmInspectionResult));
        fuzz::Check(IsText(bytes, 32));
        const std::string_view name(reinterpret_cast<const char*>(bytes));
        // A synchronous run that its owner goes on with ends without a name.
        fuzz::Check(name == kItem || (entry.kind == kivo::fake::Kind::kReply && name.empty()));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kivo::fake::Reset();
    g_resultMgr.Init();
    fuzz::Input input(data, size);
    kivo::fake::Answer answer;
    answer.afterMs = input.Number(1);
    const std::string_view bytes = input.Rest();
    answer.data.assign(bytes.begin(), bytes.end());
    kivo::fake::SetPeer("owner", "own_task", [answer](const kivo::fake::Entry&) { return answer; });
    constexpr std::string_view kRequest = R"({"name":"disk","cmd":""})";
    Send(2, 2000, kItem);
    Send(0, 0, kRequest);
    Send(18, 0, kRequest);
    Send(19, 0, kRequest);
    kivo::fake::Pass(130);
    CheckRecords();
    g_resultMgr.DelItem(kItem);
    fuzz::Check(kivo::fake::Finish(1000));
    return 0;
}
