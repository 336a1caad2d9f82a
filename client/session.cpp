// Each request is encoded and sent, and its reply is decoded.
#include "ominspect/client/session.h"

#include <algorithm>
#include <utility>

#include "connection.h"
#include "inventory.h"
#include "kivo/os_msg.h"
#include "ominspect/messages.h"
#include "waiting.h"
#include "wire.h"

namespace ominspect::client {
namespace {

// While a requester waits for a message, it asks this often whether the server is still there. It asks less and less
// often while the server is too busy to answer, since each question stays in the server's queue.
constexpr std::chrono::seconds kPresencePeriod{2};
constexpr std::chrono::seconds kLongestPeriod{60};

// How long a process may take to say what it owns.
constexpr std::chrono::milliseconds kOwnersLimit{2000};

// The answer to a group's start is waited for this much longer, since a group without a known task id cannot be
// stopped.
constexpr std::chrono::milliseconds kStartGrace{6000};

wire::Bytes BytesOf(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

// A request whose results are expected. What is thrown while it is sent leaves none behind, as it would hold its lane
// for ever.
class Expected {
public:
    Expected(Inbox& mail, const Request& request)
        : mail_(mail), address_{0, request.item}, lane_(mail.Expect(request.item, KindOf(request))) {
        address_.lane = lane_.value_or(0);
        end_ = lane_ ? &Inbox::Withdraw : nullptr;
    }
    ~Expected() {
        if (end_ != nullptr) {
            (mail_.*end_)(address_);
        }
    }
    Expected(const Expected&) = delete;
    Expected& operator=(const Expected&) = delete;

    // Nothing when too many wait for the item.
    [[nodiscard]] std::optional<std::size_t> Lane() const { return lane_; }

    // Its results may come.
    void IsSent() { end_ = &Inbox::Forget; }

    // Somebody else waits for them.
    void IsTaken() { end_ = nullptr; }

private:
    Inbox& mail_;
    Address address_;
    std::optional<std::size_t> lane_;
    void (Inbox::*end_)(const Address&) = nullptr;  // what it needs when this goes
};

// Waits with `take` for a message, as long as the server is there.
template <typename T, typename Take>
Result<T> AwaitMail(Connection& connection, const Limit& limit, Take take) {
    for (std::chrono::seconds period = kPresencePeriod;;) {
        const auto slice = std::min<Limit::Clock::time_point>(limit.Deadline(), Limit::Clock::now() + period);
        Result<std::optional<T>> taken = take(slice);
        if (!taken) {
            return taken.Failure();
        }
        if (*taken) {
            return std::move(**taken);
        }
        if (auto over = EndOf(limit)) {
            return *over;
        }
        const auto answers = connection.CheckPresence(limit);
        if (!answers) {
            return answers.Failure();
        }
        period = *answers ? kPresencePeriod : std::min(period * 2, kLongestPeriod);
    }
}

}  // namespace

// ---- a run in the background ----

BackgroundRun::BackgroundRun(Connection& connection, const Request& request, std::size_t lane, std::uint64_t serverLife)
    : connection_(&connection), item_(request.item), kind_(KindOf(request)), lane_(lane), serverLife_(serverLife) {}

BackgroundRun::BackgroundRun(BackgroundRun&& other) noexcept
    : connection_(std::exchange(other.connection_, nullptr)),
      item_(std::move(other.item_)),
      kind_(other.kind_),
      lane_(other.lane_),
      serverLife_(other.serverLife_) {}

BackgroundRun::~BackgroundRun() {
    if (connection_ != nullptr) {
        connection_->Mail().Forget({lane_, std::move(item_)});  // no copy: this must not need memory
    }
}

Result<ItemResult> BackgroundRun::Next(const Limit& limit) {
    return AwaitMail<ItemResult>(*connection_, limit, [&](Limit::Clock::time_point deadline) {
        return connection_->Mail().TakeResult({lane_, item_}, serverLife_, limit, deadline);
    });
}

Result<ItemResult> BackgroundRun::Await(const Limit& limit, const std::function<void(const ItemResult&)>& onRunning) {
    for (;;) {
        auto result = Next(limit);
        if (!result || kind_ == RequestKind::kCommand || result->status != "running") {
            return result;
        }
        if (onRunning) {
            onRunning(*result);
        }
    }
}

RunOrigin BackgroundRun::Origin() const {
    return connection_->Mail().Origin({lane_, item_});
}

// ---- a group ----

GroupRun::GroupRun(Connection& connection, std::uint32_t taskId, std::uint64_t serverLife)
    : connection_(&connection), taskId_(taskId), serverLife_(serverLife) {}

Result<GroupRecord> GroupRun::Await(const Limit& limit) {
    return AwaitMail<GroupRecord>(*connection_, limit, [&](Limit::Clock::time_point deadline) {
        return connection_->Mail().TakeRecord(taskId_, serverLife_, limit, deadline);
    });
}

// ---- the session ----

Session::Session(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {}

Session::~Session() = default;

Result<std::unique_ptr<Session>> Session::Open(Events events, std::string_view processName) {
    auto connection = std::make_unique<Connection>(std::move(events));
    if (auto error = connection->Join(processName)) {
        return *error;
    }
    return std::unique_ptr<Session>(new Session(std::move(connection)));
}

Result<RunReply> Session::Run(const Request& request, const Limit& limit) {
    auto text = wire::EncodeRequest(request);
    if (!text) {
        return text.Failure();
    }
    const auto reply = connection_->Ask(OM_INSPECT_MSG_RUN, std::move(*text), limit);
    if (!reply) {
        return reply.Failure();
    }
    return wire::DecodeRunReply(BytesOf(*reply), request.item);
}

Result<BackgroundRun> Session::Start(const Request& request, const Limit& limit) {
    auto text = wire::EncodeRequest(request);
    if (!text) {
        return text.Failure();
    }
    if (auto over = EndOf(limit)) {
        return *over;
    }
    // An asynchronous message to an absent server is not reported as an error.
    if (const auto answers = connection_->CheckPresence(limit); !answers) {
        return answers.Failure();
    }
    if (auto over = EndOf(limit)) {
        return *over;
    }
    Inbox& mail = connection_->Mail();
    const std::uint64_t life = mail.ServerLife();
    Expected expected(mail, request);
    const auto lane = expected.Lane();
    if (!lane) {
        return Error{ErrorCode::kInvalidArgument,
                     "this session waits for " + std::to_string(Inbox::kLanes) + " results of the item already"};
    }
    if (auto error = connection_->PostByLane(*lane, OM_INSPECT_MSG_START, std::move(*text))) {
        return *error;
    }
    expected.IsSent();
    BackgroundRun run(*connection_, request, *lane, life);
    expected.IsTaken();
    return run;
}

Result<ItemResult> Session::Stop(std::string_view item, const Limit& limit) {
    auto stop = Start({std::string(item), "stop"}, limit);
    if (!stop) {
        return stop.Failure();
    }
    return stop->Next(limit);
}

Result<GroupRun> Session::StartGroup(std::span<const Request> requests, const Limit& limit) {
    auto payload = wire::EncodeGroup(requests);
    if (!payload) {
        return payload.Failure();
    }
    const std::uint64_t life = connection_->Mail().ServerLife();
    if (auto over = EndOf(limit)) {
        return *over;
    }
    const auto reply = connection_->Ask(OM_INSPECT_MSG_START_GROUP, std::move(*payload), limit, 0, kStartGrace);
    if (!reply) {
        Error error = reply.Failure();
        const bool unknown = error.code == ErrorCode::kTimeLimit || error.code == ErrorCode::kCancelled;
        if (unknown) {
            error.text += "; the server is busy and may start the group yet";
        }
        return error;
    }
    const auto taskId = wire::DecodeGroupReply(BytesOf(*reply));
    if (!taskId) {
        return taskId.Failure();
    }
    return GroupRun(*connection_, *taskId, life);
}

Result<bool> Session::StopTask(std::uint32_t taskId, const Limit& limit) {
    const auto reply = connection_->Ask(OM_INSPECT_MSG_STOP_GROUP, "", limit, taskId);
    if (!reply) {
        return reply.Failure();
    }
    return wire::DecodeStopReply(BytesOf(*reply));
}

std::optional<Error> Session::Reset(std::string_view item, const Limit& limit) {
    const auto reply = Run({std::string(item), "done"}, limit);
    if (!reply) {
        return reply.Failure();
    }
    return std::nullopt;
}

Result<ItemState> Session::State(std::string_view item, const Limit& limit) {
    if (auto error = CheckItemName(item)) {
        return *error;
    }
    const auto reply = connection_->Ask(OM_INSPECT_MSG_STATE, std::string(item), limit);
    if (!reply) {
        return reply.Failure();
    }
    return wire::DecodeStateReply(BytesOf(*reply));
}

Result<Catalogue> Session::List(const Limit& limit) {
    const auto count = connection_->Ask(OM_INSPECT_MSG_LIST_COUNT, "", limit);
    if (!count) {
        return count.Failure();
    }
    const auto total = wire::DecodeCount(BytesOf(*count));
    if (!total) {
        return total.Failure();
    }
    const auto reply = connection_->Ask(OM_INSPECT_MSG_LIST, "", limit);
    if (!reply) {
        return reply.Failure();
    }
    auto items = wire::DecodeList(BytesOf(*reply));
    if (!items) {
        return items.Failure();
    }
    return Catalogue{std::move(*items), *total};
}

Result<Inventory> Session::Items(const Limit& limit) {
    auto catalogue = List(limit);
    if (!catalogue) {
        return catalogue.Failure();
    }
    return OwnersOf(std::move(*catalogue), limit);
}

Result<Inventory> Session::OwnersOf(Catalogue catalogue, const Limit& limit) {
    const auto owned = std::make_shared<std::vector<OwnedItem>>();
    const auto asked = connection_->Cancellable(
        [owned, time = std::min(limit.Left(), kOwnersLimit)] { return AskOwners(*owned, time); }, limit.Cancel());
    if (!asked) {
        return asked.Failure();
    }
    return MakeInventory(std::move(catalogue), *owned);
}

std::uint64_t Session::ServerStarts() const {
    return connection_->Mail().ServerLife();
}

std::optional<Error> Session::SubscribePerfData(std::string_view process, std::function<void(const PerfData&)> take) {
    return connection_->SubscribePerfData(process, std::move(take));
}

std::optional<Error> Session::Subscribe() {
    return connection_->SubscribeEvents();
}

std::uint64_t Session::LostEvents() const {
    return connection_->LostEvents();
}

}  // namespace ominspect::client
