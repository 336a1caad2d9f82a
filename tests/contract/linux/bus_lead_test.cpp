// Which thread of a process reads the bus.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <string>

#include "bus_test.h"
#include "linux/open_bus.h"
#include "linux/stopped_daemon.h"
#include "linux/thread_status.h"
#include "support/raw_connection.h"

using namespace support;

namespace {

class OsMsgLeadTest : public BusTest {};

std::atomic<unsigned long> g_polls{0};

unsigned long WakeUpsOfTheStandby() {
    return std::stoul(ThreadStatus("kivo_standby", "voluntary_ctxt_switches"));
}

int CountCalls(sd_bus_message* message, void* count, sd_bus_error* /*error*/) {
    *static_cast<size_t*>(count) += sd_bus_message_is_method_call(message, "com.kivo.Msg", "Send") > 0 ? 1 : 0;
    return 0;
}

}  // namespace

// The program's own function comes before the C library's.
extern "C" __attribute__((visibility("default"))) int ppoll(pollfd* fds, nfds_t count, const timespec* timeout,
                                                            const sigset_t* signals) {
    static const auto real = reinterpret_cast<decltype(&ppoll)>(dlsym(RTLD_NEXT, "ppoll"));
    ++g_polls;
    return real(fds, count, timeout, signals);
}

// A lead that nobody takes would wake the standby, and what arrives meanwhile would wait for it.
TEST_F(OsMsgLeadTest, AThreadThatIsNoTasksHandsTheLeadToATaskThatWaits) {
    const Peer peer("peer");
    AddTask("waiting", Inbox().Keep());
    unsigned long polls = 0;
    // The standby leads until the task's thread has come so far that it waits.
    EXPECT_TRUE(WaitFor([&] {
        const unsigned long before = WakeUpsOfTheStandby();
        polls = g_polls;
        for (int i = 0; i < 2000; ++i) {
            EXPECT_EQ(Ask("peer", "echo").result, OS_MSG_OK);
        }
        polls = g_polls - polls;
        return WakeUpsOfTheStandby() - before <= 10;
    }));
    EXPECT_LE(polls, 20000U) << "threads that wait must sleep";
}

// Sends until no more is taken. What the socket does not take at once is written by the thread that reads, which may
// have nothing to read.
TEST_F(OsMsgLeadTest, WhatTheBusDoesNotTakeAtOnceIsSentLater) {
    OsProcDetach();
    const OpenBus bus;  // which drops nothing for a receiver that is slow
    ASSERT_EQ(OsProcAttach("tester"), OS_MSG_OK);
    const std::string payload(1024 * 1024, 'x');
    const TagMsgBlock message = Envelope("sink", "task", 1, payload);
    const RawConnection sink;
    sink.Take("com.kivo.proc.sink");
    size_t sent = 0;
    size_t received = 0;
    ASSERT_GE(sd_bus_add_filter(sink.Get(), nullptr, CountCalls, &received), 0);
    const Inbox inbox;
    AddTask("waiting", inbox.Keep());
    Post("tester", "waiting");
    ASSERT_TRUE(inbox.Await(1));  // so its thread reads the bus from now on
    {
        const StoppedDaemon daemon(sink);
        while (OsMsgAsynSend(&message) == OS_MSG_OK) {
            ++sent;
        }
    }
    EXPECT_TRUE(WaitFor([&] {
        while (sd_bus_process(sink.Get(), nullptr) > 0) {
        }
        return received == sent;
    }));
    OsProcDetach();
}
