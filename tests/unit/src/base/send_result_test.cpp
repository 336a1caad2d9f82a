// The sender of asynchronous results.
#include "base/send_result.h"

#include <algorithm>
#include <string>

#include "support/journal_text.h"
#include "support/platform_test.h"
#include "support/records.h"

using support::Lines;

namespace {

using SendASyncResultTest = support::PlatformTest;

const support::Bytes kPayload{1, 2, 3};

}  // namespace

TEST_F(SendASyncResultTest, SendsTheBytesToTheClient) {
    SendASyncResult(1, {"client", "cli_reply"}, kPayload.data(), 3);
    const auto journal = kivo::fake::Journal();
    ASSERT_EQ(journal.size(), 1U);
    EXPECT_EQ(journal[0].kind, kivo::fake::Kind::kAsyncSend);
    EXPECT_EQ(journal[0].id, 1U);
    EXPECT_EQ(journal[0].proc, "client");
    EXPECT_EQ(journal[0].task, "cli_reply");
    EXPECT_EQ(journal[0].data, (support::Bytes{1, 2, 3}));
}

TEST_F(SendASyncResultTest, LeavesEverythingElseInTheEnvelopeZero) {
    SendASyncResult(0x01020304, {"client", "cli_reply"}, kPayload.data(), 3);
    support::Bytes expected(sizeof(TagMsgBlock), 0);
    const support::Bytes id{0x04, 0x03, 0x02, 0x01};
    std::copy(id.begin(), id.end(), expected.begin() + 48);
    const std::string proc = "client";
    std::copy(proc.begin(), proc.end(), expected.begin() + 56);
    const std::string task = "cli_reply";
    std::copy(task.begin(), task.end(), expected.begin() + 72);
    expected[156] = 3;  // dataLen; the journal shows the pointer as null
    EXPECT_EQ(support::BytesOf(kivo::fake::Journal().at(0).envelope), expected);
}

TEST_F(SendASyncResultTest, NamesOf15BytesFit) {
    SendASyncResult(0, {"fifteen_letters", "fifteen_LETTERS"}, kPayload.data(), 3);
    EXPECT_EQ(support::Steps(), (Lines{"send 0 to fifteen_letters:fifteen_LETTERS: <3 bytes>"}));
}

TEST_F(SendASyncResultTest, AProcessNameOf16BytesIsLoggedAndNothingSent) {
    SendASyncResult(7, {"sixteen_letters_", "cli_reply"}, kPayload.data(), 3);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_dealmsg 19: SendASyncMsg cpy err 7"}));
}

TEST_F(SendASyncResultTest, ATaskNameOf16BytesIsLoggedAndNothingSent) {
    SendASyncResult(8, {"client", "sixteen_letters_"}, kPayload.data(), 3);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_dealmsg 19: SendASyncMsg cpy err 8"}));
}

TEST_F(SendASyncResultTest, ARefusedSendIsLoggedAndNotRepeated) {
    kivo::fake::Fail("OsMsgAsynSend", 0x80020008);
    SendASyncResult(1, {"client", "cli_reply"}, kPayload.data(), 3);
    EXPECT_EQ(support::Steps(), (Lines{"1 inspect_dealmsg 19: SendASyncResult send fail ret:#80020008 id:1"}));
}
