// Message blocks: copies of envelopes, and the unpacking of replies.
#include "base/message_block.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

#include "kivo/os_mem.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"
#include "support/records.h"

using kivo::fake::Answer;
using kivo::fake::Entry;
using support::Bytes;
using support::Envelope;
using support::Lines;
using namespace std::string_view_literals;

static_assert(!std::is_copy_constructible_v<InspectMsgBlock> && !std::is_copy_assignable_v<InspectMsgBlock>);

static_assert(sizeof(TagMsgBlock) == 160 + sizeof(void*));
static_assert(offsetof(TagMsgBlock, msgType) == 0);
static_assert(offsetof(TagMsgBlock, uid) == 4);
static_assert(offsetof(TagMsgBlock, reserved0) == 8);
static_assert(offsetof(TagMsgBlock, reserved1) == 12);
static_assert(offsetof(TagMsgBlock, srcProcName) == 16);
static_assert(offsetof(TagMsgBlock, srcTaskName) == 32);
static_assert(offsetof(TagMsgBlock, msgId) == 48);
static_assert(offsetof(TagMsgBlock, reserved2) == 52);
static_assert(offsetof(TagMsgBlock, dstProcName) == 56);
static_assert(offsetof(TagMsgBlock, dstTaskName) == 72);
static_assert(offsetof(TagMsgBlock, reserved3) == 88);
static_assert(offsetof(TagMsgBlock, param) == 92);
static_assert(offsetof(TagMsgBlock, reserved4) == 96);
static_assert(offsetof(TagMsgBlock, replyTaskName) == 140);
static_assert(offsetof(TagMsgBlock, dataLen) == 156);
static_assert(offsetof(TagMsgBlock, data) == 160);
static_assert(std::is_standard_layout_v<TagMsgBlock> && std::is_trivially_copyable_v<TagMsgBlock>);

namespace {

class InspectMsgBlockTest : public support::PlatformTest {
protected:
    void TearDown() override {
        EXPECT_EQ(Held().blocks, 0U) << "a payload leaked";
        PlatformTest::TearDown();
    }

    static OsMemUsage Held() { return OsMemGetUsage("InspectMsg"); }

    static Bytes Payload(const InspectMsgBlock& block) { return {block.data, block.data + block.dataLen}; }

    // A reply as the message layer gives it.
    static TagMsgBlock* ReplyOf(const Bytes& payload) {
        kivo::fake::SetPeer("owner", "task", [payload](const Entry&) { return Answer{.data = payload}; });
        Envelope message(4);
        std::copy_n("owner", 6, static_cast<char*>(message.Get()->dstProcName));
        std::copy_n("task", 5, static_cast<char*>(message.Get()->dstTaskName));
        message.Get()->replyTaskName[0] = '\0';
        TagMsgBlock* reply = nullptr;
        EXPECT_EQ(OsMsgSynSend(message.Get(), &reply, 1000), OS_MSG_OK);
        kivo::fake::ClearJournal();
        return reply;
    }
};

const unsigned char kBytes[] = {9, 8, 7, 6};

}  // namespace

TEST_F(InspectMsgBlockTest, CopiesAnEnvelopeAndItsPayload) {
    Envelope message(77, "pay\0load"sv);
    const InspectMsgBlock block(*message.Get());
    EXPECT_EQ(block.msgId, 77U);
    EXPECT_EQ(block.srcProcName, "client");
    EXPECT_EQ(block.srcTaskName, "cli_task");
    EXPECT_EQ(block.dstProcName, "ominspect");
    EXPECT_EQ(block.dstTaskName, "iom_srv_task");
    EXPECT_EQ(Payload(block), support::BytesOfText("pay\0load"sv));
    EXPECT_NE(block.data, message.Get()->data);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectMsgBlockTest, ReadsNamesWithoutNulToTheirEnds) {
    Envelope message(77);
    message.From("sixteen_letters_", "SIXTEEN_LETTERS_", "");
    const InspectMsgBlock block(*message.Get());
    EXPECT_EQ(block.srcProcName, "sixteen_letters_");
    EXPECT_EQ(block.srcTaskName, "SIXTEEN_LETTERS_");
}

TEST_F(InspectMsgBlockTest, OfAnEmptyEnvelopeHoldsAZeroLengthBlockThatCanBeFreedTwice) {
    InspectMsgBlock block(*Envelope(1).Get());
    EXPECT_NE(block.data, nullptr);
    EXPECT_EQ(block.dataLen, 0U);
    EXPECT_EQ(Held().blocks, 1U);
    EXPECT_EQ(Held().bytes, 0U);
    block.FreeMsgData();
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(Held().blocks, 0U);
    block.FreeMsgData();
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectMsgBlockTest, OfAnEnvelopeWithALengthButNoPayloadIsAllZero) {
    Envelope message(1);
    message.Get()->dataLen = 3;
    EXPECT_EQ(Payload(InspectMsgBlock(*message.Get())), (Bytes{0, 0, 0}));
}

TEST_F(InspectMsgBlockTest, WithoutMemoryForAnEnvelopesPayloadHasNone) {
    kivo::fake::Fail("OsMemMallocSetCharMon", 0);
    const InspectMsgBlock block(*Envelope(1, "payload").Get());
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(block.dataLen, 7U);
    EXPECT_EQ(block.srcProcName, "client");
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: CreatMsgData OsMemMallocSetNull fail, data is null"}));
}

TEST_F(InspectMsgBlockTest, IsReplacedByCreatMsgDataWithoutALeak) {
    InspectMsgBlock block(*Envelope(1, "first").Get());
    block.CreatMsgData(*Envelope(2, "other one").From("p", "t", "r").Get());
    EXPECT_EQ(block.msgId, 2U);
    EXPECT_EQ(block.srcProcName, "p");
    EXPECT_EQ(Payload(block), support::BytesOfText("other one"));
    EXPECT_EQ(Held().blocks, 1U);
}

TEST_F(InspectMsgBlockTest, IsMadeOfItsParts) {
    const InspectMsgBlock block(5, "sp", "st", "dp", "dt", 4, kBytes);
    EXPECT_EQ(block.msgId, 5U);
    EXPECT_EQ(block.srcProcName, "sp");
    EXPECT_EQ(block.srcTaskName, "st");
    EXPECT_EQ(block.dstProcName, "dp");
    EXPECT_EQ(block.dstTaskName, "dt");
    EXPECT_EQ(Payload(block), (Bytes{9, 8, 7, 6}));
    EXPECT_NE(block.data, kBytes);
    EXPECT_EQ(Held().bytes, 4U);
}

TEST_F(InspectMsgBlockTest, WithoutMemoryForItsPartsHasNoPayload) {
    kivo::fake::Fail("OsMemMallocSetCharMon", 0);
    const InspectMsgBlock block(5, "sp", "st", "dp", "dt", 4, kBytes);
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(block.dataLen, 4U);
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: RefreshData OsMemMallocSetNull fail, data is null"}));
}

TEST_F(InspectMsgBlockTest, RefreshDataReplacesThePayloadAndLeavesTheLength) {
    InspectMsgBlock block(5, "sp", "st", "dp", "dt", 4, kBytes);
    const unsigned char other[] = {1, 2};
    block.RefreshData(2, other);
    EXPECT_EQ(block.data[0], 1);
    EXPECT_EQ(block.data[1], 2);
    EXPECT_EQ(block.dataLen, 4U);
    EXPECT_EQ(Held().blocks, 1U);
    EXPECT_EQ(Held().bytes, 2U);
}

TEST_F(InspectMsgBlockTest, RefreshDataWithoutMemoryDropsThePayload) {
    InspectMsgBlock block(5, "sp", "st", "dp", "dt", 4, kBytes);
    kivo::fake::Fail("OsMemMallocSetCharMon", 0);
    block.RefreshData(4, kBytes);
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(Held().blocks, 0U);
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: RefreshData OsMemMallocSetNull fail, data is null"}));
}

TEST_F(InspectMsgBlockTest, FillsAnEnvelope) {
    const InspectMsgBlock block(0x01020304, "fifteen_letters", "st", "dp", "dt", 4, kBytes);
    TagMsgBlock message{};
    message.msgType = 0xaaaaaaaa;
    message.uid = 0xbbbbbbbb;
    message.reserved0 = 0xcccccccc;
    message.reserved1 = 0xdddddddd;
    message.reserved2 = 0xeeeeeeee;
    message.param = 0xffffffff;
    EXPECT_EQ(CreateMsgBlock(block, message), 0U);
    EXPECT_EQ(message.msgId, 0x01020304U);
    EXPECT_STREQ(message.srcProcName, "fifteen_letters");
    EXPECT_STREQ(message.srcTaskName, "st");
    EXPECT_STREQ(message.dstProcName, "dp");
    EXPECT_STREQ(message.dstTaskName, "dt");
    EXPECT_EQ(message.data, block.data);
    EXPECT_EQ(message.dataLen, 4U);
    EXPECT_EQ(message.reserved1, 0U);
    EXPECT_EQ(message.reserved2, 0U);
    EXPECT_EQ(message.msgType, 0xaaaaaaaaU);
    EXPECT_EQ(message.uid, 0xbbbbbbbbU);
    EXPECT_EQ(message.reserved0, 0xccccccccU);
    EXPECT_EQ(message.param, 0xffffffffU);
}

TEST_F(InspectMsgBlockTest, WithANameOf16BytesFillsNoEnvelope) {
    const std::string sixteen = "sixteen_letters_";
    for (int which = 0; which < 4; ++which) {
        kivo::fake::ClearJournal();
        const InspectMsgBlock block(1, which == 0 ? sixteen : "a", which == 1 ? sixteen : "a",
                                    which == 2 ? sixteen : "a", which == 3 ? sixteen : "a", 4, kBytes);
        TagMsgBlock message{};
        EXPECT_EQ(CreateMsgBlock(block, message), 13U);
        EXPECT_EQ(message.data, nullptr);
        EXPECT_EQ(message.dataLen, 0U);
        EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: memcpy_s fail, errno = 34"}));
    }
}

TEST_F(InspectMsgBlockTest, AddsUpTheFailuresOfSeveralNames) {
    const std::string sixteen = "sixteen_letters_";
    const InspectMsgBlock block(1, sixteen, "a", sixteen, "a", 4, kBytes);
    TagMsgBlock message{};
    EXPECT_EQ(CreateMsgBlock(block, message), 13U);
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: memcpy_s fail, errno = 68"}));
}

TEST_F(InspectMsgBlockTest, UnpacksAReplyAndReleasesIt) {
    unsigned char out[4] = {1, 1, 1, 1};
    EXPECT_EQ(TransMsgBlockAndFree(ReplyOf({5, 6, 7}), out, 4), 0U);
    EXPECT_EQ(Bytes(out, out + 4), (Bytes{5, 6, 7, 1}));
    EXPECT_EQ(support::Steps(), (Lines{"OsMsgSynRespFree"}));
}

TEST_F(InspectMsgBlockTest, UnpacksAReplyThatJustFits) {
    unsigned char out[3] = {};
    EXPECT_EQ(TransMsgBlockAndFree(ReplyOf({5, 6, 7}), out, 3), 0U);
    EXPECT_EQ(Bytes(out, out + 3), (Bytes{5, 6, 7}));
}

TEST_F(InspectMsgBlockTest, ANullReplyIs10) {
    unsigned char out[4] = {};
    EXPECT_EQ(TransMsgBlockAndFree(nullptr, out, 4), 10U);
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: [TransMsgBlockAndFree]: resp is null"}));
}

TEST_F(InspectMsgBlockTest, AnEmptyReplyIs11AndReleased) {
    unsigned char out[4] = {};
    EXPECT_EQ(TransMsgBlockAndFree(ReplyOf({}), out, 4), 11U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 InspectMsg 14: [TransMsgBlockAndFree]: resp data is null", "OsMsgSynRespFree"}));
}

TEST_F(InspectMsgBlockTest, AReplyWithDataButNoLengthIs11) {
    TagMsgBlock* reply = ReplyOf({5});
    reply->dataLen = 0;
    unsigned char out[4] = {1};
    EXPECT_EQ(TransMsgBlockAndFree(reply, out, 4), 11U);
    EXPECT_EQ(out[0], 1);
}

TEST_F(InspectMsgBlockTest, UnpacksAReplyOfOneByte) {
    unsigned char out[4] = {};
    EXPECT_EQ(TransMsgBlockAndFree(ReplyOf({5}), out, 4), 0U);
    EXPECT_EQ(out[0], 5);
}

TEST_F(InspectMsgBlockTest, AReplyWithALengthButNoDataIs11AndReleased) {
    TagMsgBlock* reply = ReplyOf({});
    reply->dataLen = 5;
    unsigned char out[4] = {};
    EXPECT_EQ(TransMsgBlockAndFree(reply, out, 4), 11U);
    EXPECT_EQ(support::Steps(),
              (Lines{"1 InspectMsg 14: [TransMsgBlockAndFree]: resp data is null", "OsMsgSynRespFree"}));
}

TEST_F(InspectMsgBlockTest, AReplyThatIsTooLargeIs13AndReleased) {
    unsigned char out[4] = {1, 1, 1, 1};
    EXPECT_EQ(TransMsgBlockAndFree(ReplyOf({5, 6, 7, 8, 9}), out, 4), 13U);
    EXPECT_EQ(Bytes(out, out + 4), (Bytes{1, 1, 1, 1}));
    EXPECT_EQ(support::Steps(), (Lines{"1 InspectMsg 14: memcpy_s fail, errno = 34", "OsMsgSynRespFree"}));
}
