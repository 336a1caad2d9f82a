// Which paths the patterns of --exclude leave out.
#include "collect/copy_rules.h"

#include <gtest/gtest.h>

using ominspect::collect::CopyRules;

namespace {

TEST(CopyRulesTest, APatternMatchesThePathOrItsLastName) {
    CopyRules rules;
    rules.exclude = {"sub/deep/*.log", "*.core"};
    EXPECT_TRUE(rules.Excludes("sub/deep/a.log"));
    EXPECT_TRUE(rules.Excludes("sub/deep/a.core"));
    EXPECT_TRUE(rules.Excludes("a.core"));
    EXPECT_FALSE(rules.Excludes("deep/a.log"));
    EXPECT_FALSE(rules.Excludes("a.core/b"));
    EXPECT_FALSE(CopyRules().Excludes("a.core"));
}

TEST(CopyRulesTest, AStarMatchesSlashesToo) {
    CopyRules rules;
    rules.exclude = {"s*/a.log"};
    EXPECT_TRUE(rules.Excludes("sub/a.log"));
    EXPECT_TRUE(rules.Excludes("sub/deep/a.log"));
    EXPECT_FALSE(rules.Excludes("sub/deep/b.log"));
}

}  // namespace
