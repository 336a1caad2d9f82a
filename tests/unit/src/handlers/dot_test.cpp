// Usage reports: accepted and ignored.
#include "handlers/handlers.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;

namespace {

using InspectDotTest = support::PlatformTest;

}  // namespace

TEST_F(InspectDotTest, ReportsLeaveTheReplyEmpty) {
    std::unique_ptr<unsigned char[]> reply;
    unsigned int replyLength = 0;
    Inspect::SetInspectDotReportInfo(support::Envelope(14, "payload").Get(), reply, replyLength);
    Inspect::NotifyInspectDotPackage(support::Envelope(16, "payload").Get(), reply, replyLength);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(replyLength, 0U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectDotTest, InitDotDoesNothing) {
    Inspect::InitDot();
    EXPECT_EQ(support::Steps(), Lines{});
}
