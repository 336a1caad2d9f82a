// What the server must know, as the model keeps it.
#pragma once

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ominspect/records.h"

namespace sim::model {

using Result = tagKivoOmInspectionResult;
using Item = tagKivoOmInspectionDataItem;

struct Client {
    std::string proc;
    std::string task;

    bool operator==(const Client&) const = default;
};

/// Those who wait for an item's run.
class Requesters {
public:
    void Add(const Client& client) {
        all_.push_back(client);
        hadSome_ = true;
        proof_.clear();
    }
    void Clear() {
        all_.clear();
        proof_.clear();
    }

    const std::vector<Client>& All() const { return all_; }
    bool HadSome() const { return hadSome_; }

    /// The server's list, byte for byte, when it was found to be the same; empty when it changed since. There may be
    /// hundreds, which are seldom others than a second ago.
    bool IsProven(std::string_view bytes) const { return !bytes.empty() && bytes == proof_; }
    void Prove(std::string_view bytes) const { proof_ = bytes; }

private:
    std::vector<Client> all_;
    bool hadSome_ = false;  // then the server's list keeps its memory
    mutable std::string proof_;
};

/// An item or a group in the result table.
struct Entry {
    uint8_t startCount = 0;
    uint32_t taskId = 0;
    uint32_t timeout = 0;
    Result result{};
    uint64_t startTime = 0;
    uint64_t endTime = 0;
    Requesters requesters;
};

/// What a background job is to do.
struct Job {
    enum class Kind { kSingle, kGroup, kWait };

    Kind kind{};
    bool forceOnly = false;
    bool stopFlag = false;
    bool begun = false;
    std::vector<std::string> texts{};  // of requests; of a wait timer the item
    Client client{};
    std::string group{};
    uint32_t timeout = 0;
};

struct State {
    std::map<std::string, Entry> table;
    uint32_t runningCount = 0;
    std::map<std::string, Client> registry;
    std::map<uint32_t, Job> jobs;
    uint32_t counter = 0;
    bool counterIsSet = false;
    bool wrapped = false;  // the count of an entry went from 255 to 0
};

/// A text in a field of a record, as far as it goes.
template <size_t size>
std::string TextOf(const char (&field)[size]) {
    return {field, strnlen(field, size)};
}

/// Copies a text that fits, with its NUL; leaves the empty text otherwise. What stands behind it stays.
template <size_t size>
void SetText(char (&field)[size], const std::string& text) {
    if (text.size() < size) {
        std::memcpy(field, text.c_str(), text.size() + 1);
    } else {
        field[0] = '\0';
    }
}

inline Result MakeResult(const std::string& name, const std::string& status, const std::string& text) {
    Result result{};
    SetText(result.name, name);
    SetText(result.status, status);
    SetText(result.text, text);
    return result;
}

inline bool IsRunning(const Result& result) {
    return TextOf(result.status) == "running";
}

inline Item ItemOf(const Entry& entry) {
    return {entry.result, entry.startTime, entry.endTime};
}

}  // namespace sim::model
