// Entries are kept until Reset or ClearJournal.
#include "fake/journal.h"

#include <utility>

#include "fake/reset.h"

namespace kivo::fake {

namespace {

std::vector<Entry>& Entries() {
    static std::vector<Entry>& entries = *new std::vector<Entry>;
    return entries;
}

}  // namespace

void Record(const Lock& /*lock*/, Entry entry) {
    entry.time = SystemTime();
    Entries().push_back(std::move(entry));
}

void RecordCall(const Lock& lock, std::string text) {
    Entry entry;
    entry.kind = Kind::kCall;
    entry.text = std::move(text);
    Record(lock, std::move(entry));
}

Entry EntryOf(Kind kind, const TagMsgBlock& message) {
    Entry entry;
    entry.kind = kind;
    entry.id = message.msgId;
    entry.param = message.param;
    entry.proc = message.dstProcName;
    entry.task = message.dstTaskName;
    entry.envelope = message;
    entry.envelope.data = nullptr;
    if (message.dataLen != 0) {
        entry.data.assign(message.data, message.data + message.dataLen);
    }
    return entry;
}

std::vector<Entry> Journal() {
    const Lock lock = Hold();
    return Entries();
}

void ClearJournal() {
    const Lock lock = Hold();
    Entries().clear();
}

void ResetJournal() {
    Entries().clear();
}

}  // namespace kivo::fake
