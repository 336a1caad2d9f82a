// The collection of the terminal's logs: one at a time, by the collection program, into one package that is kept until
// the next one or until it is deleted.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

#include "common/fd.h"
#include "common/json.h"
#include "common/times.h"
#include "model/feed.h"

namespace ominspect::gateway {

// Any thread.
class Collection {
public:
    // `program` is ominspectctl; `folder` is made when it is needed. `config` names the entries; empty: the server's
    // do.
    Collection(std::string program, std::string folder, std::string config, Feed& feed);
    ~Collection();
    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

    // Refused: a collection is under way already. Internal: there is no thread for it.
    std::optional<Error> Begin(const std::string& who);

    // Stops a collection that is under way, and removes the package.
    void Delete();

    json::Value Document() const;

    // The package's path; empty when there is none.
    std::string Package() const;

private:
    enum class State { kNone, kGoingOn, kDone, kFailed };

    std::vector<std::string> Words() const;
    Result<pid_t> Spawn(std::vector<std::string> words, UniqueFd& output) const;
    void Follow();
    void TakeLine(std::string line);
    // False: there was no memory for it.
    bool Tell();
    void Join();

    const std::string program_;
    const std::string folder_;
    const std::string config_;
    const std::string area_;  // copies lie there until they are packed
    const std::string package_;
    Feed& feed_;
    std::mutex begin_;          // held by whoever begins or deletes
    mutable std::mutex mutex_;  // guards everything below
    State state_ = State::kNone;
    std::string who_;
    std::string line_;  // what the program said last
    TimePoint beginTime_;
    std::optional<TimePoint> end_;
    int exitCode_ = 0;
    std::uint64_t size_ = 0;
    pid_t child_ = 0;  // 0: none
    UniqueFd output_;  // the child's, until it is followed
    std::thread follower_;
};

}  // namespace ominspect::gateway
