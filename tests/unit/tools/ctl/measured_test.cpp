// The values that belong to the last run of an item, out of what is heard of all items.
#include "measured.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace ominspect;
using namespace ominspect::ctl;
using Labels = std::vector<std::string>;

namespace {

class MeasuredTest : public testing::Test {
protected:
    void Hear(const char* item, const char* status) { measured_.HearRun({item, status, ""}); }

    void Tell(const char* item, const char* label) {
        client::PerfData data;
        data.item = item;
        data.values.emplace_back();
        data.values.back().label = label;
        measured_.Take(data);
    }

    Labels Found() {
        Labels labels;
        for (const client::PerfValue& value : measured_.Values()) {
            labels.push_back(value.label);
        }
        return labels;
    }

    Measured measured_{"load"};
};

TEST_F(MeasuredTest, TheValuesOfARunAreThoseToldInIt) {
    Hear("load", "running");
    Tell("load", "load1");
    EXPECT_EQ(Found(), Labels{"load1"});
    Hear("load", "success");
    EXPECT_EQ(Found(), Labels{"load1"});
}

TEST_F(MeasuredTest, ARunOfWhichNothingIsToldHasNotTheValuesOfTheRunBefore) {
    Hear("load", "running");
    Tell("load", "load1");
    Hear("load", "success");
    Hear("load", "running");
    Hear("load", "fail");
    EXPECT_EQ(Found(), Labels{});
}

TEST_F(MeasuredTest, ValuesThatComeAfterTheResultAreWaitedFor) {
    const std::jthread owner([this] { Tell("load", "load1"); });
    EXPECT_EQ(Found(), Labels{"load1"});
}

TEST_F(MeasuredTest, WhatIsHeardOfOtherItemsCountsForNothing) {
    Hear("load", "running");
    Tell("load", "load1");
    Tell("disk", "free");
    Hear("disk", "running");
    EXPECT_EQ(Found(), Labels{"load1"});
}

}  // namespace
