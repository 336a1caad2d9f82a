// What the libraries print on standard error when nobody reads it any more.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "kivo/om_log_client.h"
#include "platform_control.h"

using namespace support;

namespace {

// Standard error is a pipe without a reader, and SIGPIPE would end the process.
class StandardErrorTest : public ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        std::signal(SIGPIPE, SIG_DFL);
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
    }

    void TearDown() override {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
        ContractTest::TearDown();
    }

    static void Print() { KivoOmLogGeneralLogRecord(1, 0, "unit", 1, "a line of no log"); }

    static bool IsPending() {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    }

private:
    const int saved_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
};

}  // namespace

TEST_F(StandardErrorTest, ALostReaderDoesNotEndTheProcess) {
    Print();
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
    EXPECT_FALSE(IsPending());
}

TEST_F(StandardErrorTest, ASignalThatWasPendingBeforeStaysSo) {
    sigset_t sigPipe;
    sigemptyset(&sigPipe);
    sigaddset(&sigPipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigPipe, nullptr);
    raise(SIGPIPE);
    Print();
    EXPECT_TRUE(IsPending());
    const timespec now{};
    EXPECT_EQ(sigtimedwait(&sigPipe, nullptr, &now), SIGPIPE);
    Print();
    EXPECT_FALSE(IsPending());
    pthread_sigmask(SIG_UNBLOCK, &sigPipe, nullptr);
}
