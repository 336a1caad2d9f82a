// The schemas of both XML files, and what is told of a file.
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/schema.h"
#include "support/temp_folder.h"

using ominspect::SchemaErrors;

using support::WriteFile;

namespace {

class Schema : public testing::Test {
protected:
    static std::vector<std::string> Errors(const std::string& schema, const std::string& file) {
        const auto errors = SchemaErrors(std::string(SCHEMAS "/") + schema, file);
        EXPECT_TRUE(errors) << (errors ? "" : errors.Failure().text);
        return errors ? *errors : std::vector<std::string>{"not checked"};
    }
    static std::vector<std::string> OwnerErrors(const std::string& xml) {
        WriteFile("owner.xml", xml);
        return Errors("ominspect-owner.xsd", "owner.xml");
    }
    static std::vector<std::string> ConfigErrors(const std::string& items, const std::string& entries) {
        WriteFile("config.xml", "<config>\n<DiagnoseList>" + items + "</DiagnoseList>\n<LogCollect>" + entries +
                                    "</LogCollect></config>");
        return Errors("inspect_config.xsd", "config.xml");
    }
    static bool Holds(const std::vector<std::string>& errors, const std::string& part) {
        return errors.size() == 1 && errors[0].find(part) != std::string::npos;
    }

    const support::WorkingFolder work_;
};

const std::vector<std::string> kNone;
constexpr const char* kItem = "<DiagnoseItem name='a' level='warn' isSync='true'/>";
constexpr const char* kLog = "<Log srcPath='/a' dstPath='/b' timeout='1'/>";

TEST_F(Schema, TheShippedFilesAreAsTheirSchemasHaveThem) {
    EXPECT_EQ(Errors("inspect_config.xsd", CONFIGURATION), kNone);
    EXPECT_EQ(Errors("ominspect-owner.xsd", SHIPPED_OWNERS "/system.xml"), kNone);
    EXPECT_EQ(Errors("ominspect-owner.xsd", SHIPPED_OWNERS "/service.xml"), kNone);
}

TEST_F(Schema, AnErrorHasItsLine) {
    const auto errors = ConfigErrors(kItem, "\n<Log srcPath='/a' dstPath='/b' timeout='5s'/>");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(
        errors[0],
        "line 4: Element 'Log', attribute 'timeout': [facet 'pattern'] The value '5s' is not accepted by the pattern "
        "'[0-9]{1,9}'.");
}

TEST_F(Schema, OfTheConfigurationHasTheServersBounds) {
    const std::string name31(31, 'n');
    const std::string path79(79, 'p');
    EXPECT_EQ(
        ConfigErrors("<DiagnoseItem name='" + name31 + "' level='error' isSync='false'/>",
                     "<Log srcPath='" + path79 + "' dstPath='" + path79 + "' timeout='999999999' isFolder='false'/>"),
        kNone);
    EXPECT_TRUE(
        Holds(ConfigErrors("<DiagnoseItem name='" + name31 + "n' level='error' isSync='false'/>", kLog), "'name'"));
    EXPECT_TRUE(Holds(ConfigErrors("<DiagnoseItem name='' level='error' isSync='false'/>", kLog), "'name'"));
    EXPECT_TRUE(Holds(ConfigErrors("<DiagnoseItem name='a' level='error'/>", kLog), "'isSync'"));
    EXPECT_TRUE(Holds(ConfigErrors("<DiagnoseItem name='a' level='error' isSync='yes'/>", kLog), "'isSync'"));
    EXPECT_TRUE(Holds(ConfigErrors(kItem, "<Log srcPath='" + path79 + "p' dstPath='/b' timeout='1'/>"), "'srcPath'"));
    EXPECT_TRUE(Holds(ConfigErrors(kItem, "<Log srcPath='/a' dstPath='/b" + path79 + "' timeout='1'/>"), "'dstPath'"));
    EXPECT_TRUE(Holds(ConfigErrors(kItem, "<Log srcPath='/a' dstPath='/b' timeout='1000000000'/>"), "'timeout'"));
    EXPECT_TRUE(Holds(ConfigErrors(kItem, "<Log srcPath='/a' dstPath='/b' timeout='1' isFolder='1'/>"), "'isFolder'"));
    EXPECT_TRUE(Holds(ConfigErrors(kItem, "<Log srcPath='/a' dstPath='/b' timeout='1' colour='red'/>"), "'colour'"));
    EXPECT_TRUE(Holds(ConfigErrors("", kLog), "DiagnoseItem"));
    EXPECT_TRUE(Holds(ConfigErrors(kItem, ""), "Log"));
}

TEST_F(Schema, OfAnOwnerHasTheProgramsBounds) {
    const auto owner = [](const std::string& attributes, const std::string& item) {
        return OwnerErrors("<Owner " + attributes + ">" + item + "</Owner>");
    };
    const std::string item = "<Item name='a'><Command>/c</Command></Item>";
    EXPECT_EQ(owner("process='123456789012345' maxParallel='64'",
                    "<Item name='a' timeout='86400' isSync='false'><Command>/c</Command><Arg/><Arg>x</Arg></Item>"),
              kNone);
    EXPECT_TRUE(Holds(owner("process='1234567890123456'", item), "'process'"));
    EXPECT_TRUE(Holds(owner("", item), "'process'"));
    EXPECT_TRUE(Holds(owner("process='p' maxParallel='65'", item), "'maxParallel'"));
    EXPECT_TRUE(Holds(owner("process='p' maxParallel='0'", item), "'maxParallel'"));
    EXPECT_TRUE(Holds(owner("process='p'", item + item), "Duplicate"));
    EXPECT_TRUE(
        Holds(owner("process='p'", "<Item name='a' timeout='86401'><Command>/c</Command></Item>"), "'timeout'"));
    EXPECT_TRUE(Holds(owner("process='p'", "<Item name='a'><Command>c</Command></Item>"), "Command"));
    EXPECT_TRUE(Holds(owner("process='p'", "<Item name='a'><Arg>c</Arg></Item>"), "Arg"));
    EXPECT_TRUE(
        Holds(owner("process='p'", "<Item name='a'><Command>/c</Command><Command>/d</Command></Item>"), "Command"));
    EXPECT_TRUE(Holds(owner("process='p'", ""), "Item"));
    std::string arguments;
    for (int i = 0; i < 64; ++i) {
        arguments += "<Arg/>";
    }
    EXPECT_EQ(owner("process='p'", "<Item name='a'><Command>/c</Command>" + arguments + "</Item>"), kNone);
    EXPECT_TRUE(
        Holds(owner("process='p'", "<Item name='a'><Command>/c</Command>" + arguments + "<Arg/></Item>"), "Arg"));
}

TEST_F(Schema, ABrokenFileIsAnError) {
    const auto errors = OwnerErrors("<Owner process='p'>\n<Item");
    ASSERT_FALSE(errors.empty());
    EXPECT_TRUE(errors[0].starts_with("line 2: ")) << errors[0];
}

// The checking program shows the line, too.
TEST_F(Schema, WhatABrokenLineSaysIsNoError) {
    const auto errors = OwnerErrors("<Owner process='p'>no error : at all</Item>");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(errors[0].starts_with("line 1: Opening and ending tag mismatch")) << errors[0];
}

TEST_F(Schema, ANameThatLooksLikeAnOptionIsAFile) {
    WriteFile("--version", "<Owner/>");
    EXPECT_FALSE(Errors("ominspect-owner.xsd", "--version").empty());
}

TEST_F(Schema, WhatCannotBeCheckedIsTold) {
    WriteFile("owner.xml", "<Owner/>");
    const auto why = [](const std::string& schema, const std::string& file) {
        const auto errors = SchemaErrors(schema, file);
        return errors ? "checked" : errors.Failure().text;
    };
    EXPECT_EQ(why("none.xsd", "owner.xml"), "none.xsd: No such file or directory");
    EXPECT_EQ(why(SCHEMAS "/ominspect-owner.xsd", "none.xml"), "none.xml: No such file or directory");
    WriteFile("bad.xsd", "<nothing/>");
    EXPECT_TRUE(why("bad.xsd", "owner.xml").starts_with("xmllint")) << why("bad.xsd", "owner.xml");
    ASSERT_EQ(setenv("PATH", "/nowhere", 1), 0);
    EXPECT_EQ(why(SCHEMAS "/ominspect-owner.xsd", "owner.xml"), "xmllint: No such file or directory");
}

}  // namespace
