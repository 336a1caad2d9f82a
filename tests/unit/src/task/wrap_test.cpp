// The wrap of the identifiers, right after a first one near the end of their range.
#include "support/platform_test.h"
#include "task/inspacet_task.h"

/// Occupies an identifier.
class InspacetTaskPeer {
public:
    static void Occupy(unsigned int id) { InspacetTask::manager.m_tasks[id] = std::make_shared<TaskData>(); }
};

namespace {

using InspacetTaskWrapTest = support::PlatformTest;

unsigned int Create() {
    return InspacetTask::CreateTask([](TaskData& /*task*/) {}, false);
}

}  // namespace

TEST_F(InspacetTaskWrapTest, GoesFromTheLastIdentifierTo17AndSkipsThoseInUse) {
    kivo::fake::SetNow((uint64_t{399} << 32U) + 4294967293U);
    InspacetTaskPeer::Occupy(18);
    EXPECT_EQ(Create(), 4294967294U);  // the low 32 bits of the time, plus one
    EXPECT_EQ(Create(), 4294967295U);
    EXPECT_EQ(Create(), 17U);
    EXPECT_EQ(Create(), 19U);
    InspacetTask::RemoveTask(18);
}
