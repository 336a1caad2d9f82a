// Each allocation that the requesters' library, the engine client library and the message layer below them make on a
// road fails once, on whichever thread it is. After each failure the next request is carried out.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "client_fixture.h"
#include "everywhere.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "ominspect/client/run.h"
#include "support/nth_allocation.h"
#include "support/process_state.h"

using namespace support;

namespace {

constexpr milliseconds kShort{500};  // for what was lost with the allocation

// What the test does for itself in the middle of a road.
template <typename Step>
auto Uncountedly(const Step& step) {
    const Uncounted own;
    return step();
}

long Threads() {
    return std::stol(StatusLine(getpid(), "Threads"));
}

// Stops a process for as long as it lives.
class Standstill {
public:
    explicit Standstill(const Child& child) : child_(child) {
        const Uncounted own;
        child_.Signal(SIGSTOP);
    }
    ~Standstill() {
        const Uncounted own;
        child_.Signal(SIGCONT);
    }
    Standstill(const Standstill&) = delete;
    Standstill& operator=(const Standstill&) = delete;

private:
    const Child& child_;
};

class EveryAllocationOfTheClient : public Client {
protected:
    EveryAllocationOfTheClient() : server_(StartServer()), owner_(StartOwner({"ok_item_with_a_name_of_31_bytes"})) {}

    // A run that was given up may still go on: the next one joins it.
    bool NextRuns() {
        return Eventually([this] {
            const auto reply = TheSession().Run(kRequest, kEnough);
            return reply && reply->result.status == "success";
        });
    }

    void Everywhere(unsigned least, const std::function<void(Session& session)>& road) {
        ASSERT_TRUE(NextRuns());
        EXPECT_GE(support::Everywhere([&] { road(TheSession()); }, [this] { return NextRuns(); }), least);
    }

    [[nodiscard]] const Child& TheServer() const { return server_; }

    const Request kRequest{"ok_item_with_a_name_of_31_bytes", "an argument that is longer than 15 bytes"};

private:
    Child server_;
    Child owner_;
};

}  // namespace

TEST_F(EveryAllocationOfTheClient, OfARun) {
    Everywhere(10, [&](Session& session) { (void)session.Run(kRequest, kShort); });
}

TEST_F(EveryAllocationOfTheClient, OfARunInTheBackground) {
    Everywhere(20, [&](Session& session) { (void)RunItem(session, kRequest, {}, kShort); });
}

// A request that could not be made keeps none of the ways by which the results of its item come, of which there are 16.
TEST_F(EveryAllocationOfTheClient, OfManyRunsThatDoNotBegin) {
    const auto start = [this] {
        try {
            (void)TheSession().Start(kRequest, kShort);
        } catch (const std::bad_alloc&) {
        }
    };
    for (int round = 0; round < 40; ++round) {
        bool happened = true;
        for (unsigned number = 0; happened; ++number) {
            const NthAllocation shortage(number);
            start();
            happened = shortage.Happened();
        }
    }
    const auto next = RunItem(TheSession(), kRequest, {}, kEnough);
    ASSERT_TRUE(next) << next.Failure().text;
    EXPECT_EQ(next->result.status, "success");
}

TEST_F(EveryAllocationOfTheClient, OfStopAndReset) {
    Everywhere(20, [&](Session& session) {
        (void)session.Stop(kRequest.item, kShort);
        (void)session.Reset(kRequest.item, kShort);
    });
}

TEST_F(EveryAllocationOfTheClient, OfQuestions) {
    Everywhere(10, [&](Session& session) {
        (void)session.State(kRequest.item, kShort);
        (void)session.List(kShort);
    });
}

// A call that can be cancelled is made on a thread of its own.
TEST_F(EveryAllocationOfTheClient, OfCallsThatCanBeCancelled) {
    Everywhere(30, [&](Session& session) {
        const std::stop_source source;
        const Limit limit(kShort, source.get_token());
        (void)session.Run(kRequest, limit);
        (void)session.State(kRequest.item, limit);
        (void)session.Items({seconds(5), source.get_token()});
    });
}

// The server stands still, so the call's thread is left behind.
TEST_F(EveryAllocationOfTheClient, OfACallThatIsCancelled) {
    ASSERT_TRUE(NextRuns());
    const auto threads = Threads();
    unsigned cancelled = 0;
    Everywhere(5, [&](Session& session) {
        std::stop_source source;
        const Standstill standstill(TheServer());
        EXPECT_TRUE(Uncountedly([&] { return Eventually([&] { return Threads() <= threads; }); }));
        std::atomic<bool> over{false};
        const auto canceller = Uncountedly([&] {
            return std::jthread([&] {
                const Uncounted own;
                while (!over && Threads() <= threads + 1) {  // it is one itself
                }
                source.request_stop();
            });
        });
        try {
            const auto state = session.State(kRequest.item, {kShort, source.get_token()});
            cancelled += !state && state.Failure().code == ErrorCode::kCancelled ? 1 : 0;
        } catch (const std::bad_alloc&) {
        }
        over = true;
    });
    EXPECT_GE(cancelled, 1U);
}

TEST_F(EveryAllocationOfTheClient, OfTheInventory) {
    Everywhere(50, [&](Session& session) { (void)session.Items(seconds(5)); });
}

// A session that could not be opened leaves the bus, and the next one can be.
TEST_F(EveryAllocationOfTheClient, OfASession) {
    CloseSession();
    const unsigned count = support::Everywhere(
        [] {
            auto session = Session::Open();
            if (session) {
                (void)(*session)->Subscribe();
            }
        },
        [] {
            auto session = Session::Open();
            return session && (*session)->State("x", kEnough);
        });
    EXPECT_GE(count, 40U);
}

namespace {

uint32_t Succeed(const char* itemName, const char* /*request*/, tagKivoOmInspectionResult* result) {
    (void)std::snprintf(result->status, sizeof result->status, "success");
    (void)std::snprintf(result->text, sizeof result->text, "%s", itemName);
    return 0;
}

constexpr uint64_t kNoRun = 0;  // as InspectDeferRun has it
constexpr uint64_t kEnd = UINT64_MAX;

// The deferred run that the other thread has to answer; kEnd ends it.
std::atomic<uint64_t> g_deferred{kNoRun};

void HandOver(uint64_t run) {
    g_deferred = run;
    g_deferred.notify_one();
}

void AnswerWhatIsHandedOver(const char* item) {
    for (;;) {
        g_deferred.wait(kNoRun);
        const uint64_t run = g_deferred.exchange(kNoRun);
        if (run == kEnd) {
            return;
        }
        tagKivoOmInspectionResult result{};
        std::strcpy(result.name, item);
        (void)Succeed(item, "", &result);
        (void)InspectAnswerRun(run, &result);
    }
}

// A run that cannot be deferred is answered at once.
uint32_t DeferForTheOtherThread(const char* itemName, const char* request, tagKivoOmInspectionResult* result) {
    uint64_t run = kNoRun;
    if (InspectDeferRun(&run) == OS_MSG_OK) {
        HandOver(run);
        return 0;
    }
    return Succeed(itemName, request, result);
}

uint32_t DeferAndAnswer(const char* itemName, const char* request, tagKivoOmInspectionResult* result) {
    uint64_t run = kNoRun;
    const uint32_t deferred = InspectDeferRun(&run);
    (void)Succeed(itemName, request, result);
    return deferred == OS_MSG_OK ? InspectAnswerRun(run, result) : 0;
}

// This process is owner and server in one: what is said goes over the bus all the same.
class EveryAllocationOfTheEngineClient : public testing::Test {
protected:
    EveryAllocationOfTheEngineClient() {
        EXPECT_EQ(OsProcAttach("ominspect"), OS_MSG_OK);
        OsTaskDescriptor server{};
        std::strcpy(server.name, "iom_srv_task");
        server.queueDepth = 512;
        server.handler = [](TagMsgBlock* /*message*/) { return uint32_t{0}; };
        EXPECT_EQ(OsTaskCreate(&server), OS_MSG_OK);
        EXPECT_EQ(InspectClientInit("items_of_a_test"), OS_MSG_OK);
    }

    ~EveryAllocationOfTheEngineClient() override { OsProcDetach(); }

    static InspectHandlerRecord Record(const char* name, InspectItemHandler handler = Succeed) {
        InspectHandlerRecord record{};
        std::strcpy(record.name, name);
        record.handler = handler;
        record.timeout = 1000;
        return record;
    }

    // The result's text; nothing when there is no result.
    static std::optional<std::string> Ask(const char* item, uint32_t limit) {
        char payload[32 + 4 + 3] = {};
        std::strcpy(payload, item);
        payload[32] = 2;
        std::memcpy(payload + 36, "{}", 2);
        TagMsgBlock block{};
        std::strcpy(block.dstProcName, "ominspect");
        std::strcpy(block.dstTaskName, "items_of_a_test");
        block.msgId = 4;
        block.data = reinterpret_cast<unsigned char*>(payload);
        block.dataLen = sizeof payload;
        TagMsgBlock* reply = nullptr;
        if (OsMsgSynSend(&block, &reply, limit) != OS_MSG_OK) {
            return std::nullopt;
        }
        std::optional<std::string> text;
        if (reply->dataLen == sizeof(tagKivoOmInspectionResult)) {
            const Uncounted own;
            text = reinterpret_cast<const tagKivoOmInspectionResult*>(reply->data)->text;
        }
        OsMsgSynRespFree(reply);
        return text;
    }

    static bool NextRuns() { return NextRunsBy(Succeed); }

    static bool NextRunsBy(InspectItemHandler handler) {
        const InspectHandlerRecord record = Record(kItem, handler);
        return InspectRegHandler(&record, 1) == OS_MSG_OK && Ask(kItem, 60000) == kItem;
    }

    static unsigned EverywhereInARunBy(InspectItemHandler handler) {
        EXPECT_TRUE(NextRunsBy(handler));
        return Everywhere([] { (void)Ask(kItem, 300); }, [handler] { return NextRunsBy(handler); });
    }

    static constexpr const char* kItem = "ok_item_with_a_name_of_31_bytes";

    const PrivateBus bus_;
};

}  // namespace

TEST_F(EveryAllocationOfTheEngineClient, OfRegistrationAndRemoval) {
    const unsigned count = Everywhere(
        [] {
            const InspectHandlerRecord records[] = {Record(kItem), Record("another_item_of_this_process")};
            (void)InspectRegHandler(records, 2);
            (void)InspectUnRegHandler("another_item_of_this_process");
        },
        NextRuns);
    EXPECT_GE(count, 10U);
}

TEST_F(EveryAllocationOfTheEngineClient, OfARunAndItsReport) {
    ASSERT_TRUE(NextRuns());
    const unsigned count = Everywhere(
        [] {
            (void)Ask(kItem, 300);
            tagKivoOmInspectionResult result{};
            std::strcpy(result.name, kItem);
            std::strcpy(result.status, "success");
            (void)InspectReportResult(&result);
        },
        NextRuns);
    EXPECT_GE(count, 10U);
}

TEST_F(EveryAllocationOfTheEngineClient, OfADeferredRunThatItsHandlerAnswers) {
    EXPECT_GE(EverywhereInARunBy(DeferAndAnswer), 10U);
}

TEST_F(EveryAllocationOfTheEngineClient, OfADeferredRunThatAnotherThreadAnswers) {
    std::jthread other(AnswerWhatIsHandedOver, kItem);
    EXPECT_GE(EverywhereInARunBy(DeferForTheOtherThread), 10U);
    HandOver(kEnd);
}
