// Which groups the user of this process is in, with groups that every system has.
#include <grp.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "doctor/person.h"

using namespace ominspect::doctor;

namespace {

constexpr const char* kNoGroup = "no-such-group";
constexpr unsigned kUnused = 3999999999;  // no group's or user's number

// The one that the system says this process is in, as only root could let it be.
std::optional<gid_t> g_furtherGroup;

// The user that it says this process is of.
std::optional<uid_t> g_user;

}  // namespace

// In the place of the C library's.
extern "C" int getgroups(int size, gid_t* list) noexcept {
    if (!g_furtherGroup) {
        return static_cast<int>(syscall(SYS_getgroups, size, list));
    }
    if (size > 0) {
        list[0] = *g_furtherGroup;
    }
    return 1;
}

extern "C" uid_t geteuid() noexcept {
    return g_user ? *g_user : static_cast<uid_t>(syscall(SYS_geteuid));
}

namespace {

std::vector<gid_t> OwnGroups() {
    std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
    EXPECT_GE(getgroups(static_cast<int>(groups.size()), groups.data()), 0);
    groups.push_back(getegid());
    return groups;
}

// A group of the system that this process is not in.
std::string ForeignGroup() {
    const std::vector<gid_t> own = OwnGroups();
    std::string name;
    setgrent();
    for (const group* each = getgrent(); each != nullptr && name.empty(); each = getgrent()) {
        if (std::find(own.begin(), own.end(), each->gr_gid) == own.end() && each->gr_mem[0] == nullptr) {
            name = each->gr_name;
        }
    }
    endgrent();
    return name;
}

std::string Memberships(const Person& person) {
    return std::string(person.isListed ? "listed " : "") + (person.isMember ? "member " : "") +
           (person.isOwner ? "owner" : "");
}

TEST(Person, IsInTheGroupOfItsProcess) {
    const group* own = getgrgid(getegid());
    ASSERT_NE(own, nullptr);
    const std::string name = own->gr_name;
    EXPECT_EQ(Memberships(ThisPerson(name.c_str(), kNoGroup)), "listed member ");
    EXPECT_EQ(Memberships(ThisPerson(kNoGroup, name.c_str())), "owner");
}

TEST(Person, IsInNoGroupOfOthers) {
    const std::string name = ForeignGroup();
    ASSERT_NE(name, "");
    EXPECT_EQ(Memberships(ThisPerson(name.c_str(), name.c_str())), "");
    EXPECT_EQ(Memberships(ThisPerson(kNoGroup, kNoGroup)), "");
}

// As after `newgrp`, or where the list changed after the process was started.
TEST(Person, IsInTheFurtherGroupsOfItsProcess) {
    const std::string name = ForeignGroup();
    ASSERT_NE(name, "");
    g_furtherGroup = getgrnam(name.c_str())->gr_gid;
    EXPECT_EQ(Memberships(ThisPerson(name.c_str(), name.c_str())), "member owner");
    g_furtherGroup = kUnused;
    EXPECT_EQ(Memberships(ThisPerson(name.c_str(), name.c_str())), "") << "another group is none";
    g_furtherGroup.reset();
}

// As in a container whose list of users is another.
TEST(Person, ThatTheSystemHasNoNameForIsANumberAndListedNowhere) {
    const std::string group = ForeignGroup();
    g_user = kUnused;
    const Person person = ThisPerson(group.c_str(), kNoGroup);
    g_user.reset();
    EXPECT_EQ(person.name, "3999999999");
    EXPECT_FALSE(person.isRoot);
    EXPECT_EQ(Memberships(person), "");
}

}  // namespace
