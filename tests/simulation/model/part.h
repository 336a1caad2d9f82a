// One thread of the server as the model sees it: the script of what it must do, on the state that all threads share.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kivo/os_msg.h"
#include "model/script.h"
#include "model/state.h"

namespace sim::model {

class Part {
public:
    explicit Part(State& state) : state_(state) {}
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;

    /// Begins with a message that the server's task handles, and that stays there until it is handled; or with the
    /// thread of a job.
    void BeginMessage(const TagMsgBlock& message, BytesView data);
    void BeginJob(uint32_t id);

    /// The task of the heartbeat begins with its timer, and handles the news of a restart.
    void BeginHeartbeat();
    void BeginRestart(const TagMsgBlock& message);

    /// The thread's next action.
    void Take(const Seen& seen);

    /// Nothing is expected any more.
    bool HasEnded() const { return cursor_.expected == nullptr; }

private:
    struct Request {
        std::string name;
        std::string json;
        uint32_t length{};  // as it is sent to the owner
    };

    // ---- messages (messages.cpp) ----
    Script<void> Message(const TagMsgBlock& message, BytesView data);
    Script<void> Register(std::string name, uint32_t timeout, Client owner);
    Script<void> Unregister(std::string name);
    Script<void> Report(BytesView data);
    Script<Bytes> RunSync(std::string json, Client client);
    Script<Bytes> StartGroup(BytesView data, Client client);
    Script<Bytes> StopGroupTask(uint32_t taskId);
    Script<Bytes> TellState(std::string name);

    // ---- background jobs (jobs.cpp) ----
    Script<void> JobThread(uint32_t id);
    Script<void> SingleJob(std::string json, Client client);
    Script<void> GroupJob(uint32_t id);
    Script<void> WaitJob(uint32_t id, std::string name, uint32_t timeout);
    Script<void> StopItem(std::string name);
    Script<uint32_t> CreateTask(Job job);
    Script<uint32_t> StopTask(uint32_t id, bool force);
    Script<void> SendResult(uint32_t id, const Client& client, BytesView data);

    // ---- the result table (table.cpp) ----
    Script<bool> InspectSingle(std::string json, Item* item);  // true: to be waited for
    Script<void> GetResult(Request request, Item* out);
    Script<void> RunResult(Request request, Result* result);
    Script<uint32_t> AskOwner(Request request, Result* result);
    Script<bool> UnLockResult(std::string name, Item* out);
    Script<void> SetStatic(std::string name, std::string status);
    Script<void> AddRequester(std::string name, Client client);
    Script<uint32_t> Begin(Entry* entry, bool withText, std::string text);
    Script<void> End(Entry* entry, bool force, bool withText, std::string text);
    Script<uint32_t> StartGroupEntry(std::string name);
    Script<void> StopGroupEntry(std::string name);
    Script<void> Broadcast(uint32_t id, Bytes data);

    // ---- the heartbeat (heartbeat.cpp) ----
    Script<void> Heartbeat();
    Script<void> Restart(std::string proc);

    // ---- single actions ----
    // GCC 12 destroys an aggregate twice that is made within a co_await, so they are made here.
    Expect Do(Action::Kind kind) { return {cursor_, Action{.kind = kind}}; }
    Expect Log(uint32_t level, const char* unit, uint32_t module, std::string text);
    Expect LogResult(uint32_t level, std::string text) { return Log(level, "ResultMgr", 13, std::move(text)); }
    Expect LogMessage(uint32_t level, std::string text) { return Log(level, "inspect_dealmsg", 19, std::move(text)); }
    Expect LogHeartbeat(uint32_t level, std::string text) {
        return Log(level, "inspect_heartbeat", 21, std::move(text));
    }
    Expect Sleep(uint32_t seconds) { return {cursor_, Action{.kind = Action::Kind::kSleep, .number = seconds}}; }
    Expect CreateThread(uint32_t argument);
    Expect CreateTimer(uint32_t period);
    Expect Subscribe(uint32_t event);
    Expect Send(uint32_t id, const Client& client, BytesView data);
    Expect Ask(const Client& owner, Bytes data);
    Expect Reply(Bytes data);
    Expect Event(uint32_t id, Bytes data);
    Expect Handled(uint32_t result);
    Entry* Find(const std::string& name);

    State& state_;
    Cursor cursor_;
    std::unique_ptr<Script<void>> script_;
};

/// A text of a request, by its key; false when there is none that fits.
bool ReadJson(const std::string& json, const char* key, size_t size, std::string& out);

/// A payload as a name: up to its first NUL.
std::string NameIn(BytesView data);

/// The texts of a group's request.
std::vector<std::string> TextsIn(BytesView data);

std::string GroupOf(const std::vector<std::string>& texts);

std::string Hex(uint32_t number);

Bytes BytesOf(const void* record, size_t size);

/// The record's own bytes.
template <typename Record>
BytesView ViewOf(const Record& record) {
    return {reinterpret_cast<const unsigned char*>(&record), sizeof record};
}

inline Bytes Number(uint32_t number) {
    return BytesOf(&number, sizeof number);
}

}  // namespace sim::model
