// The built-in tables, held against the copy of them that the tests have.
#include "config/default_config.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "config_text.h"

using support::kDefaultEntries;
using support::kDefaultItems;
using support::Lines;
using support::Text;

TEST(InspectDefaultConfigTest, Has25ItemsInOrder) {
    const Lines items = Text(InspectDefaultConfig::g_supportInspectList);
    EXPECT_EQ(items, kDefaultItems);
    EXPECT_EQ(items.size(), 25U);
    EXPECT_EQ(std::count_if(items.begin(), items.end(), [](const std::string& item) { return item.back() == '1'; }),
              24);
}

TEST(InspectDefaultConfigTest, Has20EntriesInOrder) {
    const Lines entries = Text(InspectDefaultConfig::g_defaultLogCollectList);
    EXPECT_EQ(entries, kDefaultEntries);
    EXPECT_EQ(entries.size(), 20U);
}
