// Where things are on this machine.
#include "collect/places.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace ominspect::collect;

namespace {

TEST(PlacesTest, TheLogFolderIsChosenByTheEnvironment) {
    (void)unsetenv("KIVO_LOG_DIR");
    const std::string usual = ThePlaces().log;
    EXPECT_TRUE(usual.starts_with("/var/log/")) << usual;
    (void)setenv("KIVO_LOG_DIR", "", 1);
    EXPECT_EQ(ThePlaces().log, usual);
    (void)setenv("KIVO_LOG_DIR", "/logs", 1);
    EXPECT_EQ(ThePlaces().log, "/logs");
}

}  // namespace
