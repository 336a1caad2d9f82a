// Operations without a server: how they end, also without memory.
#include "actions/operations.h"

#include <gtest/gtest.h>

#include <mutex>
#include <new>
#include <string>

#include "support/eventually.h"
#include "support/nth_allocation.h"

using namespace ominspect;
using namespace ominspect::gateway;
using support::Eventually;
using support::NthAllocation;
using support::Uncounted;

namespace {

const Order kRun{OperationKind::kRun, {"disk"}, "", std::chrono::seconds(60), "somebody with a long name, for whom"};

class OperationsTest : public testing::Test {
protected:
    bool HaveEnded() const {
        const Uncounted own;
        return operations.All().Print().find("going-on") == std::string::npos;
    }

    // How often an end is told, once all that was posted is.
    int ToldEnds() {
        int ends = 0;
        feed.Subscribe([&](const Event& event) { ends += event.document.find("\"ended\"") != std::string::npos; });
        feed.Start();
        feed.Stop();
        return ends;
    }

    Link link;
    Runs runs;
    Picture picture;
    Feed feed{nullptr, 1};
    Operations operations{link, runs, picture, feed};
};

TEST_F(OperationsTest, WithoutTheBusEndAtOnce) {
    ASSERT_TRUE(operations.Begin(kRun));
    EXPECT_TRUE(Eventually([&] { return HaveEnded(); }));
    operations.StopAll();
    EXPECT_EQ(ToldEnds(), 1);
}

TEST_F(OperationsTest, EachThatHasBegunEndsAndSaysSoWhateverLacksMemory) {
    int begun = 0;
    bool happened = true;
    for (unsigned number = 0; happened && number < 300; ++number) {
        const NthAllocation shortage(number);
        try {
            begun += operations.Begin(kRun) ? 1 : 0;
        } catch (const std::bad_alloc&) {
        }
        const Uncounted own;
        ASSERT_TRUE(Eventually([&] { return HaveEnded(); })) << number;
        happened = shortage.Happened();
    }
    EXPECT_FALSE(happened);
    EXPECT_GT(begun, 10);
    operations.StopAll();
    EXPECT_EQ(ToldEnds(), begun);
}

}  // namespace
