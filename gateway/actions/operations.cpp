// Each operation has a thread: the client library's calls wait for their results.
#include "actions/operations.h"

#include <algorithm>

#include "common/client_answers.h"
#include "ominspect/client/group.h"
#include "ominspect/client/run.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMostAtOnce = 16;
constexpr std::size_t kMostKept = 100;

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

std::optional<std::chrono::milliseconds> DurationOf(const client::GroupItem& item) {
    if (!item.start || !item.end) {
        return std::nullopt;
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(*item.end - *item.start);
}

}  // namespace

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
    const auto open = std::count_if(operations_.begin(), operations_.end(), [](const auto& one) { return !one->end; });
    if (isEnding_ || static_cast<std::size_t>(open) >= kMostAtOnce) {
        return Error{ErrorCode::kRefused, "as many operations go on as may at once"};
    }
    // The oldest ones that have ended are forgotten.
    for (auto one = operations_.begin(); one != operations_.end() && operations_.size() >= kMostKept;) {
        one = (*one)->end ? operations_.erase(one) : std::next(one);
    }
    auto& operation = *operations_.emplace_back(std::make_unique<Operation>());
    operation.number = ++last_;
    operation.order = std::move(order);
    operation.begin = std::chrono::system_clock::now();
    operation.thread = std::jthread([this, &operation](const std::stop_token& cancel) { Work(cancel, operation); });
    return operation.number;
}

void Operations::Change(Operation& operation, const std::function<void(Operation&)>& change) {
    Event event;
    event.kind = EventKind::kOperation;
    event.time = std::chrono::system_clock::now();
    {
        const std::lock_guard lock(mutex_);
        change(operation);
        event.document = JsonOf(operation).Print();
    }
    feed_.Post(std::move(event));
}

void Operations::Work(const std::stop_token& cancel, Operation& operation) {
    Change(operation, [](Operation&) {});
    std::optional<client::Error> error;
    {
        const auto session = link_.Get();
        const client::Limit limit(operation.order.limit, cancel);
        if (!session) {
            error = client::BusLostError();
        } else {
            const bool isRun =
                operation.order.kind == OperationKind::kRun || operation.order.kind == OperationKind::kGroup;
            for (const std::string& item : operation.order.items) {
                if (isRun) {
                    runs_.Claim(item, operation.order.who);
                }
            }
            error = Carry(*session, limit, operation);
            for (const std::string& item : operation.order.items) {
                if (isRun) {
                    runs_.Release(item, operation.order.who);
                }
            }
        }
    }
    Change(operation, [&](Operation& one) {
        one.error = error;
        one.waits = false;
        one.end = std::chrono::system_clock::now();
    });
}

std::optional<client::Error> Operations::Carry(client::Session& session, const client::Limit& limit,
                                               Operation& operation) {
    const std::string& item = operation.order.items.front();
    const auto keep = [&](const client::ItemResult& result) {
        Change(operation, [&](Operation& one) { one.results.push_back({result, std::nullopt}); });
    };
    switch (operation.order.kind) {
        case OperationKind::kGroup:
            return CarryGroup(session, limit, operation);
        case OperationKind::kReset:
            return session.Reset(item, limit);
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
    options.onOther = [&] { Change(operation, [](Operation& one) { one.waits = true; }); };
    const auto outcome = client::RunItem(session, {item, operation.order.argument}, options, limit);
    if (!outcome) {
        return outcome.Failure();
    }
    keep(outcome->result);
    return std::nullopt;
}

std::optional<client::Error> Operations::CarryGroup(client::Session& session, const client::Limit& limit,
                                                    Operation& operation) {
    std::vector<client::Request> requests;
    for (const std::string& item : operation.order.items) {
        requests.push_back({item, operation.order.argument});
    }
    client::GroupOptions options;
    options.waitForTurn = true;
    options.onRefused = [&] { Change(operation, [](Operation& one) { one.waits = true; }); };
    options.onStart = [&](std::uint32_t taskId, std::size_t, std::size_t) {
        Change(operation, [&](Operation& one) {
            one.taskId = taskId;
            one.waits = false;
        });
    };
    options.onRecord = [&](const client::GroupRecord& record) {
        Change(operation, [&](Operation& one) {
            for (const client::GroupItem& item : record.items) {
                one.results.push_back({item.result, DurationOf(item)});
            }
        });
    };
    return client::RunGroup(session, requests, options, limit);
}

json::Value Operations::JsonOf(const Operation& operation) {
    auto items = json::Value::Array();
    for (const std::string& item : operation.order.items) {
        items.AddText(item);
    }
    auto results = json::Value::Array();
    for (const ItemOutcome& outcome : operation.results) {
        auto result = json::Value::Object();
        result.Text("item", outcome.result.name).Text("status", outcome.result.status);
        result.Text("text", outcome.result.text);
        if (outcome.duration) {
            result.Number("durationMs",
                          static_cast<std::uint64_t>(std::max<std::int64_t>(0, outcome.duration->count())));
        }
        results.Add(std::move(result));
    }
    auto json = json::Value::Object();
    json.Number("id", operation.number).Text("operation", WordOf(operation.order.kind));
    json.Text("state", operation.end ? "ended" : operation.waits ? "waiting" : "going-on");
    json.Put("items", std::move(items)).Text("who", operation.order.who).Text("begin", UtcTime(operation.begin));
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
        if (operation->number == number) {
            return JsonOf(*operation);
        }
    }
    return std::nullopt;
}

json::Value Operations::All() const {
    const std::lock_guard lock(mutex_);
    auto all = json::Value::Array();
    for (const auto& operation : operations_) {
        all.Add(JsonOf(*operation));
    }
    return std::move(json::Value::Object().Put("operations", std::move(all)));
}

bool Operations::Stop(std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    for (const auto& operation : operations_) {
        if (operation->number == number && !operation->end) {
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
