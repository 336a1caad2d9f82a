// Start of the request layer.
//
// The program is linked so that InspectConfigMgr::GetInstance passes through here.
#include "server/start.h"
#include "handlers/handlers.h"

#include "ominspect/config.h"

#include "support/journal_text.h"
#include "support/server_test.h"

using support::Lines;

namespace {

bool g_noInstance = false;

class InspectInitTest : public support::ServerTest {
protected:
    void TearDown() override {
        g_noInstance = false;
        ServerTest::TearDown();
    }
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the linker makes the names
extern "C" {

InspectConfigMgr* __real__ZN16InspectConfigMgr11GetInstanceEv();
InspectConfigMgr* __wrap__ZN16InspectConfigMgr11GetInstanceEv() {
    return g_noInstance ? nullptr : __real__ZN16InspectConfigMgr11GetInstanceEv();
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

TEST_F(InspectInitTest, PutsTheGroupsIntoTheResultTable) {
    Inspect::Init();
    for (const char* name : {"unknown_group", "kivo_group_trace"}) {
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResultStatic(name, item);
        EXPECT_STREQ(item.result.name, name);
        EXPECT_STREQ(item.result.status, "success");
        EXPECT_STREQ(item.result.text, "init");
    }
}

TEST_F(InspectInitTest, ReadsTheConfiguration) {
    EXPECT_EQ(g_inspectConfigMgr, nullptr);
    Inspect::Init();
    EXPECT_EQ(g_inspectConfigMgr, InspectConfigMgr::GetInstance());
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectConfigMgr 20: xml read err, error code : 3. use default config.",
                                       "2 InspectConfigMgr 20: use default config InspectItemList."}));
}

TEST_F(InspectInitTest, SaysSoWhereThereIsNoConfigurationAndDoesWithoutIt) {
    g_noInstance = true;
    Inspect::Init();
    EXPECT_EQ(g_inspectConfigMgr, nullptr);
    EXPECT_EQ(support::Steps(), Lines{"3 inspect_dealmsg 19: g_inspectConfigMgr instance null"});
    tagKivoOmInspectionDataItem item{};
    g_resultMgr.GetResultStatic("kivo_group_trace", item);
    EXPECT_STREQ(item.result.status, "success");  // the groups are there
}

TEST_F(InspectInitTest, ResetsTheCountOfRuns) {
    AddItem("item");
    support::OwnerAnswers("running", "");
    tagKivoOmInspectionRequestMsg request{"item", 2, 0, "{}"};
    tagKivoOmInspectionDataItem item{};
    g_resultMgr.GetResult(request, item);
    Inspect::Init();
    kivo::fake::ClearJournal();
    EXPECT_EQ(g_resultMgr.StartGroup("unknown_group"), 1U);
    EXPECT_EQ(support::Events().at(0), "event 9: 0");  // busy again: no run counted as active
    g_resultMgr.StopGroup("unknown_group");
}
