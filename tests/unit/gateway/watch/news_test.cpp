// What a session tells, and what is made of what it lost.
#include "watch/news.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ominspect;
using namespace ominspect::gateway;

namespace {

class NewsTest : public testing::Test {
protected:
    NewsTest() {
        feed.Subscribe([this](const Event& event) { told.push_back(event); });
        session = news.EventsOfSession();
    }

    // All that was posted by now.
    const std::vector<Event>& Told() {
        feed.Start();
        feed.Stop();
        return told;
    }

    std::vector<Event> told;
    Runs runs;
    Feed feed{nullptr, 1};
    News news{runs, feed};
    client::Events session;
};

TEST_F(NewsTest, AreEvents) {
    session.onBusy(true);
    session.onRun({"disk", "running", "begin"});
    session.onRun({"disk", "success", "fine"});
    session.onBusy(false);
    std::string words;
    for (const Event& event : Told()) {
        words += std::string(WordOf(event.kind)) + " " + event.item + " " + event.status + ",";
    }
    EXPECT_EQ(words, "busy  busy,began disk running,result disk success,busy  idle,");
    EXPECT_TRUE(told[2].duration);
}

TEST_F(NewsTest, ALossIsAGapOnce) {
    news.TellLost(0);
    news.TellLost(3);
    news.TellLost(3);
    news.TellLost(4);
    ASSERT_EQ(Told().size(), 2U);
    EXPECT_EQ(told[0].kind, EventKind::kGap);
    EXPECT_TRUE(told[0].isLoss);
    EXPECT_EQ(told[0].text, "3 events of the server were lost");
    EXPECT_EQ(told[1].text, "1 events of the server were lost");
}

// The end of the run and the next one's beginning may have been lost.
TEST_F(NewsTest, AResultAfterALossHasNoBegin) {
    runs.Claim("disk", "page");
    session.onRun({"disk", "running", "begin"});
    news.TellLost(2);
    session.onRun({"disk", "success", "of another run"});
    const Event& result = Told().back();
    EXPECT_FALSE(result.begin);
    EXPECT_FALSE(result.duration);
    EXPECT_EQ(result.cause, "");
}

TEST_F(NewsTest, AnotherSessionHasLostNothing) {
    news.TellLost(3);
    session.onBusLost();
    EXPECT_TRUE(news.IsBusLost());
    session = news.EventsOfSession();
    EXPECT_FALSE(news.IsBusLost());
    news.TellLost(0);
    EXPECT_EQ(Told().size(), 1U);
}

}  // namespace
