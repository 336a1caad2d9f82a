// The message layer's own log lines, and the texts of its results.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "bus_test.h"

namespace {

using support::AddTask;
using support::Gate;
using support::Inbox;
using support::Post;
using support::WaitFor;

std::mutex g_mutex;
std::vector<std::string> g_lines;

void KeepLine(const char* text) {
    const std::lock_guard lock(g_mutex);
    g_lines.emplace_back(text);
}

std::vector<std::string> Lines() {
    const std::lock_guard lock(g_mutex);
    return g_lines;
}

class OsMsgDiagnosisTest : public support::BusTest {
protected:
    void SetUp() override {
        BusTest::SetUp();
        g_lines.clear();
        OsMsgRegLogFunc(KeepLine);
    }

    void TearDown() override {
        BusTest::TearDown();
        OsMsgRegLogFunc(nullptr);
        OsMsgSetLogLevel(2);
    }

    // Loses one message.
    static void Overflow() {
        const Gate gate;
        const Inbox inbox;
        AddTask(
            "busy",
            [gate, inbox](const TagMsgBlock& message) {
                gate.Pass();
                inbox.Put(message);
                return 0U;
            },
            1);
        Post("tester", "busy");
        ASSERT_TRUE(gate.Reached());
        Post("tester", "busy");
        Post("tester", "busy");
        EXPECT_TRUE(WaitFor([] { return OsMsgDroppedCount("busy") == 1; }));
        gate.Open();
        EXPECT_TRUE(inbox.Await(2));
    }

    // A handler's result that is not 0; the task has gone on afterwards.
    static void BadResult() {
        const Inbox inbox;
        AddTask("bad", [inbox](const TagMsgBlock& message) {
            inbox.Put(message);
            return 1234567U;
        });
        Post("tester", "bad");
        Post("tester", "bad");
        ASSERT_TRUE(inbox.Await(2));
    }
};

bool AnyHas(const std::string& word) {
    return std::ranges::any_of(Lines(),
                               [&word](const std::string& line) { return line.find(word) != std::string::npos; });
}

}  // namespace

TEST_F(OsMsgDiagnosisTest, ALostMessageIsLogged) {
    Overflow();
    EXPECT_TRUE(AnyHas("busy"));
    for (const std::string& line : Lines()) {
        EXPECT_FALSE(line.empty());
        EXPECT_EQ(line.find('\n'), std::string::npos);
    }
}

TEST_F(OsMsgDiagnosisTest, LevelNoneLeavesEverythingOut) {
    OsMsgSetLogLevel(0);
    Overflow();
    BadResult();
    EXPECT_EQ(Lines(), std::vector<std::string>{});
}

TEST_F(OsMsgDiagnosisTest, LevelErrorLeavesWarningsOut) {
    OsMsgSetLogLevel(1);
    Overflow();
    EXPECT_FALSE(AnyHas("busy"));
}

TEST_F(OsMsgDiagnosisTest, AHandlersResultIsLogged) {
    OsMsgSetLogLevel(3);
    BadResult();
    EXPECT_TRUE(WaitFor([] { return AnyHas("1234567"); }));
}

TEST_F(OsMsgDiagnosisTest, ResultsHaveTexts) {
    const uint32_t results[] = {0,          0x80020002, 0x80020003, 0x80020004, 0x80020005, 0x80020006,
                                0x80020007, 0x80020008, 0x80020009, 0x8002000a, 0x8002000b, 0x8002000c,
                                0x8002000d, 0x8002000e, 0x8002000f, 0x80020010};
    std::set<std::string> texts;
    for (const uint32_t result : results) {
        ASSERT_NE(OsMsgResultText(result), nullptr);
        EXPECT_STRNE(OsMsgResultText(result), "");
        texts.insert(OsMsgResultText(result));
    }
    EXPECT_EQ(texts.size(), std::size(results));
    ASSERT_NE(OsMsgResultText(12345), nullptr);
    EXPECT_STRNE(OsMsgResultText(12345), "");
}
