// The checks of the inspection-engine client; what it exchanges with the server only the Linux one can show.
#include "kivo/om_inspect_engine_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "bus_test.h"

using namespace support;

namespace {

constexpr const char* kClient = "items";

class EngineClientTest : public BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        ASSERT_EQ(InspectClientInit(kClient), OS_MSG_OK);
    }
};

uint32_t Run(const char* /*itemName*/, const char* /*request*/, tagKivoOmInspectionResult* /*result*/) {
    return 0;
}

InspectHandlerRecord Item(const std::string& name, InspectItemHandler handler = Run) {
    InspectHandlerRecord record{};
    std::copy_n(name.begin(), std::min(name.size(), sizeof record.name), std::begin(record.name));
    record.handler = handler;
    return record;
}

uint32_t Register(const InspectHandlerRecord& record) {
    return InspectRegHandler(&record, 1);
}

}  // namespace

TEST_F(EngineClientTest, NoRecordsAreRefused) {
    const InspectHandlerRecord record = Item("item");
    EXPECT_EQ(InspectRegHandler(&record, 0), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectRegHandler(nullptr, 0), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectRegHandler(nullptr, 1), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectUnRegHandler("item"), OS_MSG_ERR_PARAM);
}

TEST_F(EngineClientTest, OneBadRecordKeepsAllOut) {
    for (const InspectHandlerRecord& bad : {Item(""), Item(std::string(32, 'n')), Item("item", nullptr)}) {
        const InspectHandlerRecord records[] = {Item("good"), bad};
        EXPECT_EQ(InspectRegHandler(records, 2), OS_MSG_ERR_PARAM);
    }
    EXPECT_EQ(InspectUnRegHandler("good"), OS_MSG_ERR_PARAM);
}

TEST_F(EngineClientTest, AnItemCanBeRegisteredAgainAndIsTakenBackOnce) {
    EXPECT_EQ(Register(Item(std::string(31, 'n'))), OS_MSG_OK);
    EXPECT_EQ(Register(Item(std::string(31, 'n'))), OS_MSG_OK);
    EXPECT_EQ(InspectUnRegHandler(std::string(31, 'n').c_str()), OS_MSG_OK);
    EXPECT_EQ(InspectUnRegHandler(std::string(31, 'n').c_str()), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectUnRegHandler(nullptr), OS_MSG_ERR_PARAM);
}

TEST_F(EngineClientTest, EachOwnedItemIsListedWithItsProcessAndTimeLimit) {
    InspectHandlerRecord limited = Item("limited");
    limited.timeout = 1500;
    ASSERT_EQ(Register(limited), OS_MSG_OK);
    ASSERT_EQ(Register(Item(std::string(31, 'n'))), OS_MSG_OK);
    ASSERT_EQ(Register(Item("gone")), OS_MSG_OK);
    ASSERT_EQ(InspectUnRegHandler("gone"), OS_MSG_OK);
    std::vector<std::string> owned;
    const auto take = [](const InspectOwnedItem* item, void* context) {
        static_cast<std::vector<std::string>*>(context)->push_back(std::string(item->procName) + " " + item->name +
                                                                   " " + std::to_string(item->timeout));
    };
    EXPECT_EQ(InspectForEachOwnedItem(take, &owned, 60000), OS_MSG_OK);
    const std::string me = "tester";
    EXPECT_EQ(owned, (std::vector<std::string>{me + " limited 1500", me + " " + std::string(31, 'n') + " 0"}));
    EXPECT_EQ(InspectForEachOwnedItem(nullptr, nullptr, 60000), OS_MSG_ERR_PARAM);
}

TEST_F(EngineClientTest, AResultMustBeTerminatedInEachField) {
    EXPECT_EQ(InspectReportResult(nullptr), OS_MSG_ERR_PARAM);
    tagKivoOmInspectionResult result{};
    EXPECT_EQ(InspectReportResult(&result), OS_MSG_OK);
    std::ranges::fill(result.name, 'x');
    EXPECT_EQ(InspectReportResult(&result), OS_MSG_ERR_PARAM);
    result = {};
    std::ranges::fill(result.status, 'x');
    EXPECT_EQ(InspectReportResult(&result), OS_MSG_ERR_PARAM);
    result = {};
    std::ranges::fill(result.text, 'x');
    EXPECT_EQ(InspectReportResult(&result), OS_MSG_ERR_PARAM);
}

TEST_F(EngineClientTest, AClientIsInitialisedOnceUnderAValidName) {
    EXPECT_EQ(InspectClientInit(nullptr), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectClientInit(""), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectClientInit("sixteen_letters_"), OS_MSG_ERR_PARAM);
    EXPECT_EQ(InspectClientInit(kClient), OS_MSG_ERR_ATTACHED);
}

TEST_F(EngineClientTest, OnlyARunThatIsServedCanBeDeferred) {
    uint64_t run = 1;
    EXPECT_EQ(InspectDeferRun(&run), OS_MSG_ERR_NO_REQUEST);
    EXPECT_EQ(run, 0u);
    EXPECT_EQ(InspectDeferRun(nullptr), OS_MSG_ERR_PARAM);
    tagKivoOmInspectionResult result{};
    EXPECT_EQ(InspectAnswerRun(1, &result), OS_MSG_ERR_NO_REQUEST);
    EXPECT_EQ(InspectAnswerRun(1, nullptr), OS_MSG_ERR_PARAM);
    std::ranges::fill(result.text, 'x');
    EXPECT_EQ(InspectAnswerRun(1, &result), OS_MSG_ERR_PARAM);
}
