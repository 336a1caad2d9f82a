// The command doctor as people run it, without a bus: its exit codes, and what is known without a bus.
#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_folder.h"

using support::Outcome;

using support::WriteFile;

namespace {

constexpr const char* kGood =
    "<config><DiagnoseList><DiagnoseItem name='a' level='warn' isSync='true'/></DiagnoseList>"
    "<LogCollect><Log srcPath='/a' dstPath='/b' timeout='7' isFolder='true'/></LogCollect></config>";

class DoctorProgram : public testing::Test {
protected:
    static Outcome Doctor(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {PROGRAM_CTL, "doctor"});
        return support::Run(arguments, {"KIVO_BUS_ADDRESS=unix:path=/no/bus"});
    }

    const support::WorkingFolder work_;
};

TEST_F(DoctorProgram, AnswersZeroWhenNothingFallsBack) {
    WriteFile("c.xml", kGood);
    const Outcome outcome = Doctor({"--config", "c.xml"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output,
              "line 1: DiagnoseList: records: 1\n"
              "line 1: DiagnoseItem \"a\": level \"warn\", synchronous\n"
              "line 1: LogCollect: records: 1\n"
              "line 1: Log \"/a\": to \"/b\", 7 s, folder\n"
              "c.xml: items: 1, collection entries: 1\n"
              "ominspectctl: bus unreachable at unix:path=/no/bus: No such file or directory\n");
}

TEST_F(DoctorProgram, AnswersOneWhenSomethingFallsBack) {
    WriteFile("c.xml", "<c/>");
    EXPECT_EQ(Doctor({"--config", "c.xml"}).exitCode, 1);
    EXPECT_EQ(Doctor({"--config", "c.xml", "--json"}).output.substr(0, 70),
              R"({"file":"c.xml","readable":true,"error":"","fallsBack":true,"messages")");
}

TEST_F(DoctorProgram, SaysWhatIsNotAsTheSchemaHasIt) {
    WriteFile("c.xml",
              std::string("<config><DiagnoseList><DiagnoseItem name='a' level='bad' isSync='true'/></DiagnoseList>\n") +
                  "<LogCollect><Log srcPath='/a' dstPath='/b' timeout='7' isFolder='true'/></LogCollect></config>");
    const std::string complaint =
        "line 1: Element 'DiagnoseItem', attribute 'level': [facet 'enumeration'] The value 'bad' is not an element of "
        "the "
        "set {'error', 'warn'}.";
    const Outcome text = Doctor({"--config", "c.xml"});
    EXPECT_EQ(text.exitCode, 0) << "the server takes the value as it is";
    EXPECT_TRUE(text.output.starts_with("schema: " + complaint + "\nline 1: DiagnoseList: records: 1\n"))
        << text.output;
    EXPECT_NE(Doctor({"--config", "c.xml", "--json"})
                  .output.find(R"("schema":{"checked":true,"errors":[")" + complaint + "\"]}"),
              std::string::npos);
    WriteFile("c.xml", kGood);
    EXPECT_NE(Doctor({"--config", "c.xml", "--json"}).output.find(R"("schema":{"checked":true,"errors":[]})"),
              std::string::npos);
}

TEST_F(DoctorProgram, SaysThatThereIsNoValidator) {
    WriteFile("c.xml", kGood);
    const Outcome outcome = support::Run({PROGRAM_CTL, "doctor", "--config", "c.xml"}, {"PATH=/nowhere"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_TRUE(outcome.output.starts_with("not checked against the schema: xmllint: No such file or directory\n"))
        << outcome.output;
}

TEST_F(DoctorProgram, AnswersTwoToAnUnreadableFileAndToWrongUse) {
    const Outcome missing = Doctor({"--config", "missing.xml"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(missing.output.starts_with("missing.xml: ")) << missing.output;
    EXPECT_NE(missing.output.find("XML_ERROR_FILE_NOT_FOUND"), std::string::npos) << missing.output;
    EXPECT_NE(missing.output.find("missing.xml: items: 25, collection entries: 0\n"), std::string::npos);
    const Outcome folder = Doctor({"--config", "."});
    EXPECT_EQ(folder.exitCode, 2);
    EXPECT_NE(folder.output.find(".: falls back: use default config InspectItemList.\n"), std::string::npos);
    EXPECT_NE(folder.output.find(".: items: 25, collection entries: 0\n"), std::string::npos) << folder.output;
    EXPECT_EQ(Doctor({"--config", "/dev/zero"}).exitCode, 2);
}

TEST_F(DoctorProgram, LooksAtTheWholeInstallationWithoutAFile) {
    const Outcome text = Doctor({});
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_TRUE(text.output.starts_with(
        "failure  bus            bus unreachable at unix:path=/no/bus: No such file or directory\n"
        "                        -> KIVO_BUS_ADDRESS names this bus: start it, or unset the variable for the system "
        "bus\n"
        "unknown  rights         not known without the bus\n"
        "unknown  policy         not known without an answer of the server\n"
        "unknown  server         not known without the bus\n"
        "unknown  owners         not known without the bus\n"))
        << text.output;
    for (const char* subject : {" configuration  ", " log            ", " diagnosis      ", " clock          "}) {
        EXPECT_NE(text.output.find(subject), std::string::npos) << text.output;
    }
    const Outcome json = Doctor({"--json"});
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_TRUE(json.output.starts_with(R"({"findings":[{"subject":"bus","verdict":"failure","text":"bus unreachable)"))
        << json.output;
}

}  // namespace
