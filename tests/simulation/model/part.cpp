// How a script goes on, and what scripts share.
#include "model/part.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "world/journal.h"

namespace sim::model {

void Part::BeginMessage(const TagMsgBlock& message, BytesView data) {
    script_ = std::make_unique<Script<void>>(Message(message, data));
    script_->Start();
}

void Part::BeginHeartbeat() {
    script_ = std::make_unique<Script<void>>(Heartbeat());
    script_->Start();
}

void Part::BeginRestart(const TagMsgBlock& message) {
    script_ = std::make_unique<Script<void>>(Restart(TextOf(message.srcProcName)));
    script_->Start();
}

void Part::BeginJob(uint32_t id) {
    script_ = std::make_unique<Script<void>>(JobThread(id));
    script_->Start();
}

void Part::Take(const Seen& seen) {
    if (cursor_.expected == nullptr) {
        Violation("does \"" + seen.AsAction().Describe() + "\" when it must do nothing more");
    }
    if (!seen.Is(*cursor_.expected)) {
        Violation("does \"" + seen.AsAction().Describe() + "\" instead of \"" + cursor_.expected->Describe() + "\"");
    }
    cursor_.seen = seen;
    cursor_.expected = nullptr;
    cursor_.waiting.resume();
}

// Lines are cut after 399 bytes.
Expect Part::Log(uint32_t level, const char* unit, uint32_t module, std::string text) {
    text.resize(std::min<size_t>(text.size(), 399));
    return {
        cursor_,
        Action{.kind = Action::Kind::kLog, .number = level, .module = module, .unit = unit, .text = std::move(text)}};
}

Expect Part::CreateThread(uint32_t argument) {
    return {cursor_, Action{.kind = Action::Kind::kCreate, .number = argument}};
}

Expect Part::CreateTimer(uint32_t period) {
    return {cursor_, Action{.kind = Action::Kind::kTimer, .number = period}};
}

Expect Part::Subscribe(uint32_t event) {
    return {cursor_, Action{.kind = Action::Kind::kSubscribe, .number = event}};
}

Expect Part::Send(uint32_t id, const Client& client, BytesView data) {
    return {cursor_, Action{.kind = Action::Kind::kSend,
                            .number = id,
                            .text = client.proc + ":" + client.task,
                            .data = Bytes(data.begin(), data.end())}};
}

// A run's owner has five minutes.
Expect Part::Ask(const Client& owner, Bytes data) {
    return {cursor_, Action{.kind = Action::Kind::kAsk,
                            .number = 4,
                            .module = 300000,
                            .text = owner.proc + ":" + owner.task,
                            .data = std::move(data)}};
}

Expect Part::Reply(Bytes data) {
    return {cursor_, Action{.kind = Action::Kind::kReply, .data = std::move(data)}};
}

Expect Part::Event(uint32_t id, Bytes data) {
    return {cursor_, Action{.kind = Action::Kind::kEvent, .number = id, .data = std::move(data)}};
}

Expect Part::Handled(uint32_t result) {
    return {cursor_, Action{.kind = Action::Kind::kHandled, .number = result}};
}

Entry* Part::Find(const std::string& name) {
    const auto found = state_.table.find(name);
    return found == state_.table.end() ? nullptr : &found->second;
}

bool ReadJson(const std::string& json, const char* key, size_t size, std::string& out) {
    cJSON* const tree = cJSON_Parse(json.c_str());
    const char* const value = cJSON_GetStringValue(cJSON_GetObjectItem(tree, key));
    const bool fits = value != nullptr && std::strlen(value) < size;
    if (fits) {
        out = value;
    }
    cJSON_Delete(tree);
    return fits;
}

std::string NameIn(BytesView data) {
    return {data.begin(), std::find(data.begin(), data.end(), '\0')};
}

std::vector<std::string> TextsIn(BytesView data) {
    std::vector<std::string> texts;
    auto place = data.begin();
    while (place != data.end() && *place != '\0') {
        const auto end = std::find(place, data.end(), '\0');
        texts.emplace_back(place, end);
        place = end == data.end() ? end : end + 1;
    }
    return texts;
}

std::string GroupOf(const std::vector<std::string>& texts) {
    static constexpr std::array kMembers = {"kivo_om_diag_log", "kivo_om_diag_reports", "kivo_om_diag_msg",
                                            "kivo_devm_uwb_log"};
    for (const std::string& text : texts) {
        std::string name;
        if (!ReadJson(text, "name", 32, name)) {
            return "unknown_group";
        }
        if (std::ranges::any_of(kMembers, [&name](const char* member) { return name == member; })) {
            return "kivo_group_trace";
        }
    }
    return "unknown_group";
}

std::string Hex(uint32_t number) {
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%x", number);
    return text.data();
}

Bytes BytesOf(const void* record, size_t size) {
    const auto* const bytes = static_cast<const unsigned char*>(record);
    return {bytes, bytes + size};
}

}  // namespace sim::model
