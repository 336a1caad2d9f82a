// Watches the server: turns what the client library tells into events, and asks for what nobody tells.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "common/presence.h"
#include "model/feed.h"
#include "model/parts.h"
#include "model/picture.h"
#include "model/runs.h"
#include "watch/link.h"
#include "watch/news.h"

namespace ominspect::gateway {

// Another user of the session. Called on the watcher's thread.
class Follower {
public:
    virtual ~Follower() = default;

    // Another session begins.
    virtual void Begin() = 0;
    // After each look for items and owners.
    virtual void Look(client::Session& session, const client::Inventory& inventory) = 0;
};

class Watcher {
public:
    struct Settings {
        std::string process;           // on the bus; begins with "ic-"
        std::chrono::seconds refresh;  // between two looks for items and owners
    };

    // `follower` may be null.
    Watcher(Settings settings, Link& link, Runs& runs, Picture& picture, Parts& parts, Feed& feed, Follower* follower);
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void Start();
    void Stop();

    // Looks for items and owners now.
    void Refresh();

private:
    using Clock = std::chrono::steady_clock;

    void Run();
    // Serves one connection, from its opening to its end.
    void Serve();
    void Round(client::Session& session, Presence& presence);
    void TellServer(bool present);
    void LookForItems(client::Session& session);
    void AskStates(client::Session& session);
    void TellItems();
    // False: it is time to end.
    bool Pause(std::chrono::milliseconds time);
    void Leave();

    const Settings settings_;
    Link& link_;
    Runs& runs_;
    Picture& picture_;
    Parts& parts_;
    Feed& feed_;
    Follower* const follower_;
    News news_;

    // ---- of the watcher's thread ----
    std::optional<bool> serverUp_;
    std::optional<TimePoint> blindSince_;  // the bus is gone
    Clock::time_point nextLook_;

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    bool isWanted_ = false;  // a look for items
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace ominspect::gateway
