// The server's handlers, by whole envelopes: some messages in order, with what the owner answers and the time that
// passes between them. Each input is one life of the result table on the fake platform, at whose end nothing may be
// left.
#include <array>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "fake/fake.h"
#include "input.h"
#include "ominspect/config.h"
#include "ominspect/records.h"
#include "result/result_mgr.h"
#include "server/dispatch.h"

extern InspectConfigMgr* g_inspectConfigMgr;

namespace {

constexpr std::size_t kMostSteps = 48;
constexpr std::uint64_t kLongestEnd = 4000;  // seconds until the last job has ended

enum class Step { kMessage, kRawMessage, kAnswer, kTime };

template <std::size_t N>
void Fill(char (&field)[N], std::string_view text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

bool IsSizeOfReply(std::uint32_t id, std::size_t size) {
    switch (id) {
        case 0:
            return size == 0 || size == sizeof(tagKivoOmInspectionResult);
        case 1:
            return size == 0 || size == sizeof(tagKivoOmInspectionGroupResult);
        case 6:
        case 7:
        case 37:
            return size == 4;
        case 19:
            return size == 0 || size == 4;
        case 38:
            return size == sizeof(tagKivoOmInspectionItemList);
        default:
            return size == 0;
    }
}

class Life {
public:
    Life() {
        kivo::fake::Reset();
        g_resultMgr.Init();
    }

    void Do(fuzz::Input& input) {
        switch (static_cast<Step>(input.Number(1) % 4)) {
            case Step::kMessage:
                return Send(input, false);
            case Step::kRawMessage:
                return Send(input, true);
            case Step::kAnswer:
                return SetAnswer(input);
            case Step::kTime:
                return kivo::fake::Pass(input.Number(1));
        }
    }

    // Takes the items back: what waits for them ends then.
    void End() {
        for (const std::string& item : items_) {
            g_resultMgr.DelItem(item);
        }
        fuzz::Check(kivo::fake::Finish(kLongestEnd));
        CheckJournal();
        std::vector<unsigned char> nobody{'n', 'o', 'b', 'o', 'd', 'y'};
        TagMsgBlock question = Envelope(7, nobody);
        fuzz::Check(InspectMsgProcess(&question) == 0);
        CheckJournal();
        fuzz::Check(lastReply_ == std::vector<unsigned char>{1, 0, 0, 0});
    }

private:
    static TagMsgBlock Envelope(std::uint32_t id, std::vector<unsigned char>& payload) {
        TagMsgBlock message{};
        message.msgType = 1;
        message.uid = 1000;
        message.msgId = id;
        Fill(message.srcProcName, "owner");
        Fill(message.srcTaskName, "own_task");
        Fill(message.replyTaskName, "own_task");
        message.dataLen = static_cast<std::uint32_t>(payload.size());
        message.data = payload.empty() ? nullptr : payload.data();
        return message;
    }

    void Send(fuzz::Input& input, bool raw) {
        const std::uint32_t which = input.Number(1);
        const std::uint32_t id = which < kDispatchTable.size() ? kDispatchTable[which].msgId : input.Number(4);
        const std::uint32_t flags = input.Number(1);
        const std::uint32_t param = input.Number(2);
        std::string_view names = raw ? input.Take(48) : std::string_view();
        std::vector<unsigned char> payload = input.Block();
        TagMsgBlock message = Envelope(id, payload);
        message.msgType = flags & 1U;
        // Items have a limit: a synchronous request waits for the item with the empty name, without one for ever.
        message.param = id == 2 ? param | 1U : param;
        if (raw) {
            Fill(message.srcProcName, names.substr(0, 16));
            Fill(message.srcTaskName, names.substr(std::min<std::size_t>(16, names.size()), 16));
            Fill(message.replyTaskName, names.substr(std::min<std::size_t>(32, names.size()), 16));
        }
        if (id == 2 && !payload.empty()) {
            const auto* text = reinterpret_cast<const char*>(payload.data());
            items_.emplace(text, strnlen(text, payload.size()));
        }
        (void)InspectMsgProcess(&message);
        CheckJournal();
    }

    static void SetAnswer(fuzz::Input& input) {
        kivo::fake::Answer answer;
        const std::uint32_t flags = input.Number(1);
        answer.code = (flags & 1U) != 0 ? OS_MSG_ERR_TIMEOUT : OS_MSG_OK;
        answer.nullResponse = (flags & 2U) != 0;
        answer.afterMs = (flags & 4U) != 0 ? 400000 : 10;
        answer.data = input.Block();
        kivo::fake::SetPeer("owner", "own_task", [answer](const kivo::fake::Entry&) { return answer; });
    }

    // Everything that the server said since the last look.
    void CheckJournal() {
        for (const kivo::fake::Entry& entry : kivo::fake::Journal()) {
            if (entry.kind == kivo::fake::Kind::kReply) {
                fuzz::Check(IsSizeOfReply(entry.id, entry.data.size()));
                lastReply_ = entry.data;
            } else if (entry.kind == kivo::fake::Kind::kLog) {
                fuzz::Check(!entry.text.starts_with("message handler given up: ") &&
                            !entry.text.starts_with("group run given up: "));
            } else if (entry.kind == kivo::fake::Kind::kBroadcast && entry.id == 9) {
                // It says in turn that the server is busy and that it is idle.
                fuzz::Check(entry.data.size() == 4 && entry.data[0] == (isBusy_ ? 1 : 0));
                isBusy_ = !isBusy_;
            }
        }
        kivo::fake::ClearJournal();
    }

    std::set<std::string> items_;
    std::vector<unsigned char> lastReply_;
    bool isBusy_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    kivo::fake::Reset();
    g_inspectConfigMgr = InspectConfigMgr::GetInstance();
    g_inspectConfigMgr->InitInspectItemList(nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    Life life;
    for (std::size_t step = 0; step < kMostSteps && !input.IsEmpty(); ++step) {
        life.Do(input);
    }
    life.End();
    return 0;
}
