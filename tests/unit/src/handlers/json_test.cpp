// Reading of JSON request texts.
#include "handlers/json.h"

#include <gtest/gtest.h>

#include <string>

#include "fake/fake.h"
#include "ominspect/entry.h"

namespace {

/// What JsonGetValue gave, and what the output holds then; it held "before".
struct Got {
    uint32_t code;
    std::string value;

    bool operator==(const Got& other) const { return code == other.code && value == other.value; }
};

std::ostream& operator<<(std::ostream& out, const Got& got) {
    return out << got.code << " \"" << got.value << "\"";
}

Got Get(const std::string& text, const char* key, uint32_t size = 32) {
    char out[256] = "before";
    const JsonText json{text.c_str(), static_cast<uint32_t>(text.size())};
    const uint32_t code = JsonGetValue(&json, key, out, size);
    return {code, out};
}

const Got kFailed{1, "before"};

}  // namespace

TEST(JsonGetValueTest, CopiesTheStringMember) {
    EXPECT_EQ(Get(R"({"name":"item","cmd":"go"})", "name"), (Got{0, "item"}));
    EXPECT_EQ(Get(R"({"name":"item","cmd":"go"})", "cmd"), (Got{0, "go"}));
}

TEST(JsonGetValueTest, DoesNotTellCapitalsFromSmallLetters) {
    EXPECT_EQ(Get(R"({"NAME":"item"})", "name"), (Got{0, "item"}));
}

TEST(JsonGetValueTest, CopiesAnEmptyString) {
    EXPECT_EQ(Get(R"({"name":""})", "name"), (Got{0, ""}));
}

TEST(JsonGetValueTest, ResolvesEscapes) {
    EXPECT_EQ(Get(R"({"name":"a\"\u0041"})", "name"), (Got{0, "a\"A"}));
}

TEST(JsonGetValueTest, FailsForATextThatIsNoJson) {
    EXPECT_EQ(Get("name", "name"), kFailed);
    EXPECT_EQ(Get("", "name"), kFailed);
    EXPECT_EQ(Get(R"({"name":"item")", "name"), kFailed);
}

TEST(JsonGetValueTest, FailsForAMissingMember) {
    EXPECT_EQ(Get(R"({"cmd":"go"})", "name"), kFailed);
    EXPECT_EQ(Get(R"(["name"])", "name"), kFailed);
    EXPECT_EQ(Get(R"("name")", "name"), kFailed);
}

TEST(JsonGetValueTest, FailsForAMemberThatIsNoString) {
    for (const char* value : {"1", "true", "null", R"(["x"])", R"({"x":"y"})"}) {
        EXPECT_EQ(Get(std::string(R"({"name":)") + value + "}", "name"), kFailed) << value;
    }
}

TEST(JsonGetValueTest, FailsForAValueThatDoesNotFit) {
    const std::string value31(31, 'a');
    EXPECT_EQ(Get(R"({"name":")" + value31 + R"("})", "name", 32), (Got{0, value31}));
    EXPECT_EQ(Get(R"({"name":")" + value31 + R"(b"})", "name", 32), kFailed);
}

TEST(JsonGetValueTest, CopiesAnEmptyStringIntoASingleByte) {
    EXPECT_EQ(Get(R"({"name":""})", "name", 1), (Got{0, ""}));
    EXPECT_EQ(Get(R"({"name":"a"})", "name", 1), kFailed);
}

TEST(JsonGetValueTest, FailsForNullArguments) {
    char out[4] = "abc";
    const JsonText json{R"({"name":"x"})", 12};
    const JsonText none{nullptr, 0};
    EXPECT_EQ(JsonGetValue(nullptr, "name", out, 4), 1U);
    EXPECT_EQ(JsonGetValue(&none, "name", out, 4), 1U);
    EXPECT_EQ(JsonGetValue(&json, nullptr, out, 4), 1U);
    EXPECT_EQ(JsonGetValue(&json, "name", nullptr, 4), 1U);
    EXPECT_EQ(JsonGetValue(&json, "name", out, 0), 1U);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(JsonGetValue(&json, "name", out, 4), 0U);
    EXPECT_STREQ(out, "x");
}

TEST(JsonGetValueTest, FailsWhenTheValueCannotBeCopied) {
    kivo::fake::Reset();
    kivo::fake::Fail("strncpy_s", 34);
    EXPECT_EQ(Get(R"({"name":"item"})", "name"), kFailed);
    EXPECT_EQ(Get(R"({"name":"item"})", "name"), (Got{0, "item"}));
}

TEST(JsonGetValueTest, ReadsUpToTheNulAndNoFurther) {
    EXPECT_EQ(Get(std::string(R"({"name":"x"})") + '\0' + "rubbish", "name"), (Got{0, "x"}));
    EXPECT_EQ(Get(std::string("{\"name\":") + '\0' + "\"x\"}", "name"), kFailed);
}

TEST(JsonGetValueTest, DoesNotLookAtTheLength) {
    char out[8] = {};
    const JsonText json{R"({"name":"x"})", 0};
    EXPECT_EQ(JsonGetValue(&json, "name", out, 8), 0U);
    EXPECT_STREQ(out, "x");
}

TEST(JsonGetValueTest, RefusesDeepNesting) {
    const std::string deep = std::string(100000, '[');
    EXPECT_EQ(Get(deep, "name"), kFailed);
    EXPECT_EQ(Get(R"({"a":)" + deep + R"(,"name":"x"})", "name"), kFailed);
}

TEST(JsonOperationsTest, TheOtherThreeDoNothing) {
    JsonSetValue();
    JsonAddValue();
    JsonDelValue();
    EXPECT_EQ(Get(R"({"name":"x"})", "name"), (Got{0, "x"}));
}
