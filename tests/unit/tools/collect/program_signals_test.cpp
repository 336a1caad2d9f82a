// Ctrl-C and SIGKILL during a collection.
#include <csignal>

#include "program.h"
#include "support/process_state.h"

namespace support {
namespace {

// It sees both at once.
void InterruptTwice(const Child& child) {
    child.Signal(SIGSTOP);
    child.Signal(SIGINT);
    child.Signal(SIGTERM);
    child.Signal(SIGCONT);
}

TEST_F(CollectProgram, CtrlCStopsAndStillLeavesAValidPackage) {
    WriteFile("first/a", "x");
    for (int i = 0; i < 1000; ++i) {
        WriteFile("second/slow" + std::to_string(i), "x");
    }
    WriteFile("third/c", "x");
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    Child child = Start({"first", "second", "third", "--timeout", "60", "--output", "p.tar.zst"},
                        "TMPDIR=" + work_ / "tmp" + "; export TMPDIR;" + kSlowDisk);
    const auto copying = [this] {
        std::error_code error;
        for (const auto& area : std::filesystem::directory_iterator(work_ / "tmp", error)) {
            if (std::filesystem::exists(area.path() / "second", error)) {
                return true;
            }
        }
        return false;
    };
    ASSERT_TRUE(Eventually(copying));
    child.Signal(SIGINT);
    EXPECT_EQ(child.Wait(), 1) << Contents("err");
    EXPECT_TRUE(Holds(Contents("err"), "[1/3] ")) << Contents("err");
    EXPECT_TRUE(Holds(Contents("err"), "interrupted; packing what is there")) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(Outcomes(manifest), (Lines{"first: complete", "second: interrupted", "third: not started"}));
    EXPECT_EQ(manifest["interrupted"].Flag(), true);
    EXPECT_EQ(manifest["complete"].Flag(), false);
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(CollectProgram, ASecondCtrlCGivesUpPackingAndLeavesNothing) {
    // Something that reaches the disk, then something that takes forever to pack.
    WriteFile("area/a", Noise(1000000));
    WriteFile("area/huge", "");
    std::filesystem::resize_file("area/huge", std::uintmax_t{1} << 42U);
    WriteFile("c.xml", "<c><LogCollect/></c>");
    const Lines before = Names();
    Child child = Start({"--config", "c.xml", "--area", "area", "--output", "p.tar.zst"});
    const auto packing = [this] {
        return std::ranges::any_of(std::filesystem::directory_iterator(work_.Path()), [](const auto& entry) {
            return entry.path().filename().string().starts_with("p.tar.zst.part-") && entry.file_size() > 0;
        });
    };
    ASSERT_TRUE(Eventually(packing));
    child.Signal(SIGINT);
    ASSERT_TRUE(Eventually([] { return Holds(Contents("err"), "Ctrl-C again gives up"); }));
    child.Signal(SIGINT);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_EQ(Contents("err"),
              "ominspectctl: interrupted; packing what is there (Ctrl-C again gives up)\n"
              "ominspectctl: cannot write the package p.tar.zst: given up\n");
    Lines after = Names();
    std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
    EXPECT_EQ(after, before);
}

// What is drawn on a terminal is taken away before something is said.
const std::string kTakenAway = "\x1b[1A\r\x1b[J";

// The program on a terminal of its own.
class OnTerminal {
public:
    explicit OnTerminal(const std::string& arguments, const std::string& before = "")
        : terminal_({"/usr/bin/script", "-qec", before + "echo $$ >pid; exec " PROGRAM_CTL " collect " + arguments,
                     "/dev/null"},
                    {"TERM=xterm"}) {}

    bool Shows(const std::string& text) const {
        return Eventually([&] { return Holds(terminal_.Output(), text); });
    }

    void Signal(int signal) const {
        const pid_t program = std::stoi(Contents("pid"));
        ASSERT_GT(program, 1);
        EXPECT_EQ(kill(program, signal), 0);
    }

    Child& Itself() { return terminal_; }

private:
    Child terminal_;
};

TEST_F(CollectProgram, OnATerminalThePackingIsShownUntilItIsGivenUp) {
    WriteFile("area/huge", "");
    std::filesystem::resize_file("area/huge", std::uintmax_t{1} << 42U);
    WriteFile("c.xml", "<c><LogCollect/></c>");
    OnTerminal program("--config c.xml --area area --output p.tar.zst");
    ASSERT_TRUE(program.Shows("packing: 0 files, ")) << program.Itself().Output();
    program.Signal(SIGINT);
    ASSERT_TRUE(program.Shows(kTakenAway + "ominspectctl: interrupted; packing what is there"))
        << program.Itself().Output();
    program.Signal(SIGINT);
    EXPECT_EQ(program.Itself().Wait(), 1);
}

TEST_F(CollectProgram, OnATerminalACopyIsShownUntilItIsGivenUp) {
    WriteFile("logs/hang", "x");
    OnTerminal program("logs --output p.tar.zst", kSlowDisk);
    ASSERT_TRUE(program.Shows("[1/1] " + work_ / "logs" + ": 0 files, 0 B, ")) << program.Itself().Output();
    program.Signal(SIGINT);
    program.Signal(SIGTERM);
    EXPECT_EQ(program.Itself().Wait(), 1);
    EXPECT_TRUE(program.Shows(kTakenAway + "ominspectctl: given up; no package was written"))
        << program.Itself().Output();
}

TEST_F(CollectProgram, CtrlCEndsTheProductsHookAndStillLeavesAValidPackage) {
    WriteFile("logs/a", "x");
    WriteFile("hang", "");
    Child child = Start({"logs", "--output", "p.tar.zst"}, Preloaded(VENDOR_HOOK));
    ASSERT_TRUE(support::Eventually([] { return Contents("hang").ends_with('\n'); }));
    child.Signal(SIGINT);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_TRUE(Holds(Contents("err"), "interrupted; packing what is there")) << "though that is nothing";
    EXPECT_TRUE(Holds(Contents("err"), "the product's own collection failed: interrupted\n")) << Contents("err");
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    EXPECT_EQ(Outcomes(document.Read()), Lines{"logs: not started"});
    EXPECT_EQ(TextAt(document.Read()["vendor"], "remark"), "interrupted");
}

TEST_F(CollectProgram, TwoSignalsGiveUpTheProductsHookAndLeaveNothing) {
    WriteFile("logs/a", "x");
    WriteFile("hang", "");
    Child child = Start({"logs", "--output", "p.tar.zst"}, Preloaded(VENDOR_HOOK));
    ASSERT_TRUE(support::Eventually([] { return Contents("hang").ends_with('\n'); }));
    InterruptTwice(child);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_EQ(Contents("err"), "ominspectctl: given up; no package was written\n");
    EXPECT_EQ(Names(), (Lines{"err", "hang", "logs", "out"}));
}

TEST_F(CollectProgram, TwoSignalsGiveUpACopyAndLeaveNothing) {
    WriteFile("logs/hang", "x");
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    Child child = Start({"logs", "--output", "p.tar.zst"}, "TMPDIR=" + work_ / "tmp" + "; export TMPDIR;" + kSlowDisk);
    const auto copying = [] {
        std::error_code error;
        const std::filesystem::recursive_directory_iterator area("tmp", error);
        return std::any_of(begin(area), end(area), [](const auto& entry) { return entry.path().filename() == "hang"; });
    };
    ASSERT_TRUE(Eventually(copying));
    InterruptTwice(child);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_EQ(Contents("err"), "ominspectctl: given up; no package was written\n");
    EXPECT_EQ(Names(), (Lines{"err", "logs", "out", "tmp"}));
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(CollectProgram, TwoSignalsGiveUpADryRun) {
    WriteFile("hang/a", "x");
    Child child = Start({"hang", "--dry-run"}, kSlowDisk);
    ASSERT_TRUE(Eventually([] { return std::filesystem::exists("hanging"); }));
    InterruptTwice(child);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_EQ(Contents("err"), "ominspectctl: given up\n");
    EXPECT_EQ(Contents("out"), "");
}

TEST_F(CollectProgram, TwoSignalsGiveUpTheLookForRoom) {
    WriteFile("hang/a", "x");
    Child child = Start({"hang", "--output", "p.tar.zst"}, kSlowDisk);
    ASSERT_TRUE(Eventually([] { return std::filesystem::exists("hanging"); }));
    InterruptTwice(child);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_EQ(Contents("err"), "ominspectctl: given up; no package was written\n");
    EXPECT_EQ(Names(), (Lines{"err", "hang", "hanging", "out"}));
}

TEST_F(CollectProgram, WhatItHasStartedDiesWithIt) {
    WriteFile("hang", "");
    Child child = Start({"logs", "--output", "p.tar.zst"}, "TMPDIR=.; export TMPDIR;" + Preloaded(VENDOR_HOOK));
    ASSERT_TRUE(support::Eventually([] { return Contents("hang").ends_with('\n'); }));
    const pid_t hook = std::stoi(Contents("hang"));
    EXPECT_TRUE(support::IsAlive(hook));
    child.Kill();
    EXPECT_TRUE(support::Eventually([hook] { return !support::IsAlive(hook); }));
}

}  // namespace
}  // namespace support
