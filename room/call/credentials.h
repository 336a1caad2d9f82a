// A user and a password in a file of their own: two lines, in any order,
//
//   user = cn=room1,ou=rooms,dc=example,dc=org
//   password = anything up to the end of the line
//
// Blanks around the values are taken off; other lines must be empty or begin with #. What is read is used and cleared;
// it stands in no text, no log and no setting. No error quotes the file.
#pragma once

#include <string>
#include <string_view>

#include "common/error.h"

namespace room {

class Credentials {
public:
    Credentials() = default;
    Credentials(std::string_view user, std::string_view password) : user_(user), password_(password) {}
    Credentials(const Credentials&) = delete;
    Credentials& operator=(const Credentials&) = delete;
    Credentials(Credentials&& other) noexcept;
    Credentials& operator=(Credentials&& other) noexcept;
    ~Credentials();  // overwrites both

    [[nodiscard]] const std::string& User() const { return user_; }
    [[nodiscard]] const std::string& Password() const { return password_; }

private:
    std::string user_;
    std::string password_;
};

// Pure. The error is "line N: what is wrong".
ominspect::Result<Credentials> ParseCredentials(std::string_view text);

// A regular file, no link, of at most 4 KiB, which belongs to root or to this user, and which others may not read and
// nobody but its owner write; root's may be read by its group. The error begins with the path.
ominspect::Result<Credentials> LoadCredentials(const std::string& path);

}  // namespace room
