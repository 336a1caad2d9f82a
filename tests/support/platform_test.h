// The base of all tests on the fake platform.
#pragma once

#include <gtest/gtest.h>

#include "fake/fake.h"

namespace support {

/// Begins each test on a fresh platform and ends it with no thread alive.
class PlatformTest : public testing::Test {
protected:
    void SetUp() override { kivo::fake::Reset(); }
    void TearDown() override { EXPECT_TRUE(kivo::fake::Finish()) << "a job still runs"; }
};

}  // namespace support
