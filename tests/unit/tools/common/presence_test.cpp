// Whether the server is there: when it is asked, and what is told of it. Time and the session are the test's own.
#include "common/presence.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using namespace ominspect;
using namespace std::chrono_literals;

namespace {

std::chrono::steady_clock::time_point g_now{1h};
std::uint64_t g_starts = 0;
std::optional<client::ErrorCode> g_failure;  // what the server's state is asked for in vain
std::vector<std::string> g_asked;

}  // namespace

// In the place of the C++ library's.
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return g_now;
}

// In the place of the client library's.
std::uint64_t client::Session::ServerStarts() const {
    return g_starts;
}

client::Result<client::ItemState> client::Session::State(std::string_view item, const Limit& limit) {
    g_asked.push_back(std::string(item) + " " + std::to_string(limit.Left().count()));
    if (g_failure) {
        return client::Error{*g_failure, "the cause"};
    }
    return client::ItemState{};
}

namespace {

class PresenceTest : public testing::Test {
protected:
    PresenceTest() {
        g_starts = 7;
        g_failure.reset();
        g_asked.clear();
        presence_.emplace(reinterpret_cast<client::Session&>(place_), "asker");
        presence_->Begin();
    }

    // What is told after this time.
    std::string After(std::chrono::milliseconds time) {
        g_now += time;
        std::string told;
        presence_->Follow([&told](bool present) { told += present ? "+" : "-"; });
        return told;
    }
    // How long no question follows the last one; time passes in quarters of a second.
    std::chrono::milliseconds Pause() {
        const std::size_t before = g_asked.size();
        auto pause = 0ms;
        while (g_asked.size() == before && pause < 1h) {
            pause += 250ms;
            EXPECT_EQ(After(250ms), "");
        }
        return pause;
    }

    // Nothing looks into it: its functions are those above.
    alignas(client::Session) std::array<std::byte, sizeof(client::Session)> place_{};
    std::optional<Presence> presence_;
};

TEST_F(PresenceTest, AsksForTheServerEveryTwoSeconds) {
    EXPECT_EQ(g_asked, std::vector<std::string>{"asker 1000"}) << "each question may take a second";
    EXPECT_EQ(After(0ms), "");
    EXPECT_EQ(g_asked.size(), 1U);
    EXPECT_EQ(Pause(), 2s);
    EXPECT_EQ(Pause(), 2s);
    EXPECT_TRUE(presence_->IsPresent());
}

TEST_F(PresenceTest, AsksABusyServerLessAndLessOften) {
    g_failure = client::ErrorCode::kTimeLimit;
    EXPECT_EQ(Pause(), 2s);
    for (const auto pause : {4s, 8s, 16s, 32s, 60s, 60s}) {
        EXPECT_EQ(Pause(), pause);
    }
    EXPECT_TRUE(presence_->IsPresent());
    g_failure.reset();
    EXPECT_EQ(Pause(), 60s);
    EXPECT_EQ(Pause(), 2s);
}

TEST_F(PresenceTest, TellsOnceThatTheServerLeftAndThatItStarted) {
    EXPECT_EQ(After(2s), "");
    g_failure = client::ErrorCode::kServerAbsent;
    EXPECT_EQ(After(2s), "-");
    EXPECT_FALSE(presence_->IsPresent());
    EXPECT_EQ(presence_->AbsenceText(), "the cause");
    EXPECT_EQ(Pause(), 2s);
    g_failure.reset();
    EXPECT_EQ(After(2s), "") << "its start is what counts";
    EXPECT_FALSE(presence_->IsPresent());
    ++g_starts;
    EXPECT_EQ(After(0ms), "+");
    EXPECT_TRUE(presence_->IsPresent());
    EXPECT_EQ(After(0ms), "");
    EXPECT_EQ(After(2s), "");
}

TEST_F(PresenceTest, TellsOfARestartThatNoQuestionHasSeen) {
    ++g_starts;
    EXPECT_EQ(After(0ms), "-+");
    EXPECT_EQ(After(0ms), "");
    EXPECT_TRUE(presence_->IsPresent());
}

}  // namespace
