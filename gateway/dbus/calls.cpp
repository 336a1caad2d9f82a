// For each caller the bus is asked two things, in this order: to tell when the caller leaves, and which user it is. If
// it leaves before the first takes effect, the second reveals that. Answers count only if they are the daemon's own.
#include "dbus/calls.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "common/text.h"

namespace ominspect::gateway::dbus {
namespace {

// Fewer than the operations that go on at once, so that HTTP finds room.
constexpr std::size_t kMostCalls = 12;
constexpr std::ptrdiff_t kMostOfOneCaller = 8;
constexpr const char* kDaemon = "org.freedesktop.DBus";
constexpr const char* kNoOwner = "com.kivo.Inspect1.Error.NoOwner";

bool IsOfDaemon(sd_bus_message* message) {
    const char* sender = sd_bus_message_get_sender(message);
    return sender != nullptr && std::string_view(sender) == kDaemon;
}

void ReplyError(sd_bus_message* call, const char* name, const std::string& text) {
    const std::string plain = text::ToUtf8(text);
    (void)sd_bus_reply_method_errorf(call, name, "%s", plain.c_str());
}

int ReplyRun(sd_bus_message* call, const OperationView& operation, const ShownItems& items) {
    const client::ItemResult& result = operation.results.front().result;
    if (client::IsUnknownItem(result)) {
        ReplyError(call, kNoOwner, client::UnknownItemText(operation.items.front()));
        return 0;
    }
    const auto item = items.find(PathOf(operation.items.front()));
    const Times times = TimesOf(operation, item == items.end() ? nullptr : &item->second);
    return sd_bus_reply_method_return(call, "sstt", text::ToUtf8(result.status).c_str(),
                                      text::ToUtf8(result.text).c_str(), times.begin, times.end);
}

int ReplyGroup(sd_bus_message* call, const OperationView& operation) {
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_return(call, &raw);
    const Message reply(raw);
    if (result >= 0) {
        result = sd_bus_message_open_container(raw, SD_BUS_TYPE_ARRAY, "(ssstt)");
    }
    for (const ItemOutcome& outcome : operation.results) {
        if (result >= 0) {
            result = sd_bus_message_append(
                raw, "(ssstt)", text::ToUtf8(outcome.result.name).c_str(), text::ToUtf8(outcome.result.status).c_str(),
                text::ToUtf8(outcome.result.text).c_str(), outcome.begin ? Microseconds(*outcome.begin) : 0,
                outcome.end ? Microseconds(*outcome.end) : 0);
        }
    }
    if (result >= 0) {
        result = sd_bus_message_close_container(raw);
    }
    return result >= 0 ? sd_bus_send(nullptr, raw, nullptr) : result;
}

int Reply(sd_bus_message* call, const OperationView& operation, const ShownItems& items) {
    if (operation.error) {
        ReplyError(call, NameOf(operation.error->code), operation.error->text);
        return 0;
    }
    switch (operation.kind) {
        case OperationKind::kRun:
            return ReplyRun(call, operation, items);
        case OperationKind::kGroup:
            return ReplyGroup(call, operation);
        case OperationKind::kStop: {
            const client::ItemResult& result = operation.results.front().result;
            return sd_bus_reply_method_return(call, "ss", text::ToUtf8(result.status).c_str(),
                                              text::ToUtf8(result.text).c_str());
        }
        case OperationKind::kReset:
            break;
    }
    return sd_bus_reply_method_return(call, "");
}

}  // namespace

Calls::~Calls() {
    // The bus is lost, and the callers with it.
    for (const Call& call : calls_) {
        if (call.operation) {
            (void)operations_.Stop(*call.operation);
        }
    }
}

int Calls::Take(sd_bus_message* message, Order order, sd_bus_error* error) {
    const std::string sender = sd_bus_message_get_sender(message);
    const auto ofCaller = std::count_if(calls_.begin(), calls_.end(), [&](const Call& call) {
        return sender == sd_bus_message_get_sender(call.message.get());
    });
    if (calls_.size() >= kMostCalls || ofCaller >= kMostOfOneCaller) {
        return sd_bus_error_set(error, NameOf(ErrorCode::kRefused), "as many calls wait for their results as may");
    }
    const std::string rule = std::string("type='signal',sender='") + kDaemon + "',interface='" + kDaemon +
                             "',member='NameOwnerChanged',arg0='" + sender + "',arg2=''";
    // From here on nothing is thrown: the call would stay.
    Call& call =
        calls_.emplace_back(Call{this, Message(sd_bus_message_ref(message)), std::move(order), {}, nullptr, nullptr});
    int result = 0;
    if (sd_bus_message_get_expect_reply(message) > 0) {
        sd_bus_slot* leaving = nullptr;
        result = sd_bus_add_match_async(bus_, &leaving, rule.c_str(), &Calls::OnLeft, nullptr, &call);
        call.leaving.reset(leaving);
    }
    if (result >= 0) {
        sd_bus_slot* asking = nullptr;
        result = sd_bus_call_method_async(bus_, &asking, kDaemon, "/org/freedesktop/DBus", kDaemon,
                                          "GetConnectionUnixUser", &Calls::OnUser, &call, "s", sender.c_str());
        call.asking.reset(asking);
    }
    if (result < 0) {
        calls_.pop_back();
    }
    return result < 0 ? result : 1;
}

int Calls::OnUser(sd_bus_message* reply, void* context, sd_bus_error* /*error*/) {
    Call& call = *static_cast<Call*>(context);
    const int result = Guarded([&] {
        if (sd_bus_message_is_method_error(reply, nullptr) > 0) {
            call.calls->Forget(call);  // it has left
            return 0;
        }
        std::uint32_t user = 0;
        const bool isKnown = IsOfDaemon(reply) && sd_bus_message_read(reply, "u", &user) > 0;
        call.calls->Begin(call, isKnown ? std::optional(user) : std::nullopt);
        return 0;
    });
    if (result < 0) {
        (void)sd_bus_reply_method_errno(call.message.get(), result, nullptr);
        call.calls->Forget(call);
    }
    return result;
}

void Calls::Begin(Call& call, std::optional<std::uint32_t> user) {
    call.order.who = user ? "user " + std::to_string(*user) : "D-Bus";
    const auto number = operations_.Begin(std::move(call.order));
    if (!number) {
        ReplyError(call.message.get(), NameOf(number.Failure().code), number.Failure().text);
    }
    if (!number || sd_bus_message_get_expect_reply(call.message.get()) == 0) {
        Forget(call);
        return;
    }
    call.operation = *number;
}

int Calls::OnLeft(sd_bus_message* signal, void* context, sd_bus_error* /*error*/) {
    const Call& call = *static_cast<Call*>(context);
    if (IsOfDaemon(signal)) {
        if (call.operation) {
            (void)call.calls->operations_.Stop(*call.operation);
        }
        call.calls->Forget(call);
    }
    return 0;
}

// sd-bus keeps a slot alive while it calls its function.
void Calls::Forget(const Call& call) {
    calls_.remove_if([&](const Call& one) { return &one == &call; });
}

void Calls::Answer(const OperationView& operation, const ShownItems& items) {
    const auto call =
        std::find_if(calls_.begin(), calls_.end(), [&](const Call& one) { return one.operation == operation.number; });
    if (call == calls_.end() || !operation.end) {
        return;
    }
    if (Reply(call->message.get(), operation, items) < 0) {
        ReplyError(call->message.get(), NameOf(ErrorCode::kInternal), "there is no memory for the reply");
    }
    calls_.erase(call);
}

void Calls::Refuse() {
    for (const Call& call : calls_) {
        ReplyError(call.message.get(), NameOf(ErrorCode::kCancelled),
                   "the gateway ends, and stops what it has started");
    }
}

}  // namespace ominspect::gateway::dbus
