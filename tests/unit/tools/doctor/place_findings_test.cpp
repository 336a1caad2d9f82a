// The configuration file, folders and clock.
#include <sys/stat.h>
#include <sys/timex.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "doctor/person.h"
#include "doctor/place_findings.h"
#include "support/temp_folder.h"

using namespace ominspect::doctor;

using support::WriteFile;

namespace {

constexpr unsigned long long kAnyRoom = 0;

// What the kernel says of its clock.
int g_clockState = TIME_OK;
int g_clockStatus = 0;

class PlaceFindings : public testing::Test {
protected:
    static Finding Configuration(const std::string& xml, bool isAsSchemaHasIt = true) {
        WriteFile("c.xml", xml);
        return JudgeConfiguration("c.xml", Diagnose("c.xml"), isAsSchemaHasIt);
    }

    const support::WorkingFolder work_;
    const std::string self_ = UserName(geteuid());
};

constexpr const char* kInOrder =
    "<c><DiagnoseList><DiagnoseItem name='a' level='warn' isSync='true'/></DiagnoseList>"
    "<LogCollect><Log srcPath='/a' dstPath='/b' timeout='5' isFolder='true'/></LogCollect></c>";

TEST_F(PlaceFindings, AConfigurationInOrderIsGood) {
    const Finding found = Configuration(kInOrder);
    EXPECT_EQ(found.verdict, Verdict::kGood);
    EXPECT_EQ(found.text, "c.xml: 1 items, 1 collection entries");
}

TEST_F(PlaceFindings, WhatTheSchemaRefusesIsAWarning) {
    const Finding found = Configuration(kInOrder, false);
    EXPECT_EQ(found.verdict, Verdict::kWarning);
    EXPECT_EQ(found.advice, "ominspectctl doctor --config c.xml says what");
}

TEST_F(PlaceFindings, WhatFallsBackIsAWarning) {
    const Finding found = Configuration(
        "<c><DiagnoseList/><LogCollect><Log srcPath='/a' dstPath='/b' timeout='5s' isFolder='true'/></LogCollect></c>");
    EXPECT_EQ(found.verdict, Verdict::kWarning);
    EXPECT_EQ(found.text, "c.xml: 0 items, 1 collection entries; some values fall back");
    EXPECT_EQ(found.advice, "ominspectctl doctor --config c.xml says which");
}

TEST_F(PlaceFindings, WhatNobodyReadsIsAWarning) {
    const Finding found = Configuration(
        "<c><DiagnoseList><DiagnoseItem name='a' level='warn' isSync='true' "
        "colour='red'/></DiagnoseList><LogCollect/></c>");
    EXPECT_EQ(found.verdict, Verdict::kWarning);
    EXPECT_EQ(found.advice, "ominspectctl doctor --config c.xml says what");
}

TEST_F(PlaceFindings, AConfigurationThatIsMissingOrBrokenIsAWarning) {
    const Finding missing = JudgeConfiguration("no.xml", Diagnose("no.xml"), false);
    EXPECT_EQ(missing.verdict, Verdict::kWarning);
    EXPECT_TRUE(missing.text.starts_with("no.xml: not there; so the built-in items")) << missing.text;
    EXPECT_TRUE(missing.advice.starts_with("put a file there")) << missing.advice;
    const Finding broken = Configuration("<c>");
    EXPECT_EQ(broken.verdict, Verdict::kWarning);
    EXPECT_NE(broken.text.find("XML_ERROR"), std::string::npos) << broken.text;
    EXPECT_EQ(broken.advice, "mend it, and restart the server");
}

TEST_F(PlaceFindings, AFolderWithRoomIsGood) {
    const Finding found = JudgeFolder("log", ".", self_, kAnyRoom);
    EXPECT_EQ(found.verdict, Verdict::kGood) << found.text;
    EXPECT_EQ(found.subject, "log");
    EXPECT_TRUE(found.text.starts_with(".: ") && found.text.ends_with(" free")) << found.text;
}

TEST_F(PlaceFindings, AFolderThatIsNotThereIsMadeLater) {
    const Finding found = JudgeFolder("log", "none", self_, kAnyRoom);
    EXPECT_EQ(found.verdict, Verdict::kUnknown);
    EXPECT_EQ(found.text, "none: not there; it is made when something is written");
}

TEST_F(PlaceFindings, AFolderThatIsNoneOrCannotBeReachedIsAWarning) {
    WriteFile("file", "x");
    EXPECT_EQ(JudgeFolder("log", "file", self_, kAnyRoom).text, "file: not a folder");
    EXPECT_EQ(JudgeFolder("log", "file", self_, kAnyRoom).verdict, Verdict::kWarning);
    const Finding beyond = JudgeFolder("log", "file/below", self_, kAnyRoom);
    EXPECT_EQ(beyond.verdict, Verdict::kWarning);
    EXPECT_EQ(beyond.text, "file/below: Not a directory");
}

TEST_F(PlaceFindings, AFolderOfAnotherUserOrNotForWritingIsAWarning) {
    const Finding foreign = JudgeFolder("log", ".", "somebody", kAnyRoom);
    EXPECT_EQ(foreign.verdict, Verdict::kWarning);
    EXPECT_EQ(foreign.text, ".: user somebody may not write there (it is " + self_ + "'s)");
    EXPECT_EQ(foreign.advice, "chown somebody .; chmod u+rwx .");
    EXPECT_EQ(JudgeFolder("log", ".", "", kAnyRoom).verdict, Verdict::kGood) << "the user is not known";
    ASSERT_EQ(mkdir("closed", 0500), 0);
    EXPECT_EQ(JudgeFolder("log", "closed", self_, kAnyRoom).verdict, Verdict::kWarning);
}

TEST_F(PlaceFindings, AFolderThatTheUserMayNotSeeIsUnknown) {
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(mkdir("closed", 0), 0);
    const uid_t before = geteuid();
    ASSERT_TRUE(before != 0 || seteuid(kNobody) == 0);
    const Finding found = JudgeFolder("log", "closed/below", self_, kAnyRoom);
    ASSERT_EQ(seteuid(before), 0);
    EXPECT_EQ(found.verdict, Verdict::kUnknown);
    EXPECT_EQ(found.text, "closed/below: not visible to this user");
}

TEST_F(PlaceFindings, AFolderWithoutRoomIsAWarning) {
    const Finding found = JudgeFolder("log", ".", self_, 1ULL << 62U);
    EXPECT_EQ(found.verdict, Verdict::kWarning);
    EXPECT_EQ(found.advice, "make room: 4194304.0 TiB should be free");
}

TEST(ClockFinding, AClockBeforeTheReleaseIsNotSet) {
    EXPECT_EQ(JudgeClock(1767225599, true).verdict, Verdict::kFailure);
    EXPECT_EQ(JudgeClock(1767225599, true).text, "2025-12-31T23:59:59Z: not set; times of results and logs are wrong");
    EXPECT_EQ(JudgeClock(1767225600, true).verdict, Verdict::kGood);
    EXPECT_EQ(JudgeClock(1767225600, true).text, "2026-01-01T00:00:00Z, synchronised");
}

TEST_F(PlaceFindings, ThePolicyIsLoadedLinkedOrInstalled) {
    const auto advice = [] { return PolicyAdvice({"shipped", "own"}, "local"); };
    EXPECT_EQ(advice(), "install the package ominspect, which brings the policy");
    WriteFile("local/com.kivo.proc.conf", "");
    EXPECT_EQ(advice(), "ln -s local/com.kivo.proc.conf own; systemctl reload dbus");
    for (const char* file : {"own/com.kivo.proc.conf", "shipped/com.kivo.proc.conf"}) {
        WriteFile(file, "");
        EXPECT_EQ(advice(), "systemctl reload dbus") << file;
        std::filesystem::remove(file);
    }
}

TEST(ClockFinding, AClockThatRunsByItselfIsAWarning) {
    const Finding found = JudgeClock(1767225600, false);
    EXPECT_EQ(found.verdict, Verdict::kWarning);
    EXPECT_EQ(found.text, "2026-01-01T00:00:00Z, not synchronised");
}

TEST(ClockFinding, AClockIsSynchronisedWhenTheKernelSaysSoInBothWays) {
    g_clockState = TIME_INS;
    g_clockStatus = STA_PLL;
    EXPECT_TRUE(IsClockSynchronised());
    g_clockStatus = STA_PLL | STA_UNSYNC;
    EXPECT_FALSE(IsClockSynchronised());
    g_clockState = TIME_ERROR;
    g_clockStatus = STA_PLL;
    EXPECT_FALSE(IsClockSynchronised());
}

}  // namespace

// Called in the place of the C library's.
extern "C" int adjtimex(timex* state) noexcept {
    state->status = g_clockStatus;
    return g_clockState;
}
