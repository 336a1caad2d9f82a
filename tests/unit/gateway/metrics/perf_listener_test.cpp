// Whose measurements are asked for.
#include "metrics/perf_listener.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ominspect;
using namespace ominspect::gateway;
using namespace std::chrono_literals;

namespace {

// Each of these processes owns an item.
client::Inventory OwnedBy(const std::vector<std::string>& processes) {
    client::Inventory inventory{{}, 0, {}};
    for (const std::string& process : processes) {
        inventory.items.push_back({"item of " + process, std::nullopt, {client::ItemOwner{process, 0ms, true}}});
    }
    return inventory;
}

std::vector<std::string> Processes(int first, int count) {
    std::vector<std::string> names;
    for (int i = first; i < first + count; ++i) {
        names.push_back("owner" + std::to_string(i));
    }
    return names;
}

class PerfListenerTest : public testing::Test {
protected:
    // Those that were asked.
    std::vector<std::string> Look(const client::Inventory& inventory) {
        std::vector<std::string> asked;
        listener.Look(inventory, [&](const std::string& process) {
            asked.push_back(process);
            return failure;
        });
        return asked;
    }
    Part PartNow() const { return parts.All()["metrics"]; }

    std::optional<client::Error> failure;
    Picture picture;
    Parts parts{[](const std::string&, const Part&) {}};
    Metrics metrics{{picture, parts, "1.2.3", [] { return GatewayFigures{}; }}};
    PerfListener listener{metrics, parts};
};

using Names = std::vector<std::string>;

TEST_F(PerfListenerTest, EachOwnerIsAskedOnce) {
    EXPECT_EQ(Look(OwnedBy({"b", "a", "b", "ominspect"})), (Names{"a", "b"}));
    EXPECT_EQ(Look(OwnedBy({"a", "b", "c"})), (Names{"c"}));
    EXPECT_EQ(PartNow().state, PartState::kOk);
    listener.Begin();
    EXPECT_EQ(Look(OwnedBy({"a"})), (Names{"a"})) << "by another session";
}

TEST_F(PerfListenerTest, OneThatCannotBeHeardIsToldAndAskedAgain) {
    failure = client::Error{client::ErrorCode::kInternal, "no memory"};
    EXPECT_EQ(Look(OwnedBy({"a"})), (Names{"a"}));
    EXPECT_EQ(PartNow().state, PartState::kDegraded);
    EXPECT_EQ(PartNow().text, "what a measures is not heard: no memory");
    failure.reset();
    EXPECT_EQ(Look(OwnedBy({"a"})), (Names{"a"}));
    EXPECT_EQ(PartNow().state, PartState::kOk);
}

TEST_F(PerfListenerTest, AreBoundedByThoseThatOwnSomething) {
    EXPECT_EQ(Look(OwnedBy(Processes(0, 129))).size(), 128U);
    EXPECT_EQ(PartNow().text, "more than 128 processes own items");
    EXPECT_EQ(Look(OwnedBy(Processes(1000, 128))).size(), 128U) << "the others have left";
    EXPECT_EQ(PartNow().state, PartState::kOk);
}

}  // namespace
