// The engine client library against a server that this test plays itself.
#include "kivo/om_inspect_engine_client.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <iterator>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine_client_items.h"
#include "kivo/os_msg.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/raw_connection.h"

namespace support {
namespace {

// Guards what the played server received: "id param payload", texts up to their NUL.
std::mutex g_lock;
std::vector<std::string> g_received;
std::vector<std::string> g_replyTasks;

uint32_t PlayServer(TagMsgBlock* msg) {
    const std::lock_guard<std::mutex> lock(g_lock);
    std::string payload(reinterpret_cast<const char*>(msg->data), msg->dataLen);
    if (msg->msgId == 5) {
        const char* record = payload.c_str();
        payload = std::string(record) + " " + (record + 32) + "/" + (record + 64);
    }
    g_received.push_back(std::to_string(msg->msgId) + " " + std::to_string(msg->param) + " " + payload.c_str());
    g_replyTasks.emplace_back(msg->replyTaskName);
    return 0;
}

bool EventuallyReceived(const std::vector<std::string>& expected) {
    const bool complete = Eventually([&] {
        const std::lock_guard<std::mutex> lock(g_lock);
        return g_received.size() >= expected.size();
    });
    const std::lock_guard<std::mutex> lock(g_lock);
    EXPECT_EQ(g_received, expected);
    g_received.clear();
    return complete;
}

uint32_t GiveUp(const char* /*itemName*/, const char* /*request*/, tagKivoOmInspectionResult* result) {
    std::snprintf(result->status, sizeof result->status, "success");
    return 1;
}

uint32_t Throw(const char* /*itemName*/, const char* /*request*/, tagKivoOmInspectionResult* /*result*/) {
    throw std::runtime_error("a handler's own trouble");
}

std::atomic<bool> g_refusesThreads = false;

// The payload of a run request.
std::string RunRequest(const std::string& item, const std::string& text) {
    std::string payload = item + std::string(32 - item.size(), '\0');
    const auto length = static_cast<uint32_t>(text.size());
    payload.append(reinterpret_cast<const char*>(&length), sizeof length);
    return payload + text + '\0';
}

// Asks the client's task; the reply as "name status/text", or "N bytes" for one that is no record.
std::string Ask(const std::string& payload, uint32_t id = 4) {
    TagMsgBlock block{};
    std::strcpy(block.dstProcName, "ominspect");
    std::strcpy(block.dstTaskName, "items");
    block.msgId = id;
    block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
    block.dataLen = static_cast<uint32_t>(payload.size());
    TagMsgBlock* resp = nullptr;
    const uint32_t code = OsMsgSynSend(&block, &resp, 60000);
    if (code != OS_MSG_OK) {
        return OsMsgResultText(code);
    }
    std::string shown = std::to_string(resp->dataLen) + " bytes";
    if (resp->dataLen == 192) {
        const auto* record = reinterpret_cast<const char*>(resp->data);
        shown = std::string(record) + " " + (record + 32) + "/" + (record + 64);
    }
    OsMsgSynRespFree(resp);
    return shown;
}

// First, since this process must not have had a client of that name.
TEST(EngineClientBesideATaskOfItsName, DoesNotTakeItOver) {
    const PrivateBus bus;
    ASSERT_EQ(OsProcAttach("owner"), 0u);
    OsTaskDescriptor task{};
    std::strcpy(task.name, "items");
    task.queueDepth = 64;
    task.handler = PlayServer;
    ASSERT_EQ(OsTaskCreate(&task), 0u);
    EXPECT_EQ(InspectClientInit("items"), 0x80020006u);
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0x80020004u);
    OsProcDetach();
}

// This process is at once the server and the owner of its items, as the real server is of its own.
class EngineClient : public testing::Test {
protected:
    EngineClient() {
        EXPECT_EQ(OsProcAttach("ominspect"), 0u);
        OsTaskDescriptor server{};
        std::strcpy(server.name, "iom_srv_task");
        server.queueDepth = 64;
        server.handler = PlayServer;
        EXPECT_EQ(OsTaskCreate(&server), 0u);
        EXPECT_EQ(InspectClientInit("items"), 0u);
        g_received.clear();
        g_replyTasks.clear();
    }
    ~EngineClient() override { OsProcDetach(); }

    PrivateBus bus_;
};

TEST_F(EngineClient, RegistersItsItemsWithTheirTimeLimits) {
    const InspectHandlerRecord records[] = {Record("first", Succeed, 1000), Record("second", Succeed)};
    EXPECT_EQ(InspectRegHandler(records, 2), 0u);
    EXPECT_TRUE(EventuallyReceived({"2 1000 first", "2 0 second"}));
    EXPECT_EQ(g_replyTasks, (std::vector<std::string>{"items", "items"}));
}

TEST_F(EngineClient, MoreItemsThanTheServerTakesAtOnceNeedAThread) {
    std::vector<InspectHandlerRecord> records;
    for (int i = 0; i <= 200; ++i) {
        records.push_back(Record("item" + std::to_string(i), Succeed));
    }
    g_refusesThreads = true;
    EXPECT_EQ(InspectRegHandler(records.data(), 201), OS_MSG_ERR_NO_MEMORY);
    EXPECT_EQ(InspectRegHandler(records.data(), 1), 0u);
    g_refusesThreads = false;
    EXPECT_TRUE(EventuallyReceived({"2 0 item0"}));
}

TEST_F(EngineClient, AnswersARunWithWhatItsHandlerFilledIn) {
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    EXPECT_EQ(Ask(RunRequest("item", "{\"cmd\":\"go\"}")), "item success/item got {\"cmd\":\"go\"}");
    EXPECT_EQ(Ask(RunRequest("item", "")), "item success/item got ");
}

TEST_F(EngineClient, AHandlerThatFailsOrThrowsIsAFailedRun) {
    const InspectHandlerRecord records[] = {Record("gives_up", GiveUp), Record("throws", Throw)};
    EXPECT_EQ(InspectRegHandler(records, 2), 0u);
    EXPECT_EQ(Ask(RunRequest("gives_up", "{}")), "gives_up fail/run err");
    EXPECT_EQ(Ask(RunRequest("throws", "{}")), "throws fail/run err");
}

// Guarded by `g_lock`: the runs that Defer left open, and what a second deferral gave.
std::vector<uint64_t> g_open;
uint32_t g_again = 0;

uint32_t Defer(const char* /*itemName*/, const char* /*request*/, tagKivoOmInspectionResult* result) {
    std::snprintf(result->status, sizeof result->status, "unsent");
    uint64_t run = 0;
    EXPECT_EQ(InspectDeferRun(&run), 0u);
    uint64_t second = 1;
    const uint32_t again = InspectDeferRun(&second);
    EXPECT_EQ(second, 0u);
    const std::lock_guard<std::mutex> lock(g_lock);
    g_again = again;
    g_open.push_back(run);
    return 1;
}

std::vector<uint64_t> OpenRuns(size_t count) {
    EXPECT_TRUE(Eventually([&] {
        const std::lock_guard<std::mutex> lock(g_lock);
        return g_open.size() == count;
    }));
    const std::lock_guard<std::mutex> lock(g_lock);
    return g_open;
}

tagKivoOmInspectionResult Answer(const char* text) {
    tagKivoOmInspectionResult result{};
    std::snprintf(result.name, sizeof result.name, "item");
    std::snprintf(result.status, sizeof result.status, "success");
    std::snprintf(result.text, sizeof result.text, "%s", text);
    return result;
}

TEST_F(EngineClient, DeferredRunsAreAnsweredInAnyOrderAndOthersMeanwhile) {
    g_open.clear();
    const InspectHandlerRecord records[] = {Record("item", Defer), Record("other", Succeed)};
    ASSERT_EQ(InspectRegHandler(records, 2), 0u);
    auto first = std::async(std::launch::async, [] { return Ask(RunRequest("item", "1")); });
    ASSERT_EQ(OpenRuns(1).size(), 1u);
    auto second = std::async(std::launch::async, [] { return Ask(RunRequest("item", "2")); });
    const auto open = OpenRuns(2);
    ASSERT_EQ(open.size(), 2u);
    EXPECT_EQ(g_again, 0x8002000fu);
    EXPECT_EQ(Ask(RunRequest("other", "x")), "other success/other got x");
    const auto two = Answer("two");
    EXPECT_EQ(InspectAnswerRun(open[1], &two), 0u);
    EXPECT_EQ(second.get(), "item success/two");
    EXPECT_EQ(first.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    const auto one = Answer("one");
    EXPECT_EQ(InspectAnswerRun(open[0], &one), 0u);
    EXPECT_EQ(first.get(), "item success/one");
    EXPECT_EQ(InspectAnswerRun(open[0], &one), 0x8002000fu);
}

TEST_F(EngineClient, ADeferredAnswerThatIsRefusedIsStillOwed) {
    g_open.clear();
    const InspectHandlerRecord record = Record("item", Defer);
    ASSERT_EQ(InspectRegHandler(&record, 1), 0u);
    auto asked = std::async(std::launch::async, [] { return Ask(RunRequest("item", "")); });
    const auto open = OpenRuns(1);
    ASSERT_EQ(open.size(), 1u);
    EXPECT_EQ(InspectAnswerRun(open[0], nullptr), 0x80020002u);
    auto result = Answer("late");
    std::fill(std::begin(result.text), std::end(result.text), 'x');
    EXPECT_EQ(InspectAnswerRun(open[0], &result), 0x80020002u);
    result = Answer("late");
    EXPECT_EQ(InspectAnswerRun(open[0], &result), 0u);
    EXPECT_EQ(asked.get(), "item success/late");
}

TEST_F(EngineClient, ARunIsDeferredOnlyWhileItsHandlerServesIt) {
    uint64_t run = 1;
    EXPECT_EQ(InspectDeferRun(&run), 0x8002000fu);
    EXPECT_EQ(run, 0u);
    EXPECT_EQ(InspectDeferRun(nullptr), 0x80020002u);
    const auto result = Answer("made up");
    EXPECT_EQ(InspectAnswerRun(1000, &result), 0x8002000fu);
}

TEST_F(EngineClient, ARunOfAnItemThatIsNotItsOwnIsNotSupported) {
    EXPECT_EQ(Ask(RunRequest("stranger", "{}")), "stranger fail/no support");
}

TEST_F(EngineClient, AMalformedRunRequestIsAnsweredEmpty) {
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    EXPECT_EQ(Ask(""), "0 bytes");
    EXPECT_EQ(Ask(std::string(36, '\0')), "0 bytes");
    EXPECT_EQ(Ask(std::string(32, 'n') + RunRequest("item", "{}").substr(32)), "0 bytes");
    std::string tooLong = RunRequest("item", "{}");
    tooLong[32] = 3;  // says more than there is
    EXPECT_EQ(Ask(tooLong), "0 bytes");
    tooLong[35] = '\xff';
    EXPECT_EQ(Ask(tooLong), "0 bytes");
}

TEST_F(EngineClient, ARegistrationWithABadRecordTakesNone) {
    InspectHandlerRecord records[] = {Record("good", Succeed), Record("", Succeed)};
    EXPECT_EQ(InspectRegHandler(records, 2), 0x80020002u);
    records[1] = Record(std::string(32, 'n'), Succeed);
    EXPECT_EQ(InspectRegHandler(records, 2), 0x80020002u);
    records[1] = Record("no_handler", nullptr);
    EXPECT_EQ(InspectRegHandler(records, 2), 0x80020002u);
    EXPECT_EQ(InspectRegHandler(nullptr, 1), 0x80020002u);
    EXPECT_EQ(Ask(RunRequest("good", "{}")), "good fail/no support");
}

TEST_F(EngineClient, AnItemRegisteredAgainGetsTheNewHandler) {
    InspectHandlerRecord record = Record("item", GiveUp);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    record.handler = Succeed;
    record.timeout = 7;
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    EXPECT_EQ(Ask(RunRequest("item", "x")), "item success/item got x");
    EXPECT_TRUE(EventuallyReceived({"2 0 item", "2 7 item"}));
}

TEST_F(EngineClient, AnItemThatIsTakenBackIsUnregistered) {
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    EXPECT_EQ(InspectUnRegHandler("item"), 0u);
    EXPECT_TRUE(EventuallyReceived({"2 0 item", "3 0 item"}));
    EXPECT_EQ(Ask(RunRequest("item", "{}")), "item fail/no support");
    EXPECT_EQ(InspectUnRegHandler("item"), 0x80020002u);
    EXPECT_EQ(InspectUnRegHandler(nullptr), 0x80020002u);
}

std::string Owned(uint32_t limit = 60000) {
    std::string shown;
    const uint32_t result = InspectForEachOwnedItem(
        [](const InspectOwnedItem* item, void* context) {
            *static_cast<std::string*>(context) += std::string(item->procName) + "/" + item->name + " ";
        },
        &shown, limit);
    return result == OS_MSG_OK ? shown : OsMsgResultText(result);
}

TEST_F(EngineClient, AnItemWhoseNameIsNoUtf8IsNotShown) {
    const InspectHandlerRecord records[] = {Record("\xff", Succeed), Record("\xc3\xa4", Succeed)};
    EXPECT_EQ(InspectRegHandler(records, 2), 0u);
    EXPECT_EQ(Owned(), "ominspect/\xc3\xa4 ");
}

TEST_F(EngineClient, ItsItemsAreAPropertyWhoseChangesAreTold) {
    const auto busctl = [this](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"busctl", "--address=" + bus_.Address()});
        return arguments;
    };
    const Child monitor(busctl({"monitor", "--match=type='signal',interface='org.freedesktop.DBus.Properties'"}));
    ASSERT_TRUE(Eventually([&] { return monitor.Output().find("Monitoring bus") != std::string::npos; }));
    const InspectHandlerRecord record = Record("item", Succeed, 7);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    EXPECT_TRUE(Eventually([&] { return monitor.Output().find("com.kivo.Inspect.Owner") != std::string::npos; }))
        << monitor.Output();
    EXPECT_EQ(monitor.Output().find("\"item\""), std::string::npos) << "a signal reaches everybody";
    const Outcome property = support::Run(
        busctl({"get-property", "com.kivo.proc.ominspect", "/com/kivo/inspect", "com.kivo.Inspect.Owner", "Items"}));
    EXPECT_EQ(property.output, "a(sus) 1 \"item\" 7 \"" + RawConnection().OwnerOf("com.kivo.proc.ominspect") + "\"\n");
    EXPECT_NE(support::Run(busctl({"set-property", "com.kivo.proc.ominspect", "/com/kivo/inspect",
                                   "com.kivo.Inspect.Owner", "Items", "a(sus)", "0"}))
                  .exitCode,
              0);
}

TEST_F(EngineClient, ALateResultIsReported) {
    tagKivoOmInspectionResult result{"item", "success", "late"};
    EXPECT_EQ(InspectReportResult(&result), 0u);
    EXPECT_TRUE(EventuallyReceived({"5 0 item success/late"}));
    std::fill(std::begin(result.status), std::end(result.status), 's');
    EXPECT_EQ(InspectReportResult(&result), 0x80020002u);
    EXPECT_EQ(InspectReportResult(nullptr), 0x80020002u);
}

TEST_F(EngineClient, ItIsInitialisedOnce) {
    EXPECT_EQ(InspectClientInit("items"), 0x80020005u);
    EXPECT_EQ(InspectClientInit("others"), 0x80020005u);
    EXPECT_EQ(InspectClientInit(nullptr), 0x80020002u);
    EXPECT_EQ(InspectClientInit("a_name_too_long_"), 0x80020002u);
}

TEST_F(EngineClient, IsInitialisedAnewWhenTheProcessComesBack) {
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    OsProcDetach();
    ASSERT_EQ(OsProcAttach("ominspect"), 0u);
    EXPECT_EQ(InspectClientInit("items"), 0u);
    EXPECT_EQ(Owned(), "");
    EXPECT_EQ(Ask(RunRequest("item", "{}")), "item fail/no support");
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    EXPECT_EQ(Owned(), "ominspect/item ");
}

TEST_F(EngineClient, MessagesOfOtherIdsAreNotAnswered) {
    TagMsgBlock block{};
    std::strcpy(block.dstProcName, "ominspect");
    std::strcpy(block.dstTaskName, "items");
    block.msgId = 77;
    TagMsgBlock* resp = nullptr;
    EXPECT_EQ(OsMsgSynSend(&block, &resp, 100), 0x8002000bu);
    EXPECT_EQ(resp, nullptr);
}

TEST(EngineClientOfAnotherProcess, AnswersRunRequestsOfTheServerOnly) {
    const PrivateBus bus;
    ASSERT_EQ(OsProcAttach("not_server"), 0u);
    ASSERT_EQ(InspectClientInit("items"), 0u);
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0u);
    const std::string payload = RunRequest("item", "{}");
    TagMsgBlock block{};
    std::strcpy(block.dstProcName, "not_server");
    std::strcpy(block.dstTaskName, "items");
    std::strcpy(block.srcProcName, "ominspect");  // a claim that the bus does not make
    block.msgId = 4;
    block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
    block.dataLen = static_cast<uint32_t>(payload.size());
    TagMsgBlock* resp = nullptr;
    EXPECT_EQ(OsMsgSynSend(&block, &resp, 60000), 0u);
    ASSERT_NE(resp, nullptr);
    EXPECT_EQ(resp->dataLen, 0u);
    OsMsgSynRespFree(resp);
    OsProcDetach();
}

TEST(EngineClientBeforeTheBus, SaysThatItIsNotAttached) {
    EXPECT_EQ(InspectClientInit("items"), 0x80020004u);
    const InspectHandlerRecord record = Record("item", Succeed);
    EXPECT_EQ(InspectRegHandler(&record, 1), 0x80020004u);
    const tagKivoOmInspectionResult result{"item", "success", ""};
    EXPECT_EQ(InspectReportResult(&result), 0x80020004u);
}

TEST(EngineClientWithoutABus, ListsNothing) {
    setenv("KIVO_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    EXPECT_EQ(Owned(), "the bus cannot be reached");
    unsetenv("KIVO_BUS_ADDRESS");
}

TEST(InspectGetArgument, TakesTheCmdMemberOfTheRequest) {
    char out[8] = "old";
    EXPECT_EQ(InspectGetArgument(R"({"name":"n","cmd":"1234567"})", out, sizeof out), 0u);
    EXPECT_STREQ(out, "1234567");
    for (const char* request : {R"({"cmd":"12345678"})", R"({"cmd":5})", R"({"name":"n"})", "no JSON", ""}) {
        std::strcpy(out, "old");
        EXPECT_EQ(InspectGetArgument(request, out, sizeof out), 0x80020002u) << request;
        EXPECT_STREQ(out, "") << request;
    }
    EXPECT_EQ(InspectGetArgument(nullptr, out, sizeof out), 0x80020002u);
    EXPECT_EQ(InspectGetArgument("{}", nullptr, 8), 0x80020002u);
    EXPECT_EQ(InspectGetArgument("{}", out, 0), 0x80020002u);
}

}  // namespace
}  // namespace support

// Called in the place of the C library's.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*entry)(void*), void* argument) {
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return support::g_refusesThreads ? EAGAIN : real(thread, attributes, entry, argument);
}
