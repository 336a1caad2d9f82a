// Messages to the server's task: what each does, and what it is answered.
#include "model/part.h"

#include <algorithm>
#include <cstring>

#include "world/outcome.h"

namespace sim::model {

using Kind = Action::Kind;

namespace {

constexpr size_t kItemList = 12296;
constexpr uint32_t kDefaultItems = 25;

Bytes ItemList() {
    struct Row {
        const char* name;
        const char* level;
        int64_t bits;
    };
    static constexpr Row kRows[kDefaultItems] = {
        {"bsp_mainboard_ft", "error", 1},
        {"devm_wired_connect_ft", "error", 1},
        {"devm_connect_ap_ft", "error", 1},
        {"aud_MicHwLink_ft", "error", 1},
        {"mediactrl_inspect_aux_out_ft", "error", 1},
        {"mediactrl_inspect_main_out_ft", "error", 1},
        {"mediactrl_inspect_main_in_ft", "error", 1},
        {"camera_image_inversion_ft", "warn", 1},
        {"camera_awb_mode_ft", "warn", 1},
        {"devm_lan_mode_ft", "warn", 1},
        {"camera_ae_mode_ft", "warn", 1},
        {"camera_pic_mode_ft", "warn", 1},
        {"aud_MicAll_ft", "warn", 1},
        {"aud_SpkQuiet_ft", "error", 1},
        {"aud_aecCaps_ft", "warn", 1},
        {"aud_lineLocal_ft", "warn", 1},
        {"aud_lineRemote_ft", "warn", 1},
        {"conf_dndswitch_ft", "error", 1},
        {"conf_autoanswermute_ft", "warn", 1},
        {"conf_defaultcallband_ft", "warn", 1},
        {"conf_maxcallinband_ft", "warn", 1},
        {"conf_h323_ft", "error", 1},
        {"conf_sip_ft", "error", 1},
        {"conf_conferenceserver_ft", "error", 1},
        {"conf_ldapserver_ft", "error", 0},
    };
    Bytes list(kItemList);
    for (size_t i = 0; i < kDefaultItems; ++i) {
        unsigned char* const slot = list.data() + i * 48;
        std::memcpy(slot, kRows[i].name, std::strlen(kRows[i].name));
        std::memcpy(slot + 32, kRows[i].level, std::strlen(kRows[i].level));
        std::memcpy(slot + 40, &kRows[i].bits, sizeof kRows[i].bits);
    }
    std::memcpy(list.data() + 12288, &kDefaultItems, sizeof kDefaultItems);
    return list;
}

}  // namespace

Script<void> Part::Message(const TagMsgBlock& message, BytesView data) {
    const Client sender{TextOf(message.srcProcName), TextOf(message.replyTaskName)};
    co_await Log(3, "inspect_server", 18,
                 "inspect server recv msg id " + std::to_string(message.msgId) + " from [" +
                     TextOf(message.srcProcName) + ":" + TextOf(message.srcTaskName) + "]");
    Bytes reply;
    if (data.empty() && message.msgId < 6) {
        Reached("request: empty payload");
    }
    switch (message.msgId) {
        case 0:
            if (!data.empty()) {
                std::string json(data.begin(), data.end());
                reply = co_await RunSync(std::move(json), sender);
            }
            break;
        case 1:
            if (data.size() > 2) {
                reply = Bytes(6688);
            }
            break;
        case 2:
            if (!data.empty()) {
                co_await Register(NameIn(data), message.param, sender);
            }
            break;
        case 3:
            if (!data.empty()) {
                co_await Unregister(NameIn(data));
            }
            break;
        case 5:
            co_await Report(data);
            break;
        case 6:
            reply = co_await StopGroupTask(message.param);
            break;
        case 7:
            if (data.empty()) {
                Reached("state: without a name");
                reply = Number(2);
            } else {
                reply = co_await TellState(NameIn(data));
            }
            break;
        case 18:
            if (!data.empty()) {
                Job job{.kind = Job::Kind::kSingle, .forceOnly = true};
                job.texts.emplace_back(data.begin(), data.end());
                job.client = sender;
                co_await CreateTask(std::move(job));
            }
            break;
        case 19:
            if (data.size() > 2) {
                reply = co_await StartGroup(data, sender);
            }
            break;
        case 37:
            Reached("list: count");
            reply = Number(kDefaultItems);
            break;
        case 38:
            Reached("list: items");
            reply = ItemList();
            break;
        default:
            Reached("request: unknown id");
            break;
    }
    uint32_t result = 0;
    if (message.msgType == 1) {
        const Seen& seen = co_await Reply(std::move(reply));
        result = seen.result;
        if (result != OS_MSG_OK) {
            co_await Log(1, "inspect_server", 18,
                         "[ OsMsgSynSendResp ] OsMsgSynSendResp err, ret = #" + Hex(result) + " ");
        }
    }
    co_await Handled(result);
}

Script<void> Part::Register(std::string name, uint32_t timeout, Client owner) {
    co_await LogResult(3, "add inspection in result: [" + name + "] ");
    co_await Do(Kind::kLockTable);
    if (const Entry* const known = Find(name)) {
        Reached(known->startCount != 0 ? "item: registered anew while running" : "item: registered anew");
    }
    Entry& entry = state_.table[name];
    entry.result = MakeResult(name, "idle", "init");
    entry.timeout = timeout;
    entry.startTime = 0;
    entry.endTime = 0;
    co_await LogResult(3, "result size[" + std::to_string(state_.table.size()) + "] ");
    co_await Do(Kind::kUnlockTable);
    co_await Log(1, "PipeliningMgr", 17,
                 "add inspection in pipeline: [" + name + "] from [" + owner.proc + ":" + owner.task + "] ");
    co_await Do(Kind::kHoldWrite);
    state_.registry.insert({name, owner});
    co_await Do(Kind::kRelease);
}

Script<void> Part::Unregister(std::string name) {
    co_await LogResult(3, "del inspection in result: [" + name + "] ");
    co_await Do(Kind::kLockTable);
    uint32_t taskId = 0;
    if (Entry* const entry = Find(name)) {
        Reached(entry->startCount != 0 ? "item: deleted while running" : "item: deleted idle");
        co_await End(entry, true, false, "");
        taskId = entry->taskId;
        state_.table.erase(name);
    }
    co_await Do(Kind::kUnlockTable);
    co_await Log(1, "PipeliningMgr", 17, "del inspection in pipeline: [" + name + "] ");
    co_await Do(Kind::kHoldWrite);
    state_.registry.erase(name);
    co_await Do(Kind::kRelease);
    if (taskId != 0) {
        co_await StopTask(taskId, true);
    }
}

Script<void> Part::Report(BytesView data) {
    Result result{};
    if (data.size() != sizeof result) {
        Reached("report: wrong size");
        co_return;
    }
    if (data[31] != 0 || data[63] != 0 || data[191] != 0) {
        Reached("report: not terminated");
        co_await LogMessage(1, "err result data.");
        co_return;
    }
    std::memcpy(&result, data.data(), sizeof result);
    const std::string name = TextOf(result.name);
    co_await LogMessage(3, "now send result to [" + name + "]");
    co_await Do(Kind::kLockTable);
    Entry* entry = Find(name);
    uint32_t taskId = 0;
    if (entry == nullptr) {
        Reached("report: unknown item");
    } else if (!IsRunning(entry->result) && IsRunning(result)) {
        Reached("report: ignored, item not running");
    } else {
        if (!IsRunning(result)) {
            Reached(entry->startCount == 0                    ? "report: final for an idle item"
                    : TextOf(entry->result.text) == "timeout" ? "report: final after the time limit"
                                                              : "report: final");
        }
        entry->result = result;
        if (!IsRunning(result)) {
            const Seen& seen = co_await Do(Kind::kTime);
            entry->endTime = seen.time;
            taskId = entry->taskId;
            entry->taskId = 0;
        }
    }
    co_await Do(Kind::kUnlockTable);
    if (taskId != 0) {
        co_await StopTask(taskId, true);
    }
    if (!IsRunning(result)) {
        co_return;
    }
    co_await Do(Kind::kLockTable);
    entry = Find(name);
    std::vector<Client> requesters;
    if (entry != nullptr) {
        requesters = entry->requesters.All();
    }
    Reached(requesters.empty() ? "report: progress, nobody waits" : "report: progress, forwarded");
    co_await Do(Kind::kUnlockTable);
    for (const Client& requester : requesters) {
        co_await SendResult(0, requester, data);
    }
}

Script<Bytes> Part::RunSync(std::string json, Client client) {
    Item item{};
    const bool wait = co_await InspectSingle(json, &item);
    if (wait) {
        Reached("sync: waited with the empty name");
        co_await AddRequester("", client);
        bool over = false;
        while (!over) {
            co_await Sleep(1);
            over = co_await UnLockResult("", &item);
        }
    }
    co_return BytesOf(&item.result, sizeof item.result);
}

Script<Bytes> Part::StartGroup(BytesView data, Client client) {
    Job job{.kind = Job::Kind::kGroup};
    job.texts = TextsIn(data);
    job.client = client;
    job.group = GroupOf(job.texts);
    const std::string group = job.group;
    Reached(group == "unknown_group" ? "group: unknown" : "group: trace");
    const uint32_t count = co_await StartGroupEntry(group);
    if (count > 1) {
        Reached("group: refused, one runs");
        co_await StopGroupEntry(group);
        co_return Number(16);
    }
    uint32_t answer = co_await CreateTask(std::move(job));
    if (answer == 0) {
        Reached("group: no worker");
        co_await StopGroupEntry(group);
        answer = 14;
    }
    co_await LogMessage(3, "start group [" + std::to_string(answer) + "]");
    co_return Number(answer);
}

Script<Bytes> Part::StopGroupTask(uint32_t taskId) {
    co_await LogMessage(3, "stop group [" + std::to_string(taskId) + "]");
    const uint32_t result = co_await StopTask(taskId, false);
    co_return Number(result);
}

Script<Bytes> Part::TellState(std::string name) {
    co_await Do(Kind::kLockTable);
    const Entry* const entry = Find(name);
    const bool idle = entry == nullptr || TextOf(entry->result.status) == "idle";
    co_await Do(Kind::kUnlockTable);
    Reached(idle ? "state: idle" : "state: not idle");
    co_return Number(idle ? 1 : 0);
}

}  // namespace sim::model
