// The command check: what a monitoring system reads.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <utility>

#include "programs.h"
#include "support/temp_folder.h"

namespace support {
namespace {

class CheckCommand : public Programs {
protected:
    // An owner with an item for each of these scripts, whose name is the first word.
    Child StartScripts(const std::vector<std::pair<std::string, std::string>>& scripts) const {
        std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Owner process=\"scripts\">";
        for (const auto& [item, script] : scripts) {
            xml += "<Item name=\"" + item +
                   "\" timeout=\"30\" isSync=\"true\"><Command>/bin/sh</Command><Arg>-c</Arg><Arg>" + script +
                   "</Arg></Item>";
        }
        WriteFile(Folder() + "/scripts.xml", xml + "</Owner>\n");
        Child owner({OMINSPECT_OWNER_PROGRAM, Folder() + "/scripts.xml"});
        EXPECT_EQ(Ctl({"wait", scripts.back().first, "--timeout", "60"}).exitCode, 0) << owner.Output();
        return owner;
    }
};

// The line without its performance data.
std::string Head(const std::string& output) {
    return output.substr(0, output.find(" | "));
}

TEST_F(CheckCommand, AnswersInOneLineWithPerformanceData) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"ok"});
    const Outcome check = Ctl({"check", "ok", "--timeout", "20"});
    EXPECT_EQ(check.exitCode, 0);
    double seconds = -1;
    int end = 0;
    (void)std::sscanf(check.output.c_str(), "ok OK - answered by owner1 | time=%lfs;;;0;20%n", &seconds, &end);
    EXPECT_GE(seconds, 0);
    EXPECT_EQ(check.output.substr(static_cast<size_t>(end)), "\n") << check.output;
}

TEST_F(CheckCommand, ShowsWhatTheItemHasMeasured) {
    const Child server = StartServer();
    const Child owner = StartScripts({{"none", "echo fine"},
                                      {"loads", "echo 'fine | load=0.5;1;@2:5;0;64 free=70%'"},
                                      {"timed", "echo 'fine | time=0.1s'"},
                                      {"quoted", "echo &quot;fine | 'it''s hot'=3c&quot;"}});
    const auto measured = [&](const char* item) {
        const std::string output = Ctl({"check", item, "--timeout", "20"}).output;
        return output.substr(output.find(";;;0;20") + 7);
    };
    EXPECT_EQ(measured("loads"), " 'load'=0.5;1;@2:5;0;64 'free'=70%;;;;\n");
    EXPECT_EQ(measured("quoted"), " 'it''s hot'=3c;;;;\n");
    EXPECT_EQ(measured("none"), "\n");
    EXPECT_EQ(Ctl({"check", "timed"}).output, "timed OK - fine | 'time'=0.1s;;;;\n");
}

// It is another item's; asking it takes nothing off the time limit.
TEST_F(CheckCommand, AnOwnerThatHangsHoldsUpNoOtherItem) {
    const Child server = StartServer();
    const Child hung = StartOwner("hung", {"other"});
    const Child owner = StartScripts({{"load", "echo 'fine | load=1'"}});
    hung.Signal(SIGSTOP);
    const Outcome check = Ctl({"check", "load", "--timeout", "1"});
    hung.Signal(SIGCONT);
    EXPECT_EQ(check.exitCode, 0);
    EXPECT_EQ(Head(check.output), "load OK - fine");
    EXPECT_TRUE(check.output.ends_with(" 'load'=1;;;;\n")) << check.output;
}

// The first one ends only once the second has run.
TEST_F(CheckCommand, TheSynchronousItemsOfAnOwnerRunBesideEachOther) {
    const Child server = StartServer();
    const std::string sign = Folder() + "/sign";
    const Child owner = StartScripts({{"waits", "until [ -e " + sign + " ]; do sleep 0.05; done; echo waited"},
                                      {"signs", "touch " + sign + "; echo signed"}});
    Child first = StartCtl({"check", "waits", "--timeout", "60"});
    ASSERT_TRUE(Eventually([] {
        const auto events = TakeEvents();
        return std::find(events.begin(), events.end(), "waits running/begin") != events.end();
    }));
    EXPECT_EQ(Head(Ctl({"check", "signs"}).output), "signs OK - signed");
    EXPECT_EQ(first.Wait(), 0) << first.Output();
    EXPECT_EQ(Head(first.Output()), "waits OK - waited");
}

TEST_F(CheckCommand, GivesEachStatusItsState) {
    const Child server = StartServer();
    const Child owner = StartScripts({{"good", "echo fine"},
                                      {"poor", "echo 'high | load=3'; exit 1"},
                                      {"bad", "echo broken; exit 2"},
                                      {"odd", "echo 'what?'; exit 3"}});
    struct Row {
        const char* item;
        int code;
        const char* head;
    };
    for (const Row& row : {Row{"good", 0, "good OK - fine"}, Row{"poor", 1, "poor WARNING - high"},
                           Row{"bad", 2, "bad CRITICAL - broken"}, Row{"odd", 3, "odd UNKNOWN - what?"},
                           Row{"nonsense", 3, "nonsense UNKNOWN - no support"}}) {
        const Outcome check = Ctl({"check", row.item});
        EXPECT_EQ(check.exitCode, row.code) << row.item;
        EXPECT_EQ(Head(check.output), row.head);
    }
    Child full({"/bin/sh", "-c", "exec \"$0\" check good >/dev/full", OMINSPECTCTL_PROGRAM});
    EXPECT_EQ(full.Wait(), 3) << "nobody could read the answer";
}

TEST_F(CheckCommand, IsCriticalWhenTheLimitPasses) {
    const Child server = StartServer();
    const Child owner = StartOwner("owner1", {"bsp_mainboard_ft@never"});
    const Outcome check = Ctl({"check", "bsp_mainboard_ft", "--timeout", "1"});
    EXPECT_EQ(check.exitCode, 2);
    EXPECT_TRUE(Holds(check.output, "bsp_mainboard_ft CRITICAL - the time limit is over")) << check.output;
}

TEST_F(CheckCommand, IsUnknownWithoutAServerAndAfterWrongUse) {
    const Outcome absent = Ctl({"check", "ok"});
    EXPECT_EQ(absent.exitCode, 3);
    EXPECT_TRUE(Holds(absent.output, "ok UNKNOWN - server absent")) << absent.output;
    const Outcome barred = Ctl({"check", "a|b"});
    EXPECT_TRUE(barred.output.starts_with("a/b UNKNOWN - server absent")) << "no bar before the data\n"
                                                                          << barred.output;
    const std::string answerOnly = "exec \"$0\" \"$@\" 2>/dev/null";
    const Outcome itemless = support::Run({"/bin/sh", "-c", answerOnly, OMINSPECTCTL_PROGRAM, "check"});
    EXPECT_EQ(itemless.exitCode, 3);
    EXPECT_EQ(itemless.output, "UNKNOWN - ITEM is required\n");
    const Outcome odd =
        support::Run({"/bin/sh", "-c", answerOnly, OMINSPECTCTL_PROGRAM, "check", "ok", "--timeout", "never"});
    EXPECT_EQ(odd.exitCode, 3);
    EXPECT_TRUE(odd.output.starts_with("UNKNOWN - ")) << odd.output;
    EXPECT_EQ(Ctl({"check", std::string(32, 'x')}).exitCode, 3);
    EXPECT_EQ(Ctl({"run"}).exitCode, 2);  // the others have a code of their own
}

}  // namespace
}  // namespace support
