// Copying of files whose names the shell would read as something else.
#include "tree_test.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

class InspectCopyNamesTest : public support::TreeTest {
protected:
    // Copies a folder with one file of this name. The file must arrive whole; with its time when nothing is logged.
    void CopyOne(const std::string& name, const Lines& expectedLog) {
        SCOPED_TRACE(name);
        Write("source/" + name, "contents of " + name);
        fs::last_write_time("source/" + name, fs::file_time_type::clock::now() - std::chrono::hours(100));
        kivo::fake::ClearJournal();
        Copy("source", "dest");
        EXPECT_EQ(Below("dest"), Lines{name});
        EXPECT_EQ(Read("dest/" + name), "contents of " + name);
        EXPECT_EQ(LogLines(), expectedLog);
        EXPECT_EQ(fs::last_write_time("source/" + name) == fs::last_write_time("dest/" + name), expectedLog.empty());
        fs::remove_all("source");
        fs::remove_all("dest");
    }
};

}  // namespace

TEST_F(InspectCopyNamesTest, ThatTheShellLeavesAloneKeepTheirTimes) {
    for (const char* name : {"\xff\xfe\x80", "gr\xc3\xb6n", "a\rb", "#hash", "~tilde", "-r", "--help", "a*b", "a?b",
                             "[ab]", "%s%n", "a=b", "{", "..."}) {
        CopyOne(name, {});
    }
}

TEST_F(InspectCopyNamesTest, ThatTheShellTakesApartAreCopiedWithoutTheirTimes) {
    CopyOne("with blank", {"1 InspectFile 15: change file [****th blank]->[****th blank] time fail"});
    CopyOne("%s%n %s", {"1 InspectFile 15: change file [****/%s%n %s]->[****/%s%n %s] time fail"});
    CopyOne("a_tab\tb", {"1 InspectFile 15: change file [****/a_tab\tb]->[****/a_tab\tb] time fail"});
    CopyOne("it's_me", {"1 InspectFile 15: change file [****/it's_me]->[****/it's_me] time fail"});
    CopyOne(R"(a_"quote)", {R"(1 InspectFile 15: change file [****a_"quote]->[****a_"quote] time fail)"});
    CopyOne("\"quoted\"", {"1 InspectFile 15: change file [****\"quoted\"]->[****\"quoted\"] time fail"});
    CopyOne("back\\slash", {"1 InspectFile 15: change file [****ck\\slash]->[****ck\\slash] time fail"});
    CopyOne("(parens)", {"1 InspectFile 15: change file [****(parens)]->[****(parens)] time fail"});
}

TEST_F(InspectCopyNamesTest, WithEachOfTheNineDangerousCharactersNeverReachTheShell) {
    for (const char dangerous : {'|', ';', '&', '$', '>', '<', '`', '\n', '!'}) {
        const std::string shown = std::string("123") + dangerous + "5678";
        CopyOne("1" + shown, {"1 InspectFile 15: file path contains danger char, skip!",
                              "1 InspectFile 15: change file [****" + shown + "]->[****" + shown + "] time fail"});
    }
}

TEST_F(InspectCopyNamesTest, RunNoCommand) {
    const Lines names{"$(touch canary)",  "`touch canary`",   ";touch canary",      ";touch canary;",   "|touch canary",
                      "||touch canary",   "&touch canary&",   "&&touch canary",     "\ntouch canary\n", ">canary",
                      "a b;touch canary", "'$(touch canary)", "\";touch canary;\"", "!touch canary",    "<canary"};
    for (const std::string& name : names) {
        Write("source/" + name, "x");
        Write("source/folder" + name + "/file", "x");
    }
    const Lines before = Below("source");
    Copy("source", "dest");
    InspectCopyFile("source/;touch canary", "dest/single/;touch canary;", m_config);
    fs::remove_all("dest/single");
    EXPECT_EQ(Below("dest"), before);
    EXPECT_FALSE(fs::exists("canary"));
    EXPECT_EQ(LogLines().size(), 4 * names.size() + 2);  // two lines a file: skipped, and so without its time
}

TEST_F(InspectCopyNamesTest, WithABlankMayTouchAnotherFileButRunNothing) {
    Write("source/a", "A");
    Write("source/a b", "AB");
    Copy("source", "dest");
    EXPECT_EQ(Below("dest"), (Lines{"a", "a b"}));
    EXPECT_EQ(Read("dest/a"), "A");
    EXPECT_EQ(Read("dest/a b"), "AB");
    EXPECT_EQ(Read("b"), "");  // what touch(1) took for one of its files
}
