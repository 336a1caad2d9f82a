// The message layer's own log lines on standard error.
#include "msg/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "kivo/os_msg.h"

namespace kivo::msg {
namespace {

class MessageLayersLog : public testing::Test {
protected:
    ~MessageLayersLog() override {
        unsetenv("JOURNAL_STREAM");
        OsMsgSetLogLevel(2);
    }

    static void LogEachLevel() {
        Log(1, "an error");
        Log(2, "a warning");
        Log(3, "news of task %d", 7);
    }
};

TEST_F(MessageLayersLog, LeavesOutTheLevelsAboveTheOneThatIsSet) {
    testing::internal::CaptureStderr();
    LogEachLevel();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "kivo_os_msg: an error\nkivo_os_msg: a warning\n");
    OsMsgSetLogLevel(1);
    testing::internal::CaptureStderr();
    LogEachLevel();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "kivo_os_msg: an error\n");
}

TEST_F(MessageLayersLog, TellsTheJournalTheLevel) {
    OsMsgSetLogLevel(3);
    testing::internal::CaptureStderr();
    struct stat error {};
    ASSERT_EQ(fstat(STDERR_FILENO, &error), 0);
    setenv("JOURNAL_STREAM", (std::to_string(error.st_dev) + ":" + std::to_string(error.st_ino)).c_str(), 1);
    LogEachLevel();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "<3>kivo_os_msg: an error\n<4>kivo_os_msg: a warning\n<6>kivo_os_msg: news of task 7\n");
}

}  // namespace
}  // namespace kivo::msg
