// The user who asks, and the groups that the bus's policy knows.
#pragma once

#include <sys/types.h>

#include <string>

namespace ominspect::doctor {

// The groups whose members may ask, and own items.
inline constexpr const char* kAskers = "ominspect";
inline constexpr const char* kOwners = "ominspect-owner";

struct Person {
    std::string name;  // "alice", or the id where it has no name
    bool isRoot = false;
    bool isListed = false;  // the askers' list has the user now
    bool isMember = false;  // this process is in their group: it was started after that
    bool isOwner = false;   // it is in the owners' group
};

// The user of this process; the groups have other names in tests.
Person ThisPerson(const char* askers = kAskers, const char* owners = kOwners);

// A user's name, or the id where it has none.
std::string UserName(uid_t uid);

}  // namespace ominspect::doctor
