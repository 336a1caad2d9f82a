// What a thread has heard is told to requesters at once, or once it is in the table, where a later run may have begun
// meanwhile. So it is learned twice.
#include "model/witness.h"

#include <cstring>
#include <string_view>

#include "actors/actors.h"
#include "model/part.h"
#include "world/journal.h"

namespace sim::model {

namespace {

constexpr const char* kOwnItem = "kivo_om_get_log_dir";

// The text behind `begin`, up to `end`; empty if the text does not begin so.
std::string Between(std::string_view text, std::string_view begin, std::string_view end) {
    if (!text.starts_with(begin)) {
        return {};
    }
    text.remove_prefix(begin.size());
    return std::string(text.substr(0, text.rfind(end)));
}

// The engine client answers by itself when an item was taken back, or when its function fails.
bool IsOfLibrary(const Words& words) {
    return words.status == "fail" && (words.text == "no support" || words.text == "run err");
}

// Liars say more than they know of.
void CheckSaid(const Words& words, const std::string& item) {
    if (words.name != item && !TheManners().lies) {
        Violation("is told " + words.Describe() + " of the item " + item);
    }
    if (!TheLedger().Hear(words) && !TheManners().lies && words.name != kOwnItem && !IsOfLibrary(words)) {
        Violation("is told " + words.Describe() + ", which no owner has said, or not twice");
    }
}

}  // namespace

void Witness::LearnSoon(const Thread& thread, const Words& words) {
    TheLedger().Learn(words);
    changes_[thread.number] = {Change::Kind::kLearn, words};
}

void Witness::OnLog(const Thread& thread, const std::string& text) {
    if (text.starts_with("[GetInspectResult]")) {
        const std::string name = Between(text, "[GetInspectResult]not found inspect : ", " ");
        LearnSoon(thread, {name, "fail", "run err"});
    } else if (text.starts_with("start wait[")) {
        // It takes the table's lock only when the limit is reached.
        changes_[thread.number] = {Change::Kind::kLearn, {Between(text, "start wait[", "]"), "fail", "timeout"}};
    } else if (text.starts_with("SetResultStatic ")) {
        TheLedger().Reset(Between(text, "SetResultStatic ", " to idle"));
    }
}

void Witness::OnTableLocked(const Thread& thread) {
    const auto change = changes_.extract(thread.number);
    if (change.empty()) {
        return;
    }
    const Words& words = change.mapped().words;
    switch (change.mapped().kind) {
        case Change::Kind::kLearn:
            TheLedger().Learn(words);
            break;
        case Change::Kind::kRegister:
            TheLedger().Register(words.name);
            break;
        case Change::Kind::kRemove:
            TheLedger().Remove(words.name);
            break;
    }
}

void Witness::OnEvent(uint32_t id, BytesView data) {
    if (id != 8) {
        return;
    }
    const Words words = WordsOf(data);
    if (words.status == "running" && words.text == "begin") {
        TheLedger().Begin(words.name);
    }
}

void Witness::OnAsk(const Thread& thread, BytesView data) {
    asks_[thread.number] = WordsOf(data).name;
}

void Witness::OnAnswer(const Thread& thread, uint32_t result, BytesView reply) {
    const std::string& name = asks_[thread.number];
    Result record = MakeResult(name, "fail", "run err");
    if (result == OS_MSG_OK && !reply.empty() && reply.size() <= sizeof record) {
        std::memcpy(&record, reply.data(), reply.size());
        if (reply.size() == sizeof record) {
            CheckSaid(WordsOf(record), name);
        }
        SetText(record.name, name);
    }
    LearnSoon(thread, WordsOf(record));
}

void Witness::OnNoThread(const Thread& thread) {
    const auto asked = asks_.find(thread.number);
    if (asked != asks_.end()) {
        TheLedger().Learn({asked->second, "fail", "wait err"});
    }
}

void Witness::OnHandler(const Thread& thread, const TagMsgBlock& message, BytesView data) {
    changes_.erase(thread.number);
    asks_.erase(thread.number);
    if (data.empty()) {
        return;
    }
    if (message.msgId == 2) {
        changes_[thread.number] = {Change::Kind::kRegister, {NameIn(data), "", ""}};
    } else if (message.msgId == 3) {
        changes_[thread.number] = {Change::Kind::kRemove, {NameIn(data), "", ""}};
    } else if (message.msgId == 5 && data.size() == sizeof(Result) && data[31] == 0 && data[63] == 0 &&
               data[191] == 0) {
        const Words words = WordsOf(data);
        CheckSaid(words, words.name);
        LearnSoon(thread, words);
    }
}

void Witness::OnThreadEnd(const Thread& thread) {
    changes_.erase(thread.number);
    asks_.erase(thread.number);
}

}  // namespace sim::model
