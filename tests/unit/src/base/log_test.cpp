// Logging: what the log client is given.
#include "base/log.h"

#include <string>

#include "support/journal_text.h"
#include "support/platform_test.h"

using kivo::fake::Entry;
using kivo::fake::Kind;
using support::Lines;

namespace {

constexpr LogUnit kLogUnit{"some_unit", 77};

class InspectLogTest : public support::PlatformTest {
protected:
    static Entry Last() { return kivo::fake::Journal().back(); }
};

}  // namespace

TEST_F(InspectLogTest, InitNamesTheClientAndCreatesInspectLog) {
    EXPECT_EQ(InspectLogInit("om_inspect"), 0U);
    EXPECT_EQ(support::Steps(),
              (Lines{"KivoOmLogClientInit(om_inspect)", "KivoOmLogCreateLog(512, 2, 2097152, inspect.log)"}));
}

TEST_F(InspectLogTest, LinesAfterInitCarryTheHandleOfTheLog) {
    ASSERT_EQ(InspectLogInit("om_inspect"), 0U);
    InspectModuleLog(1, "u", 2, 3, "text");
    EXPECT_EQ(Last().handle, 1);
    InspectLog(1, "u", 3, "text");
    EXPECT_EQ(Last().handle, 1);
}

TEST_F(InspectLogTest, InitIs15WhenTheClientCannotBeInitialised) {
    kivo::fake::Fail("KivoOmLogClientInit", 22);
    EXPECT_EQ(InspectLogInit("om_inspect"), 15U);
    EXPECT_EQ(support::Steps(), Lines{});
}

TEST_F(InspectLogTest, InitIs15WhenTheLogCannotBeCreated) {
    kivo::fake::Fail("KivoOmLogCreateLog", 13);
    EXPECT_EQ(InspectLogInit("om_inspect"), 15U);
}

TEST_F(InspectLogTest, UninitGivesTheClientsResult) {
    ASSERT_EQ(InspectLogInit("om_inspect"), 0U);
    EXPECT_EQ(InspectLogUninit(), 0U);
    kivo::fake::Fail("KivoOmLogClientUnInit", 5);
    EXPECT_EQ(InspectLogUninit(), 5U);
}

TEST_F(InspectLogTest, AModuleLineIsPassedOnWhole) {
    InspectModuleLog(3, "result", 13, 4711, "%s is %d", "x", 5);
    const Entry entry = Last();
    EXPECT_EQ(entry.kind, Kind::kLog);
    EXPECT_EQ(entry.level, 3U);
    EXPECT_EQ(entry.unit, "result");
    EXPECT_EQ(entry.module, 13U);
    EXPECT_EQ(entry.line, 4711U);
    EXPECT_EQ(entry.text, "x is 5");
}

TEST_F(InspectLogTest, AGeneralLineHasNoModule) {
    InspectLog(1, "result", 4711, "%s is %d", "x", 5);
    const Entry entry = Last();
    EXPECT_EQ(entry.level, 1U);
    EXPECT_EQ(entry.unit, "result");
    EXPECT_EQ(entry.module, 256U);  // none
    EXPECT_EQ(entry.line, 4711U);
    EXPECT_EQ(entry.text, "x is 5");
}

TEST_F(InspectLogTest, LevelAndModuleArePassedAs8Bits) {
    InspectModuleLog(0x101, "u", 0x212, 1, "text");
    EXPECT_EQ(Last().level, 1U);
    EXPECT_EQ(Last().module, 0x12U);
    InspectLog(0x103, "u", 1, "text");
    EXPECT_EQ(Last().level, 3U);
}

TEST_F(InspectLogTest, A500CharacterLineIsCutTo399) {
    InspectModuleLog(1, "u", 2, 3, "%s", std::string(500, 'a').c_str());
    EXPECT_EQ(Last().text, std::string(399, 'a'));
    InspectLog(1, "u", 3, "%s", std::string(500, 'b').c_str());
    EXPECT_EQ(Last().text, std::string(399, 'b'));
}

TEST_F(InspectLogTest, A399CharacterLineIsKeptWhole) {
    InspectModuleLog(1, "u", 2, 3, "%s", std::string(399, 'a').c_str());
    EXPECT_EQ(Last().text, std::string(399, 'a'));
}

TEST_F(InspectLogTest, AnEmptyLineIsNoFormattingError) {
    InspectModuleLog(1, "u", 2, 3, "%s", "");
    EXPECT_EQ(Last().text, "");
    InspectLog(1, "u", 3, "%s", "");
    EXPECT_EQ(Last().text, "");
}

TEST_F(InspectLogTest, PercentSignsInATextAreNoFormat) {
    InspectModuleLog(1, "u", 2, 3, "%s", "100%s %n");
    EXPECT_EQ(Last().text, "100%s %n");
}

TEST_F(InspectLogTest, AFormattingErrorIsReplacedByItsOwnText) {
    const char* const volatile none = nullptr;  // hidden from the compiler's own check of formats
    InspectModuleLog(1, "u", 2, 3, none);
    EXPECT_EQ(support::Steps(), (Lines{"1 u 2: vsnprintf_s failed"}));
    InspectLog(3, "u", 3, none);
    EXPECT_EQ(support::Steps().back(), "3 u -: vsnprintf_s failed");
}

TEST_F(InspectLogTest, TheMacrosAddLevelUnitModuleAndLine) {
    INSPECT_ERROR("bad %d", 1);
    EXPECT_EQ(Last().line, static_cast<uint32_t>(__LINE__ - 1));
    INSPECT_INFO("good %d", 2);
    EXPECT_EQ(Last().line, static_cast<uint32_t>(__LINE__ - 1));
    EXPECT_EQ(support::Steps(), (Lines{"1 some_unit 77: bad 1", "3 some_unit 77: good 2"}));
}
