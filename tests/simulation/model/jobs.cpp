// Background jobs: their threads, single and group runs, wait timers.
#include "model/part.h"

#include <algorithm>
#include <cstring>

#include "world/outcome.h"

namespace sim::model {

using Kind = Action::Kind;

namespace {

constexpr uint32_t kLastReservedId = 16;
constexpr uint32_t kStopRounds = 120;

}  // namespace

Script<uint32_t> Part::CreateTask(Job job) {
    if (!state_.counterIsSet) {
        const Seen& seen = co_await Do(Kind::kTime);
        state_.counter = static_cast<uint32_t>(seen.time);
        state_.counterIsSet = true;
    }
    co_await Do(Kind::kLockJobs);
    do {
        ++state_.counter;
    } while (state_.counter <= kLastReservedId || state_.jobs.contains(state_.counter));
    const uint32_t id = state_.counter;
    state_.jobs.emplace(id, std::move(job));
    co_await Do(Kind::kUnlockJobs);
    const Seen& created = co_await CreateThread(id);
    if (created.result == 0) {
        co_return id;
    }
    Reached("job: no thread");
    co_await Do(Kind::kLockJobs);
    state_.jobs.erase(id);
    co_await Do(Kind::kUnlockJobs);
    co_await Log(1, "inspacetTask", 16, "createthread error");
    co_return 0;
}

Script<uint32_t> Part::StopTask(uint32_t id, bool force) {
    co_await Do(Kind::kLockJobs);
    const auto found = state_.jobs.find(id);
    uint32_t result = 1;
    if (found == state_.jobs.end()) {
        Reached("job: stop of an unknown one");
    } else if (!force && found->second.forceOnly) {
        Reached("job: stop of a wait timer refused");
    } else {
        Reached("job: stopped");
        found->second.stopFlag = true;
        result = 0;
    }
    co_await Do(Kind::kUnlockJobs);
    co_return result;
}

Script<void> Part::JobThread(uint32_t id) {
    co_await Do(Kind::kLockJobs);
    const Job job = state_.jobs.at(id);
    state_.jobs.at(id).begun = true;
    co_await Do(Kind::kUnlockJobs);
    switch (job.kind) {
        case Job::Kind::kSingle:
            co_await SingleJob(job.texts.front(), job.client);
            break;
        case Job::Kind::kGroup:
            co_await GroupJob(id);
            break;
        case Job::Kind::kWait:
            co_await WaitJob(id, job.texts.front(), job.timeout);
            break;
    }
    co_await Do(Kind::kLockJobs);
    state_.jobs.erase(id);
    co_await Do(Kind::kUnlockJobs);
    co_await Do(Kind::kEnd);
}

Script<void> Part::SingleJob(std::string json, Client client) {
    Item item{};
    const bool wait = co_await InspectSingle(json, &item);
    co_await SendResult(0, client, ViewOf(item.result));
    if (!wait) {
        co_return;
    }
    const std::string name = TextOf(item.result.name);
    co_await AddRequester(name, client);
    bool over = false;
    while (!over) {
        co_await Sleep(1);
        over = co_await UnLockResult(name, &item);
    }
    co_await SendResult(0, client, ViewOf(item.result));
}

Script<void> Part::GroupJob(uint32_t id) {
    const Job job = state_.jobs.at(id);
    std::vector<std::string> texts = job.texts;
    co_await Sleep(1);
    auto record = std::make_unique<tagKivoOmInspectionGroupResult>();
    record->taskId = id;
    if (texts.size() > 32) {
        Reached("group: more than 32 texts");
        texts.resize(32);
    }
    record->count = static_cast<uint32_t>(texts.size());
    std::vector<size_t> pending;
    for (size_t i = 0; i < texts.size() && !state_.jobs.at(id).stopFlag; ++i) {
        const bool wait = co_await InspectSingle(texts[i], &record->items[i]);
        if (wait) {
            pending.push_back(i);
        }
    }
    if (state_.jobs.at(id).stopFlag && pending.size() < texts.size()) {
        Reached("group: stopped before its items");
    }
    if (pending.empty()) {
        Reached("group: all items final at once");
    }
    bool stopping = false;
    while (!pending.empty()) {
        if (!stopping && state_.jobs.at(id).stopFlag) {
            Reached("group: stopped with items pending");
            stopping = true;
            for (const size_t i : pending) {
                const std::string name = TextOf(record->items[i].result.name);
                co_await StopItem(name);
            }
        }
        co_await Sleep(1);
        std::vector<size_t> left;
        for (const size_t i : pending) {
            const std::string name = TextOf(record->items[i].result.name);
            const bool over = co_await UnLockResult(name, &record->items[i]);
            if (!over) {
                left.push_back(i);
            }
        }
        pending = left;
    }
    if (!state_.jobs.at(id).stopFlag) {
        Reached("group: record sent before the stop");
    }
    co_await SendResult(1, job.client, ViewOf(*record));
    for (uint32_t round = 0; round < kStopRounds && !state_.jobs.at(id).stopFlag; ++round) {
        co_await Sleep(1);
    }
    if (!state_.jobs.at(id).stopFlag) {
        Reached("group: wait for the stop timed out");
        co_await LogMessage(1, "group wait stop overtime[" + std::to_string(id) + "]");
    }
    co_await StopGroupEntry(job.group);
    for (const std::string& text : texts) {
        std::string name;
        (void)ReadJson(text, "name", 32, name);
        co_await LogMessage(1, "group task set : " + name + " to idle");
        co_await SetStatic(name, "idle");
    }
}

Script<void> Part::StopItem(std::string name) {
    co_await LogMessage(3, "stop name[" + name + "]");
    const std::string json = R"({"name":")" + name + R"(", "cmd":"stop"})";
    Result ignored{};
    const Request request{name, json, static_cast<uint32_t>(json.size())};
    co_await RunResult(request, &ignored);
}

Script<void> Part::WaitJob(uint32_t id, std::string name, uint32_t timeout) {
    co_await Log(3, "ResultMgr", 13, "start wait[" + name + "]");
    uint64_t elapsed = 0;
    if (timeout == 0) {
        Reached("wait: no limit");
    }
    while (!state_.jobs.at(id).stopFlag) {
        co_await Sleep(1);
        if (timeout != 0) {
            elapsed += 1000;
            if (timeout <= elapsed) {
                break;
            }
        }
    }
    co_await LogResult(3, "stop wait[" + name + "]");
    if (state_.jobs.at(id).stopFlag) {
        Reached("wait: stopped");
        co_return;
    }
    co_await Do(Kind::kLockTable);
    Entry* const entry = Find(name);
    if (entry == nullptr || !IsRunning(entry->result)) {
        Reached(entry == nullptr ? "wait: entry gone at the limit" : "wait: not running at the limit");
        co_await Do(Kind::kUnlockTable);
        co_return;
    }
    const Seen& seen = co_await Do(Kind::kTime);
    entry->endTime = seen.time;
    entry->taskId = 0;
    entry->result = MakeResult(name, "fail", "timeout");
    Reached("wait: timed out");
    co_await Do(Kind::kUnlockTable);
    if (!state_.jobs.at(id).stopFlag) {
        co_await LogResult(3, "timeout wait[" + name + "]");
    }
}

Script<void> Part::SendResult(uint32_t id, const Client& client, BytesView data) {
    const Seen& seen = co_await Send(id, client, data);
    if (seen.result != OS_MSG_OK) {
        const uint32_t code = seen.result;
        co_await LogMessage(1, "SendASyncResult send fail ret:#" + Hex(code) + " id:" + std::to_string(id));
    }
}

}  // namespace sim::model
