// The registry's lock: made for the threads of this process, held for each lookup or change and not while the owner is
// asked, and destroyed with the registry.
#include "pipelining/pipelining_mgr.h"

#include <optional>
#include <string>
#include <utility>

#include "support/journal_text.h"
#include "support/lock_trace.h"
#include "support/owner.h"
#include "support/platform_test.h"

using support::Lines;
using support::LockTrace;

namespace {

class PipeliningMgrLockTest : public support::PlatformTest {
protected:
    unsigned int Run(const char* name) {
        tagKivoOmInspectionRequestMsg request{"", 3, 0, "{}"};
        std::string(name).copy(request.name, sizeof(request.name) - 1);
        tagKivoOmInspectionResult result{};
        return m_mgr.GetInspectResult(request, result);
    }

    PipeliningMgr m_mgr;
};

}  // namespace

TEST_F(PipeliningMgrLockTest, IsMadeForOneProcessAndDestroyed) {
    const LockTrace trace;
    std::optional<PipeliningMgr> mgr(std::in_place);
    EXPECT_EQ(trace.Lines(), Lines{"registry made for 0"});
    mgr.reset();
    EXPECT_EQ(trace.Lines(), (Lines{"registry made for 0", "registry destroyed"}));
}

TEST_F(PipeliningMgrLockTest, IsHeldForWritingByRegistrationAndRemoval) {
    const LockTrace trace;
    m_mgr.RegInspectItem("item", support::Owner());
    EXPECT_EQ(trace.Lines(), Lines{"registry for writing"});
    m_mgr.UnRegInspectItem("item");
    EXPECT_EQ(trace.Lines(), (Lines{"registry for writing", "registry for writing"}));
}

TEST_F(PipeliningMgrLockTest, IsHeldForReadingByTheLookupAndReleasedBeforeTheOwnerIsAsked) {
    m_mgr.RegInspectItem("item", support::Owner());
    support::OwnerAnswers("success", "");
    const LockTrace trace;
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(trace.Lines(), (Lines{"registry for reading", "ask 4"}));
}

TEST_F(PipeliningMgrLockTest, IsReleasedWhenThereIsNoOwner) {
    const LockTrace trace;
    EXPECT_EQ(Run("nobody"), 12U);
    m_mgr.RegInspectItem("nobody", support::Owner());  // would find the lock held
    EXPECT_EQ(trace.Lines(), (Lines{"registry for reading", "registry for writing"}));
}
