// Where the package goes, and when there is none.
#include <unistd.h>

#include "program.h"

namespace support {
namespace {

TEST_F(CollectProgram, NamesThePackageByHostAndTime) {
    WriteFile("one", "x");
    ASSERT_EQ(Run({"one"}), 0);
    const Lines names = Names();
    ASSERT_EQ(names.size(), 4U);  // err, ominspect-..., one, out
    std::array<char, 256> host{};
    ASSERT_EQ(gethostname(host.data(), host.size() - 1), 0);
    EXPECT_TRUE(names[1].starts_with(std::string("ominspect-") + host.data() + "-20")) << names[1];
    EXPECT_TRUE(names[1].ends_with("Z.tar.zst")) << names[1];
}

TEST_F(CollectProgram, AnswersWrongUseWithTwoAndWritesNothing) {
    WriteFile("one", "x");
    WriteFile("broken.xml", "<c>");
    WriteFile("empty.xml", "<!-- nothing -->");
    const Lines before = Names();
    const std::vector<std::pair<Lines, std::string>> cases{
        {{"--config", "missing.xml"}, "XML_ERROR_FILE_NOT_FOUND"},
        {{"--config", "no\nfile"}, "ominspectctl: no\\nfile: Error=XML_ERROR_FILE_NOT_FOUND "},
        {{"--config", "broken.xml"}, "XML_ERROR"},
        {{"--config", "empty.xml"}, "empty.xml: there is no document element"},
        {{"--config", "/dev/zero"}, "/dev/zero: not a regular file"},
        {{"--config", "broken.xml", "one"}, ""},
        {{"one", "--timeout", "0"}, ""},
        {{"one", "--timeout", "61"}, ""},
        {{"--timeout", "5"}, ""},
        {{"one", "--total-timeout", "0"}, "--total-timeout"},
        {{"one", "--total-timeout", "86401"}, "--total-timeout"},
        {{'/' + std::string(255, 'x')}, "the path is longer than 255 bytes: /xxx"},
        {{"one", "--output", "one"}, "ominspectctl: one exists; --force replaces it\n"},
        {{"one", "--output", work_.Path(), "--force"}, "Is a directory"},
    };
    for (const auto& [arguments, message] : cases) {
        EXPECT_EQ(Run(arguments), 2) << arguments.front();
        EXPECT_TRUE(Holds(Contents("err"), message)) << Contents("err");
        Lines after = Names();
        std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
        EXPECT_EQ(after, before);
    }
    EXPECT_EQ(Contents("one"), "x");
}

TEST_F(CollectProgram, ReplacesAPackageWhenAsked) {
    WriteFile("one", "x");
    WriteFile("p.tar.zst", "old");
    EXPECT_EQ(Run({"one", "--output", "p.tar.zst", "--force"}), 0);
    EXPECT_EQ(MemberOf(ReadArchive("p.tar.zst"), "p/files/one").content, "x");
}

TEST_F(CollectProgram, TheFolderInAPackageIsItsNameWithoutTheEnding) {
    WriteFile("one", "x");
    for (const std::string name : {"package-of-mine.tgz", ".tar.zst"}) {
        EXPECT_EQ(Run({"one", "--output", name}), 0) << Contents("err");
        EXPECT_EQ(MemberOf(ReadArchive(name), name + "/files/one").content, "x") << "another ending, or nothing else";
    }
}

TEST_F(CollectProgram, WritesThePackageThoughNobodyReadsTheProgress) {
    WriteFile("one", "x");
    EXPECT_EQ(Run({"one", "--output", "p.tar.zst"},
                  R"(mkfifo progress; : <progress & exec 2>progress; wait; exec "$0" "$@" >out;)"),
              0);
    EXPECT_EQ(MemberOf(ReadArchive("p.tar.zst"), "p/files/one").content, "x");
}

TEST_F(CollectProgram, SaysWhereItCannotWrite) {
    WriteFile("one", "x");
    EXPECT_EQ(Run({"one", "--output", "missing/p.tar.zst"}), 1);
    EXPECT_EQ(Contents("err"), "ominspectctl: cannot write the package missing/p.tar.zst: No such file or directory\n");
    EXPECT_EQ(Run({"one", "--output", "/proc/p.tar.zst"}), 1);
    EXPECT_TRUE(Holds(Contents("err"), "cannot write the package /proc/p.tar.zst: "));
}

// A limit on the size of files stands in for the full disk.
TEST_F(CollectProgram, AFullDiskLeavesNoHalfPackage) {
    const std::string noise = Noise(900000);
    WriteFile("logs/a", noise.substr(0, 450000));
    WriteFile("logs/b", noise.substr(450000));
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    const Lines before = Names();
    EXPECT_EQ(Run({"logs", "--output", "p.tar.zst"}, "TMPDIR=tmp; export TMPDIR; ulimit -f 1000;"), 1);
    EXPECT_TRUE(Holds(Contents("err"), "ominspectctl: cannot write the package p.tar.zst: File too large\n"))
        << Contents("err");
    Lines after = Names();
    std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
    EXPECT_EQ(after, before);
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(CollectProgram, ThePackageDoesNotGoIntoItself) {
    WriteFile("a", "x");
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    std::filesystem::create_directory("work");
    std::filesystem::rename("a", "work/a");
    const std::string inWork = "TMPDIR=" + work_ / "tmp" + R"(; export TMPDIR; cd work;)";
    EXPECT_EQ(Run({".", "--output", "p.tar.zst"}, inWork), 0) << Contents("work/err");
    const auto listing = Listing(ReadArchive("work/p.tar.zst"));
    EXPECT_EQ(std::ranges::count_if(listing, [](const auto& name) { return Holds(name, "p.tar.zst"); }), 0);
    EXPECT_EQ(std::ranges::count(listing, "- p/files/work/a"), 1);
}

// A terminal shows one line that is drawn again and taken away; nothing is printed for each entry.
TEST_F(CollectProgram, OnATerminalOneLineShowsWhatIsCopied) {
    WriteFile("logs/a", "x");
    WriteFile("other/b", "x");
    const std::string command = std::string("exec ") + PROGRAM_CTL + " collect logs other --output p.tar.zst";
    const support::Outcome shown = support::Run({"/usr/bin/script", "-qec", command, "/dev/null"}, {"TERM=xterm"});
    EXPECT_EQ(shown.exitCode, 0);
    const std::string drawn = "\x1b[?7l[1/2] " + work_ / "logs" + ": ";  // the count depends on who is faster
    EXPECT_TRUE(shown.output.starts_with(drawn)) << shown.output;
    EXPECT_TRUE(Holds(shown.output, " s left\r\n\x1b[?7h")) << shown.output;
    EXPECT_TRUE(Holds(shown.output, "\x1b[1A\r\x1b[JENTRY ")) << shown.output;
    EXPECT_FALSE(Holds(shown.output, " s, complete")) << shown.output;
}

}  // namespace
}  // namespace support
