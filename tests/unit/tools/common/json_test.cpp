// JSON documents, written and read.
#include <gtest/gtest.h>

#include "common/json.h"

using namespace ominspect::json;

namespace {

TEST(JsonTest, IsWrittenInTheOrderOfTheCalls) {
    auto list = Value::Array();
    list.AddText("a").Add(std::move(Value::Object().Number("n", 999999999999999)));
    auto document = Value::Object();
    document.Text("z", "x\n").Flag("yes", true).Flag("no", false).Put("list", std::move(list));
    EXPECT_EQ(document.Print(), R"({"z":"x\n","yes":true,"no":false,"list":["a",{"n":999999999999999}]})");
    EXPECT_EQ(Value::Object().Text("a", "b").PrintIndented(), "{\n\t\"a\":\t\"b\"\n}");
}

TEST(JsonTest, NumbersAreWrittenWithAllTheirDigits) {
    EXPECT_EQ(Value::Object().Number("n", 4503599627395471U).Print(), R"({"n":4503599627395471})");
    EXPECT_EQ(Value::Object().Number("n", UINT64_MAX).PrintIndented(), "{\n\t\"n\":\t18446744073709551615\n}");
}

TEST(JsonTest, IsValidUtf8AndHoldsNothingThatATerminalObeys) {
    const std::string controlSequence(
        "\xC2\x9B"
        "2J");
    EXPECT_EQ(Value::Object().Text("a", "\xFF" + controlSequence).Print(), "{\"a\":\"\xEF\xBF\xBD\\u009b2J\"}");
}

TEST(JsonTest, IsReadByMembersAndElements) {
    const auto document = Value::Parse(R"({"a":{"b":[1.5,"x",true,false,null]},"c":{}})");
    ASSERT_TRUE(document);
    const View root = document->Read();
    EXPECT_EQ(root["a"]["b"].At(0).Number(), 1.5);
    EXPECT_EQ(root["a"]["b"].At(1).Text(), "x");
    EXPECT_EQ(root["a"]["b"].At(2).Flag(), true);
    EXPECT_EQ(root["a"]["b"].At(3).Flag(), false);
    EXPECT_EQ(root["a"]["b"].Members().size(), 5U);
    const auto members = root.Members();
    ASSERT_EQ(members.size(), 2U);
    EXPECT_EQ(members[0].first, "a");
    EXPECT_EQ(members[1].first, "c");
    EXPECT_TRUE(members[1].second);
}

TEST(JsonTest, WhatIsNotThereOrOfAnotherTypeIsNothing) {
    const auto document = Value::Parse(R"({"a":"text","b":7})");
    ASSERT_TRUE(document);
    const View root = document->Read();
    EXPECT_FALSE(root["missing"]);
    EXPECT_FALSE(root["missing"]["deeper"].At(3));
    EXPECT_FALSE(root["A"]) << "names are case-sensitive";
    EXPECT_FALSE(root["a"].Number());
    EXPECT_FALSE(root["a"].Flag());
    EXPECT_FALSE(root["b"].Text());
    EXPECT_FALSE(root["b"].Flag());
    EXPECT_TRUE(root["missing"].Members().empty());
}

TEST(JsonTest, NoDocumentIsAnError) {
    for (const char* text : {"", "{", "not JSON"}) {
        EXPECT_FALSE(Value::Parse(text)) << text;
    }
}

}  // namespace
