// State is sent before events, so that the picture of a fleet is soon right again. Still, one message in four is an
// event, so that no flood of states keeps the events back.
#include "mqtt/publisher.h"

#include <algorithm>
#include <utility>

#include "mqtt/documents.h"

namespace ominspect::gateway::mqtt {
namespace {

constexpr std::size_t kMostRows = 64;
constexpr std::size_t kMostDocuments = 256;
constexpr unsigned kMostItemsInARow = 3;
constexpr unsigned kMostDoublings = 5;
constexpr std::chrono::milliseconds kShortestWait{1000};
constexpr std::chrono::seconds kToOpen{10};
constexpr std::chrono::seconds kToTake{30};
constexpr std::chrono::seconds kToEnd{2};
constexpr std::chrono::seconds kToBeWell{30};
constexpr std::chrono::milliseconds kSavePeriod{500};
constexpr auto kNever = Publisher::Clock::time_point::max();

}  // namespace

// A position beyond all numbers given so far belongs to events that were never kept; their numbers are given anew.
Publisher::Publisher(Settings settings, const Picture& picture, Backlog& backlog, Line& line, Carrier* carrier, Say say,
                     std::uint64_t told, Clock::time_point now)
    : settings_(std::move(settings)),
      topics_(settings_.terminal),
      picture_(picture),
      backlog_(backlog),
      line_(line),
      say_(std::move(say)),
      file_(settings_.position, settings_.terminal),
      requests_(settings_.roles, topics_, carrier),
      rate_(settings_.rate, now),
      random_(static_cast<std::minstd_rand::result_type>(std::hash<std::string>()(settings_.terminal))),
      now_(now),
      due_(now),
      saved_(now - kSavePeriod),
      position_(std::min(file_.Load(), told)),
      keptPosition_(position_),
      lastSent_(position_) {
    say_(PartState::kDegraded, "not connected yet");
}

void Publisher::Tell(const Event& event) {
    const std::lock_guard lock(mutex_);
    isEventTold_ = isEventTold_ || StoredKind(event.kind);
    if (event.kind == EventKind::kServer) {
        isServerTold_ = true;
    } else if (event.kind == EventKind::kResult) {
        toldItems_.insert(event.item);
    } else if (event.kind == EventKind::kItems) {
        areItemsTold_ = true;
    } else if (event.kind == EventKind::kOperation || event.kind == EventKind::kCollection) {
        if (!settings_.roles.empty() && toldDocuments_.size() < kMostDocuments) {
            toldDocuments_.push_back(event);
        }
    }
}

void Publisher::TakeTold() {
    std::deque<Event> documents;
    std::set<std::string> items;
    bool areItemsTold = false;
    {
        const std::lock_guard lock(mutex_);
        isMoreToRead_ = isMoreToRead_ || isEventTold_;
        isStatusDue_ = isStatusDue_ || isServerTold_;
        areItemsTold = areItemsTold_;
        isEventTold_ = isServerTold_ = areItemsTold_ = false;
        items.swap(toldItems_);
        documents.swap(toldDocuments_);
    }
    for (const Event& event : documents) {
        if (event.kind == EventKind::kOperation) {
            requests_.TellOperation(event.document);
        } else {
            requests_.TellCollection(event.document);
        }
    }
    if (phase_ == Phase::kOnline) {
        dueItems_.merge(items);
        if (areItemsTold) {
            LookAtItems();
        }
    }
}

// SendItem passes over those that stayed as they were sent.
void Publisher::LookAtItems() {
    picture_.Read([this](const State& state) {
        for (const auto& [name, item] : state.items) {
            dueItems_.insert(name);
        }
    });
}

Publisher::Clock::time_point Publisher::Go(Clock::time_point now) {
    now_ = now;
    TakeTold();
    if (!refusal_.empty()) {
        Away("the broker refuses a message: " + refusal_);
    } else if (phase_ == Phase::kOpening && now >= due_) {
        Away("the broker does not answer");
    } else if (phase_ == Phase::kOnline && !open_.empty() && now >= heard_ + kToTake) {
        Away("the broker takes nothing any more");
    } else if (phase_ == Phase::kAway && now >= due_ && !isEnding_) {
        Begin();
    }
    if (isEnding_ && (phase_ != Phase::kOnline || open_.empty() || now >= endBy_)) {
        line_.Close(phase_ == Phase::kOnline && open_.empty());
        phase_ = Phase::kAway;
        isOver_ = true;
        Save();
        return kNever;
    }
    if (!isEnding_) {
        SendWhatMay();
    }
    if (position_ != keptPosition_ && now >= saved_ + kSavePeriod) {
        Save();
    }
    return Wake();
}

Publisher::Clock::time_point Publisher::Wake() const {
    auto wake = phase_ == Phase::kOnline ? kNever : due_;
    if (phase_ == Phase::kOnline && !open_.empty()) {
        wake = heard_ + kToTake;
    }
    if (phase_ == Phase::kOnline && !isEnding_ && open_.size() < kMostOpen && HasWork()) {
        wake = std::min(wake, rate_.Due());
    }
    if (position_ != keptPosition_) {
        wake = std::min(wake, saved_ + kSavePeriod);
    }
    return isEnding_ ? std::min(wake, endBy_) : wake;
}

void Publisher::Begin() {
    since_ = std::chrono::system_clock::now();
    phase_ = Phase::kOpening;
    due_ = now_ + kToOpen;
    const Outgoing will{topics_.Status(), StatusDocument("lost", settings_.terminal, since_), true, ""};
    if (const auto error = line_.Open(*this, will)) {
        Away(error->text);
    }
}

void Publisher::Opened() {
    phase_ = Phase::kOnline;
    online_ = heard_ = now_;
    isSaveFailing_ = false;
    Greet();
    say_(PartState::kOk, "");
}

// The broker may be another one, or know nothing of before.
void Publisher::Greet() {
    lastSent_ = position_;
    isMoreToRead_ = true;
    isStatusDue_ = true;
    dueSubscriptions_ = requests_.Subscriptions();
    shown_.clear();
    dueItems_.clear();
    LookAtItems();
}

bool Publisher::HasWork() const {
    return !dueSubscriptions_.empty() || isStatusDue_ || requests_.HasAnswer() || !dueItems_.empty() ||
           !rows_.empty() || isMoreToRead_;
}

void Publisher::SendWhatMay() {
    while (phase_ == Phase::kOnline && open_.size() < kMostOpen && HasWork() && rate_.Take(now_)) {
        if (!SendNext()) {
            return;
        }
    }
}

bool Publisher::SendNext() {
    if (!dueSubscriptions_.empty()) {
        const auto error = line_.Subscribe(dueSubscriptions_.back());
        dueSubscriptions_.pop_back();
        if (error) {
            Away(error->text);
        }
        return !error;
    }
    if (isStatusDue_) {
        isStatusDue_ = false;
        std::string document;
        picture_.Read([&](const State& state) { document = OnlineDocument(settings_.terminal, since_, state.server); });
        return Send({topics_.Status(), std::move(document), true, ""});
    }
    if (requests_.HasAnswer()) {
        return Send(requests_.TakeAnswer());
    }
    return itemsInARow_ >= kMostItemsInARow ? SendEvent() || SendItem() : SendItem() || SendEvent();
}

bool Publisher::SendItem() {
    while (!dueItems_.empty()) {
        const std::string name = std::move(dueItems_.extract(dueItems_.begin()).value());
        std::string document;
        picture_.Read([&](const State& state) {
            const auto item = state.items.find(name);
            document = item == state.items.end() ? "" : ItemDocument(item->second);
        });
        const auto hash = std::hash<std::string>()(document);
        const auto [shown, isNew] = shown_.try_emplace(name, hash);
        if (!document.empty() && (isNew || shown->second != hash)) {
            shown->second = hash;
            ++itemsInARow_;
            return Send({topics_.Item(name), std::move(document), true, ""});
        }
    }
    return false;
}

bool Publisher::SendEvent() {
    itemsInARow_ = 0;
    if (rows_.empty() && isMoreToRead_) {
        auto rows = backlog_.After(lastSent_, kMostRows);
        isMoreToRead_ = !rows.empty();
        rows_.assign(std::make_move_iterator(rows.begin()), std::make_move_iterator(rows.end()));
    }
    if (rows_.empty()) {
        return false;
    }
    const history::Row& row = rows_.front();
    if (lastSent_ > 0 && row.seq > lastSent_ + 1) {
        const std::uint64_t first = lastSent_ + 1;
        lastSent_ = row.seq - 1;
        return Send({topics_.Events(), MissingDocument(first, lastSent_, row.time), false, ""}, lastSent_);
    }
    lastSent_ = row.seq;
    const Outgoing message{topics_.Events(), EventDocument(row), false, ""};
    rows_.pop_front();
    return Send(message, lastSent_);
}

bool Publisher::Send(const Outgoing& message, std::uint64_t seq) {
    const auto number = line_.Publish(message);
    if (!number && number.Failure().code != ErrorCode::kInvalidArgument) {
        Away(number.Failure().text);
        return false;
    }
    if (open_.empty()) {
        heard_ = now_;
    }
    // A message that can never be sent must not keep all others back: it counts as taken, and the part says so.
    open_.push_back({number ? *number : 0, seq, !number});
    if (number) {
        ++sent_;
    } else {
        say_(PartState::kDegraded,
             "the broker allows no such message on " + message.topic + ": " + number.Failure().text);
        Advance();
    }
    return true;
}

void Publisher::Acked(int number, const std::string& refusal) {
    if (!refusal.empty()) {
        refusal_ = refusal;
        return;
    }
    heard_ = now_;
    const auto found = std::find_if(open_.begin(), open_.end(),
                                    [number](const Open& one) { return one.number == number && !one.isTaken; });
    if (found != open_.end()) {
        found->isTaken = true;
        Advance();
    }
}

void Publisher::Advance() {
    for (; !open_.empty() && open_.front().isTaken; open_.pop_front()) {
        position_ = std::max(position_, open_.front().seq);
    }
}

void Publisher::Came(Incoming message) {
    requests_.Take(message);
}

void Publisher::Lost(const std::string& why) {
    Away(why);
}

void Publisher::Away(const std::string& why) {
    line_.Close(false);
    if (phase_ == Phase::kOnline && now_ - online_ >= kToBeWell) {
        failures_ = 0;
    }
    phase_ = Phase::kAway;
    refusal_.clear();
    open_.clear();
    rows_.clear();
    // Terminals that lost their broker together do not come back together.
    const auto wait = kShortestWait * (1U << std::min(failures_++, kMostDoublings));
    due_ = now_ + wait / 2 + wait * (random_() % 1024U) / 1024U;
    say_(PartState::kFailed, why);
}

void Publisher::BeginEnd(Clock::time_point now) {
    now_ = now;
    isEnding_ = true;
    endBy_ = now + kToEnd;
    if (phase_ == Phase::kOnline) {
        const auto ended = std::chrono::system_clock::now();
        (void)Send({topics_.Status(), StatusDocument("offline", settings_.terminal, ended), true, ""});
    }
}

void Publisher::Save() {
    saved_ = now_;
    if (position_ == keptPosition_) {
        return;
    }
    const auto error = file_.Save(position_);
    if (!error) {
        keptPosition_ = position_;
    }
    if (error.has_value() != isSaveFailing_ && phase_ == Phase::kOnline) {
        isSaveFailing_ = error.has_value();
        say_(error ? PartState::kDegraded : PartState::kOk,
             error ? settings_.position + ": " + error->text + "; after a restart, results are sent once more" : "");
    }
}

}  // namespace ominspect::gateway::mqtt
