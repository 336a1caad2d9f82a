// The catalogue of inspection groups.
#include "handlers/group_catalogue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/records.h"

using support::Request;

TEST(GroupCatalogueTest, ListsTheFallbackFirst) {
    EXPECT_EQ(GetGroupList(), (std::vector<std::string>{"unknown_group", "kivo_group_trace"}));
}

TEST(GroupCatalogueTest, KnowsTheFourMembersOfTheTraceGroup) {
    for (const char* member : {"kivo_om_diag_log", "kivo_om_diag_reports", "kivo_om_diag_msg", "kivo_devm_uwb_log"}) {
        EXPECT_EQ(GetGroupName({Request(member, "")}), "kivo_group_trace") << member;
    }
}

TEST(GroupCatalogueTest, KnowsNoOtherMember) {
    for (const char* name : {"", "kivo_om_diag", "kivo_om_diag_log2", "kivo_group_trace", "unknown_group"}) {
        EXPECT_EQ(GetGroupName({Request(name, "")}), "unknown_group") << name;
    }
}

TEST(GroupCatalogueTest, ALaterTextMayNameTheMember) {
    EXPECT_EQ(GetGroupName({Request("other", ""), Request("kivo_om_diag_msg", "")}), "kivo_group_trace");
}

TEST(GroupCatalogueTest, TextsAfterTheMemberAreNotLookedAt) {
    EXPECT_EQ(GetGroupName({Request("kivo_om_diag_msg", ""), "no JSON"}), "kivo_group_trace");
}

TEST(GroupCatalogueTest, ATextWithoutNameDecidesForTheFallback) {
    EXPECT_EQ(GetGroupName({"{\"cmd\":\"x\"}", Request("kivo_om_diag_msg", "")}), "unknown_group");
    EXPECT_EQ(GetGroupName({"no JSON", Request("kivo_om_diag_msg", "")}), "unknown_group");
}

TEST(GroupCatalogueTest, ANameThatDoesNotFitDecidesForTheFallback) {
    EXPECT_EQ(GetGroupName({Request(std::string(32, 'a'), ""), Request("kivo_om_diag_msg", "")}), "unknown_group");
    EXPECT_EQ(GetGroupName({Request(std::string(31, 'a'), ""), Request("kivo_om_diag_msg", "")}), "kivo_group_trace");
}

TEST(GroupCatalogueTest, NoTextsAreTheFallback) {
    EXPECT_EQ(GetGroupName({}), "unknown_group");
}
