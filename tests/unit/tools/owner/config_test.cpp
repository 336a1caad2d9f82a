// The owner's configuration: what is taken, and what each mistake is called.
#include "config.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/stat.h>

#include "describe.h"
#include "support/temp_folder.h"

using namespace ominspect::owner;
using support::WriteFile;

namespace {

// The mistake of a text that must not be taken.
std::string MistakeOf(std::string_view xml) {
    const auto config = ParseConfig(xml);
    return config ? "taken" : config.Failure().text;
}

// An Owner with one Item whose attributes and contents are given; the Item stands on line 2.
std::string WithItem(const std::string& attributes, const std::string& contents) {
    return "<Owner process=\"p\">\n<Item " + attributes + ">" + contents + "</Item></Owner>";
}

constexpr const char* kTrue = "<Command>/bin/true</Command>";

std::string Repeated(const std::string& text, int count) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        out += text;
    }
    return out;
}

TEST(OwnerConfig, IsReadWhole) {
    const auto config = ParseConfig(R"(<?xml version="1.0"?>
<!-- what this box watches -->
<Owner process="sysowner" maxParallel="4">
    <!-- the load -->
    <Item name="load" timeout="10" isSync="true">
        <Command>/usr/lib/nagios/plugins/check_load</Command>
        <Arg>-w</Arg>
        <Arg> 5,4 &lt;3 </Arg>
        <Arg/>
    </Item>
    <Item name="disk" isSync="false"><Command>/bin/true</Command></Item>
</Owner>)");
    ASSERT_TRUE(config) << config.Failure().text;
    EXPECT_EQ(config->process, "sysowner");
    EXPECT_EQ(config->maxParallel, 4U);
    ASSERT_EQ(config->items.size(), 2U);
    EXPECT_EQ(config->items[0].name, "load");
    EXPECT_EQ(config->items[0].limit.count(), 10);
    EXPECT_TRUE(config->items[0].isSync);
    const std::vector<std::string> argv{"/usr/lib/nagios/plugins/check_load", "-w", " 5,4 <3 ", ""};
    EXPECT_EQ(config->items[0].argv, argv);
    EXPECT_EQ(config->items[1].name, "disk");
    EXPECT_EQ(config->items[1].limit.count(), 30) << "the default";
    EXPECT_FALSE(config->items[1].isSync);
}

TEST(OwnerConfig, RunsSixteenCommandsAtATimeUnlessToldOtherwise) {
    const auto config = ParseConfig(WithItem("name=\"a\"", kTrue));
    ASSERT_TRUE(config) << config.Failure().text;
    EXPECT_EQ(config->maxParallel, 16U);
}

TEST(OwnerConfig, KeepsAnArgumentOfBlanksThatIsWrittenAsACharacter) {
    const auto config = ParseConfig(WithItem("name=\"a\"", std::string(kTrue) + "<Arg>&#32;</Arg>"));
    ASSERT_TRUE(config) << config.Failure().text;
    EXPECT_EQ(config->items[0].argv.at(1), " ");
}

TEST(OwnerConfig, TakesAsManyArgumentsAndAsLongOnesAsItSays) {
    const std::string longest(4095, 'x');
    const auto config =
        ParseConfig(WithItem("name=\"a\"", kTrue + Repeated("<Arg/>", 63) + "<Arg>" + longest + "</Arg>"));
    ASSERT_TRUE(config) << config.Failure().text;
    ASSERT_EQ(config->items[0].argv.size(), 65U);
    EXPECT_EQ(config->items[0].argv.back(), longest);
}

struct Mistake {
    const char* what;
    std::string xml;
    std::string error;
};

// How a failing case is shown.
void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.what;
}

class OwnerConfigMistake : public testing::TestWithParam<Mistake> {};

TEST_P(OwnerConfigMistake, IsNamedWithItsLine) {
    EXPECT_EQ(MistakeOf(GetParam().xml), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    All, OwnerConfigMistake,
    testing::Values(
        Mistake{"Empty", "", "line 1: no well-formed XML (XML_ERROR_EMPTY_DOCUMENT)"},
        Mistake{"NotClosed", "<Owner process=\"p\">\n<Item>",
                "line 2: no well-formed XML (XML_ERROR_MISMATCHED_ELEMENT)"},
        Mistake{"OtherRoot", "\n<Config/>", "line 2: the file must hold one element Owner and nothing else"},
        Mistake{"TwoRoots", WithItem("name=\"a\"", kTrue) + "\n<Owner/>",
                "line 3: the file must hold one element Owner and nothing else"},
        Mistake{"DocumentType", "<!DOCTYPE Owner>\n<Owner/>",
                "line 1: the file must hold one element Owner and nothing else"},
        Mistake{"NoRoot", "<!-- nothing -->", "line 1: the file must hold one element Owner"},
        Mistake{"NulByte", std::string("<Owner>\n\0</Owner>", 17), "line 2: a NUL byte"},
        Mistake{"NulCharacter", WithItem("name=\"a\"", "<Command>/a&#x00;</Command>"), "line 2: a NUL character"},
        Mistake{"NoProcess", "<Owner/>", "line 1: Owner needs the attribute 'process'"},
        Mistake{"EmptyProcess", "<Owner process=\"\"/>", "line 1: process '' must have 1 to 15 bytes"},
        Mistake{"LongProcess", "<Owner process=\"1234567890123456\"/>",
                "line 1: process '1234567890123456' must have 1 to 15 bytes"},
        Mistake{"NulInDecimals", WithItem("name=\"a\"", "<Command>/a&#0;</Command>"), "line 2: a NUL character"},
        Mistake{"ControlInProcess", "<Owner process=\"a&#27;\"/>",
                "line 1: process 'a\\u{1B}' must be plain UTF-8 text"},
        Mistake{"ServersName", "<Owner process=\"ominspect\"/>",
                "line 1: process 'ominspect' is the server's own name"},
        Mistake{"OwnerAttribute", "<Owner process=\"p\" shell=\"x\"/>", "line 1: Owner has no attribute 'shell'"},
        Mistake{"NoParallel", "<Owner process=\"p\" maxParallel=\"0\"/>",
                "line 1: maxParallel '0' must be a number from 1 to 64"},
        Mistake{"MuchParallel", "<Owner process=\"p\" maxParallel=\"65\"/>",
                "line 1: maxParallel '65' must be a number from 1 to 64"},
        Mistake{"NoItems", "<Owner process=\"p\"></Owner>", "line 1: Owner needs at least one Item"},
        Mistake{"OtherElement", "<Owner process=\"p\">\n<Group/></Owner>", "line 2: unknown element 'Group' in Owner"},
        Mistake{"TextInOwner", "<Owner process=\"p\">\nhello</Owner>",
                "line 2: Owner may hold elements and comments only"},
        Mistake{"NoName", WithItem("", kTrue), "line 2: Item needs the attribute 'name'"},
        Mistake{"LongName", WithItem("name=\"12345678901234567890123456789012\"", kTrue),
                "line 2: name '12345678901234567890123456789012' must have 1 to 31 bytes"},
        Mistake{"StrayByteInName", WithItem("name=\"a\xFF\"", kTrue), "line 2: name 'a\\xff' must be plain UTF-8 text"},
        Mistake{"SameNameTwice", WithItem("name=\"a\"", std::string(kTrue) + "</Item>\n<Item name=\"a\">" + kTrue),
                "line 3: a second item 'a'"},
        Mistake{"NameOfAGroup", WithItem("name=\"unknown_group\"", kTrue),
                "line 2: 'unknown_group' is the name of a group of the server"},
        Mistake{"NameOfANamedGroup", WithItem("name=\"kivo_group_trace\"", kTrue),
                "line 2: 'kivo_group_trace' is the name of a group of the server"},
        Mistake{"ItemAttribute", WithItem("name=\"a\" level=\"warn\"", kTrue), "line 2: Item has no attribute 'level'"},
        Mistake{"AttributeTwice", WithItem("name=\"a\" name=\"b\"", kTrue),
                "line 2: no well-formed XML (XML_ERROR_PARSING_ATTRIBUTE)"},
        Mistake{"ZeroTimeout", WithItem("name=\"a\" timeout=\"0\"", kTrue),
                "line 2: timeout '0' must be a number from 1 to 86400"},
        Mistake{"TimeoutWithUnit", WithItem("name=\"a\" timeout=\"10s\"", kTrue),
                "line 2: timeout '10s' must be a number from 1 to 86400"},
        Mistake{"NegativeTimeout", WithItem("name=\"a\" timeout=\"-1\"", kTrue),
                "line 2: timeout '-1' must be a number from 1 to 86400"},
        Mistake{"HugeTimeout", WithItem("name=\"a\" timeout=\"99999999999999999999\"", kTrue),
                "line 2: timeout '99999999999999999999' must be a number from 1 to 86400"},
        Mistake{"LongSyncTimeout", WithItem("name=\"a\" timeout=\"271\" isSync=\"true\"", kTrue),
                "line 2: timeout '271' must be a number from 1 to 270"},
        Mistake{"OddBool", WithItem("name=\"a\" isSync=\"yes\"", kTrue),
                "line 2: isSync 'yes' must be \"true\" or \"false\""},
        Mistake{"NoCommand", WithItem("name=\"a\"", ""), "line 2: Item needs a Command"},
        Mistake{"TwoCommands", WithItem("name=\"a\"", std::string(kTrue) + kTrue),
                "line 2: Item must begin with its one Command"},
        Mistake{"ArgFirst", WithItem("name=\"a\"", std::string("<Arg>x</Arg>") + kTrue),
                "line 2: Item must begin with its one Command"},
        Mistake{"RelativeCommand", WithItem("name=\"a\"", "<Command>check</Command>"),
                "line 2: Command 'check' must be an absolute path"},
        Mistake{"EmptyCommand", WithItem("name=\"a\"", "<Command/>"), "line 2: Command '' must be an absolute path"},
        Mistake{"ElementInCommand", WithItem("name=\"a\"", "<Command>/a<b/></Command>"),
                "line 2: Command may hold text only"},
        Mistake{"CommandAttribute", WithItem("name=\"a\"", "<Command shell=\"1\">/a</Command>"),
                "line 2: Command has no attribute 'shell'"},
        Mistake{"OtherInItem", WithItem("name=\"a\"", std::string(kTrue) + "<Env/>"),
                "line 2: unknown element 'Env' in Item"},
        Mistake{"LongArg", WithItem("name=\"a\"", std::string(kTrue) + "<Arg>" + std::string(4096, 'x') + "</Arg>"),
                "line 2: Arg is longer than 4095 bytes"},
        Mistake{"ManyArgs", WithItem("name=\"a\"", kTrue + Repeated("<Arg/>", 65)), "line 2: more than 64 arguments"}),
    [](const auto& test) { return test.param.what; });

std::string ManyItems(int count) {
    std::string xml = "<Owner process=\"p\">";
    for (int i = 0; i < count; ++i) {
        xml += "\n<Item name=\"i" + std::to_string(i) + "\">" + kTrue + "</Item>";
    }
    return xml + "</Owner>";
}

TEST(OwnerConfig, HoldsAtMost256Items) {
    EXPECT_TRUE(ParseConfig(ManyItems(256)));
    EXPECT_EQ(MistakeOf(ManyItems(257)), "line 258: more than 256 items");
}

class OwnerConfigFile : public testing::Test {
protected:
    std::string LoadError() const {
        const auto config = LoadConfig(path_);
        return config ? "taken" : config.Failure().text;
    }

    const support::TempFolder folder_;
    const std::string path_ = folder_ / "owner.xml";
};

TEST_F(OwnerConfigFile, IsLoaded) {
    WriteFile(path_, WithItem("name=\"a\"", kTrue));
    EXPECT_EQ(LoadError(), "taken");
}

TEST_F(OwnerConfigFile, IsNamedInTheError) {
    WriteFile(path_, "<Owner/>");
    EXPECT_EQ(LoadError(), path_ + ": line 1: Owner needs the attribute 'process'");
}

TEST_F(OwnerConfigFile, MustExist) {
    EXPECT_EQ(LoadError(), path_ + ": No such file or directory");
}

TEST_F(OwnerConfigFile, MustBeARegularFileAndIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(LoadError(), path_ + ": not a regular file");
}

TEST_F(OwnerConfigFile, IsAtMostOneMebibyte) {
    WriteFile(path_, WithItem("name=\"a\"", kTrue) + std::string(1024UL * 1024UL, '\n'));
    EXPECT_EQ(LoadError(), path_ + ": larger than 1048576 bytes");
}

TEST(OwnerDescription, ShowsWhatWouldBeDone) {
    const OwnerConfig config{"p",
                             2,
                             {{"load", std::chrono::seconds(10), true, {"/bin/true", "a b", "", "-x"}},
                              {"odd", std::chrono::seconds(30), false, {"/nonexistent/check"}}}};
    EXPECT_EQ(
        Describe(config),
        "process p, at most 2 asynchronous commands at a time\n"
        "item load: synchronous, 10 s, runs /bin/true \"a b\" \"\" -x\n"
        "item odd: asynchronous, 30 s, runs /nonexistent/check  (cannot be run now: No such file or directory)\n");
}

}  // namespace
