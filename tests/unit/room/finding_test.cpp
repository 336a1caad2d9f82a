// What a check found, made fit for a result.
#include "finding.h"

#include <gtest/gtest.h>

namespace {

using namespace room;

TEST(Finding, ATextIsOneLineOf127BytesWithWholeCharacters) {
    EXPECT_EQ(Fail("a|b\nc").text, "a/b c");
    EXPECT_EQ(Warn(std::string(126, 'x') + "°").text, std::string(126, 'x'));
    EXPECT_EQ(Warn(std::string(125, 'x') + "°").text, std::string(125, 'x') + "°");
    EXPECT_EQ(Success("\xff").text, "?");
}

TEST(Finding, StatusWordsAreThoseOfTheServersClients) {
    EXPECT_EQ(StatusWord(Success("").status), "success");
    EXPECT_EQ(StatusWord(Warn("").status), "warn");
    EXPECT_EQ(StatusWord(Fail("").status), "fail");
    EXPECT_EQ(StatusWord(Unknown("").status), "unknown");
}

std::string Sum(const Findings& findings) {
    const Finding sum = findings.Sum("nothing to look at");
    return std::string(StatusWord(sum.status)) + ": " + sum.text;
}

TEST(Finding, TheWorstOfSeveralCounts) {
    Findings findings;
    EXPECT_EQ(Sum(findings), "unknown: nothing to look at");
    findings.Add(Unknown("dark"));
    EXPECT_EQ(Sum(findings), "unknown: dark");
    findings.Add(Success("one"));
    findings.Add(Success("two"));
    EXPECT_EQ(Sum(findings), "success: one; two");
    findings.Add(Warn("hm"));
    EXPECT_EQ(Sum(findings), "warn: hm");
    findings.Add(Fail("no"));
    EXPECT_EQ(Sum(findings), "fail: no");
}

TEST(Finding, AFurtherTextIsThereAsAWholeOrNotAtAll) {
    Findings findings;
    findings.Add(Fail(std::string(100, 'a')));
    findings.Add(Fail(std::string(26, 'b')));
    findings.Add(Fail(std::string(25, 'c')));
    EXPECT_EQ(Sum(findings), "fail: " + std::string(100, 'a') + "; " + std::string(25, 'c'));
}

}  // namespace
