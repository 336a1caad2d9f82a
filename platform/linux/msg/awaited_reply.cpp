// Replies are found by the cookie of their call. sd-bus would take one from anybody who guesses it.
#include "msg/awaited_reply.h"

#include <string_view>
#include <utility>

#include "msg/log.h"
#include "msg/names.h"
#include "msg/process.h"

namespace kivo::msg {

namespace {

uint32_t ResultOfError(const sd_bus_error* error) {
    struct Row {
        std::string_view name;
        uint32_t result;
    };
    static constexpr Row kRows[] = {
        {SD_BUS_ERROR_SERVICE_UNKNOWN, OS_MSG_ERR_ABSENT},
        {SD_BUS_ERROR_NAME_HAS_NO_OWNER, OS_MSG_ERR_ABSENT},
        {SD_BUS_ERROR_NO_REPLY, OS_MSG_ERR_DIED},
        {SD_BUS_ERROR_DISCONNECTED, OS_MSG_ERR_NO_BUS},
        {SD_BUS_ERROR_UNKNOWN_OBJECT, OS_MSG_ERR_NO_TASK},
        {SD_BUS_ERROR_UNKNOWN_METHOD, OS_MSG_ERR_NO_TASK},
        {SD_BUS_ERROR_UNKNOWN_INTERFACE, OS_MSG_ERR_NO_TASK},
        {SD_BUS_ERROR_ACCESS_DENIED, OS_MSG_ERR_DENIED},
        {SD_BUS_ERROR_NO_MEMORY, OS_MSG_ERR_NO_MEMORY},
        {SD_BUS_ERROR_LIMITS_EXCEEDED, OS_MSG_ERR_NO_MEMORY},
        {kErrorQueueFull, OS_MSG_ERR_QUEUE_FULL},
        {kErrorTooLarge, OS_MSG_ERR_TOO_LARGE},
    };
    for (const Row& row : kRows) {
        if (row.name == error->name) {
            return row.result;
        }
    }
    Log(kLogWarning, "a message was answered with %s: %s", error->name,
        error->message != nullptr ? error->message : "");
    return OS_MSG_ERR_BUS;
}

}  // namespace

AwaitedReply::AwaitedReply(Process& process, std::string receiver)
    : process_(process), receiver_(std::move(receiver)), waiter_(Waiter::OfThisThread()) {}

AwaitedReply::~AwaitedReply() {
    if (cookie_ != 0) {
        process_.awaited.erase(cookie_);
    }
}

uint32_t AwaitedReply::Send(MessagePtr call, size_t payload) {
    if (!waiter_.Valid() || !call) {
        return OS_MSG_ERR_NO_MEMORY;
    }
    owner_ = process_.peers.OwnerOf(receiver_);
    uint64_t cookie = 0;
    const int sent = process_.unsent.Send(process_.bus.get(), call.get(), payload, &cookie);
    call.reset();
    if (sent < 0) {
        return ResultOf(sent);
    }
    process_.awaited.emplace(cookie, this);
    cookie_ = cookie;
    process_.KickIfUnsent();
    return OS_MSG_OK;
}

uint32_t AwaitedReply::Wait(Reader::Lock& lock, Reader::Clock::time_point deadline) {
    const ActiveCall active(process_);
    process_.reader.Wait(lock, waiter_, Reader::Rank::kReply, deadline,
                         [this] { return reply_ || process_.state != BusState::kAttached; });
    if (!reply_) {
        const uint32_t unusable = process_.CheckUsable();
        return unusable != OS_MSG_OK ? unusable : OS_MSG_ERR_TIMEOUT;
    }
    return sd_bus_message_is_method_error(reply_.get(), nullptr) > 0
               ? ResultOfError(sd_bus_message_get_error(reply_.get()))
               : OS_MSG_OK;
}

// A process that has just restarted may have got the call before its change of connection was read here, so the present
// owner of the name counts too. The daemon answers for those that are not there.
bool AwaitedReply::IsGenuine(sd_bus_message* message) const {
    const char* sender = sd_bus_message_get_sender(message);
    if (sender == nullptr) {
        return false;
    }
    return IsFromDaemon(message) || sender == owner_ || sender == process_.peers.OwnerOf(receiver_);
}

bool AwaitedReply::Take(Process& process, sd_bus_message* message) {
    uint64_t cookie = 0;
    if (sd_bus_message_get_reply_cookie(message, &cookie) < 0) {
        return false;
    }
    const auto found = process.awaited.find(cookie);
    if (found == process.awaited.end()) {
        return false;
    }
    AwaitedReply& awaited = *found->second;
    if (!awaited.IsGenuine(message)) {
        Log(kLogWarning, "a reply in the name of %s%s is ignored: %s sent it",
            awaited.receiver_.empty() ? "the bus" : "process ", awaited.receiver_.c_str(),
            sd_bus_message_get_sender(message));
    } else if (!awaited.reply_) {
        awaited.reply_.reset(sd_bus_message_ref(message));
        awaited.waiter_.WakeOther();
    }
    return true;
}

}  // namespace kivo::msg
