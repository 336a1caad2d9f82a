// The position's file: kept whole, and distrusted.
#include "mqtt/position.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "support/temp_folder.h"

using namespace ominspect::gateway::mqtt;

namespace {

class MqttPosition : public testing::Test {
protected:
    std::uint64_t LoadedFrom(const std::string& content) const {
        support::WriteFile(folder_ / "position", content);
        return PositionFile(folder_ / "position", "room12").Load();
    }

    support::TempFolder folder_;
};

TEST_F(MqttPosition, IsWhatWasSaved) {
    const PositionFile file(folder_ / "position", "room\xFF/12");
    EXPECT_EQ(file.Load(), 0U) << "without a file everything is to be sent";
    ASSERT_FALSE(file.Save(1763800000123));
    EXPECT_EQ(PositionFile(folder_ / "position", "room\xFF/12").Load(), 1763800000123U);
    ASSERT_FALSE(file.Save(7));
    EXPECT_EQ(file.Load(), 7U);
    EXPECT_EQ(support::Contents(folder_ / "position"), "{\"terminal\":\"room\xEF\xBF\xBD/12\",\"position\":7}\n");
}

TEST_F(MqttPosition, OfSixteenDigitsIsWhatWasSaved) {
    const PositionFile file(folder_ / "position", "room12");
    for (const std::uint64_t position : {std::uint64_t{4503599627395471}, std::uint64_t{9007199254740991}}) {
        ASSERT_FALSE(file.Save(position));
        EXPECT_EQ(file.Load(), position);
    }
}

TEST_F(MqttPosition, OfAnotherTerminalDoesNotCount) {
    EXPECT_EQ(LoadedFrom(R"({"terminal":"room12","position":5})"), 5U);
    EXPECT_EQ(LoadedFrom(R"({"terminal":"room13","position":5})"), 0U);
    EXPECT_EQ(LoadedFrom(R"({"position":5})"), 0U);
}

TEST_F(MqttPosition, WithoutSenseMeansTheBeginning) {
    for (const char* content : {"", "5", "{", R"({"terminal":"room12"})", R"({"terminal":"room12","position":-1})",
                                R"({"terminal":"room12","position":1.5})", R"({"terminal":"room12","position":1e300})",
                                R"({"terminal":"room12","position":"5"})"}) {
        EXPECT_EQ(LoadedFrom(content), 0U) << content;
    }
}

TEST_F(MqttPosition, ThatCannotBeSavedSaysSoAndStays) {
    const PositionFile file(folder_ / "position", "room12");
    ASSERT_FALSE(file.Save(5));
    ASSERT_EQ(mkdir((folder_ / "position.new").c_str(), 0700), 0);
    ASSERT_TRUE(file.Save(6));
    EXPECT_EQ(file.Load(), 5U);
}

}  // namespace
