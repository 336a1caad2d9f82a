// The runs that are under way: makes of what the server tells when and how long a run was, and who asked for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "model/event.h"
#include "ominspect/client/types.h"

namespace ominspect::gateway {

// Any thread.
class Runs {
public:
    using Clock = std::chrono::steady_clock;

    // What event 8 means, received now: a run that began, or one that ended.
    Event Take(const client::ItemResult& result, TimePoint now, Clock::time_point tick);

    // The next run of the item that begins counts as asked for by `cause`, until the claim is released.
    void Claim(const std::string& item, const std::string& cause);
    void Release(const std::string& item, const std::string& cause);

    // Waits, at most until the limit, for the end of a run of that claim to arrive here too: the one who asked may have
    // the result before the thread of the events sees it.
    void AwaitEnd(const std::string& item, const std::string& cause, Clock::time_point limit);

    // The server is gone, and its runs with it.
    void Forget();

private:
    struct Run {
        TimePoint begin;
        Clock::time_point tick;
        std::string cause;
    };

    struct Claimed {
        std::string cause;
        bool hasEnded = false;  // a run of this claim
    };
    using Claims = std::multimap<std::string, Claimed>;

    // The first claim of this cause; end() when there is none. With `alsoEnded`, ended claims count too.
    Claims::iterator Find(const std::string& item, const std::string& cause, bool alsoEnded = true);

    std::mutex mutex_;  // guards everything below
    std::condition_variable ended_;
    std::map<std::string, Run> runs_;
    Claims claims_;
};

}  // namespace ominspect::gateway
