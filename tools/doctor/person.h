// The user who asks, and the groups that the bus's policy knows.
#pragma once

#include <sys/types.h>

#include <string>

namespace ominspect::doctor {

// The group whose members may ask.
inline constexpr const char* kAskers = "ominspect";

struct Person {
    std::string name;  // "alice", or the id where it has no name
    bool isRoot = false;
    bool isListed = false;  // the group's list has the user now
    bool isMember = false;  // this process is in the group: it was started after that
};

// The user of this process.
Person ThisPerson();

// A user's name, or the id where it has none.
std::string UserName(uid_t uid);

}  // namespace ominspect::doctor
