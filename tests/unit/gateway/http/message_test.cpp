// Paths, cookies and problem documents.
#include "http/message.h"

#include <gtest/gtest.h>

using namespace ominspect::gateway;

namespace {

using Parts = std::vector<std::string>;

TEST(Message, APathIsSplitBeforeItIsDecoded) {
    EXPECT_EQ(PartsOf("/api/v1/items/a%2Fb%20c"), (Parts{"api", "v1", "items", "a/b c"}));
    EXPECT_EQ(PartsOf("/"), (Parts{""}));
    EXPECT_EQ(PartsOf("/a/"), (Parts{"a", ""}));
    EXPECT_EQ(PartsOf("/%ff"), (Parts{"\xff"}));
    for (const char* wrong : {"/%", "/%4", "/%zz", "/%00", "/%-1", "/%+1"}) {
        EXPECT_FALSE(PartsOf(wrong)) << wrong;
    }
}

TEST(Message, ACookieIsFoundByItsWholeName) {
    EXPECT_EQ(CookieOf("ominspect=abc", "ominspect"), "abc");
    EXPECT_EQ(CookieOf("a=1; ominspect=abc;b=2", "ominspect"), "abc");
    EXPECT_EQ(CookieOf("xominspect=abc; ominspectx=d", "ominspect"), "");
    EXPECT_EQ(CookieOf("", "ominspect"), "");
    EXPECT_EQ(CookieOf(";;;", "ominspect"), "");
}

TEST(Message, AProblemIsADocument) {
    const Response problem = Problem(409, "ended", "it \"is\" over");
    EXPECT_EQ(problem.status, 409);
    EXPECT_EQ(problem.contentType, "application/problem+json");
    EXPECT_EQ(*problem.body, R"({"type":"urn:ominspect:problem:ended","title":"Conflict","status":409,)"
                             R"("detail":"it \"is\" over"})");
}

}  // namespace
