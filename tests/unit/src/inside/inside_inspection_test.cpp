// The server's own inspection item, and the ignored messages.
#include "inside/inside_inspection.h"

#include <string>

#include "support/handler_call.h"
#include "support/journal_text.h"
#include "support/platform_test.h"
#include "support/records.h"

using support::Lines;

namespace {

using InsideInspectionTest = support::PlatformTest;

}  // namespace

TEST_F(InsideInspectionTest, RegistersTheLogDirectoryItem) {
    EXPECT_EQ(InitInspectInside(), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"3 inspect_inside_linux 24: >>> InitInspectInside \n", "InspectClientInit(inside_check)",
                     "InspectRegHandler(kivo_om_get_log_dir, 1000)"}));
}

TEST_F(InsideInspectionTest, TheHandlerRecordIsPaddedWithZero) {
    InitInspectInside();
    ASSERT_EQ(kivo::fake::RegisteredHandlers().size(), 1U);
    const InspectHandlerRecord record = kivo::fake::RegisteredHandlers()[0];
    const std::string name = "kivo_om_get_log_dir";
    EXPECT_EQ(std::string(record.name, 32), name + std::string(32 - name.size(), '\0'));
    EXPECT_EQ(record.timeout, 1000U);
    EXPECT_NE(record.handler, nullptr);
}

TEST_F(InsideInspectionTest, GivesTheClientsFailureToInitialise) {
    kivo::fake::Fail("InspectClientInit", 0x80020006);
    EXPECT_EQ(InitInspectInside(), 0x80020006U);
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_inside_linux 24: >>> InitInspectInside \n",
                                       "1 inspect_inside_linux 24: Inside Inspect Init fail."}));
}

TEST_F(InsideInspectionTest, GivesTheClientsFailureToRegister) {
    kivo::fake::Fail("InspectRegHandler", 0x80020002);
    EXPECT_EQ(InitInspectInside(), 0x80020002U);
    EXPECT_EQ(support::Steps(),
              (Lines{"3 inspect_inside_linux 24: >>> InitInspectInside \n", "InspectClientInit(inside_check)",
                     "1 inspect_inside_linux 24: Reg Inside Inspect Init fail.\n"}));
}

TEST_F(InsideInspectionTest, TheItemTellsTheLogDirectory) {
    InitInspectInside();
    ASSERT_EQ(kivo::fake::RegisteredHandlers().size(), 1U);
    kivo::fake::ClearJournal();
    tagKivoOmInspectionResult result = support::Result("kivo_om_get_log_dir", "", "");
    EXPECT_EQ(kivo::fake::RegisteredHandlers()[0].handler(nullptr, nullptr, &result), 0U);
    EXPECT_EQ(support::Show(result), "kivo_om_get_log_dir|success|/var/log/kivoshare");
    EXPECT_EQ(support::Steps(), (Lines{"3 inspect_inside_linux 24: get log dir diag success"}));
}

TEST_F(InsideInspectionTest, IgnoredMessagesLeaveTheReplyAsItIs) {
    for (const InspectHandler handler : {InspectSlaveProcess, InspectTransCreateFile, InspectTransWriteFile,
                                         InspectTransCloseFile, InspectSlaveReadVersion}) {
        support::Envelope message(10, "payload");
        EXPECT_TRUE(support::Call(handler, message).Empty());
    }
    EXPECT_EQ(support::Steps(), Lines{});
}
