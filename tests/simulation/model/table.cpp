// Runs on the result table: how they begin, how their owners are asked, how they end.
#include "model/part.h"

#include <cstring>

#include "world/outcome.h"

namespace sim::model {

using Kind = Action::Kind;

Script<bool> Part::InspectSingle(std::string json, Item* item) {
    std::string name;
    std::string cmd;
    if (!ReadJson(json, "name", 32, name)) {
        Reached("request: no JSON");
    }
    (void)ReadJson(json, "cmd", 128, cmd);
    const std::string text = json.substr(0, json.find('\0'));
    SetText(item->result.text, cmd);
    co_await LogMessage(3, "InspectSingle[" + text + "][" + name + "][" + cmd + "]");
    SetText(item->result.name, name);
    Request request{name, text, static_cast<uint32_t>(json.size()) + 1};
    if (cmd == "stop") {
        Reached("request: command stop");
        co_await RunResult(request, &item->result);
        co_return false;
    }
    if (cmd == "done") {
        Reached("request: command done");
        co_await SetStatic(name, "idle");
        co_return false;
    }
    co_await GetResult(request, item);
    co_return IsRunning(item->result);
}

Script<void> Part::GetResult(Request request, Item* out) {
    co_await Do(Kind::kLockTable);
    Entry* entry = Find(request.name);
    if (entry == nullptr) {
        Reached("item: unknown");
        out->result = MakeResult(request.name, "fail", "no support");
        co_await LogResult(1, "Get Result fail, name [" + request.name + "]");
        co_await Do(Kind::kUnlockTable);
        co_return;
    }
    if (entry->startCount != 0) {
        *out = ItemOf(*entry);
        Reached(IsRunning(entry->result) ? "item: joined" : "item: joined, final");
        if (IsRunning(entry->result)) {
            co_await Begin(entry, false, "");
        }
        co_await Do(Kind::kUnlockTable);
        co_return;
    }
    entry->result = MakeResult(request.name, "running", "begin");
    co_await Begin(entry, false, "");
    co_await Do(Kind::kUnlockTable);
    co_await RunResult(request, &out->result);
    co_await Do(Kind::kLockTable);
    entry = Find(request.name);
    if (entry == nullptr) {
        Reached("item: deleted while its owner was asked");
        co_await LogResult(1, "can not find name [" + request.name + "]");
        co_await Do(Kind::kUnlockTable);
        co_return;
    }
    entry->result = out->result;
    if (IsRunning(entry->result)) {
        Job job{.kind = Job::Kind::kWait, .forceOnly = true, .timeout = entry->timeout};
        job.texts = {request.name};
        entry->taskId = co_await CreateTask(std::move(job));
        if (entry->taskId == 0) {
            Reached("item: wait err");
            entry->result = MakeResult(request.name, "fail", "wait err");
            co_await LogResult(3, "create thread err[" + request.name + "]");
        }
    } else {
        Reached("item: answered at once");
        const Seen& seen = co_await Do(Kind::kTime);
        entry->endTime = seen.time;
        co_await End(entry, false, false, "");
    }
    *out = ItemOf(*entry);
    co_await Do(Kind::kUnlockTable);
}

Script<void> Part::RunResult(Request request, Result* result) {
    *result = MakeResult(request.name, "fail", "run err");
    const uint32_t code = co_await AskOwner(request, result);
    co_await LogResult(3, "RunResult ret[" + std::to_string(code) + "] name[" + TextOf(result->name) + "] result[" +
                              TextOf(result->status) + "]");
}

Script<uint32_t> Part::AskOwner(Request request, Result* result) {
    co_await Do(Kind::kHoldRead);
    const auto found = state_.registry.find(request.name);
    if (found == state_.registry.end()) {
        Reached("owner: not registered any more");
        co_await Log(1, "PipeliningMgr", 17, "[GetInspectResult]not found inspect : " + request.name + " ");
        co_await Do(Kind::kRelease);
        co_return 12;
    }
    const Client owner = found->second;
    co_await Do(Kind::kRelease);

    Bytes payload(request.length + 37);
    std::memcpy(payload.data(), request.name.data(), request.name.size());
    std::memcpy(payload.data() + 32, &request.length, sizeof request.length);
    std::memcpy(payload.data() + 36, request.json.data(), request.json.size());
    co_await Ask(owner, payload);
    const Seen& answer = co_await Do(Kind::kAnswer);
    if (answer.result != OS_MSG_OK) {
        const uint32_t code = answer.result;
        Reached(code == OS_MSG_ERR_TIMEOUT     ? "owner: silent for the limit"
                : code == OS_MSG_ERR_NO_MEMORY ? "owner: not asked, send failed"
                                               : "owner: gone");
        co_await Log(1, "PipeliningMgr", 17, "OsMsgSynSend fail, start 80020001, ret = " + Hex(code) + " ");
        co_return 10;
    }
    const Bytes reply(answer.reply.begin(), answer.reply.end());
    if (reply.empty()) {
        Reached("owner: reply empty");
        co_await Log(1, "InspectMsg", 14, "[TransMsgBlockAndFree]: resp data is null");
    } else if (reply.size() > sizeof *result) {
        Reached("owner: reply too long");
        co_await Log(1, "InspectMsg", 14, "memcpy_s fail, errno = 34");
    } else {
        std::memcpy(result, reply.data(), reply.size());
    }
    std::strcpy(result->name, request.name.c_str());  // NOLINT: it fits; what stands behind it stays
    co_return 0;
}

Script<bool> Part::UnLockResult(std::string name, Item* out) {
    co_await Do(Kind::kLockTable);
    Entry* const entry = Find(name);
    if (entry == nullptr) {
        out->result = MakeResult(name, "fail", "no support");
        co_await LogResult(1, "find name err [" + name + "] ");
        co_await Do(Kind::kUnlockTable);
        co_return true;
    }
    *out = ItemOf(*entry);
    const bool over = !IsRunning(entry->result);
    if (over) {
        co_await End(entry, false, false, "");
    }
    co_await Do(Kind::kUnlockTable);
    co_return over;
}

Script<void> Part::SetStatic(std::string name, std::string status) {
    co_await Do(Kind::kLockTable);
    if (Entry* const entry = Find(name)) {
        std::memset(entry->result.status, 0, sizeof entry->result.status);
        SetText(entry->result.status, status);
        co_await LogResult(3, "SetResultStatic " + name + " to " + status);
    }
    co_await Do(Kind::kUnlockTable);
}

Script<void> Part::AddRequester(std::string name, Client client) {
    co_await LogResult(3, "add requester [" + name + "] to [" + client.proc + ":" + client.task + "]");
    co_await Do(Kind::kLockTable);
    if (Entry* const entry = Find(name)) {
        entry->requesters.Add(client);
    }
    co_await Do(Kind::kUnlockTable);
}

Script<uint32_t> Part::Begin(Entry* entry, bool withText, std::string text) {
    if (entry->startCount == 0) {
        const Seen& seen = co_await Do(Kind::kTime);
        entry->startTime = seen.time;
        if (state_.runningCount == 0) {
            Reached("server: busy begins");
            co_await Broadcast(9, Number(0));
        }
        ++state_.runningCount;
        if (withText) {
            SetText(entry->result.text, text);
        }
        co_await Broadcast(8, BytesOf(&entry->result, sizeof entry->result));
    }
    ++entry->startCount;
    if (entry->startCount > 200) {
        Reached("item: joined by more than 200");
    }
    if (entry->startCount == 0) {
        Reached("item: count wrapped");
        state_.wrapped = true;
    }
    co_return entry->startCount;
}

Script<void> Part::End(Entry* entry, bool force, bool withText, std::string text) {
    if (entry->startCount == 0) {
        co_return;
    }
    --entry->startCount;
    if (entry->startCount != 0 && !force) {
        co_return;
    }
    const Seen& seen = co_await Do(Kind::kTime);
    entry->endTime = seen.time;
    if (withText) {
        SetText(entry->result.text, text);
    }
    co_await Broadcast(8, BytesOf(&entry->result, sizeof entry->result));
    --state_.runningCount;
    if (state_.runningCount == 0) {
        Reached("server: busy ends");
        co_await Broadcast(9, Number(1));
    }
    entry->requesters.Clear();
}

Script<uint32_t> Part::StartGroupEntry(std::string name) {
    co_await Do(Kind::kLockTable);
    Entry* const entry = Find(name);
    uint32_t count = 0;
    if (entry != nullptr) {
        if (entry->startCount == 0) {
            entry->result = MakeResult(name, "running", "begin");
        }
        count = co_await Begin(entry, true, name);
    }
    co_await Do(Kind::kUnlockTable);
    co_return count;
}

Script<void> Part::StopGroupEntry(std::string name) {
    co_await Do(Kind::kLockTable);
    if (Entry* const entry = Find(name)) {
        if (entry->startCount == 1) {
            entry->result = MakeResult(name, "success", "end");
        }
        co_await End(entry, false, true, name);
    }
    co_await Do(Kind::kUnlockTable);
}

Script<void> Part::Broadcast(uint32_t id, Bytes data) {
    const Seen& seen = co_await Event(id, data);
    if (seen.result != OS_MSG_OK) {
        co_await LogResult(1, "broadcast err id[" + std::to_string(id) + "]");
    }
}

}  // namespace sim::model
