// Owners say nothing twice, so an answer that is mixed up, repeated or too old is seen at its text.
#include "model/ledger.h"

#include <algorithm>
#include <cstring>

#include "model/part.h"
#include "world/journal.h"

namespace sim::model {

namespace {

std::string KeyOf(const std::string& status, const std::string& text) {
    return status + '\0' + text;
}

std::string KeyOf(const Words& words) {
    return words.name + '\0' + KeyOf(words.status, words.text);
}

bool IsSince(const std::unordered_map<std::string, Stamp>& known, const std::string& key, Stamp since) {
    const auto found = known.find(key);
    return found != known.end() && found->second >= since;
}

// What the server says of its own accord when a run fails; also after the item was set back.
bool IsStatedError(const Words& words) {
    return (words.status == "fail" || words.status == "idle") &&
           (words.text == "no support" || words.text == "run err" || words.text == "wait err");
}

}  // namespace

Words WordsOf(const Result& result) {
    return {TextOf(result.name), TextOf(result.status), TextOf(result.text)};
}

Words WordsOf(BytesView record) {
    Result result{};
    std::memcpy(&result, record.data(), std::min(record.size(), sizeof result));
    return WordsOf(result);
}

void Ledger::Say(const Words& words) {
    said_.insert(KeyOf(words));
}

bool Ledger::Hear(const Words& words) {
    const auto found = said_.find(KeyOf(words));
    if (found == said_.end()) {
        return false;
    }
    said_.erase(found);
    return true;
}

void Ledger::Start() {
    for (const auto& [name, item] : items_) {
        Remove(name);
    }
}

void Ledger::Register(const std::string& name) {
    Item& item = items_[name];
    const Stamp now = Next();
    if (!item.isPresent) {
        item.absentUntil = now;
    }
    item.isPresent = true;
    Replace(item, now);
    Learn({name, "idle", "init"});
}

void Ledger::Remove(const std::string& name) {
    Item& item = items_[name];
    item.isPresent = false;
    Replace(item, Next());
}

void Ledger::Begin(const std::string& name) {
    Replace(items_[name], Next());
    Learn({name, "running", "begin"});
}

void Ledger::Learn(const Words& words) {
    Item& item = items_[words.name];
    const Stamp now = Next();
    item.words[KeyOf(words.status, words.text)] = now;
    item.texts[words.text] = now;
}

void Ledger::Reset(const std::string& name) {
    items_[name].reset = Next();
}

Stamp Ledger::Ask(const std::string& proc, uint32_t id, BytesView payload) {
    const Stamp now = Next();
    if (id != 0 && id != 18 && id != 19) {
        return now;
    }
    // Hundreds may ask the same at once.
    Request request{proc, id, {payload.begin(), payload.end()}};
    if (request == lastRequest_) {
        return now;
    }
    lastRequest_ = std::move(request);
    if (id == 0) {
        // If the owner reports later, it is a requester of the item with the empty name, should there be one.
        asked_.emplace(std::pair(proc, std::string()), now);
    }
    const auto texts = id == 19 ? TextsIn(payload) : std::vector{std::string(payload.begin(), payload.end())};
    for (const std::string& text : texts) {
        std::string name;
        (void)ReadJson(text, "name", 32, name);
        asked_.emplace(std::pair(proc, name), now);
    }
    return now;
}

// What was so when it asked is what became so after the last change before, or since then.
bool Ledger::IsSo(const Words& words, Stamp since) const {
    if (words.status.empty() && words.text == "done") {
        return true;  // the answer to that command; owners say no such thing
    }
    if (outOfMemory_ && IsStatedError(words)) {
        return true;
    }
    const auto found = items_.find(words.name);
    const bool isUnknown = words.status == "fail" && words.text == "no support";
    if (found == items_.end()) {
        return isUnknown;
    }
    const Item& item = found->second;
    if (isUnknown && (!item.isPresent || item.absentUntil >= since)) {
        return true;
    }
    const auto later = std::ranges::upper_bound(item.replaced, since);
    const Stamp from = later == item.replaced.begin() ? 0 : *std::prev(later);
    return IsSince(item.words, KeyOf(words.status, words.text), from) ||
           (words.status == "idle" && item.reset >= from && IsSince(item.texts, words.text, from));
}

void Ledger::Get(const std::string& proc, const Words& words, Stamp since) {
    if (!IsSo(words, since)) {
        Violation(proc + " gets " + words.Describe() + ", which was not so since it asked");
    }
    got_[proc][KeyOf(words)] = Next();
}

void Ledger::GetMessage(const std::string& proc, uint32_t id, BytesView data) {
    const auto get = [&](const Words& words) {
        const auto asked = asked_.find({proc, words.name});
        if (asked == asked_.end()) {
            Violation(proc + " gets " + words.Describe() + ", for which it did not ask");
        }
        Get(proc, words, asked->second);
    };
    if (id == 0) {
        if (data.size() != sizeof(Result)) {
            Violation(proc + " gets a result of " + std::to_string(data.size()) + " bytes");
        }
        get(WordsOf(data));
        return;
    }
    tagKivoOmInspectionGroupResult record{};
    if (data.size() != sizeof record) {
        Violation(proc + " gets a group's record of " + std::to_string(data.size()) + " bytes");
    }
    std::memcpy(&record, data.data(), sizeof record);
    for (uint32_t i = 0; i < std::size(record.items); ++i) {
        const Words words = WordsOf(record.items[i].result);
        if (words == Words()) {
            continue;  // not begun, or beyond the last one
        }
        if (i >= record.count) {
            Violation(proc + " gets " + words.Describe() + " behind the end of a group's record");
        }
        get(words);
    }
}

void Ledger::GetReply(const std::string& proc, BytesView data, Stamp since) {
    if (data.size() == sizeof(Result)) {
        Get(proc, WordsOf(data), since);
    }
}

void Ledger::Give(const std::string& proc, const Words& words, Stamp since) const {
    const auto got = got_.find(proc);
    if (got == got_.end() || !IsSince(got->second, KeyOf(words), since)) {
        Violation("the client library gives " + words.Describe() + ", which has not come since that was asked for");
    }
    if (!IsSo(words, since)) {
        Violation("the client library gives " + words.Describe() + ", which was not so since that was asked for");
    }
}

Ledger& TheLedger() {
    static Ledger& ledger = *new Ledger;
    return ledger;
}

}  // namespace sim::model
