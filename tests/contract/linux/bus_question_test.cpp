// What the message layer asks the bus daemon, while others answer in its name.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "bus_test.h"
#include "kivo/om_inspect_engine_client.h"
#include "linux/open_bus.h"
#include "linux/thread_status.h"
#include "support/private_bus.h"
#include "support/raw_connection.h"
#include "support/temp_folder.h"
#include "thread_starter.h"

using namespace support;

namespace {

// Is called with each question, after it is made and before it is sent. Set while nothing is asked.
std::function<void(sd_bus* bus, const std::string& method)> g_onQuestion;

void TellQuestion(sd_bus* bus, sd_bus_message* question) {
    thread_local bool within = false;
    if (g_onQuestion && !std::exchange(within, true)) {
        g_onQuestion(bus, sd_bus_message_get_member(question));
        within = false;
    }
}

}  // namespace

// The program's own functions come before those of all libraries, so the library under test calls these.
extern "C" __attribute__((visibility("default"))) int sd_bus_call(sd_bus* bus, sd_bus_message* call, uint64_t usec,
                                                                  sd_bus_error* error, sd_bus_message** reply) {
    static const auto real = reinterpret_cast<decltype(&sd_bus_call)>(dlsym(RTLD_NEXT, "sd_bus_call"));
    TellQuestion(bus, call);
    return real(bus, call, usec, error, reply);
}

extern "C" __attribute__((visibility("default"))) int sd_bus_send(sd_bus* bus, sd_bus_message* message,
                                                                  uint64_t* cookie) {
    static const auto real = reinterpret_cast<decltype(&sd_bus_send)>(dlsym(RTLD_NEXT, "sd_bus_send"));
    const char* receiver = sd_bus_message_get_destination(message);
    if (receiver != nullptr && std::string_view(receiver) == "org.freedesktop.DBus") {
        TellQuestion(bus, message);
    }
    return real(bus, message, cookie);
}

namespace {

class OsMsgQuestionTest : public ContractTest {
protected:
    using Fill = std::function<void(sd_bus_message* reply)>;

    void TearDown() override {
        OsProcDetach();
        g_onQuestion = nullptr;
    }

    // Before the first question of this method is sent, a hundred answers to it and to the next questions are on their
    // way to the process under test, in front of the daemon's.
    void ForgeAnswers(std::string_view method, Fill fill, const char* error = nullptr) {
        g_onQuestion = [this, method, fill = std::move(fill), error](sd_bus* bus, const std::string& asked) {
            ++questions_[asked];
            const char* victim = nullptr;
            if (asked != method || std::exchange(forged_, true) || sd_bus_get_unique_name(bus, &victim) < 0) {
                return;
            }
            const RawConnection hostile;
            for (uint64_t cookie = 1; cookie <= 100; ++cookie) {
                const RawMessage reply = hostile.ForgedReply(victim, cookie, error);
                if (error == nullptr) {
                    fill(reply.get());
                }
                EXPECT_GE(sd_bus_send(hostile.Get(), reply.get(), nullptr), 0);
            }
            EXPECT_EQ(hostile.OwnerOf(victim), victim);  // the daemon has passed them all on
        };
    }

    // The process under test joins and gets a first message of this connection.
    TagMsgBlock FirstMessage(const RawConnection& sender) {
        EXPECT_EQ(OsProcAttach("tester"), OS_MSG_OK);
        const Inbox inbox;
        AddTask("inbox", inbox.Keep());
        sender.Post("tester", "inbox", 7);
        posted_ = true;
        EXPECT_TRUE(inbox.Await(1));
        return inbox.Count() > 0 ? inbox.All().front().envelope : TagMsgBlock{};
    }

    const OpenBus bus_;
    std::map<std::string, int> questions_;
    bool forged_ = false;
    std::atomic<bool> posted_{false};
};

TEST_F(OsMsgQuestionTest, NobodyElseSaysWhichUserASenderIs) {
    ForgeAnswers("GetConnectionUnixUser",
                 [](sd_bus_message* reply) { EXPECT_GE(sd_bus_message_append(reply, "u", getuid() + 1), 0); });
    EXPECT_EQ(FirstMessage(RawConnection()).uid, getuid());
    EXPECT_TRUE(forged_);
}

TEST_F(OsMsgQuestionTest, NobodyElseSaysThatASenderHasLeft) {
    ForgeAnswers("GetConnectionUnixUser", {}, SD_BUS_ERROR_NAME_HAS_NO_OWNER);
    EXPECT_EQ(FirstMessage(RawConnection()).uid, getuid());
    EXPECT_TRUE(forged_);
}

TEST_F(OsMsgQuestionTest, NobodyElseSaysWhoseANameIs) {
    const RawConnection honest;
    const RawConnection other;
    honest.Take("com.kivo.proc.honest");
    ForgeAnswers("GetNameOwner", [name = other.Name()](sd_bus_message* reply) {
        EXPECT_GE(sd_bus_message_append(reply, "s", name.c_str()), 0);
    });
    EXPECT_STREQ(FirstMessage(honest).srcProcName, "honest");
    EXPECT_TRUE(forged_);
}

TEST_F(OsMsgQuestionTest, NobodyElseSaysWhichNamesThereAre) {
    const RawConnection honest;
    honest.Take("com.kivo.proc.honest");
    ForgeAnswers("ListNames", [](sd_bus_message* reply) { EXPECT_GE(sd_bus_message_append(reply, "as", 0), 0); });
    EXPECT_STREQ(FirstMessage(honest).srcProcName, "honest");
    EXPECT_TRUE(forged_);
}

TEST_F(OsMsgQuestionTest, ASenderThatHasLeftIsAskedForOnce) {
    std::optional<RawConnection> sender(std::in_place);
    const std::string name = sender->Name();
    g_onQuestion = [&](sd_bus* /*bus*/, const std::string& asked) {
        ++questions_[asked];
        if (asked == "GetConnectionUnixUser") {
            EXPECT_TRUE(WaitFor([&] { return posted_.load(); }));
            sender.reset();
            const RawConnection witness;
            EXPECT_TRUE(WaitFor([&] { return !witness.IsThere(name); }));
        }
    };
    EXPECT_EQ(FirstMessage(*sender).uid, UINT32_MAX);
    EXPECT_EQ(questions_["GetConnectionUnixUser"], 1);
}

// An owner registers its items, and who was told of it asks for a run: the daemon is asked for the owner's user while
// the request is on its way.
TEST_F(OsMsgQuestionTest, AMessageThatWasSentLaterIsHandledLater) {
    EXPECT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    const Inbox inbox;
    AddTask("inbox", inbox.Keep());
    const RawConnection known;
    known.Post("tester", "inbox", 1);
    EXPECT_TRUE(inbox.Await(1));
    const RawConnection newcomer;
    g_onQuestion = [&](sd_bus* /*bus*/, const std::string& asked) {
        if (asked == "GetConnectionUnixUser") {
            known.Post("tester", "inbox", 3);
            EXPECT_EQ(known.OwnerOf(known.Name()), known.Name());  // the daemon has passed it on
        }
    };
    newcomer.Post("tester", "inbox", 2);
    EXPECT_TRUE(inbox.Await(3));
    std::vector<uint32_t> ids;
    for (const auto& message : inbox.All()) {
        ids.push_back(message.envelope.msgId);
    }
    EXPECT_EQ(ids, (std::vector<uint32_t>{1, 2, 3}));
}

// A bus that could start the process "gone", which leaves a file behind.
class StartingBus {
public:
    StartingBus() : bus_(Configured()) {}

    [[nodiscard]] bool HasStarted() const { return std::filesystem::exists(folder_ / "started"); }

private:
    std::string Configured() const {
        std::string config = kOpenBus;
        config.insert(config.find("  <listen>"), "  <servicedir>" + folder_.Path().string() + "</servicedir>\n");
        WriteFile(folder_ / "bus.conf", config);
        WriteFile(folder_ / "com.kivo.proc.gone.service",
                  "[D-BUS Service]\nName=com.kivo.proc.gone\nExec=/usr/bin/touch " + folder_ / "started" + "\n");
        return folder_ / "bus.conf";
    }

    const TempFolder folder_;
    const PrivateBus bus_;
};

TEST(InspectOwnedItems, AProcessThatHasJustLeftIsNotStartedToBeAsked) {
    const StartingBus bus;
    const RawConnection process;
    process.Take("com.kivo.proc.gone");
    bool left = false;
    g_onQuestion = [&](sd_bus* /*bus*/, const std::string& asked) {
        if (asked == "GetNameOwner" && !std::exchange(left, true)) {  // the list of the names is known by now
            process.GiveUp("com.kivo.proc.gone");
        }
    };
    int items = 0;
    EXPECT_EQ(InspectForEachOwnedItem([](const InspectOwnedItem*, void* count) { ++*static_cast<int*>(count); }, &items,
                                      kLong),
              OS_MSG_OK);
    g_onQuestion = nullptr;
    EXPECT_TRUE(left);
    EXPECT_EQ(items, 0);
    EXPECT_FALSE(bus.HasStarted());
}

TEST(InspectOwnedItems, ADaemonThatHangsIsNotWaitedForBeyondTheLimit) {
    const PrivateBus bus;
    bus.Signal(SIGSTOP);
    std::atomic<uint32_t> asked{OS_MSG_OK};
    StartThread([&asked] {
        asked = InspectForEachOwnedItem([](const InspectOwnedItem* /*item*/, void* /*context*/) {}, nullptr, kShort);
    });
    EXPECT_TRUE(WaitFor([&asked] { return asked == OS_MSG_ERR_NO_BUS; }));
    bus.Signal(SIGCONT);
}

// A question without a limit of its own would be waited for as long as sd-bus likes.
TEST(InspectOwnedItems, NothingIsAskedOnceTheLimitIsOver) {
    const PrivateBus bus;
    std::set<std::string> questions;
    g_onQuestion = [&](sd_bus* /*bus*/, const std::string& asked) {
        questions.insert(asked);
        if (asked == "ListNames") {
            std::this_thread::sleep_for(std::chrono::milliseconds(kShort));
        }
    };
    (void)InspectForEachOwnedItem([](const InspectOwnedItem* /*item*/, void* /*context*/) {}, nullptr, kShort);
    g_onQuestion = nullptr;
    EXPECT_EQ(questions, (std::set<std::string>{"Hello", "ListNames"}));
}

TEST(OsProcJoining, ASilentBusIsWaitedForAsleep) {
    const PrivateBus bus;
    std::atomic<bool> silent{false};
    g_onQuestion = [&](sd_bus* /*bus*/, const std::string& asked) {
        if (asked == "RequestName") {
            bus.Signal(SIGSTOP);
            silent = true;
        }
    };
    std::atomic<uint32_t> joined{99};
    StartThread([&joined] {
        pthread_setname_np(pthread_self(), "joining");
        joined = OsProcAttach("tester");
    });
    EXPECT_TRUE(WaitFor([&silent] { return silent.load(); }));
    EXPECT_TRUE(WaitFor([] { return ThreadStatus("joining", "State").starts_with('S'); }));
    EXPECT_EQ(joined, 99U);
    bus.Signal(SIGCONT);
    EXPECT_TRUE(WaitFor([&joined] { return joined == OS_MSG_OK; }));
    g_onQuestion = nullptr;
    OsProcDetach();
}

// The daemon passes on the messages of different connections in any order.
TEST(InspectRegistration, IsOverWhenTheBusHasPassedItOn) {
    const PrivateBus bus;
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    ASSERT_EQ(InspectClientInit("owner_items"), OS_MSG_OK);
    bus.Signal(SIGSTOP);
    std::atomic<uint32_t> registered{99};
    StartThread([&registered] {
        pthread_setname_np(pthread_self(), "registering");
        InspectHandlerRecord record{};
        record.name[0] = 'i';
        record.handler = [](const char* /*name*/, const char* /*request*/, tagKivoOmInspectionResult* /*result*/) {
            return uint32_t{0};
        };
        registered = InspectRegHandler(&record, 1);
    });
    EXPECT_TRUE(WaitFor([] { return ThreadStatus("registering", "State").starts_with('S'); }));
    EXPECT_EQ(registered, 99U);
    bus.Signal(SIGCONT);
    EXPECT_TRUE(WaitFor([&registered] { return registered == OS_MSG_OK; }));
    OsProcDetach();
}

}  // namespace
