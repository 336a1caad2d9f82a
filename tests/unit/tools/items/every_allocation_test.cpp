// Each allocation that the owner's items need to start a command, to stop it and to say what came of it fails once.
// Each run that was begun has one result, and the next one is carried out.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "items/item_table.h"
#include "support/eventually.h"
#include "support/nth_allocation.h"
#include "support/process_state.h"

using namespace ominspect::items;
using namespace std::chrono_literals;
using support::Eventually;
using support::NthAllocation;
using support::Uncounted;

namespace {

constexpr unsigned kMostAllocations = 2000;
constexpr const char* kArgument = "an argument that is longer than 15 bytes";

class EveryAllocationOfItems : public testing::Test {
protected:
    EveryAllocationOfItems() : config_{"p", 1, {}} {
        // Both outputs are longer than what a string holds without memory of its own.
        const std::string outputs = "echo 'as it should be | load=1'; echo 'nothing to complain of' >&2";
        config_.items = {Item("at_once", true, "echo fine"), Item("soon", true, "sleep 0.05"),
                         Item("later", false, outputs), Item("long", false, "sleep 1000")};
        Make();
    }

    static ItemConfig Item(const std::string& name, bool isSync, const std::string& script) {
        return {name + "_with_a_name_of_more_bytes", 1h, isSync, {"/bin/sh", "-c", script}};
    }

    void Make() {
        const auto take = [this](const tagKivoOmInspectionResult& /*result*/) {
            const std::lock_guard lock(mutex_);
            ++told_;
        };
        const auto defer = [this, take] {
            const std::lock_guard lock(mutex_);
            ++promised_;
            return ItemTable::Answer(take);
        };
        table_ = std::make_unique<ItemTable>(
            config_, take, [](const std::string&, const auto&) {}, defer,
            ItemTable::Times{.termGrace = 1s, .settle = 1ms});
    }

    // The status that a request is answered with at once: empty when the answer comes later, "-" without memory.
    std::string Ask(std::size_t item, const char* argument = kArgument) {
        tagKivoOmInspectionResult result{};
        try {
            (void)table_->Handle(config_.items[item].name, argument, result);
        } catch (const std::bad_alloc&) {
            return "-";
        }
        const Uncounted own;
        std::string status = result.status;
        if (status == "running") {
            const std::lock_guard lock(mutex_);
            ++promised_;
        }
        return status;
    }

    // Whether as many results came as were promised.
    bool IsEven() {
        const std::lock_guard lock(mutex_);
        return told_ == promised_;
    }

    // Stops what goes on, and runs everything once more.
    void StillRuns() {
        ASSERT_TRUE(Eventually([&] { return Ask(kLong, "stop") == "fail"; })) << "a run does not end";
        ASSERT_TRUE(Eventually([&] { return IsEven(); })) << told_ << " results of " << promised_;
        EXPECT_EQ(Ask(kAtOnce), "success");
        EXPECT_EQ(Ask(kLater), "running");
        ASSERT_TRUE(Eventually([&] { return IsEven(); })) << told_ << " results of " << promised_;
        EXPECT_EQ(Ask(kLater, "stop"), "fail");
    }

    // Lets the first allocation fail, the second, and so on until the road needs no more.
    template <typename Road>
    void Everywhere(unsigned least, const Road& road) {
        const auto descriptors = support::Descriptors(getpid());
        unsigned number = 0;
        for (bool happened = true; happened && number < kMostAllocations; ++number) {
            SCOPED_TRACE("allocation " + std::to_string(number));
            {
                const NthAllocation shortage(number);
                road();
                happened = shortage.Happened();
            }
            StillRuns();
            if (HasFailure()) {
                return;
            }
        }
        EXPECT_GE(number, least);
        EXPECT_LT(number, kMostAllocations);
        EXPECT_EQ(support::Descriptors(getpid()), descriptors);
    }

    // What goes on has ended and was told, while the road's allocations are still counted.
    void AwaitResults() {
        const Uncounted own;
        ASSERT_TRUE(Eventually([&] { return IsEven(); })) << told_ << " results of " << promised_;
    }

    enum Which : std::size_t { kAtOnce, kSoon, kLater, kLong };

    OwnerConfig config_;
    std::mutex mutex_;  // guards the two below
    int promised_ = 0;
    int told_ = 0;
    std::unique_ptr<ItemTable> table_;
};

TEST_F(EveryAllocationOfItems, OfASynchronousRun) {
    Everywhere(10, [&] { (void)Ask(kAtOnce); });
}

TEST_F(EveryAllocationOfItems, OfARunInTheBackground) {
    Everywhere(10, [&] {
        (void)Ask(kLater);
        AwaitResults();
    });
}

TEST_F(EveryAllocationOfItems, OfARunThatIsStopped) {
    Everywhere(10, [&] {
        (void)Ask(kLong);
        if (Ask(kLong, "stop") == "-") {
            (void)Ask(kLong, "stop");
        }
        AwaitResults();
    });
}

TEST_F(EveryAllocationOfItems, OfARunWhoseAnswerIsDeferred) {
    Everywhere(10, [&] {
        (void)Ask(kSoon);
        AwaitResults();
    });
}

TEST_F(EveryAllocationOfItems, OfRunsThatWaitForTheirPlace) {
    Everywhere(10, [&] {
        (void)Ask(kSoon);
        (void)Ask(kAtOnce);
        (void)Ask(kSoon);
        AwaitResults();
    });
}

// A table that ends while a command runs has its result told.
TEST_F(EveryAllocationOfItems, OfAnEndWhileACommandRuns) {
    Everywhere(5, [&] {
        (void)Ask(kLong);
        table_->Shutdown();
        const Uncounted own;
        EXPECT_TRUE(IsEven()) << told_ << " results of " << promised_;
        Make();
    });
}

}  // namespace
