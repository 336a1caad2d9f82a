// Sees at one server's actions what it hears of items and what it makes of them, for the ledger.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "model/ledger.h"
#include "world/observer.h"

namespace sim::model {

class Witness {
public:
    Witness() { TheLedger().Start(); }

    void OnLog(const Thread& thread, const std::string& text);
    void OnTableLocked(const Thread& thread);
    static void OnEvent(uint32_t id, BytesView data);
    void OnAsk(const Thread& thread, BytesView data);
    void OnAnswer(const Thread& thread, uint32_t result, BytesView reply);
    void OnNoThread(const Thread& thread);
    void OnHandler(const Thread& thread, const TagMsgBlock& message, BytesView data);
    void OnThreadEnd(const Thread& thread);

private:
    // What a thread does to the table as soon as it has the table's lock.
    struct Change {
        enum class Kind { kLearn, kRegister, kRemove } kind{};
        Words words;
    };

    void LearnSoon(const Thread& thread, const Words& words);

    std::map<uint64_t, Change> changes_;    // by the thread's number
    std::map<uint64_t, std::string> asks_;  // likewise: the item that it has asked an owner for
};

}  // namespace sim::model
