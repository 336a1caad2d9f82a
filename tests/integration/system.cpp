#include "system.h"
#include "support/eventually.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace support {

namespace {

constexpr uint32_t kReplyLimit = 60000;

// Guards the messages that arrived and were not looked at.
std::mutex g_lock;
std::vector<Received> g_received;

uint32_t Keep(TagMsgBlock* msg) {
    const std::lock_guard<std::mutex> lock(g_lock);
    g_received.push_back({msg->msgId, msg->srcProcName, {msg->data, msg->data + msg->dataLen}});
    return 0;
}

TagMsgBlock Envelope(uint32_t id, const std::string& payload, const std::string& process, const std::string& task) {
    TagMsgBlock block{};
    block.msgId = id;
    std::snprintf(block.dstProcName, sizeof block.dstProcName, "%s", process.c_str());
    std::snprintf(block.dstTaskName, sizeof block.dstTaskName, "%s", task.c_str());
    std::snprintf(block.replyTaskName, sizeof block.replyTaskName, "itest");
    block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
    block.dataLen = static_cast<uint32_t>(payload.size());
    return block;
}

std::string Word(const Received& event) {
    if (event.id == 9 && event.data.size() == 4) {
        return event.data[0] == 0 ? "busy" : "idle";
    }
    if (event.id != 8 || event.data.size() != 192) {
        return "malformed";
    }
    tagKivoOmInspectionResult result{};
    std::memcpy(&result, event.data.data(), sizeof result);
    return Text(result);
}

Received Await(uint32_t id) {
    Received message{};
    EXPECT_TRUE(Eventually([&] {
        const std::lock_guard<std::mutex> lock(g_lock);
        const auto found = std::find_if(g_received.begin(), g_received.end(),
                                        [id](const Received& candidate) { return candidate.id == id; });
        if (found == g_received.end()) {
            return false;
        }
        message = *found;
        g_received.erase(found);
        return true;
    })) << "no message "
        << id;
    return message;
}

}  // namespace

std::string Text(const tagKivoOmInspectionResult& result) {
    return std::string(result.name) + " " + result.status + "/" + result.text;
}

tagKivoOmInspectionResult Reply::Result() const {
    tagKivoOmInspectionResult result{};
    EXPECT_EQ(code, 0u) << OsMsgResultText(code);
    EXPECT_EQ(data.size(), 192u);
    if (data.size() == sizeof result) {
        std::memcpy(&result, data.data(), sizeof result);
    }
    return result;
}

System::System(const std::optional<std::string>& busConfig) : bus_(busConfig ? PrivateBus(*busConfig) : PrivateBus()) {
    setenv("XDG_STATE_HOME", folder_.Path().c_str(), 1);  // of the programs that are run
    OsTaskDescriptor task{};
    std::snprintf(task.name, sizeof task.name, "itest");
    task.queueDepth = 4096;
    task.handler = Keep;
    EXPECT_EQ(OsProcAttach("itest"), 0u);
    EXPECT_EQ(OsTaskCreate(&task), 0u);
    for (const uint32_t event : {8u, 9u}) {
        OsMsgSubscription subscription{};
        subscription.eventId = event;
        std::snprintf(subscription.srcProcName, sizeof subscription.srcProcName, "ominspect");
        std::snprintf(subscription.srcTaskName, sizeof subscription.srcTaskName, "iom_srv_task");
        std::snprintf(subscription.dstTaskName, sizeof subscription.dstTaskName, "itest");
        EXPECT_EQ(OsMsgSubscribeEvent(&subscription, 1, 0), 0u);
    }
    const std::lock_guard<std::mutex> lock(g_lock);
    g_received.clear();
}

System::~System() {
    OsProcDetach();
}

std::string System::ServerLog() const {
    return Contents(folder_ / "inspect.log");
}

Child System::StartServer(bool shortLimits, const std::vector<std::string>& extraEnvironment) {
    std::vector<std::string> command{OMINSPECT_PROGRAM};
    if (shortLimits) {
        command.insert(command.end(), {"--library", OMINSPECT_TEST_LIBRARY});
    }
    std::vector<std::string> environment{"KIVO_LOG_DIR=" + Folder()};
    environment.insert(environment.end(), extraEnvironment.begin(), extraEnvironment.end());
    Child server(command, environment);
    // Id 7 without a name is answered with 2 as soon as messages are served.
    EXPECT_TRUE(Eventually([] {
        return Send(7, "").data == std::vector<unsigned char>{2, 0, 0, 0};
    })) << server.Output();
    return server;
}

Child System::StartOwner(const std::string& process, const std::vector<std::string>& items) {
    std::vector<std::string> command{RAW_OWNER_PROGRAM, process};
    command.insert(command.end(), items.begin(), items.end());
    Child owner(command);
    EXPECT_TRUE(owner.EventuallyWrote("registered")) << owner.Output();
    return owner;
}

Reply System::Send(uint32_t id, const std::string& payload, uint32_t param, const std::string& process,
                   const std::string& task) {
    TagMsgBlock block = Envelope(id, payload, process, task);
    block.param = param;
    TagMsgBlock* resp = nullptr;
    Reply reply{OsMsgSynSend(&block, &resp, kReplyLimit), {}};
    if (resp != nullptr && resp->data != nullptr) {
        reply.data.assign(resp->data, resp->data + resp->dataLen);
    }
    OsMsgSynRespFree(resp);
    return reply;
}

void System::Post(uint32_t id, const std::string& payload, const std::string& process, const std::string& task) {
    const TagMsgBlock block = Envelope(id, payload, process, task);
    EXPECT_EQ(OsMsgAsynSend(&block), 0u);
}

tagKivoOmInspectionResult System::RunItem(const std::string& item, const std::string& cmd) {
    return Send(0, R"({"name":")" + item + R"(","cmd":")" + cmd + R"("})").Result();
}

bool System::EventuallyText(const std::string& item, const std::string& text) {
    return Eventually([&] { return RunItem(item).text == text; });
}

std::vector<std::string> System::TakeEvents() {
    const std::lock_guard<std::mutex> lock(g_lock);
    std::vector<std::string> words;
    std::erase_if(g_received, [&words](const Received& message) {
        if (message.id != 8 && message.id != 9) {
            return false;
        }
        words.push_back(Word(message));
        return true;
    });
    return words;
}

bool System::EventuallyAtRest(const Child& server, std::vector<std::string>* events) const {
    std::vector<std::string> seen;
    const bool rests = Eventually([&] {
        for (std::string& event : TakeEvents()) {
            seen.push_back(std::move(event));
        }
        return !seen.empty() && seen.back() == "idle" && Jobs(server) == 0;
    });
    EXPECT_TRUE(rests) << (seen.empty() ? "no event" : seen.back()) << ", " << Jobs(server) << " jobs";
    if (events != nullptr) {
        *events = std::move(seen);
    }
    return rests;
}

size_t System::Jobs(const Child& server) const {
    // The main thread and three tasks; the thread sanitizer has one of its own.
#ifdef __SANITIZE_THREAD__
    constexpr size_t kAtRest = 5;
#else
    constexpr size_t kAtRest = 4;
#endif
    size_t threads = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(server.Pid()) + "/task")) {
        threads += Contents(task.path() / "comm").starts_with("kivo_") ? 0 : 1;  // the platform's own
    }
    // The log backup has one until it has found that there is nothing to do.
    const bool backup = ServerLog().find("Debug version no need to backup wylog") == std::string::npos;
    const size_t atRest = kAtRest + (backup ? 1 : 0);
    return threads > atRest ? threads - atRest : 0;
}

std::vector<unsigned char> System::AwaitMessage(uint32_t id) {
    return Await(id).data;
}

std::string System::AwaitSender(uint32_t id) {
    return Await(id).process;
}

bool System::EventuallyEvents(const std::vector<std::string>& expected) {
    std::vector<std::string> seen;
    const bool complete = Eventually([&] {
        const auto more = TakeEvents();
        seen.insert(seen.end(), more.begin(), more.end());
        return seen.size() >= expected.size();
    });
    EXPECT_EQ(seen, expected);
    return complete;
}

}  // namespace support
