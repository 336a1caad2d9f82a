// Each operation has a thread: the client library's calls wait for their results.
#include "actions/operations.h"

#include <algorithm>
#include <new>
#include <system_error>

#include "actions/telling.h"
#include "common/client_answers.h"
#include "ominspect/client/group.h"
#include "ominspect/client/run.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMostAtOnce = 16;
constexpr std::size_t kMostKept = 100;
constexpr std::chrono::milliseconds kEventLimit{1000};  // for the news of a run's end, once its result is there

std::optional<std::chrono::milliseconds> DurationOf(const ItemOutcome& outcome) {
    if (!outcome.begin || !outcome.end) {
        return std::nullopt;
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(*outcome.end - *outcome.begin);
}

// Until the end of the scope, the one who gave the order counts as the cause of its items' runs.
class Claims {
public:
    Claims(Runs& runs, const Order& order) : runs_(runs), order_(order) {}
    ~Claims() {
        while (count_ > 0) {
            runs_.Release(order_.items[--count_], order_.who);
        }
    }
    Claims(const Claims&) = delete;
    Claims& operator=(const Claims&) = delete;

    void Make() {
        for (; count_ < order_.items.size(); ++count_) {
            runs_.Claim(order_.items[count_], order_.who);
        }
    }

private:
    Runs& runs_;
    const Order& order_;
    std::size_t count_ = 0;
};

}  // namespace

const char* WordOf(OperationKind kind) {
    switch (kind) {
        case OperationKind::kRun:
            return "run";
        case OperationKind::kGroup:
            return "group";
        case OperationKind::kStop:
            return "stop";
        case OperationKind::kReset:
            break;
    }
    return "reset";
}

const char* StateWordOf(const OperationView& operation) {
    return operation.end ? "ended" : operation.waits ? "waiting" : "going-on";
}

Operations::~Operations() {
    StopAll();
}

Result<std::uint64_t> Operations::Begin(Order order) {
    for (const std::string& item : order.items) {
        const client::Request request{item, order.argument};
        if (auto error = client::CheckRequest(request)) {
            return *error;
        }
        if (client::KindOf(request) != client::RequestKind::kRun) {
            return WrongUse("the argument \"" + order.argument + "\" has an operation of its own");
        }
    }
    const std::lock_guard lock(mutex_);
    const auto open =
        std::count_if(operations_.begin(), operations_.end(), [](const auto& one) { return !one->view.end; });
    if (isEnding_ || static_cast<std::size_t>(open) >= kMostAtOnce) {
        return Error{ErrorCode::kRefused, "as many operations go on as may at once"};
    }
    // The oldest ones that have ended are forgotten.
    for (auto one = operations_.begin(); one != operations_.end() && operations_.size() >= kMostKept;) {
        one = (*one)->isOver ? operations_.erase(one) : std::next(one);
    }
    auto made = std::make_unique<Operation>();
    Operation& operation = *made;
    operation.order = std::move(order);
    operation.view.number = ++last_;
    operation.view.kind = operation.order.kind;
    operation.view.items = operation.order.items;
    operation.view.who = operation.order.who;
    operation.view.begin = std::chrono::system_clock::now();
    operations_.push_back(std::move(made));
    try {
        operation.thread = std::jthread([this, &operation](const std::stop_token& cancel) { Work(cancel, operation); });
    } catch (const std::system_error&) {
        operations_.pop_back();
        return Error{ErrorCode::kRefused, "there is no thread for another operation"};
    } catch (const std::bad_alloc&) {
        operations_.pop_back();
        throw;
    }
    return operation.view.number;
}

void Operations::Change(Operation& operation, const std::function<void(OperationView&)>& change) {
    Event event;
    event.kind = EventKind::kOperation;
    event.time = std::chrono::system_clock::now();
    {
        const std::lock_guard lock(mutex_);
        change(operation.view);
        operation.view.change = ++changes_;
        event.document = JsonOf(operation.view).Print();
    }
    feed_.Post(std::move(event));
}

void Operations::Work(const std::stop_token& cancel, Operation& operation) {
    std::optional<client::Error> error;
    try {
        Change(operation, [](OperationView&) {});
        error = CarryClaimed(cancel, operation);
    } catch (const std::bad_alloc&) {
        error = client::Error{client::ErrorCode::kInternal, "no memory"};  // a text that needs none
    }
    {
        const std::lock_guard lock(mutex_);
        operation.view.error = std::move(error);
        operation.view.waits = false;
        operation.view.end = std::chrono::system_clock::now();
        operation.view.change = ++changes_;
    }
    TellInAnyCase(feed_, EventKind::kOperation, [this, &operation] {
        const std::lock_guard lock(mutex_);
        return JsonOf(operation.view).Print();
    });
    const std::lock_guard lock(mutex_);
    operation.isOver = true;
}

std::optional<client::Error> Operations::CarryClaimed(const std::stop_token& cancel, Operation& operation) {
    const auto session = link_.Get();
    if (!session) {
        return client::BusLostError();
    }
    const client::Limit limit(operation.order.limit, cancel);
    if (operation.order.kind != OperationKind::kRun && operation.order.kind != OperationKind::kGroup) {
        return Carry(*session, limit, operation);
    }
    Claims claims(runs_, operation.order);
    claims.Make();
    return Carry(*session, limit, operation);
}

std::optional<client::Error> Operations::Carry(client::Session& session, const client::Limit& limit,
                                               Operation& operation) {
    const std::string& item = operation.order.items.front();
    const auto keep = [&](const client::ItemResult& result) {
        Change(operation, [&](OperationView& one) { one.results.push_back({result, std::nullopt, std::nullopt}); });
    };
    switch (operation.order.kind) {
        case OperationKind::kGroup:
            return CarryGroup(session, limit, operation);
        case OperationKind::kReset: {
            auto error = session.Reset(item, limit);
            picture_.SetUnclear(item);  // the server tells nobody
            return error;
        }
        case OperationKind::kStop: {
            const auto result = session.Stop(item, limit);
            if (!result) {
                return result.Failure();
            }
            keep(*result);
            return std::nullopt;
        }
        case OperationKind::kRun:
            break;
    }
    client::RunOptions options;
    options.onOther = [&] { Change(operation, [](OperationView& one) { one.waits = true; }); };
    const auto outcome = client::RunItem(session, {item, operation.order.argument}, options, limit);
    if (!outcome) {
        return outcome.Failure();
    }
    keep(outcome->result);
    if (!client::IsUnknownItem(outcome->result)) {
        runs_.AwaitEnd(item, operation.order.who, Runs::Clock::now() + kEventLimit);
    }
    return std::nullopt;
}

std::optional<client::Error> Operations::CarryGroup(client::Session& session, const client::Limit& limit,
                                                    Operation& operation) {
    std::vector<client::Request> requests;
    for (const std::string& item : operation.order.items) {
        requests.push_back({item, operation.order.argument});
    }
    std::vector<std::string> ran;
    client::GroupOptions options;
    options.waitForTurn = true;
    options.onRefused = [&] { Change(operation, [](OperationView& one) { one.waits = true; }); };
    options.onStart = [&](std::uint32_t taskId, std::size_t, std::size_t) {
        Change(operation, [&](OperationView& one) {
            one.taskId = taskId;
            one.waits = false;
        });
    };
    options.onRecord = [&](const client::GroupRecord& record) {
        Change(operation, [&](OperationView& one) {
            for (const client::GroupItem& item : record.items) {
                one.results.push_back({item.result, item.start, item.end});
            }
        });
        for (const client::GroupItem& item : record.items) {
            if (item.end && !client::IsUnknownItem(item.result)) {
                ran.push_back(item.result.name);
            }
        }
    };
    auto error = client::RunGroup(session, requests, options, limit);
    const auto eventLimit = Runs::Clock::now() + kEventLimit;
    for (const std::string& item : ran) {
        runs_.AwaitEnd(item, operation.order.who, eventLimit);
    }
    return error;
}

json::Value Operations::JsonOf(const OperationView& operation) {
    auto items = json::Value::Array();
    for (const std::string& item : operation.items) {
        items.AddText(item);
    }
    auto results = json::Value::Array();
    for (const ItemOutcome& outcome : operation.results) {
        auto result = json::Value::Object();
        result.Text("item", outcome.result.name).Text("status", outcome.result.status);
        result.Text("text", outcome.result.text);
        if (const auto duration = DurationOf(outcome)) {
            result.Number("durationMs", static_cast<std::uint64_t>(std::max<std::int64_t>(0, duration->count())));
        }
        results.Add(std::move(result));
    }
    auto json = json::Value::Object();
    json.Number("id", operation.number).Text("operation", WordOf(operation.kind));
    json.Text("state", StateWordOf(operation));
    json.Put("items", std::move(items)).Text("who", operation.who).Text("begin", UtcTime(operation.begin));
    if (operation.end) {
        json.Text("end", UtcTime(*operation.end));
    }
    if (operation.taskId) {
        json.Number("taskId", *operation.taskId);
    }
    json.Put("results", std::move(results));
    if (operation.error) {
        json.Put("error", ErrorJson(*operation.error));
    }
    return json;
}

std::optional<json::Value> Operations::Find(std::uint64_t number) const {
    const std::lock_guard lock(mutex_);
    for (const auto& operation : operations_) {
        if (operation->view.number == number) {
            return JsonOf(operation->view);
        }
    }
    return std::nullopt;
}

json::Value Operations::All() const {
    const std::lock_guard lock(mutex_);
    auto all = json::Value::Array();
    for (const auto& operation : operations_) {
        all.Add(JsonOf(operation->view));
    }
    return std::move(json::Value::Object().Put("operations", std::move(all)));
}

std::vector<OperationView> Operations::Changed(std::uint64_t after) const {
    const std::lock_guard lock(mutex_);
    std::vector<OperationView> changed;
    for (const auto& operation : operations_) {
        if (operation->view.change > after) {
            changed.push_back(operation->view);
        }
    }
    return changed;
}

bool Operations::Stop(std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    for (const auto& operation : operations_) {
        if (operation->view.number == number && !operation->view.end) {
            (void)operation->thread.request_stop();
            return true;
        }
    }
    return false;
}

void Operations::StopAll() {
    std::list<std::unique_ptr<Operation>> all;
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        for (const auto& operation : operations_) {
            (void)operation->thread.request_stop();
        }
        all.swap(operations_);
    }
}

}  // namespace ominspect::gateway
