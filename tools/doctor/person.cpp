// The functions of getpwuid_r(3), getgrnam_r(3), getgrouplist(3) and getgroups(2).
#include "doctor/person.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <vector>

namespace ominspect::doctor {
namespace {

constexpr std::size_t kEntrySize = 65536;

std::optional<gid_t> GroupId(const char* name) {
    std::vector<char> buffer(kEntrySize);
    group entry{};
    group* found = nullptr;
    (void)getgrnam_r(name, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? std::optional(found->gr_gid) : std::nullopt;
}

bool IsListed(uid_t uid, gid_t group) {
    std::vector<char> buffer(kEntrySize);
    passwd entry{};
    passwd* found = nullptr;
    (void)getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    if (found == nullptr) {
        return false;
    }
    int count = 0;
    (void)getgrouplist(found->pw_name, found->pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    count = getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) >= 0 ? count : 0;
    return std::find(groups.begin(), groups.begin() + count, group) != groups.begin() + count;
}

bool IsMember(gid_t group) {
    if (getegid() == group) {
        return true;
    }
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    return count > 0 && std::find(groups.begin(), groups.begin() + count, group) != groups.begin() + count;
}

}  // namespace

std::string UserName(uid_t uid) {
    std::vector<char> buffer(kEntrySize);
    passwd entry{};
    passwd* found = nullptr;
    (void)getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? found->pw_name : std::to_string(uid);
}

Person ThisPerson(const char* askers, const char* owners) {
    const uid_t uid = geteuid();
    Person person{UserName(uid), uid == 0};
    if (const auto group = GroupId(askers)) {
        person.isListed = IsListed(uid, *group);
        person.isMember = IsMember(*group);
    }
    if (const auto group = GroupId(owners)) {
        person.isOwner = IsMember(*group);
    }
    return person;
}

}  // namespace ominspect::doctor
