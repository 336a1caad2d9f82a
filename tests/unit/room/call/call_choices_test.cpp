// The call program's settings: where they are found, and what each value is called.
#include "call/call_choices.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_folder.h"

using namespace room;

namespace {

void ExpectFinding(const Finding& finding, Status status, const std::string& text) {
    EXPECT_EQ(finding.status, status) << finding.text;
    EXPECT_EQ(finding.text, text);
}

KeyState StateOf(std::string_view text) {
    return FindKey(text, "dnd").state;
}

std::string ValueIn(std::string_view text) {
    return FindKey(text, "dnd").value;
}

TEST(FindKey, TakesTheUsualWaysOfWriting) {
    EXPECT_EQ(ValueIn("dnd=on"), "on");
    EXPECT_EQ(ValueIn("[calls]\n # dnd = x\n;dnd = y\n\tdnd : off \r\nother = 1\n"), "off");
    EXPECT_EQ(ValueIn("dnd = \"a b\"\n"), "a b");
    EXPECT_EQ(ValueIn("dnd = 'on'"), "on");
    EXPECT_EQ(ValueIn("dnd = \""), "\"");
    EXPECT_EQ(ValueIn("dnd = a=b"), "a=b");
    EXPECT_EQ(ValueIn("dnd ="), "");
    EXPECT_EQ(StateOf("dnd ="), KeyState::Found);
}

TEST(FindKey, TakesNothingForTheKeyThatIsNot) {
    EXPECT_EQ(StateOf(""), KeyState::Absent);
    EXPECT_EQ(StateOf("dnd\nxdnd = 1\ndndx = 1\nDND = 1\n=dnd\n[dnd = 1]"), KeyState::Absent);
    EXPECT_EQ(StateOf("dnd = 1\n[other]\ndnd = 1\n"), KeyState::Twice);
}

TEST(DoNotDisturb, OnIsAFailure) {
    CallSettings settings;
    ExpectFinding(CheckDoNotDisturb(settings), Status::Unknown, "not known: name Call/DoNotDisturb in the room's file");
    settings.doNotDisturb = Choice{"false", "", ""};
    ExpectFinding(CheckDoNotDisturb(settings), Status::Success, "do not disturb is off");
    settings.doNotDisturb = Choice{"true", "", ""};
    ExpectFinding(CheckDoNotDisturb(settings), Status::Fail, "do not disturb is on: calls do not ring; switch it off");
}

TEST(AutoAnswer, MutedIsAWarning) {
    CallSettings settings;
    ExpectFinding(CheckAutoAnswerMuted(settings), Status::Unknown,
                  "not known: name Call/AutoAnswer in the room's file");
    settings.autoAnswerMuted = Choice{"false", "", ""};
    ExpectFinding(CheckAutoAnswerMuted(settings), Status::Success, "calls are not answered muted");
    settings.autoAnswerMuted = Choice{"true", "", ""};
    ExpectFinding(CheckAutoAnswerMuted(settings), Status::Warn,
                  "calls are answered with the microphones muted; nobody is heard until they are unmuted");
}

TEST(DefaultBandwidth, BelowTheLeastIsAWarning) {
    CallSettings settings;
    ExpectFinding(CheckDefaultBandwidth(settings), Status::Unknown,
                  "not known: name Call/DefaultBandwidth in the room's file");
    settings.defaultBandwidth = Bandwidth{{"1024", "", ""}, 1024};
    ExpectFinding(CheckDefaultBandwidth(settings), Status::Success, "calls are made with 1024 kbit/s");
    settings.defaultBandwidth = Bandwidth{{"1023", "", ""}, 1024};
    ExpectFinding(CheckDefaultBandwidth(settings), Status::Warn,
                  "calls are made with 1023 kbit/s, less than 1024 kbit/s; raise the default call bandwidth");
}

TEST(MaxIncomingBandwidth, BelowTheLeastOrTheRoomsOwnIsAWarning) {
    CallSettings settings;
    ExpectFinding(CheckMaxIncomingBandwidth(settings), Status::Unknown,
                  "not known: name Call/MaxIncomingBandwidth in the room's file");
    settings.maxIncomingBandwidth = Bandwidth{{"2048", "", ""}, 1024};
    ExpectFinding(CheckMaxIncomingBandwidth(settings), Status::Success, "incoming calls get at most 2048 kbit/s");
    settings.defaultBandwidth = Bandwidth{{"2048", "", ""}, 1024};
    ExpectFinding(CheckMaxIncomingBandwidth(settings), Status::Success, "incoming calls get at most 2048 kbit/s");
    settings.defaultBandwidth = Bandwidth{{"2049", "", ""}, 1024};
    ExpectFinding(CheckMaxIncomingBandwidth(settings), Status::Warn,
                  "incoming calls get at most 2048 kbit/s, less than this room's own calls (2049 kbit/s); raise it");
    settings.maxIncomingBandwidth = Bandwidth{{"512", "", ""}, 1024};
    ExpectFinding(CheckMaxIncomingBandwidth(settings), Status::Warn,
                  "incoming calls get at most 512 kbit/s, less than 1024 kbit/s; raise it");
}

class ChoiceInFile : public testing::Test {
protected:
    Finding DoNotDisturb(const std::string& text) {
        support::WriteFile(path, text);
        settings.doNotDisturb = Choice{"", path, "dnd"};
        return CheckDoNotDisturb(settings);
    }
    Finding Bandwidth(const std::string& text) {
        support::WriteFile(path, text);
        settings.defaultBandwidth = room::Bandwidth{{"", path, "rate"}, 1024};
        return CheckDefaultBandwidth(settings);
    }
    support::TempFolder folder;
    const std::string path = folder / "calls.conf";
    CallSettings settings;
};

TEST_F(ChoiceInFile, IsReadAtEachCheck) {
    EXPECT_EQ(DoNotDisturb("dnd = Off\n").status, Status::Success);
    EXPECT_EQ(DoNotDisturb("dnd = ON\n").status, Status::Fail);
    for (const std::string on : {"true", "yes", "1", "enabled"}) {
        EXPECT_EQ(DoNotDisturb("dnd=" + on).status, Status::Fail) << on;
    }
    for (const std::string off : {"false", "no", "0", "disabled"}) {
        EXPECT_EQ(DoNotDisturb("dnd=" + off).status, Status::Success) << off;
    }
    ExpectFinding(Bandwidth("rate = 768"), Status::Warn,
                  "calls are made with 768 kbit/s, less than 1024 kbit/s; raise the default call bandwidth");
}

TEST_F(ChoiceInFile, ThatMeansNothingIsUnknown) {
    ExpectFinding(DoNotDisturb("dnd = maybe"), Status::Unknown, "'maybe' of DoNotDisturb is neither on nor off");
    ExpectFinding(DoNotDisturb("dnd = " + std::string(500, 'x')), Status::Unknown,
                  "'" + std::string(24, 'x') + "' of DoNotDisturb is neither on nor off");
    ExpectFinding(Bandwidth("rate = fast"), Status::Unknown, "'fast' of DefaultBandwidth is no number of kbit/s");
    ExpectFinding(Bandwidth("rate = -1"), Status::Unknown, "'-1' of DefaultBandwidth is no number of kbit/s");
    ExpectFinding(Bandwidth("rate = 99999999999"), Status::Unknown,
                  "'99999999999' of DefaultBandwidth is no number of kbit/s");
}

TEST_F(ChoiceInFile, ThatCannotBeFoundIsUnknown) {
    ExpectFinding(DoNotDisturb("other = 1"), Status::Unknown, path + " has no 'dnd'");
    ExpectFinding(DoNotDisturb("dnd = 1\ndnd = 0"), Status::Unknown, path + " has 'dnd' twice");
    settings.doNotDisturb = Choice{"", folder / "none", "dnd"};
    ExpectFinding(CheckDoNotDisturb(settings), Status::Unknown, (folder / "none") + ": No such file or directory");
}

}  // namespace
