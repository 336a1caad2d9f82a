// What is said about items, from those who say it to those who are told: what owners say, what the server has heard of
// them and what it says itself, and what requesters get. It knows no steps of the server: what a requester gets must be
// something that was so when it asked, or that became so later.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model/state.h"
#include "world/process.h"

namespace sim::model {

/// A place in the order of all that happens.
using Stamp = uint64_t;

/// A record's texts.
struct Words {
    std::string name;
    std::string status;
    std::string text;

    bool operator==(const Words&) const = default;
    std::string Describe() const { return name + " \"" + status + "\" \"" + text + "\""; }
};

Words WordsOf(const Result& result);
Words WordsOf(BytesView record);

class Ledger {
public:
    /// Now, which comes after everything before.
    Stamp Next() { return ++last_; }

    // ---- owners ----
    /// An owner is about to answer or to report that. It counts for one message.
    void Say(const Words& words);

    /// The server gets it; false: no owner has said that, or the server has it already.
    bool Hear(const Words& words);

    // ---- the server ----
    /// It starts, and knows no item.
    void Start();
    void Register(const std::string& item);
    void Remove(const std::string& item);

    /// A run begins: what is known of the former one is no result any more.
    void Begin(const std::string& item);

    /// From now on that may be an item's result.
    void Learn(const Words& words);

    /// An item is set back: its status becomes "idle", whatever its text is.
    void Reset(const std::string& item);

    /// An allocation of the server has failed: it may have given up anything with any of the errors that are stated.
    void RunOutOfMemory() { outOfMemory_ = true; }

    // ---- requesters ----
    /// A process of that name is about to send a request: when that was.
    Stamp Ask(const std::string& proc, uint32_t id, BytesView payload);

    /// It gets a result or a group's record, as a message of its own or, with the time at which it asked, as the reply.
    void GetMessage(const std::string& proc, uint32_t id, BytesView data);
    void GetReply(const std::string& proc, BytesView data, Stamp since);

    /// The client library gives that as the answer to what was asked then: such a result must have come since.
    void Give(const std::string& proc, const Words& words, Stamp since) const;

private:
    struct Item {
        bool isPresent = false;
        Stamp absentUntil = 0;
        Stamp reset = 0;
        std::vector<Stamp> replaced;                   // when its result became another one altogether
        std::unordered_map<std::string, Stamp> words;  // by status and text: when it was last so
        std::unordered_map<std::string, Stamp> texts;
    };

    struct Request {
        std::string proc;
        uint32_t id{};
        Bytes payload;

        bool operator==(const Request&) const = default;
    };

    static void Replace(Item& item, Stamp now) { item.replaced.push_back(now); }
    bool IsSo(const Words& words, Stamp since) const;
    void Get(const std::string& proc, const Words& words, Stamp since);

    Stamp last_ = 0;
    bool outOfMemory_ = false;
    std::map<std::string, Item> items_;
    std::multiset<std::string> said_;
    Request lastRequest_;
    std::map<std::pair<std::string, std::string>, Stamp> asked_;  // first, by process and item
    std::map<std::string, std::unordered_map<std::string, Stamp>> got_;
};

Ledger& TheLedger();

}  // namespace sim::model
