// What --check says of a room's file, its schema, and the file of credentials that it names.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/child.h"
#include "support/temp_folder.h"

namespace {

class RoomCheck : public testing::Test {
protected:
    // The exit code and what is said.
    static std::string Check(const std::string& file, const std::vector<std::string>& environment = {}) {
        const auto outcome = support::Run({ROOM_CHECK_PROGRAM, "--check", file}, environment);
        return std::to_string(outcome.exitCode) + " " + outcome.output;
    }

    // Of a file that names these credentials.
    [[nodiscard]] std::string CheckCredentials(const std::string& text, mode_t mode) const {
        support::WriteFile(credentials_, text);
        EXPECT_EQ(chmod(credentials_.c_str(), mode), 0);
        return Check("room.xml");
    }

    void NameCredentials(const std::string& more = "") const {
        support::WriteFile("room.xml", "<Room><Call><LdapServer host='a' base='b' credentials='" + credentials_ +
                                           "'/></Call>" + more + "</Room>");
    }

    const support::WorkingFolder work_;
    const std::string credentials_ = work_ / "ldap";
    const std::string wrong_ = "2 ominspect-room: room.xml: credentials of LdapServer: " + credentials_ + ": ";
};

TEST_F(RoomCheck, AsksTheProgramAndThenTheSchema) {
    const std::string good = std::string(SHIPPED) + ": no mistakes; 25 items are served\n";
    EXPECT_EQ(Check(SHIPPED), "0 " + good);
    support::WriteFile("wrong.xml", "<Room>\n<Window/></Room>");
    EXPECT_EQ(Check("wrong.xml"), "2 ominspect-room: wrong.xml: line 2: unknown element 'Window' in Room\n");
    // A mistake that the program's own reader passes over.
    support::WriteFile("entity.xml", "<Room>\n<Audio capture='a&b;'/></Room>");
    EXPECT_TRUE(Check("entity.xml").starts_with("2 ominspect-room: entity.xml: line 2: ")) << Check("entity.xml");
    EXPECT_EQ(Check("entity.xml").find("no mistakes"), std::string::npos);
    EXPECT_EQ(Check(SHIPPED, {"PATH=/nowhere"}),
              "0 ominspect-room: not checked against the schema: xmllint: No such file or directory\n" + good);
}

TEST_F(RoomCheck, LooksAtTheCredentials) {
    const std::string secrets = "user = cn=room1\npassword = s3cret\n";
    NameCredentials();
    EXPECT_EQ(Check("room.xml"), wrong_ + "No such file or directory\n");
    EXPECT_EQ(CheckCredentials(secrets, 0600), "0 room.xml: no mistakes; 25 items are served\n");
    EXPECT_EQ(CheckCredentials(secrets, 0644),
              wrong_ + "others may read or write it; chmod it to 0600, or 0640 if it is root's\n");
}

TEST_F(RoomCheck, TellsNoSecret) {
    NameCredentials();
    EXPECT_EQ(CheckCredentials("user = cn=room1\ns3cret\n", 0600),
              wrong_ + "line 2: neither the one 'user = ...' nor the one 'password = ...'\n");
    EXPECT_EQ(CheckCredentials("password = s3cret\n", 0600), wrong_ + "needs both 'user = ...' and 'password = ...'\n");
    // Nor one that stands in the wrong file.
    support::WriteFile("room.xml", "<Room><Call><LdapServer host='a' base='b' password='s3cret'/></Call></Room>");
    EXPECT_EQ(Check("room.xml"), "2 ominspect-room: room.xml: line 1: LdapServer has no attribute 'password'\n");
}

TEST_F(RoomCheck, TellsTheMistakesOfSchemaAndCredentialsTogether) {
    NameCredentials("\n<Audio capture='a&b;'/>");
    const std::string said = Check("room.xml");
    EXPECT_TRUE(said.starts_with("2 ominspect-room: room.xml: line 2: ")) << said;
    EXPECT_TRUE(said.ends_with("\n" + wrong_.substr(2) + "No such file or directory\n")) << said;
}

}  // namespace
