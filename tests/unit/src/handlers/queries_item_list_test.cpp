// The configured items, as clients ask for them.
#include <cstring>
#include <string>

#include "handlers/handlers.h"
#include "ominspect/config.h"
#include "server/start.h"
#include "support/alloc_failure.h"
#include "support/device_folder.h"
#include "support/handler_call.h"
#include "support/journal_text.h"

using support::AllocFailure;
using support::Call;
using support::Envelope;
using support::Lines;

namespace {

class GetGroupListTest : public support::DeviceTest {
protected:
    static support::Reply AskNumber() {
        Envelope message(37);
        return Call(Inspect::GetGroupListLenHandle, message);
    }

    static support::Reply AskList() {
        Envelope message(38);
        return Call(Inspect::GetGroupListHandle, message);
    }

    // What calls after it find where they have not written.
    [[gnu::noinline]] static void FillStack() {
        volatile unsigned char garbage[65536];
        for (volatile unsigned char& byte : garbage) {
            byte = 0xa5;
        }
    }

    static uint32_t CountIn(const support::Reply& list) {
        uint32_t count = 0;
        EXPECT_EQ(list.bytes.size(), 12296U);
        std::memcpy(&count, list.bytes.data() + 12288, sizeof(count));
        return count;
    }

    static std::string NameIn(const support::Reply& list, std::size_t slot) {
        return reinterpret_cast<const char*>(list.bytes.data() + slot * 48);
    }
};

}  // namespace

TEST_F(GetGroupListTest, HoldsNothingThatWasLeftOnTheStack) {
    FillStack();
    EXPECT_EQ(AskList().bytes, support::Bytes(12296, 0));
}

TEST_F(GetGroupListTest, BeforeTheConfigurationIsLoadedThereAreNone) {
    EXPECT_EQ(AskNumber().Number(), 0U);
    EXPECT_EQ(support::LogLines(), Lines{"1 inspect_dealmsg 19: g_inspectConfigMgr is nullptr"});
    kivo::fake::ClearJournal();
    EXPECT_EQ(AskList().bytes, support::Bytes(12296, 0));
    EXPECT_EQ(support::LogLines(), Lines{});
}

TEST_F(GetGroupListTest, OfTheDefaultsHas25FilledSlots) {
    Inspect::Init();
    EXPECT_EQ(AskNumber().Number(), 25U);
    const support::Reply list = AskList();
    EXPECT_EQ(CountIn(list), 25U);
    EXPECT_EQ(NameIn(list, 0), "bsp_mainboard_ft");
    EXPECT_EQ(list.bytes[40], 1);
    EXPECT_EQ(NameIn(list, 24), "conf_ldapserver_ft");
    EXPECT_EQ(list.bytes[24 * 48 + 40], 0);
    EXPECT_EQ(NameIn(list, 25), "");
}

TEST_F(GetGroupListTest, OfMoreThan256ItemsStopsAtTheLastSlot) {
    std::string xml = "<r><DiagnoseList>";
    for (int i = 0; i < 300; ++i) {
        xml += "<DiagnoseItem name='item" + std::to_string(i) + "' level='warn' isSync='true'/>";
    }
    Write("device/zq_product/etc/config/om/inspect_config.xml", xml + "</DiagnoseList><LogCollect/></r>");
    Inspect::Init();
    EXPECT_EQ(AskNumber().Number(), 300U);  // the number itself has no such limit
    const support::Reply list = AskList();
    EXPECT_EQ(CountIn(list), 256U);
    EXPECT_EQ(NameIn(list, 255), "item255");
}

TEST_F(GetGroupListTest, WithoutMemoryForItTheReplyIsEmpty) {
    Inspect::Init();
    {
        const AllocFailure failure(AllocFailure::Kind::kNothrow, 4);
        EXPECT_TRUE(AskNumber().Empty());
    }
    const AllocFailure failure(AllocFailure::Kind::kNothrow, 12296);
    EXPECT_TRUE(AskList().Empty());
}
