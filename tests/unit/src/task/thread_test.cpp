// How a job's thread is made.
//
// The program is linked so that every OsPthreadCreate of the server passes through here.
#include <pthread.h>

#include <array>
#include <cstdint>

#include "kivo/os_thread.h"
#include "support/platform_test.h"
#include "task/inspacet_task.h"

namespace {

struct Creation {
    int count;
    const void* attributes;
    OsThreadEntry entry;
    std::uintptr_t argument;
};

Creation g_creation{};  // how often, and what the last one was given

}  // namespace

extern "C" {

decltype(OsPthreadCreate) __real_OsPthreadCreate;

uint32_t __wrap_OsPthreadCreate(OsThread* thread, const void* attributes, OsThreadEntry entry, void* argument) {
    g_creation = {g_creation.count + 1, attributes, entry, reinterpret_cast<std::uintptr_t>(argument)};
    return __real_OsPthreadCreate(thread, attributes, entry, argument);
}
}

namespace {

using InspacetTaskThreadTest = support::PlatformTest;

TEST_F(InspacetTaskThreadTest, IsMadeWithoutAttributesAndGivenTheIdentifierItself) {
    g_creation = {};
    const unsigned int id = InspacetTask::CreateTask([](TaskData& /*task*/) {}, false);
    EXPECT_EQ(g_creation.count, 1);
    EXPECT_EQ(g_creation.attributes, nullptr);
    EXPECT_EQ(g_creation.entry, &InspacetTask::ThreadFunc);
    EXPECT_EQ(g_creation.argument, id);
}

TEST_F(InspacetTaskThreadTest, IsCalledInspectJob) {
    std::array<char, 16> name{};
    InspacetTask::CreateTask(
        [&name](TaskData& /*task*/) { pthread_getname_np(pthread_self(), name.data(), name.size()); }, false);
    ASSERT_TRUE(kivo::fake::Finish());
    EXPECT_STREQ(name.data(), "inspect_job");
}

}  // namespace
