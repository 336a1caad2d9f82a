// Usage reports: accepted and ignored.
#include "handlers/handlers.h"
#include "handlers/init.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;

namespace {

using Dot = support::PlatformTest;

}  // namespace

TEST_F(Dot, ReportsLeaveTheReplyEmpty) {
    std::unique_ptr<unsigned char[]> reply;
    unsigned int replyLen = 0;
    Inspect::SetInspectDotReportInfo(support::Envelope(14, "payload").Get(), reply, replyLen);
    Inspect::NotifyInspectDotPackage(support::Envelope(16, "payload").Get(), reply, replyLen);
    EXPECT_EQ(reply, nullptr);
    EXPECT_EQ(replyLen, 0U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(Dot, InitDotDoesNothing) {
    Inspect::InitDot();
    EXPECT_EQ(support::Steps(), Lines{});
}
