// How findings are shown.
#include <gtest/gtest.h>

#include "doctor/finding.h"

using namespace ominspect::doctor;

namespace {

const std::vector<Finding> kAll{{Verdict::kGood, "bus", "there"},
                                {Verdict::kUnknown, "policy", "not known"},
                                {Verdict::kWarning, "log", "a\nb", "make room"},
                                {Verdict::kFailure, "server", "absent", "start\033it"}};

TEST(Findings, AreALineEachWithWhatToDoBelow) {
    EXPECT_EQ(FindingsText(kAll, false),
              "ok       bus     there\n"
              "unknown  policy  not known\n"
              "warning  log     a\\nb\n"
              "                 -> make room\n"
              "failure  server  absent\n"
              "                 -> start\\u{1B}it\n");
}

TEST(Findings, HaveTheirVerdictsInColour) {
    EXPECT_EQ(FindingsText({kAll[0], kAll[3]}, true),
              "\033[32mok       \033[0mbus     there\n"
              "\033[31mfailure  \033[0mserver  absent\n"
              "                 -> start\\u{1B}it\n");
    EXPECT_TRUE(FindingsText({kAll[1]}, true).starts_with("\033[2munknown  \033[0m"));
    EXPECT_TRUE(FindingsText({kAll[2]}, true).starts_with("\033[33mwarning  \033[0m"));
}

TEST(Findings, AreOneDocument) {
    EXPECT_EQ(FindingsJson({kAll[0], kAll[2]}).Print(),
              R"({"findings":[{"subject":"bus","verdict":"ok","text":"there","advice":""},)"
              R"({"subject":"log","verdict":"warning","text":"a\nb","advice":"make room"}]})");
}

TEST(Findings, AWarningOrAFailureIsWrongAndNothingElse) {
    EXPECT_FALSE(IsAnythingWrong({kAll[0], kAll[1]}));
    EXPECT_TRUE(IsAnythingWrong({kAll[0], kAll[2]}));
    EXPECT_TRUE(IsAnythingWrong({kAll[3], kAll[0]}));
}

}  // namespace
