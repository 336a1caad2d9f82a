// The registry of items and the forwarding of runs.
#include "pipelining/pipelining_mgr.h"

#include <cstring>
#include <string>
#include <type_traits>

#include "support/alloc_failure.h"
#include "support/journal_text.h"
#include "support/owner.h"
#include "support/platform_test.h"
#include "support/records.h"

using kivo::fake::Answer;
using kivo::fake::Entry;
using kivo::fake::Kind;
using support::AllocFailure;
using support::Bytes;
using support::Lines;

static_assert(std::is_polymorphic_v<PipeliningMgr> && std::has_virtual_destructor_v<PipeliningMgr>);

namespace {

class PipeliningMgrTest : public support::PlatformTest {
protected:
    void Register(const std::string& name) {
        m_mgr.RegInspectItem(name, support::Owner());
        kivo::fake::ClearJournal();
    }

    // Runs an item with this request text, all of whose bytes count.
    unsigned int Run(const std::string& name, const char* text = "{}") {
        m_result = support::Result("before", "before", "before");
        tagKivoOmInspectionRequestMsg request{"", text == nullptr ? 0 : static_cast<uint32_t>(std::strlen(text)), 0,
                                              text};
        std::memcpy(request.name, name.data(), name.size());
        return m_mgr.GetInspectResult(request, m_result);
    }

    std::string Result() const { return support::Show(m_result); }

    static Entry Sent() {
        for (const Entry& entry : kivo::fake::Journal()) {
            if (entry.kind == Kind::kSyncSend) {
                return entry;
            }
        }
        ADD_FAILURE() << "nothing was sent";
        return {};
    }

    PipeliningMgr m_mgr;
    tagKivoOmInspectionResult m_result{};
};

}  // namespace

TEST_F(PipeliningMgrTest, RegistrationIsLoggedAndAlways0) {
    EXPECT_EQ(m_mgr.RegInspectItem("item", {"owner", "own_task"}), 0U);
    EXPECT_EQ(m_mgr.RegInspectItem("item", {"other", "oth_task"}), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 PipeliningMgr 17: add inspection in pipeline: [item] from [owner:own_task] ",
                     "1 PipeliningMgr 17: add inspection in pipeline: [item] from [other:oth_task] "}));
}

TEST_F(PipeliningMgrTest, ASecondRegistrationKeepsTheFirstOwner) {
    m_mgr.RegInspectItem("item", support::Owner());
    m_mgr.RegInspectItem("item", {"other", "oth_task"});
    support::OwnerAnswers("success", "");
    Run("item");
    EXPECT_EQ(Sent().proc, "owner");
    EXPECT_EQ(Sent().task, "own_task");
}

TEST_F(PipeliningMgrTest, UnregistrationIsLoggedAndAlways0) {
    Register("item");
    EXPECT_EQ(m_mgr.UnRegInspectItem("item"), 0U);
    EXPECT_EQ(m_mgr.UnRegInspectItem("nobody"), 0U);
    EXPECT_EQ(support::Steps(), (Lines{"1 PipeliningMgr 17: del inspection in pipeline: [item] ",
                                       "1 PipeliningMgr 17: del inspection in pipeline: [nobody] "}));
    EXPECT_EQ(Run("item"), 12U);
}

TEST_F(PipeliningMgrTest, UnregistrationOfAnotherNameChangesNothing) {
    Register("item");
    m_mgr.UnRegInspectItem("nobody");
    support::OwnerAnswers("success", "");
    EXPECT_EQ(Run("item"), 0U);
}

TEST_F(PipeliningMgrTest, StartAndStopDoNothing) {
    EXPECT_EQ(m_mgr.StartInspectPipeLining(), 0U);
    EXPECT_EQ(m_mgr.StopInspectPipeLining(), 0U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(PipeliningMgrTest, ARunOfAnUnregisteredItemIs12AndSendsNothing) {
    EXPECT_EQ(Run("item"), 12U);
    EXPECT_EQ(support::Steps(), (Lines{"1 PipeliningMgr 17: [GetInspectResult]not found inspect : item "}));
    EXPECT_EQ(Result(), "before|before|before");
}

TEST_F(PipeliningMgrTest, ARunGivesTheOwnersResultUnderTheRequestedName) {
    Register("item");
    support::OwnerAnswers("success", "all well");
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(Result(), "item|success|all well");
    EXPECT_EQ(support::Steps(), (Lines{"ask 4 of owner:own_task", "OsMsgSynRespFree"}));
}

TEST_F(PipeliningMgrTest, ARunIsSentWithFiveMinutesOfTime) {
    Register("item");
    support::OwnerAnswers("success", "");
    Run("item");
    EXPECT_EQ(Sent().timeout, 300000U);
}

TEST_F(PipeliningMgrTest, TheEnvelopeIsZeroButForItsFields) {
    Register("item");
    support::OwnerAnswers("success", "");
    Run("item", "{}");
    Bytes expected(sizeof(TagMsgBlock), 0);
    expected[48] = 4;
    std::memcpy(&expected[56], "owner", 5);
    std::memcpy(&expected[72], "own_task", 8);
    expected[156] = 39;  // the journal shows the pointer as null
    EXPECT_EQ(support::BytesOf(Sent().envelope), expected);
}

TEST_F(PipeliningMgrTest, ThePayloadIsNameLengthTextAndNul) {
    Register("item");
    support::OwnerAnswers("success", "");
    Run("item", R"({"name":"item"})");
    Bytes expected(52, 0);
    std::memcpy(&expected[0], "item", 4);
    expected[32] = 15;
    std::memcpy(&expected[36], R"({"name":"item"})", 15);
    EXPECT_EQ(Sent().data, expected);
}

TEST_F(PipeliningMgrTest, ALengthBeyondTheTextIsFilledWithZero) {
    Register("item");
    support::OwnerAnswers("success", "");
    tagKivoOmInspectionRequestMsg request{"item", 5, 0, "{}"};
    EXPECT_EQ(m_mgr.GetInspectResult(request, m_result), 0U);
    Bytes expected(42, 0);
    std::memcpy(&expected[0], "item", 4);
    expected[32] = 5;
    expected[36] = '{';
    expected[37] = '}';
    EXPECT_EQ(Sent().data, expected);
}

TEST_F(PipeliningMgrTest, AnEmptyTextIsSentAs37Bytes) {
    Register("item");
    support::OwnerAnswers("success", "");
    EXPECT_EQ(Run("item", ""), 0U);
    Bytes expected(37, 0);
    std::memcpy(&expected[0], "item", 4);
    EXPECT_EQ(Sent().data, expected);
}

TEST_F(PipeliningMgrTest, ANullTextIs13AndSendsNothing) {
    Register("item");
    EXPECT_EQ(Run("item", nullptr), 13U);
    EXPECT_EQ(support::Steps(), (Lines{"1 PipeliningMgr 17: cpy_s error when run inspect item owner own_task"}));
    EXPECT_EQ(Result(), "before|before|before");
}

TEST_F(PipeliningMgrTest, AnOwnersProcessNameOf16BytesIs13AndSendsNothing) {
    m_mgr.RegInspectItem("item", {"sixteen_letters_", "own_task"});
    kivo::fake::ClearJournal();
    EXPECT_EQ(Run("item"), 13U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 PipeliningMgr 17: cpy_s error when run inspect item sixteen_letters_ own_task"}));
}

TEST_F(PipeliningMgrTest, AnOwnersTaskNameOf16BytesIs13AndSendsNothing) {
    m_mgr.RegInspectItem("item", {"owner", "sixteen_letters_"});
    kivo::fake::ClearJournal();
    EXPECT_EQ(Run("item"), 13U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 PipeliningMgr 17: cpy_s error when run inspect item owner sixteen_letters_"}));
}

TEST_F(PipeliningMgrTest, ANameWithoutNulIs13AndReadWithinItsField) {
    const std::string name(32, 'n');
    Register(name);
    EXPECT_EQ(Run(name), 13U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 PipeliningMgr 17: cpy_s error when run inspect " + name + " owner own_task"}));
}

TEST_F(PipeliningMgrTest, WithoutABufferARunIs14AndSendsNothing) {
    Register("item");
    const AllocFailure failure(AllocFailure::Kind::kNothrow, 39);
    EXPECT_EQ(Run("item", "{}"), 14U);
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(support::Steps(), (Lines{"1 PipeliningMgr 17: malloc error when run inspect item owner own_task"}));
    EXPECT_EQ(Result(), "before|before|before");
}

TEST_F(PipeliningMgrTest, WithoutMemoryToFindItsOwnerARunIs14AndSendsNothing) {
    const std::string name(31, 'n');
    Register(name);
    const AllocFailure failure(AllocFailure::Kind::kThrowing, 32);
    EXPECT_EQ(Run(name), 14U);
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(support::Steps(), (Lines{"1 PipeliningMgr 17: malloc error when run inspect " + name + "  "}));
    EXPECT_EQ(Result(), "before|before|before");
}

TEST_F(PipeliningMgrTest, ARefusedSendIs10) {
    Register("item");
    kivo::fake::Fail("OsMsgSynSend", 0x8002000a);
    EXPECT_EQ(Run("item"), 10U);
    EXPECT_EQ(support::Steps(), (Lines{"1 PipeliningMgr 17: OsMsgSynSend fail, start 80020001, ret = 8002000a "}));
    EXPECT_EQ(Result(), "before|before|before");
}

TEST_F(PipeliningMgrTest, ASilentOwnerIs10AfterFiveMinutes) {
    Register("item");
    support::OwnerAnswers("success", "", 300001);
    EXPECT_EQ(Run("item"), 10U);
    EXPECT_EQ(kivo::fake::Now(), 1700000300000U);
    EXPECT_EQ(support::Steps().back(), "1 PipeliningMgr 17: OsMsgSynSend fail, start 80020001, ret = 8002000b ");
}

TEST_F(PipeliningMgrTest, AnAnswerAtTheLimitCounts) {
    Register("item");
    support::OwnerAnswers("success", "", 300000);
    EXPECT_EQ(Run("item"), 0U);
}

TEST_F(PipeliningMgrTest, ARunWhoseResultCannotBeNamedIs10) {
    Register("item");
    support::OwnerAnswers("success", "all well");
    kivo::fake::Fail("strcpy_s", 34, 1, 3);  // behind the names of the item, of the process and of the task
    EXPECT_EQ(Run("item"), 10U);
    EXPECT_EQ(Result(), "own name|success|all well");
    EXPECT_EQ(support::Steps(),
              (Lines{"ask 4 of owner:own_task", "OsMsgSynRespFree", "1 PipeliningMgr 17: strcpy_s fail."}));
}

TEST_F(PipeliningMgrTest, WithoutAReplyOnlyTheNameIsSet) {
    Register("item");
    support::OwnerDoes([](const Entry& /*message*/) { return Answer{.data = {}, .nullResponse = true}; });
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(Result(), "item|before|before");
    EXPECT_EQ(support::LogLines(), (Lines{"1 InspectMsg 14: [TransMsgBlockAndFree]: resp is null"}));
}

TEST_F(PipeliningMgrTest, OfAnEmptyReplyOnlyTheNameIsSet) {
    Register("item");
    support::OwnerDoes([](const Entry& /*message*/) { return Answer{}; });
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(Result(), "item|before|before");
    EXPECT_EQ(support::Steps().back(), "OsMsgSynRespFree");
}

TEST_F(PipeliningMgrTest, OfAnOversizedReplyOnlyTheNameIsSet) {
    Register("item");
    support::OwnerDoes([](const Entry& /*message*/) { return Answer{.data = Bytes(193, 'x')}; });
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(Result(), "item|before|before");
    EXPECT_EQ(support::Steps().back(), "OsMsgSynRespFree");
}

TEST_F(PipeliningMgrTest, AShorterReplyFillsWhatItHas) {
    Register("item");
    support::OwnerDoes([](const Entry& /*message*/) {
        Bytes bytes = support::BytesOf(support::Result("own", "success", ""));
        bytes.resize(64);
        return Answer{.data = bytes};
    });
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(Result(), "item|success|before");
}

TEST_F(PipeliningMgrTest, RegistrationGoesOnWhileAnOwnerIsAsked) {
    Register("item");
    unsigned int registered = 9;
    unsigned int unregistered = 9;
    support::OwnerDoes([&](const Entry& /*message*/) {
        registered = m_mgr.RegInspectItem("other", support::Owner());
        unregistered = m_mgr.UnRegInspectItem("item");
        return Answer{};
    });
    EXPECT_EQ(Run("item"), 0U);
    EXPECT_EQ(registered, 0U);
    EXPECT_EQ(unregistered, 0U);
    EXPECT_EQ(Run("item"), 12U);
    support::OwnerAnswers("success", "");
    EXPECT_EQ(Run("other"), 0U);
}
