#include "bus_test.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

namespace support {

namespace {

class Handlers {
public:
    static Handlers& Get() {
        static Handlers handlers;
        return handlers;
    }

    void Set(std::string_view task, Handler handler) {
        const std::lock_guard lock(mutex_);
        handlers_[std::string(task)] = std::make_shared<Handler>(std::move(handler));
    }

    void Clear() {
        const std::lock_guard lock(mutex_);
        handlers_.clear();
    }

    static uint32_t Dispatch(TagMsgBlock* message) {
        ++Get().running_;
        const uint32_t result = (*Get().Find(message->dstTaskName))(*message);
        --Get().running_;
        return result;
    }

    bool Idle() const { return running_ == 0; }

private:
    std::shared_ptr<Handler> Find(const std::string& task) {
        const std::lock_guard lock(mutex_);
        return handlers_.at(task);
    }

    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Handler>> handlers_;  // by task name
    std::atomic<int> running_{0};
};

template <size_t size>
void WriteField(char (&field)[size], std::string_view text) {
    std::ranges::copy(text.substr(0, size), field);
}

}  // namespace

void DetachedTest::SetUp() {
    ContractTest::SetUp();
    PrepareBus();
}

void DetachedTest::TearDown() {
    // A handler that has answered may still have something to check.
    EXPECT_TRUE(WaitFor([] { return Handlers::Get().Idle(); }));
    OsProcDetach();
    Handlers::Get().Clear();
    ContractTest::TearDown();
}

void BusTest::SetUp() {
    DetachedTest::SetUp();
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
}

OsTaskDescriptor Describe(std::string_view name, Handler handler, uint32_t queueDepth, OsTaskEntry entry) {
    Handlers::Get().Set(name, std::move(handler));
    OsTaskDescriptor task{};
    WriteField(task.name, name);
    task.queueDepth = queueDepth;
    task.handler = Handlers::Dispatch;
    task.entry = entry;
    return task;
}

void AddTask(std::string_view name, Handler handler, uint32_t queueDepth) {
    const OsTaskDescriptor task = Describe(name, std::move(handler), queueDepth);
    ASSERT_EQ(OsTaskCreate(&task), OS_MSG_OK);
}

TagMsgBlock Envelope(std::string_view proc, std::string_view task, uint32_t id, std::string_view payload) {
    TagMsgBlock message{};
    WriteField(message.dstProcName, proc);
    WriteField(message.dstTaskName, task);
    message.msgId = id;
    message.dataLen = static_cast<uint32_t>(payload.size());
    // The API takes a pointer to what it only reads.
    message.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
    return message;
}

Reply Ask(const TagMsgBlock& message, uint32_t timeoutMs) {
    TagMsgBlock garbage{};
    TagMsgBlock* reply = &garbage;
    Reply got{OsMsgSynSend(&message, &reply, timeoutMs), {}};
    if (got.result != OS_MSG_OK) {
        EXPECT_EQ(reply, nullptr);
        return got;
    }
    if (reply == nullptr) {
        ADD_FAILURE() << "a successful send gave no reply";
        return got;
    }
    EXPECT_EQ(reply->data == nullptr, reply->dataLen == 0);
    got.data.assign(reinterpret_cast<const char*>(reply->data), reply->dataLen);
    OsMsgSynRespFree(reply);
    return got;
}

Reply Ask(std::string_view proc, std::string_view task, std::string_view payload) {
    return Ask(Envelope(proc, task, 1, payload));
}

void Post(std::string_view proc, std::string_view task, uint32_t id, std::string_view payload) {
    const TagMsgBlock message = Envelope(proc, task, id, payload);
    EXPECT_EQ(OsMsgAsynSend(&message), OS_MSG_OK);
}

Relayed Relay(std::string_view peer, Order::Kind kind, const TagMsgBlock& message, uint32_t count, uint32_t timeoutMs) {
    const Order order{kind, count, timeoutMs, message};
    std::string text(sizeof(order), '\0');
    std::memcpy(text.data(), &order, sizeof(order));
    text.append(reinterpret_cast<const char*>(message.data), message.dataLen);
    const Reply reply = Ask(peer, "relay", text);
    Relayed relayed{};
    if (reply.result != OS_MSG_OK || reply.data.size() < sizeof(relayed.outcome)) {
        ADD_FAILURE() << "the relay failed: " << OsMsgResultText(reply.result);
        return relayed;
    }
    std::memcpy(&relayed.outcome, reply.data.data(), sizeof(relayed.outcome));
    relayed.data = reply.data.substr(sizeof(relayed.outcome));
    return relayed;
}

void Answer(const TagMsgBlock& message, std::string_view payload) {
    EXPECT_EQ(OsMsgSynSendResp(&message, payload.data(), static_cast<uint32_t>(payload.size())), OS_MSG_OK);
}

Handler Inbox::Keep() const {
    return [inbox = *this](const TagMsgBlock& message) {
        inbox.Put(message);
        return 0U;
    };
}

void Inbox::Put(const TagMsgBlock& message) const {
    EXPECT_EQ(message.data == nullptr, message.dataLen == 0);
    Received received{message, {}};
    if (message.dataLen != 0) {
        received.payload.assign(reinterpret_cast<const char*>(message.data), message.dataLen);
    }
    received.envelope.data = nullptr;
    const std::lock_guard lock(state_->mutex);
    state_->all.push_back(std::move(received));
}

size_t Inbox::Count() const {
    const std::lock_guard lock(state_->mutex);
    return state_->all.size();
}

std::vector<Received> Inbox::All() const {
    const std::lock_guard lock(state_->mutex);
    return state_->all;
}

std::vector<uint32_t> Inbox::Ids() const {
    std::vector<uint32_t> ids;
    for (const Received& received : All()) {
        ids.push_back(received.envelope.msgId);
    }
    return ids;
}

bool Inbox::Await(size_t count) const {
    return WaitFor([this, count] { return Count() >= count; });
}

void Gate::Pass() const {
    state_->reached = true;
    EXPECT_TRUE(WaitFor([this] { return state_->open.load(); }));
}

bool Gate::Reached() const {
    return WaitFor([this] { return state_->reached.load(); });
}

void AwaitPeer(const std::string& procName) {
    EXPECT_TRUE(WaitFor([&procName] { return Ask(procName, "echo").result == OS_MSG_OK; }));
}

void AwaitAbsence(const std::string& procName) {
    EXPECT_TRUE(WaitFor([&procName] { return Ask(procName, "echo").result == OS_MSG_ERR_ABSENT; }));
}

}  // namespace support
