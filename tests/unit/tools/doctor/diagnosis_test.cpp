// What the doctor says about configuration files, line by line.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "doctor/diagnosis_report.h"
#include "support/temp_folder.h"

using namespace ominspect::doctor;

using support::WriteFile;

namespace {

class DiagnosisTest : public testing::Test {
protected:
    static Diagnosis Look(const std::string& xml) {
        WriteFile("c.xml", xml);
        return Diagnose("c.xml");
    }
    static std::string Text(const std::string& xml) { return ReportText("c.xml", Look(xml)); }

    const support::WorkingFolder work_;
};

TEST_F(DiagnosisTest, AFileInOrderFallsBackNowhere) {
    const Diagnosis diagnosis = Look(R"(<?xml version="1.0"?>
<config>
  <DiagnoseList>
    <DiagnoseItem name="conf_sip_ft" level="error" isSync="true"/>
    <DiagnoseItem name="conf_ldapserver_ft" level="warn" isSync="false"/>
  </DiagnoseList>
  <LogCollect>
    <Log srcPath="/data/log/wylogs" dstPath="/d/wylogs" timeout="5"/>
    <Log srcPath="/data/applog" dstPath="/d/applog" timeout="25" isFolder="true"/>
    <Log srcPath="/data/a.db" dstPath="/d/a.db" timeout="1" isFolder="false"/>
  </LogCollect>
</config>)");
    EXPECT_FALSE(diagnosis.FallsBack());
    EXPECT_EQ(ReportText("c.xml", diagnosis),
              R"(line 3: DiagnoseList: records: 2
line 4: DiagnoseItem "conf_sip_ft": level "error", synchronous
line 5: DiagnoseItem "conf_ldapserver_ft": level "warn", asynchronous
line 7: LogCollect: records: 3
line 8: Log "/data/log/wylogs": to "/d/wylogs", 5 s, system log
line 9: Log "/data/applog": to "/d/applog", 25 s, folder
line 10: Log "/data/a.db": to "/d/a.db", 1 s, single file
c.xml: items: 2, collection entries: 3
)");
}

TEST_F(DiagnosisTest, AttributesOfAnItemThatDoNotConvertFallBack) {
    const Diagnosis diagnosis = Look(R"(<c><DiagnoseList>
<DiagnoseItem name="12345678901234567890123456789012" level="critical" isSync="TRUE"/>
<DiagnoseItem level="warn" issync="true"/>
</DiagnoseList><LogCollect/></c>)");
    EXPECT_TRUE(diagnosis.FallsBack());
    EXPECT_EQ(ReportText("c.xml", diagnosis),
              R"(line 1: DiagnoseList: records: 2
line 2: DiagnoseItem "": level "", asynchronous
line 2: DiagnoseItem "": falls back: config file value [name] strcpy_s err, ret 34.
line 2: DiagnoseItem "": falls back: config file value [level] strcpy_s err, ret 34.
line 3: DiagnoseItem "": level "warn", asynchronous
line 3: DiagnoseItem "": falls back: config file value [name] get err.
line 3: DiagnoseItem "": falls back: config file value [isSync] get err.
line 3: DiagnoseItem "": the attribute "issync" is not read
line 4: LogCollect: records: 0
line 4: LogCollect: there is no Log in it
c.xml: items: 2, collection entries: 0
)");
}

TEST_F(DiagnosisTest, AttributesOfAnEntryThatDoNotConvertFallBack) {
    EXPECT_EQ(Text(R"(<c><DiagnoseList><DiagnoseItem name="a" level="warn" isSync="true"/></DiagnoseList><LogCollect>
<Log srcPath="/a" dstPath="/b" timeout="0000000005" isFolder="true"/>
<Log srcPath="/a" dstPath="/b" timeout="5s" isFolder="True"/>
<Log srcPath="/a"/>
<Log srcPath="/data/log/wylogs" dstPath="/b" timeout="" isFolder="true"/>
</LogCollect></c>)"),
              R"(line 1: DiagnoseList: records: 1
line 1: DiagnoseItem "a": level "warn", synchronous
line 1: LogCollect: records: 4
line 2: Log "/a": to "/b", 0 s, folder
line 2: Log "/a": falls back: config file value [timeout] strcpy_s err, ret 34.
line 2: Log "/a": falls back: TransUint32Attr [timeout] parse err.
line 3: Log "/a": to "/b", 0 s, single file
line 3: Log "/a": falls back: String2Uint32 err,[5s] is not digit.
line 4: Log "/a": to "", 0 s, single file
line 4: Log "/a": falls back: config file value [dstPath] get err.
line 4: Log "/a": falls back: config file value [timeout] get err.
line 4: Log "/a": falls back: TransUint32Attr [timeout] parse err.
line 4: Log "/a": falls back: config file value [isFolder] get err.
line 5: Log "/data/log/wylogs": to "/b", 0 s, system log
line 5: Log "/data/log/wylogs": falls back: TransUint32Attr [timeout] parse err.
line 5: Log "/data/log/wylogs": the attribute "isFolder" is not read
c.xml: items: 1, collection entries: 4
)");
}

TEST_F(DiagnosisTest, SaysWhichElementsAreNotLookedAtAndWhichCountInSpiteOfTheirName) {
    const Diagnosis diagnosis = Look(R"(<c>
<Extra><a><b/></a></Extra>
<DiagnoseList>
<Before/>
<DiagnoseItem name="one" level="warn" isSync="true"><inner/></DiagnoseItem>
<Other name="one" level="warn" isSync="true"/>
</DiagnoseList>
<LogCollect><Logs/></LogCollect>
<DiagnoseList><DiagnoseItem/></DiagnoseList>
</c>)");
    EXPECT_FALSE(diagnosis.FallsBack());
    EXPECT_EQ(ReportText("c.xml", diagnosis),
              R"(line 2: Extra: not looked at: it is neither DiagnoseList nor LogCollect
line 2: Extra: not looked at: the elements inside it, 2
line 3: DiagnoseList: records: 2
line 4: Before: not looked at: it stands before the first DiagnoseItem
line 5: DiagnoseItem "one": level "warn", synchronous
line 5: inner: not looked at: it is inside a DiagnoseItem
line 6: Other "one": level "warn", synchronous
line 6: Other "one": it counts as a DiagnoseItem, whatever its name
line 6: Other "one": line 5 has this name, too
line 8: LogCollect: records: 0
line 8: LogCollect: there is no Log in it
line 8: Logs: not looked at: there is no Log
line 9: DiagnoseList: not looked at: only the first DiagnoseList counts
line 9: DiagnoseList: not looked at: the elements inside it, 1
c.xml: items: 2, collection entries: 0
)");
}

TEST_F(DiagnosisTest, AMissingListIsTheLoadersOwnWord) {
    const Diagnosis diagnosis = Look("<c><DiagnoseItem/></c>");
    EXPECT_TRUE(diagnosis.FallsBack());
    EXPECT_EQ(ReportText("c.xml", diagnosis),
              R"(line 1: DiagnoseItem: not looked at: it is neither DiagnoseList nor LogCollect
c.xml: falls back: there is no [DiagnoseList] in config.
c.xml: falls back: there is no [LogCollect] in config.
c.xml: items: 0, collection entries: 0
)");
}

TEST_F(DiagnosisTest, ItemsBeyondThe256thAreNoted) {
    std::string xml =
        "<c><LogCollect><Log srcPath='/a' dstPath='/b' timeout='1' isFolder='true'/></LogCollect><DiagnoseList>";
    for (int i = 1; i <= 257; ++i) {
        xml += "\n<DiagnoseItem name='i" + std::to_string(i) + "' level='warn' isSync='true'/>";
    }
    const Diagnosis diagnosis = Look(xml + "</DiagnoseList></c>");
    EXPECT_EQ(diagnosis.items.size(), 257U);
    ASSERT_EQ(diagnosis.elements.size(), 260U);
    EXPECT_EQ(diagnosis.elements[258].notes, (std::vector<std::string>{}));
    EXPECT_EQ(diagnosis.elements[259].line, 258);
    EXPECT_EQ(diagnosis.elements[259].notes,
              (std::vector<std::string>{"the list of items that the server answers ends with the 256th"}));
}

TEST_F(DiagnosisTest, AnUnreadableFileMeansTheDefaultItemsAndNoCollection) {
    const Diagnosis diagnosis = Diagnose("missing.xml");
    ASSERT_TRUE(diagnosis.unreadable);
    EXPECT_TRUE(diagnosis.FallsBack());
    EXPECT_EQ(diagnosis.items.size(), 25U);
    EXPECT_EQ(diagnosis.entries, 0U);
    EXPECT_EQ(diagnosis.messages, (std::vector<std::string>{"xml read err, error code : 3. use default config.",
                                                            "use default config InspectItemList."}));
    EXPECT_NE(diagnosis.unreadable->text.find("XML_ERROR_FILE_NOT_FOUND"), std::string::npos);
}

// A pipe would have to be waited for, and a device may have no end.
TEST_F(DiagnosisTest, WhatIsNoFileIsNotRead) {
    const Diagnosis diagnosis = Diagnose("/dev/null");
    ASSERT_TRUE(diagnosis.unreadable);
    EXPECT_EQ(diagnosis.unreadable->text, "not a regular file");
    EXPECT_TRUE(diagnosis.items.empty());
}

TEST_F(DiagnosisTest, ABrokenFileIsToldWithItsLine) {
    const Diagnosis diagnosis = Look("<c>\n<DiagnoseList>\n</c>");
    ASSERT_TRUE(diagnosis.unreadable);
    EXPECT_NE(diagnosis.unreadable->text.find("Line number=2"), std::string::npos) << diagnosis.unreadable->text;
    EXPECT_TRUE(diagnosis.elements.empty());
}

TEST_F(DiagnosisTest, AFileWithoutADocumentElementMeansBothDefaults) {
    EXPECT_EQ(Text("<!-- nothing -->"),
              R"(c.xml: falls back: xmlDocGetRootElement fail
c.xml: falls back: use default config InspectItemList.
c.xml: falls back: use default config logCollectList.
c.xml: items: 25, collection entries: 20
)");
}

TEST_F(DiagnosisTest, TextsFromTheFileAreEscaped) {
    EXPECT_EQ(Text("<c><DiagnoseList><DiagnoseItem name='a&#10;b\\' level='\xff' isSync='true'/></DiagnoseList>"
                   "<LogCollect/></c>"),
              R"(line 1: DiagnoseList: records: 1
line 1: DiagnoseItem "a\nb\\": level "\xff", synchronous
line 1: LogCollect: records: 0
line 1: LogCollect: there is no Log in it
c.xml: items: 1, collection entries: 0
)");
}

TEST_F(DiagnosisTest, JsonHoldsTheSame) {
    const std::string xml =
        "<c><DiagnoseList>\n<DiagnoseItem name='a' level='warn' x='1'/></DiagnoseList><LogCollect>"
        "<Log srcPath='/a' dstPath='/b' timeout='7' isFolder='true'/></LogCollect></c>";
    EXPECT_EQ(ReportJson("c.xml", Look(xml)).Print(),
              R"({"file":"c.xml","readable":true,"error":"","fallsBack":true,"messages":[],"items":1,"entries":1,)"
              R"("elements":[{"line":1,"element":"DiagnoseList","use":"list","values":{"records":1},"fallbacks":[],)"
              R"("notes":[]},{"line":2,"element":"DiagnoseItem","use":"item","values":{"name":"a","level":"warn",)"
              R"("synchronous":false},"fallbacks":["config file value [isSync] get err."],)"
              R"("notes":["the attribute \"x\" is not read"]},{"line":2,"element":"LogCollect","use":"list",)"
              R"("values":{"records":1},"fallbacks":[],"notes":[]},{"line":2,"element":"Log","use":"entry",)"
              R"("values":{"source":"/a","destination":"/b","timeLimitSeconds":7,"kind":"folder"},"fallbacks":[],)"
              R"("notes":[]}]})");
}

}  // namespace
