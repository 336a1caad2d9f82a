// Usage reports: accepted and ignored.
#include "handlers/handlers.h"

#include <cstring>
#include <memory>

#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;

namespace {

using InspectDotTest = support::PlatformTest;

}  // namespace

TEST_F(InspectDotTest, ReportsLeaveTheReplyAsItIs) {
    auto reply = std::make_unique<unsigned char[]>(3);
    const unsigned char* const before = reply.get();
    std::memcpy(reply.get(), "abc", 3);
    unsigned int replyLength = 3;
    Inspect::SetInspectDotReportInfo(support::Envelope(14, "payload").Get(), reply, replyLength);
    Inspect::NotifyInspectDotPackage(support::Envelope(16, "payload").Get(), reply, replyLength);
    ASSERT_EQ(reply.get(), before);
    EXPECT_EQ(std::memcmp(reply.get(), "abc", 3), 0);
    EXPECT_EQ(replyLength, 3U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectDotTest, InitDotDoesNothing) {
    Inspect::InitDot();
    EXPECT_EQ(support::Steps(), Lines{});
}
