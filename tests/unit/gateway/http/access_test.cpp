// Tokens, sessions, and the slowing down of those who guess.
#include "http/access.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "support/temp_folder.h"

using namespace ominspect::gateway;
using namespace std::chrono_literals;

namespace {

const Access::Clock::time_point kStart{1000s};
constexpr const char* kLook = "looker-0123456789abcdef";
constexpr const char* kAct = "actor-0123456789abcdefg";

std::string MistakeOf(std::string_view text) {
    const auto tokens = ParseTokens(text);
    return tokens ? "taken" : tokens.Failure().text;
}

class AccessTest : public testing::Test {
protected:
    Role RoleOf(const std::string& authorization, const std::string& source = "1.2.3.4") {
        return access.Check(authorization, "", source, now).role;
    }
    Access access{{{Role::kLook, "screen", kLook}, {Role::kAct, "helpdesk", kAct}}};
    Access::Clock::time_point now = kStart;
};

TEST(AccessTokens, AreReadLineByLine) {
    const auto tokens = ParseTokens("# who\n\nlook screen " + std::string(kLook) + "\n act\thelpdesk " + kAct);
    ASSERT_TRUE(tokens) << tokens.Failure().text;
    ASSERT_EQ(tokens->size(), 2U);
    EXPECT_EQ((*tokens)[0].role, Role::kLook);
    EXPECT_EQ((*tokens)[0].name, "screen");
    EXPECT_EQ((*tokens)[1].role, Role::kAct);
    EXPECT_EQ((*tokens)[1].secret, kAct);
}

TEST(AccessTokens, MistakesAreToldWithTheirLineAndWithoutTheSecret) {
    EXPECT_EQ(MistakeOf("look screen"), "line 1: a token is \"ROLE NAME SECRET\"");
    EXPECT_EQ(MistakeOf("#\nroot me 0123456789012345678901234"),
              "line 2: the role 'root' is neither \"look\" nor \"act\"");
    EXPECT_EQ(MistakeOf("act me short"),
              "line 1: the secret must have 20 to 128 characters, and the name must be plain");
    EXPECT_EQ(MistakeOf("act me " + std::string(129, 'x')),
              "line 1: the secret must have 20 to 128 characters, and the name must be plain");
    EXPECT_EQ(MistakeOf("act me " + std::string(kAct) + " more"), "line 1: a token is \"ROLE NAME SECRET\"");
}

TEST(AccessTokens, OfAFileThatEverybodyReadsAreRefused) {
    const support::TempFolder folder;
    const std::string path = folder / "tokens";
    EXPECT_EQ(LoadTokens(path)->size(), 0U) << "no file, no tokens";
    support::WriteFile(path, "act me " + std::string(kAct));
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    ASSERT_FALSE(LoadTokens(path));
    EXPECT_EQ(LoadTokens(path).Failure().text, path + ": everybody can read or change it; chmod o= makes it secret");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    EXPECT_EQ(LoadTokens(path)->size(), 1U);
}

TEST_F(AccessTest, ATokenHasItsRole) {
    EXPECT_EQ(RoleOf("Bearer " + std::string(kLook)), Role::kLook);
    const auto grant = access.Check("Bearer " + std::string(kAct), "", "x", now);
    EXPECT_EQ(grant.role, Role::kAct);
    EXPECT_EQ(grant.who, "helpdesk");
    EXPECT_EQ(RoleOf(kAct), Role::kNone) << "without its scheme";
    EXPECT_EQ(RoleOf("Bearer "), Role::kNone);
    EXPECT_EQ(RoleOf("Bearer " + std::string(kAct).substr(0, 22)), Role::kNone);
    EXPECT_EQ(RoleOf("Bearer " + std::string(kAct) + "x"), Role::kNone);
    EXPECT_EQ(RoleOf(""), Role::kNone);
}

TEST_F(AccessTest, ALongerSecretIsNotTheSameAsItsBeginning) {
    const std::string longest(128, 'x');
    Access one({{Role::kAct, "me", longest}});
    EXPECT_EQ(one.Check("Bearer " + longest, "", "a", now).role, Role::kAct);
    EXPECT_EQ(one.Check("Bearer " + longest + "x", "", "a", now).role, Role::kNone);
    EXPECT_EQ(one.Check("Bearer " + longest + "xyz", "", "a", now).role, Role::kNone);
}

TEST_F(AccessTest, ASessionStandsInForItsTokenUntilItIsOver) {
    const auto grant = access.LogIn(kLook, "x", now);
    EXPECT_EQ(grant.role, Role::kLook);
    EXPECT_EQ(grant.session.size(), 64U);
    EXPECT_NE(access.LogIn(kLook, "x", now).session, grant.session);
    now += 12h;
    EXPECT_EQ(access.Check("", grant.session, "y", now).who, "screen");
    now += 12h + 1s;
    EXPECT_EQ(access.Check("", grant.session, "y", now).role, Role::kNone) << "it was not used";
    const auto other = access.LogIn(kAct, "x", now);
    access.LogOut(other.session);
    EXPECT_EQ(access.Check("", other.session, "x", now).role, Role::kNone);
    EXPECT_EQ(access.Check("", "", "x", now).role, Role::kNone);
}

TEST_F(AccessTest, SessionsAreBoundedAndTheLeastUsedGoes) {
    const auto first = access.LogIn(kLook, "x", now);
    now += 1s;
    const auto second = access.LogIn(kLook, "x", now);
    now += 1s;
    (void)access.Check("", first.session, "x", now);
    for (int i = 0; i < 63; ++i) {
        (void)access.LogIn(kLook, "x", now);
    }
    EXPECT_EQ(access.Check("", first.session, "x", now).role, Role::kLook);
    EXPECT_EQ(access.Check("", second.session, "x", now).role, Role::kNone);
}

TEST_F(AccessTest, WhoGuessesIsSlowedDownMoreAndMore) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(access.LogIn("guess", "bad", now).retryAfter.count(), 0);
    }
    EXPECT_EQ(access.LogIn(kAct, "bad", now).retryAfter.count(), 1) << "not even the right one is looked at";
    EXPECT_EQ(access.LogIn(kAct, "bad", now).role, Role::kNone);
    EXPECT_EQ(access.Check("Bearer " + std::string(kAct), "", "bad", now).retryAfter.count(), 1);
    EXPECT_EQ(RoleOf("Bearer " + std::string(kAct), "other"), Role::kAct) << "others are not";
    std::chrono::seconds longest{0};
    for (int i = 0; i < 12; ++i) {
        now += access.LogIn("guess", "bad", now).retryAfter;
        (void)access.LogIn("guess", "bad", now);
        longest = std::max(longest, access.LogIn("guess", "bad", now).retryAfter);
    }
    EXPECT_EQ(longest, 60s);
    now += 60s;
    EXPECT_EQ(access.LogIn(kAct, "bad", now).role, Role::kAct);
    EXPECT_EQ(access.LogIn("guess", "bad", now).retryAfter.count(), 0) << "a right one begins anew";
}

TEST_F(AccessTest, ASessionIsNotSlowedDown) {
    const auto grant = access.LogIn(kLook, "bad", now);
    for (int i = 0; i < 6; ++i) {
        (void)access.LogIn("guess", "bad", now);
    }
    EXPECT_EQ(access.Check("", grant.session, "bad", now).role, Role::kLook);
}

}  // namespace
