// The client's task receives run requests and the news of the server's restarts.
#include "kivo/om_inspect_engine_client.h"

#include <cjson/cJSON.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "common/msg_rules.h"
#include "common/records.h"
#include "engine_client/items_property.h"
#include "kivo/os_bounds.h"
#include "kivo/os_msg.h"
#include "msg/object.h"
#include "ominspect/messages.h"

namespace {

constexpr uint32_t kQueueDepth = 64;

// How many items are registered or taken back before the server is asked whether it has got that far: well below what
// its queue takes of one sender, since what does not fit is lost.
constexpr uint32_t kItemsAtOnce = 200;
constexpr uint32_t kServerLimitMs = 5000;
constexpr std::chrono::milliseconds kPause{50};

struct Item {
    InspectItemHandler handler;
    uint32_t timeout;
    std::string server;  // the connection of the server with which it was registered last
};

struct Client {
    std::mutex lock;                           // guards the fields below; not held while a handler runs
    std::string name;                          // empty until initialised
    bool following = false;                    // the server's restarts are told to the client's task
    std::map<std::string, Item> items;         // what this process owns, by item name
    std::map<uint64_t, TagMsgBlock> deferred;  // envelopes of the runs whose answers are open
    uint64_t lastRun = 0;
    uint32_t sentItems = 0;     // registered or taken back since the server was asked
    uint64_t registration = 0;  // of all items, with each server that starts; an earlier one gives up
    bool hasThread = false;     // one that registers; it stays, as long as the process
    uint64_t toRegister = 0;    // the registration that it has to make; 0: none
    std::condition_variable serverCame;
};

// The run that this thread serves.
struct ServedRun {
    const TagMsgBlock* request;
    bool isDeferred = false;
};
thread_local ServedRun* t_served = nullptr;

// Never destroyed: the client's task may still be running when the process exits.
Client& TheClient() {
    static auto* client = new Client;
    return *client;
}

// Nothing is thrown across the interface.
template <typename Function>
uint32_t Guarded(Function&& function) noexcept {
    try {
        return function();
    } catch (...) {
        return OS_MSG_ERR_NO_MEMORY;
    }
}

// A message to the server without a payload.
TagMsgBlock ToServer(uint32_t msgId) {
    TagMsgBlock block{};
    block.msgId = msgId;
    strcpy_s(block.dstProcName, sizeof block.dstProcName, OM_INSPECT_PROC_NAME);
    strcpy_s(block.dstTaskName, sizeof block.dstTaskName, OM_INSPECT_TASK_NAME);
    return block;
}

// Sends one message to the server. Answers go to the client's own task, whichever thread sends.
uint32_t SendToServer(uint32_t msgId, uint32_t param, const std::string& client, const void* data, size_t size) {
    TagMsgBlock block = ToServer(msgId);
    block.param = param;
    strcpy_s(block.replyTaskName, sizeof block.replyTaskName, client.c_str());
    block.data = static_cast<unsigned char*>(const_cast<void*>(data));
    block.dataLen = static_cast<uint32_t>(size);
    return OsMsgAsynSend(&block);
}

// Waits until the server has taken what was sent before: it serves the messages of one sender in order. Without the
// lock, since it may be an item of this process that the server waits for.
uint32_t AwaitServer() {
    const TagMsgBlock question = ToServer(OM_INSPECT_MSG_STATE);
    TagMsgBlock* answer = nullptr;
    const uint32_t result = OsMsgSynSend(&question, &answer, kServerLimitMs);
    OsMsgSynRespFree(answer);
    return result;
}

// After each item that was registered or taken back. A server that is busy for longer than the limit is not waited for.
void AwaitServerIfMany(std::unique_lock<std::mutex>& lock) {
    Client& client = TheClient();
    if (++client.sentItems < kItemsAtOnce) {
        return;
    }
    client.sentItems = 0;
    lock.unlock();
    (void)AwaitServer();
    lock.lock();
}

// If a server appears after this look at the connection, the item is registered with it once its start is told.
uint32_t SendRegistration(const std::string& client, const std::string& name, Item& item) {
    item.server = kivo::msg::ConnectionOf(OM_INSPECT_PROC_NAME);
    const uint32_t sent = SendToServer(OM_INSPECT_MSG_REGISTER, item.timeout, client, name.c_str(), name.size() + 1);
    if (sent != OS_MSG_OK) {
        item.server.clear();
    }
    return sent;
}

// Shows the items to whoever lists them; with the lock.
void ShowItems(const Client& client) {
    std::map<std::string, kivo::engine::ShownItem> shown;
    for (const auto& [name, item] : client.items) {
        shown.emplace(name, kivo::engine::ShownItem{item.timeout, item.server});
    }
    kivo::engine::SetItems(std::move(shown));
}

// Registers at most kItemsAtOnce items after `last` and moves `last` on. Stops at the first error, which it returns,
// and when another server has come.
uint32_t RegisterSome(uint64_t registration, std::string& last, bool& areMore) {
    return Guarded([&] {
        Client& client = TheClient();
        const std::lock_guard<std::mutex> lock(client.lock);
        auto item = client.registration == registration ? client.items.upper_bound(last) : client.items.end();
        for (uint32_t count = 0; item != client.items.end() && count < kItemsAtOnce; ++item, ++count) {
            std::string name = item->first;
            const uint32_t sent = SendRegistration(client.name, name, item->second);
            if (sent != OS_MSG_OK) {
                return sent;
            }
            last = std::move(name);
        }
        ShowItems(client);
        areMore = item != client.items.end();
        return OS_MSG_OK;
    });
}

// Registers the items as the server takes them. If the server leaves meanwhile, all items are registered again when it
// is back.
void RegisterAll(uint64_t registration) {
    std::string last;
    bool areMore = true;
    bool hasTaken = true;  // whether the server has taken what was sent last
    while (areMore) {
        const uint32_t result = hasTaken ? RegisterSome(registration, last, areMore) : AwaitServer();
        if (result == OS_MSG_OK) {
            hasTaken = !hasTaken;
        } else if (result == OS_MSG_ERR_NO_MEMORY || result == OS_MSG_ERR_QUEUE_FULL) {
            std::this_thread::sleep_for(kPause);
        } else if (result != OS_MSG_ERR_TIMEOUT) {
            return;
        }
    }
}

// The registering thread: registers all items with each server that starts.
void RegisterWithEach() {
    Client& client = TheClient();
    std::unique_lock<std::mutex> lock(client.lock);
    while (true) {
        client.serverCame.wait(lock, [&] { return client.toRegister != 0; });
        const uint64_t registration = std::exchange(client.toRegister, 0);
        lock.unlock();
        RegisterAll(registration);
        lock.lock();
    }
}

// More items than the server's queue takes at once have a thread that registers them: the client's task has runs to
// serve, for one of which the server may wait. It is made before the items are, so that a server's restart finds it.
// With the lock.
uint32_t PrepareFor(Client& client, size_t items) {
    if (client.hasThread || items <= kItemsAtOnce) {
        return OS_MSG_OK;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // signals are for the program's own threads
    const uint32_t made = Guarded([] {
        std::thread thread(RegisterWithEach);
        (void)pthread_setname_np(thread.native_handle(), "inspect_reg");
        thread.detach();
        return OS_MSG_OK;
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    client.hasThread = made == OS_MSG_OK;
    return made;
}

void ServerCame() {
    Client& client = TheClient();
    std::unique_lock<std::mutex> lock(client.lock);
    const uint64_t registration = ++client.registration;
    if (client.hasThread) {
        client.toRegister = registration;
        client.serverCame.notify_one();
        return;
    }
    lock.unlock();
    RegisterAll(registration);
}

// The item name of a run request, into the result, and its text; false when it is malformed.
bool ReadRunRequest(const TagMsgBlock& msg, tagKivoOmInspectionResult& result, std::string& request) {
    tagKivoOmInspectionRunHead head{};
    constexpr size_t kHeadSize = 36;
    static_assert(sizeof head == kHeadSize);
    if (msg.data == nullptr || msg.dataLen <= kHeadSize) {
        return false;
    }
    std::memcpy(&head, msg.data, kHeadSize);
    if (std::memchr(head.name, '\0', sizeof head.name) == nullptr || head.len > msg.dataLen - kHeadSize - 1) {
        return false;
    }
    strcpy_s(result.name, sizeof result.name, head.name);
    const auto* text = reinterpret_cast<const char*>(msg.data) + kHeadSize;
    request.assign(text, strnlen(text, head.len));
    return true;
}

void SetOutcome(tagKivoOmInspectionResult& result, const char* status, const char* text) {
    strcpy_s(result.status, sizeof result.status, status);
    strcpy_s(result.text, sizeof result.text, text);
}

// Fills in the result, which has the item's name. Another code than 0: the run has failed.
uint32_t RunItem(const std::string& request, tagKivoOmInspectionResult& result) {
    const std::string name = result.name;
    InspectItemHandler handler = nullptr;
    {
        Client& client = TheClient();
        const std::lock_guard<std::mutex> lock(client.lock);
        const auto item = client.items.find(name);
        if (item != client.items.end()) {
            handler = item->second.handler;
        }
    }
    if (handler == nullptr) {
        SetOutcome(result, "fail", "no support");
        return 0;
    }
    return handler(name.c_str(), request.c_str(), &result);
}

// The server waits for an answer, also when there is no memory to run the item.
void AnswerRun(const TagMsgBlock& msg) {
    tagKivoOmInspectionResult result{};
    ServedRun served{&msg};
    bool isMalformed = std::string_view(msg.srcProcName) != OM_INSPECT_PROC_NAME;
    const uint32_t code = Guarded([&] {
        std::string request;
        isMalformed = isMalformed || !ReadRunRequest(msg, result, request);
        t_served = &served;
        return isMalformed ? 0 : RunItem(request, result);
    });
    t_served = nullptr;
    if (isMalformed) {
        OsMsgSynSendResp(&msg, nullptr, 0);
        return;
    }
    if (code != 0) {
        SetOutcome(result, "fail", "run err");
    }
    if (!served.isDeferred) {
        OsMsgSynSendResp(&msg, &result, sizeof result);
    }
}

uint32_t HandleMessage(TagMsgBlock* msg) {
    return Guarded([&] {
        const bool ofServer = std::string_view(msg->srcProcName) == OM_INSPECT_PROC_NAME;
        if (msg->msgId == OS_MSG_EVENT_PROC_RESTART && msg->msgType != 1 && ofServer) {
            ServerCame();
        } else if (msg->msgId == OM_INSPECT_MSG_OWNER_RUN) {
            AnswerRun(*msg);
        } else {
            return OS_MSG_ERR_PARAM;
        }
        return OS_MSG_OK;
    });
}

uint32_t FollowServer(const char* clientName) {
    OsMsgSubscription restart{};
    restart.eventId = OS_MSG_EVENT_PROC_RESTART;
    strcpy_s(restart.srcProcName, sizeof restart.srcProcName, OM_INSPECT_PROC_NAME);
    strcpy_s(restart.srcTaskName, sizeof restart.srcTaskName, OM_INSPECT_PROC_NAME);
    strcpy_s(restart.dstTaskName, sizeof restart.dstTaskName, clientName);
    return OsMsgSubscribeEvent(&restart, 1, 0);
}

// The first error that occurs; the others are registered nevertheless.
uint32_t Register(const InspectHandlerRecord* records, uint32_t count) {
    Client& client = TheClient();
    std::unique_lock<std::mutex> lock(client.lock);
    if (client.name.empty()) {
        return OS_MSG_ERR_NOT_ATTACHED;
    }
    uint32_t result = PrepareFor(client, client.items.size() + count);
    if (result != OS_MSG_OK) {
        return result;
    }
    for (const InspectHandlerRecord* record = records; record != records + count; ++record) {
        const auto [item, isNew] =
            client.items.insert_or_assign(record->name, Item{record->handler, record->timeout, {}});
        const uint32_t sent = SendRegistration(client.name, item->first, item->second);
        if (result == OS_MSG_OK) {
            result = sent;
        }
        AwaitServerIfMany(lock);
    }
    ShowItems(client);
    return result;
}

}  // namespace

uint32_t InspectClientInit(const char* clientName) {
    return Guarded([&] {
        if (clientName == nullptr || !kivo::IsValidName(clientName)) {
            return OS_MSG_ERR_PARAM;
        }
        OsTaskDescriptor task{};
        strcpy_s(task.name, sizeof task.name, clientName);
        task.queueDepth = kQueueDepth;
        task.handler = HandleMessage;
        Client& client = TheClient();
        const std::lock_guard<std::mutex> lock(client.lock);
        if (!client.name.empty() && client.name != clientName) {
            return OS_MSG_ERR_ATTACHED;
        }
        const uint32_t created = OsTaskCreate(&task);
        const bool again = created == OS_MSG_ERR_NAME_TAKEN && client.name == clientName;
        if (again && client.following) {
            return OS_MSG_ERR_ATTACHED;
        }
        if (created != OS_MSG_OK && !again) {
            return created;
        }
        client.name = clientName;
        ++client.registration;
        client.items.clear();  // left over from before the process left the bus the last time
        client.deferred.clear();
        ShowItems(client);
        const uint32_t published = kivo::engine::PublishItems();
        const uint32_t followed = published == OS_MSG_OK ? FollowServer(clientName) : published;
        client.following = followed == OS_MSG_OK;
        return followed;
    });
}

uint32_t InspectRegHandler(const struct InspectHandlerRecord* records, uint32_t count) {
    return Guarded([&] {
        if (records == nullptr || count == 0 ||
            !std::all_of(records, records + count, [](const auto& record) { return kivo::IsValid(record); })) {
            return OS_MSG_ERR_PARAM;
        }
        const uint32_t result = Register(records, count);
        if (result == OS_MSG_OK) {
            kivo::msg::AwaitPassedOn();
        }
        return result;
    });
}

uint32_t InspectUnRegHandler(const char* itemName) {
    return Guarded([&] {
        if (itemName == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        Client& client = TheClient();
        std::unique_lock<std::mutex> lock(client.lock);
        const auto item = client.items.find(itemName);
        if (item == client.items.end()) {
            return OS_MSG_ERR_PARAM;
        }
        const uint32_t sent =
            SendToServer(OM_INSPECT_MSG_UNREGISTER, 0, client.name, itemName, std::strlen(itemName) + 1);
        if (sent == OS_MSG_OK) {
            client.items.erase(item);
            ShowItems(client);
            AwaitServerIfMany(lock);
        }
        return sent;
    });
}

uint32_t InspectDeferRun(uint64_t* run) {
    return Guarded([&] {
        if (run == nullptr) {
            return OS_MSG_ERR_PARAM;
        }
        *run = 0;
        if (t_served == nullptr || t_served->isDeferred) {
            return OS_MSG_ERR_NO_REQUEST;
        }
        TagMsgBlock envelope = *t_served->request;
        envelope.data = nullptr;
        envelope.dataLen = 0;
        Client& client = TheClient();
        const std::lock_guard<std::mutex> lock(client.lock);
        const auto open = client.deferred.emplace(client.lastRun + 1, envelope).first;
        const uint32_t kept = OsMsgSynDeferResp(t_served->request);
        if (kept != OS_MSG_OK) {
            client.deferred.erase(open);
            return kept;
        }
        t_served->isDeferred = true;
        *run = ++client.lastRun;
        return OS_MSG_OK;
    });
}

uint32_t InspectAnswerRun(uint64_t run, const struct tagKivoOmInspectionResult* result) {
    return Guarded([&] {
        if (result == nullptr || !kivo::IsValid(*result)) {
            return OS_MSG_ERR_PARAM;
        }
        TagMsgBlock envelope{};
        {
            Client& client = TheClient();
            const std::lock_guard<std::mutex> lock(client.lock);
            const auto open = client.deferred.extract(run);
            if (open.empty()) {
                return OS_MSG_ERR_NO_REQUEST;
            }
            envelope = open.mapped();
        }
        return OsMsgSynSendResp(&envelope, result, sizeof *result);
    });
}

uint32_t InspectReportResult(const struct tagKivoOmInspectionResult* result) {
    return Guarded([&] {
        if (result == nullptr || !kivo::IsValid(*result)) {
            return OS_MSG_ERR_PARAM;
        }
        Client& client = TheClient();
        const std::lock_guard<std::mutex> lock(client.lock);
        if (client.name.empty()) {
            return OS_MSG_ERR_NOT_ATTACHED;
        }
        return SendToServer(OM_INSPECT_MSG_REPORT, 0, client.name, result, sizeof *result);
    });
}

uint32_t InspectGetArgument(const char* request, char* out, size_t size) {
    if (request == nullptr || out == nullptr || size == 0) {
        return OS_MSG_ERR_PARAM;
    }
    out[0] = '\0';
    const std::unique_ptr<cJSON, void (*)(cJSON*)> json(cJSON_Parse(request), cJSON_Delete);
    const char* argument = cJSON_GetStringValue(cJSON_GetObjectItem(json.get(), "cmd"));
    if (argument == nullptr || strcpy_s(out, size, argument) != 0) {
        return OS_MSG_ERR_PARAM;
    }
    return OS_MSG_OK;
}
