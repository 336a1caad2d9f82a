// Operations-log client.
#include "kivo/om_log_client.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform_control.h"
#include "thread_starter.h"

namespace {

using support::LogLine;
using support::LogLines;

constexpr uint32_t kInvalid = EINVAL;
constexpr uint32_t kNotInitialised = EPERM;

KivoOmLogCreation Creation(std::string_view fileName) {
    KivoOmLogCreation creation{512, 2, 2097152, {}};
    std::memcpy(creation.fileName, fileName.data(), fileName.size());
    return creation;
}

KivoOmLogHandle Create(std::string_view fileName) {
    const KivoOmLogCreation creation = Creation(fileName);
    KivoOmLogHandle handle = 0;
    EXPECT_EQ(KivoOmLogCreateLog(&creation, &handle), 0U);
    EXPECT_NE(handle, 0U);
    return handle;
}

class LogClientSessionTest : public support::ContractTest {};

/// With an initialised client.
class LogClientTest : public support::ContractTest {
protected:
    void SetUp() override {
        ContractTest::SetUp();
        ASSERT_EQ(KivoOmLogClientInit("suite", 5), 0U);
    }
};

}  // namespace

TEST_F(LogClientSessionTest, ClientNameHasOneTo31Bytes) {
    EXPECT_EQ(KivoOmLogClientInit(nullptr, 4), kInvalid);
    EXPECT_EQ(KivoOmLogClientInit("", 0), kInvalid);
    EXPECT_EQ(KivoOmLogClientInit("name", 0), kInvalid);
    EXPECT_EQ(KivoOmLogClientInit("12345678901234567890123456789012", 32), kInvalid);
    EXPECT_EQ(KivoOmLogClientInit("1234567890123456789012345678901", 31), 0U);
}

TEST_F(LogClientSessionTest, InitialisedUntilUnInit) {
    EXPECT_EQ(KivoOmLogClientUnInit(), kNotInitialised);
    EXPECT_EQ(KivoOmLogClientInit("suite", 5), 0U);
    EXPECT_EQ(KivoOmLogClientUnInit(), 0U);
    EXPECT_EQ(KivoOmLogClientUnInit(), kNotInitialised);
    EXPECT_EQ(KivoOmLogClientInit("suite", 5), 0U);
}

TEST_F(LogClientTest, AClientThatIsOpenStaysAsItIs) {
    const KivoOmLogHandle before = Create("contract.log");
    EXPECT_EQ(KivoOmLogClientInit("another", 7), 0U);
    EXPECT_EQ(Create("contract.log"), before);
    EXPECT_NE(Create("other.log"), before);
    EXPECT_EQ(KivoOmLogClientUnInit(), 0U);
    EXPECT_EQ(KivoOmLogClientUnInit(), kNotInitialised);
}

TEST_F(LogClientSessionTest, NoLogWithoutAnInitialisedClient) {
    const KivoOmLogCreation creation = Creation("contract.log");
    KivoOmLogHandle handle = 7;
    EXPECT_EQ(KivoOmLogCreateLog(&creation, &handle), kNotInitialised);
    EXPECT_EQ(handle, 7U);
}

TEST_F(LogClientTest, BadRecordsAreRefused) {
    const auto create = [](auto change) {
        KivoOmLogCreation creation = Creation("contract.log");
        change(creation);
        KivoOmLogHandle handle = 0;
        return KivoOmLogCreateLog(&creation, &handle);
    };
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { creation.lineSize = 0; }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { creation.fileCount = 0; }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { creation.fileCount = 1001; }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { creation.fileSize = 0; }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { creation.fileName[0] = '\0'; }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { creation.fileName[4] = '/'; }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { std::memset(creation.fileName, 'n', 64); }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { std::memcpy(creation.fileName, "..", 3); }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& creation) { std::memcpy(creation.fileName, ".", 2); }), kInvalid);
    EXPECT_EQ(create([](KivoOmLogCreation& /*creation*/) {}), 0U);
}

TEST_F(LogClientTest, NullArgumentsAreRefused) {
    const KivoOmLogCreation creation = Creation("contract.log");
    KivoOmLogHandle handle = 0;
    EXPECT_EQ(KivoOmLogCreateLog(nullptr, &handle), kInvalid);
    EXPECT_EQ(KivoOmLogCreateLog(&creation, nullptr), kInvalid);
}

TEST_F(LogClientTest, TheSameFileNameGivesTheSameHandle) {
    const KivoOmLogHandle first = Create("first.log");
    const KivoOmLogHandle second = Create("second.log");
    EXPECT_NE(first, second);
    EXPECT_EQ(Create("first.log"), first);
}

TEST_F(LogClientTest, LinesArriveWholeAndInOrder) {
    const KivoOmLogHandle handle = Create("contract.log");
    KivoOmLogModuleLogRecord(1, handle, "inspect_server", 18, 201, "%s", "the first");
    KivoOmLogModuleLogRecord(3, handle, "InspectFile", 15, 4294967295U, "%d of %s", 2, "three");
    KivoOmLogGeneralLogRecord(2, handle, "unit", 0, "%s", "no module");
    EXPECT_EQ(LogLines("contract.log", handle), (std::vector<LogLine>{
                                                    {1, "inspect_server", 18, 201, "the first"},
                                                    {3, "InspectFile", 15, 4294967295U, "2 of three"},
                                                    {2, "unit", {}, 0, "no module"},
                                                }));
}

TEST_F(LogClientTest, AModuleNumberOf255IsAModule) {
    const KivoOmLogHandle handle = Create("contract.log");
    KivoOmLogModuleLogRecord(1, handle, "unit", 255, 1, "%s", "highest");
    KivoOmLogModuleLogRecord(1, handle, "unit", 0, 1, "%s", "lowest");
    EXPECT_EQ(LogLines("contract.log", handle),
              (std::vector<LogLine>{{1, "unit", 255, 1, "highest"}, {1, "unit", 0, 1, "lowest"}}));
}

TEST_F(LogClientTest, PercentSignsInArgumentsAreText) {
    const KivoOmLogHandle handle = Create("contract.log");
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "100%s %n");
    EXPECT_EQ(LogLines("contract.log", handle), (std::vector<LogLine>{{1, "unit", 1, 1, "100%s %n"}}));
}

TEST_F(LogClientTest, EachLogHasItsOwnLines) {
    const KivoOmLogHandle first = Create("first.log");
    const KivoOmLogHandle second = Create("second.log");
    KivoOmLogModuleLogRecord(1, first, "unit", 1, 1, "%s", "to the first");
    KivoOmLogModuleLogRecord(1, second, "unit", 1, 2, "%s", "to the second");
    EXPECT_EQ(LogLines("first.log", first), (std::vector<LogLine>{{1, "unit", 1, 1, "to the first"}}));
    EXPECT_EQ(LogLines("second.log", second), (std::vector<LogLine>{{1, "unit", 1, 2, "to the second"}}));
}

TEST_F(LogClientTest, AClosedHandleWritesToNoLog) {
    const KivoOmLogHandle closed = Create("contract.log");
    ASSERT_EQ(KivoOmLogClientUnInit(), 0U);
    ASSERT_EQ(KivoOmLogClientInit("suite", 5), 0U);
    const KivoOmLogHandle handle = Create("contract.log");
    EXPECT_NE(handle, closed);
    KivoOmLogModuleLogRecord(1, handle, "unit", 1, 1, "%s", "after");
    KivoOmLogModuleLogRecord(1, closed, "unit", 1, 2, "%s", "stale");
    KivoOmLogModuleLogRecord(1, 0, "unit", 1, 3, "%s", "to no log");
    EXPECT_EQ(LogLines("contract.log", handle), (std::vector<LogLine>{{1, "unit", 1, 1, "after"}}));
}

TEST_F(LogClientTest, ThreadsLogAtTheSameTime) {
    const KivoOmLogHandle handle = Create("contract.log");
    std::atomic<int> ended{0};
    for (uint8_t thread = 0; thread < 4; ++thread) {
        support::StartThread([&, thread] {
            for (uint32_t line = 0; line < 200; ++line) {
                KivoOmLogModuleLogRecord(3, handle, "unit", thread, line, "%s", "the text of a line");
            }
            ++ended;
        });
    }
    EXPECT_TRUE(support::WaitFor([&] { return ended == 4; }));
    std::vector<uint32_t> next(4);
    for (const LogLine& line : LogLines("contract.log", handle)) {
        ASSERT_TRUE(line.module.has_value());
        ASSERT_LT(*line.module, 4U);
        EXPECT_EQ(line.line, next[*line.module]++);
        EXPECT_EQ(line.text, "the text of a line");
    }
    EXPECT_EQ(next, (std::vector<uint32_t>(4, 200)));
}
