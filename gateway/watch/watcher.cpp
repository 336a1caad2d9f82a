// One thread asks and waits; the session's own thread brings the events.
#include "watch/watcher.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <pthread.h>

#include "common/client_answers.h"
#include "common/text.h"

namespace ominspect::gateway {
namespace {

constexpr const char* kPart = "bus";
constexpr const char* kServerPart = "server";
constexpr const char* kOwnersPart = "owners";
constexpr std::chrono::milliseconds kStep{500};
constexpr std::chrono::milliseconds kRetryPeriod{2000};
constexpr std::chrono::seconds kAskLimit{5};
constexpr std::size_t kStatesAtOnce = 32;

}  // namespace

Watcher::Watcher(Settings settings, Link& link, Runs& runs, Picture& picture, Parts& parts, Feed& feed,
                 Follower* follower)
    : settings_(std::move(settings)),
      link_(link),
      runs_(runs),
      picture_(picture),
      parts_(parts),
      feed_(feed),
      follower_(follower),
      news_(runs, feed) {}

Watcher::~Watcher() {
    Stop();
}

void Watcher::Start() {
    thread_ = std::thread([this] { Run(); });
    (void)pthread_setname_np(thread_.native_handle(), "watch");
}

void Watcher::Stop() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Watcher::Refresh() {
    {
        const std::lock_guard lock(mutex_);
        isWanted_ = true;
    }
    changed_.notify_one();
}

bool Watcher::Pause(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    (void)changed_.wait_for(lock, time, [this] { return isEnding_ || isWanted_; });
    if (std::exchange(isWanted_, false)) {
        nextLook_ = Clock::time_point::min();
    }
    return !isEnding_;
}

void Watcher::Run() {
    do {
        Serve();
        Leave();
    } while (Pause(kRetryPeriod));
}

void Watcher::Serve() {
    auto opened = client::Session::Open(news_.EventsOfSession(), settings_.process);
    if (!opened) {
        parts_.Set(kPart, PartState::kFailed, opened.Failure().text);
        return;
    }
    const std::shared_ptr<client::Session> session(std::move(*opened));
    if (const auto error = session->Subscribe()) {
        parts_.Set(kPart, PartState::kFailed, error->text);
        return;
    }
    parts_.Set(kPart, PartState::kOk);
    if (const auto since = std::exchange(blindSince_, std::nullopt)) {
        Event gap = EventNow(EventKind::kGap);
        gap.begin = since;
        gap.text = "the message bus was away";
        feed_.Post(std::move(gap));
    }
    if (follower_ != nullptr) {
        follower_->Begin();
    }
    link_.Set(session);
    Presence presence(*session, "ominspect-gateway");
    presence.Begin();
    TellServer(presence.IsPresent());
    do {
        Round(*session, presence);
    } while (!news_.IsBusLost() && Pause(kStep));
    if (news_.IsBusLost()) {
        parts_.Set(kPart, PartState::kFailed, client::BusLostError().text);
        blindSince_ = std::chrono::system_clock::now();
    }
}

// Leaves the bus: the process has one place there, which the next session needs.
void Watcher::Leave() {
    std::weak_ptr<client::Session> left = link_.Get();
    link_.Set(nullptr);
    if (news_.IsBusLost()) {
        TellServer(false);
    }
    while (!left.expired()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void Watcher::Round(client::Session& session, Presence& presence) {
    presence.Follow([this](bool present) { TellServer(present); });
    news_.TellLost(session.LostEvents());
    if (!serverUp_.value_or(false)) {
        return;
    }
    if (Clock::now() >= nextLook_) {
        LookForItems(session);
    }
    AskStates(session);
}

void Watcher::TellServer(bool present) {
    if (present) {
        parts_.Set(kServerPart, PartState::kOk);
        nextLook_ = Clock::time_point::min();
    } else {
        parts_.Set(kServerPart, PartState::kFailed, "no process \"ominspect\" on the bus");
        runs_.Forget();
    }
    if (serverUp_ != present) {
        feed_.Post(EventNow(EventKind::kServer, present ? "up" : "away"));
    }
    serverUp_ = present;
}

void Watcher::LookForItems(client::Session& session) {
    nextLook_ = Clock::now() + settings_.refresh;
    picture_.SetHeldUnclear();
    const auto inventory = session.Items(kAskLimit);
    if (!inventory) {
        return;  // a server that is too busy is asked again; one that is gone is told of elsewhere
    }
    std::string silent;
    for (const std::string& process : inventory->silent) {
        silent += (silent.empty() ? "" : "; ") + SilenceText(process);
    }
    parts_.Set(kOwnersPart, silent.empty() ? PartState::kOk : PartState::kDegraded, silent);
    if (picture_.SetInventory(*inventory)) {
        TellItems();
    }
    if (follower_ != nullptr) {
        follower_->Look(session, *inventory);
    }
}

void Watcher::AskStates(client::Session& session) {
    bool isChanged = false;
    for (std::size_t asked = 0; asked < kStatesAtOnce; ++asked) {
        const std::string item = picture_.TakeUnclear();
        if (item.empty()) {
            break;
        }
        const auto state = session.State(item, kAskLimit);
        if (state) {
            isChanged = picture_.SetState(item, *state) || isChanged;
        } else {
            picture_.SetUnclear(item);
        }
        if (!state && state.Failure().code != client::ErrorCode::kMalformedReply) {
            break;
        }
    }
    if (isChanged) {
        TellItems();
    }
}

void Watcher::TellItems() {
    feed_.Post(EventNow(EventKind::kItems));
}

}  // namespace ominspect::gateway
