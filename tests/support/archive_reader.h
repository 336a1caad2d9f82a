// Reads a package back, for tests.
#pragma once

#include <string>
#include <vector>

namespace support {

struct Member {
    std::string name;
    char type = '?';  // '-' file, 'd' folder, 'l' link
    std::string content;
    std::string target;  // of a link
    unsigned permissions = 0;
    long long modified = 0;  // seconds since 1970
    long long owner = 0;
    long long group = 0;
};

// All members in their order; a failure of the calling test when the archive is not whole.
std::vector<Member> ReadArchive(const std::string& path);

// The one of this name; a failure of the calling test when there is none.
Member MemberOf(const std::vector<Member>& members, const std::string& name);

// "type name", in order.
std::vector<std::string> Listing(const std::vector<Member>& members);

}  // namespace support
