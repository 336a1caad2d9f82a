// Senders are told apart by their connections.
#include "msg/queue.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/msg_rules.h"

namespace kivo::msg {

namespace {

constexpr size_t kMaxBytes = size_t{16} * OS_MSG_MAX_PAYLOAD;

// How many messages of one sender are few, in a queue of any depth.
constexpr size_t kAlwaysFew = 8;

}  // namespace

void SetPayload(Incoming& message, const void* data, size_t size) {
    if (size == 0) {
        return;
    }
    message.payload = std::make_unique<unsigned char[]>(size);
    std::memcpy(message.payload.get(), data, size);
    message.block.data = message.payload.get();
    message.block.dataLen = static_cast<uint32_t>(size);
}

Queue::Queue(size_t depth) : depth_(depth) {}

bool Queue::HasRoom(const std::string& connection, size_t size) const {
    const bool waits = senders_.contains(connection);
    return kivo::HasRoom(entries_.size(), 1, depth_, waits) && kivo::HasRoom(bytes_, size, kMaxBytes, waits);
}

void Queue::Push(std::unique_ptr<Incoming> message, const std::string& connection, std::optional<uint32_t> uid) {
    const size_t size = message->block.dataLen;
    const auto sender = senders_.try_emplace(connection).first;
    try {
        entries_.push_back({std::move(message), sender});
    } catch (...) {
        if (sender->second.waiting == 0) {
            senders_.erase(sender);
        }
        throw;
    }
    ++sender->second.waiting;
    bytes_ += size;
    if (uid) {
        Identify(connection, uid);
    }
}

void Queue::Identify(const std::string& connection, std::optional<uint32_t> uid) {
    const auto sender = senders_.find(connection);
    if (sender == senders_.end() || sender->second.known) {
        return;
    }
    sender->second.known = true;
    sender->second.uid = uid.value_or(UINT32_MAX);
    for (size_t i = entries_.size(); !uid && i-- > 0;) {
        if (entries_[i].sender != sender || !entries_[i].message->reply) {
            continue;
        }
        const bool last = sender->second.waiting == 1;
        (void)Remove(entries_.begin() + static_cast<Entries::difference_type>(i));
        if (last) {
            return;
        }
    }
}

bool Queue::HasMessage() const {
    return !entries_.empty() && entries_.front().sender->second.known;
}

std::unique_ptr<Incoming> Queue::Take() {
    const auto next = Next();
    next->message->block.uid = next->sender->second.uid;
    return Remove(next);
}

bool Queue::Holds(uint32_t msgId, std::string_view procName) const {
    return std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        const Incoming& message = *entry.message;
        return message.block.msgId == msgId && !message.reply && procName == message.block.srcProcName;
    });
}

void Queue::Clear() {
    entries_.clear();
    senders_.clear();
    bytes_ = 0;
}

Queue::Entries::iterator Queue::Next() {
    const size_t few = std::max(kAlwaysFew, depth_ / 8);
    const auto hasFew = [few](const Entry& entry) { return entry.sender->second.waiting <= few; };
    const auto first = entries_.begin();
    if (hasFew(*first)) {
        return first;
    }
    othersTurn_ = !othersTurn_;
    if (!othersTurn_) {
        return first;
    }
    // None that came after a message whose sender is not known yet.
    const auto other = std::find_if(first, entries_.end(),
                                    [&](const Entry& entry) { return !entry.sender->second.known || hasFew(entry); });
    return other != entries_.end() && other->sender->second.known ? other : first;
}

std::unique_ptr<Incoming> Queue::Remove(const Entries::iterator& entry) {
    std::unique_ptr<Incoming> message = std::move(entry->message);
    bytes_ -= message->block.dataLen;
    if (--entry->sender->second.waiting == 0) {
        senders_.erase(entry->sender);
    }
    entries_.erase(entry);
    return message;
}

}  // namespace kivo::msg
