// The credentials' file: what it may hold, and who may read it.
#include "call/credentials.h"

#include <gtest/gtest.h>

#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "support/temp_folder.h"

using namespace room;

namespace {

constexpr const char* kGood = "user = cn=room1,dc=example\npassword = s3cret\n";

std::string MistakeOf(std::string_view text) {
    const auto credentials = ParseCredentials(text);
    return credentials ? "taken" : credentials.Failure().text;
}

TEST(Credentials, AreReadInAnyOrderWithComments) {
    const auto credentials = ParseCredentials("# of the room\r\n\npassword= a = b # c \r\n  user =cn=room1,dc=example");
    ASSERT_TRUE(credentials) << credentials.Failure().text;
    EXPECT_EQ(credentials->User(), "cn=room1,dc=example");
    EXPECT_EQ(credentials->Password(), "a = b # c");
}

TEST(Credentials, AMistakeIsToldWithItsLineAndWithoutTheSecret) {
    const std::string neither = "neither the one 'user = ...' nor the one 'password = ...'";
    EXPECT_EQ(MistakeOf("user = a\ns3cret\n"), "line 2: " + neither);
    EXPECT_EQ(MistakeOf("user = a\npasword = s3cret\n"), "line 2: " + neither);
    EXPECT_EQ(MistakeOf("user = a\nuser = s3cret\npassword = b"), "line 2: " + neither);
    EXPECT_EQ(MistakeOf("\nuser = \npassword = s3cret"), "line 2: an empty value, or a NUL byte in it");
    EXPECT_EQ(MistakeOf(std::string_view("user = a\npassword = s3\0cret", 26)),
              "line 2: an empty value, or a NUL byte in it");
    EXPECT_EQ(MistakeOf("password = s3cret"), "needs both 'user = ...' and 'password = ...'");
    EXPECT_EQ(MistakeOf("user = s3cret"), "needs both 'user = ...' and 'password = ...'");
    EXPECT_EQ(MistakeOf(""), "needs both 'user = ...' and 'password = ...'");
}

TEST(Credentials, LeaveNothingBehindWhenTheyArePassedOn) {
    auto first = ParseCredentials(kGood);
    ASSERT_TRUE(first);
    const char* bytes = first->Password().data();  // within the object, as short strings are
    ASSERT_EQ(std::string(bytes, 6), "s3cret");
    const Credentials second = std::move(*first);
    EXPECT_EQ(second.User(), "cn=room1,dc=example");
    EXPECT_EQ(second.Password(), "s3cret");
    EXPECT_EQ(first->Password(), "");
    EXPECT_EQ(std::string(bytes, 6), std::string(6, '\0'));
}

class CredentialsFile : public testing::Test {
protected:
    CredentialsFile() {
        support::WriteFile(path, kGood);
        EXPECT_EQ(chmod(path.c_str(), 0600), 0);
    }
    [[nodiscard]] std::string Mistake() const {
        const auto credentials = LoadCredentials(path);
        return credentials ? "taken" : credentials.Failure().text;
    }
    support::TempFolder folder;
    const std::string path = folder / "ldap";
};

TEST_F(CredentialsFile, OfItsOwnerAloneIsTaken) {
    const auto credentials = LoadCredentials(path);
    ASSERT_TRUE(credentials) << credentials.Failure().text;
    EXPECT_EQ(credentials->Password(), "s3cret");
    ASSERT_EQ(chmod(path.c_str(), 0400), 0);
    EXPECT_EQ(Mistake(), "taken");
}

TEST_F(CredentialsFile, ThatOthersMayReadOrWriteIsNotTaken) {
    for (const mode_t mode : {0604U, 0602U, 0601U, 0644U, 0666U, 0620U, 0610U}) {
        ASSERT_EQ(chmod(path.c_str(), mode), 0);
        EXPECT_EQ(Mistake(), path + ": others may read or write it; chmod it to 0600, or 0640 if it is root's") << mode;
    }
}

TEST_F(CredentialsFile, OnlyRootMayLetItsGroupRead) {
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    EXPECT_EQ(Mistake() == "taken", geteuid() == 0);
}

TEST_F(CredentialsFile, ThatIsNoFileIsNotTaken) {
    const std::string link = folder / "link";
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    EXPECT_EQ(LoadCredentials(link).Failure().text, link + ": a link; name the file itself");
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(LoadCredentials(pipe).Failure().text, pipe + ": not a regular file");
    EXPECT_EQ(LoadCredentials(folder / "none").Failure().text, (folder / "none") + ": No such file or directory");
}

TEST_F(CredentialsFile, ThatIsTooLargeIsNotTaken) {
    support::WriteFile(path, kGood + std::string(4096, '\n'));
    EXPECT_EQ(Mistake(), path + ": larger than 4096 bytes");
}

}  // namespace
