// The server's own inspection item, and the ignored messages.
#include "inside/inside_inspection.h"

#include <cstring>
#include <memory>
#include <string>

#include "server/dispatch.h"
#include "support/envelope.h"
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

TEST_F(InsideInspectionTest, TheItemGivesTheCodeOfACopyThatFailsAndGoesNoFurther) {
    InitInspectInside();
    ASSERT_EQ(kivo::fake::RegisteredHandlers().size(), 1U);
    const auto handler = kivo::fake::RegisteredHandlers()[0].handler;
    kivo::fake::ClearJournal();
    tagKivoOmInspectionResult result = support::Result("name", "before", "before");
    kivo::fake::Fail("strcpy_s", 34);
    EXPECT_EQ(handler(nullptr, nullptr, &result), 34U);
    EXPECT_EQ(support::Show(result), "name|before|before");
    kivo::fake::Fail("strcpy_s", 22, 1, 1);
    EXPECT_EQ(handler(nullptr, nullptr, &result), 22U);
    EXPECT_EQ(support::Show(result), "name|success|before");
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InsideInspectionTest, IgnoredMessagesLeaveTheReplyAsItIs) {
    for (const InspectHandler handler : {InspectSlaveProcess, InspectTransCreateFile, InspectTransWriteFile,
                                         InspectTransCloseFile, InspectSlaveReadVersion}) {
        support::Envelope message(10, "payload");
        auto reply = std::make_unique<unsigned char[]>(3);
        const unsigned char* const before = reply.get();
        std::memcpy(reply.get(), "abc", 3);
        unsigned int replyLength = 3;
        handler(message.Get(), reply, replyLength);
        ASSERT_EQ(reply.get(), before);
        EXPECT_EQ(std::memcmp(reply.get(), "abc", 3), 0);
        EXPECT_EQ(replyLength, 3U);
    }
    EXPECT_EQ(support::Steps(), Lines{});
}
