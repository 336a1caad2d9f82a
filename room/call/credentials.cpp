#include "call/credentials.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/fd.h"
#include "common/text.h"
#include "trimmed.h"

namespace room {
namespace {

using ominspect::Error;
using ominspect::Result;
using ominspect::SystemError;
using ominspect::UniqueFd;
using ominspect::WrongUse;

constexpr std::size_t kMaxFile = 4096;

void Clear(std::string& text) {
    explicit_bzero(text.data(), text.size());
    text.clear();
}

// Why the file's rights do not fit; nothing when they do.
std::optional<Error> RefuseRights(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return WrongUse("not a regular file");
    }
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
        return WrongUse("belongs to neither root nor this user; chown it to root");
    }
    const mode_t tooMuch = status.st_uid == 0 ? S_IWGRP | S_IXGRP | S_IRWXO : S_IRWXG | S_IRWXO;
    if ((status.st_mode & tooMuch) != 0) {
        return WrongUse("others may read or write it; chmod it to 0600, or 0640 if it is root's");
    }
    return std::nullopt;
}

// The file's text in a string that never moves, so that no copy of it stays in memory.
Result<std::string> ReadSecret(int fd) {
    std::string text(kMaxFile + 1, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t got = read(fd, text.data() + size, text.size() - size);
        if (got == 0) {
            break;
        }
        if (got > 0) {
            size += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            const Error error = SystemError();
            Clear(text);
            return error;
        }
    }
    if (size > kMaxFile) {
        Clear(text);
        return WrongUse("larger than " + std::to_string(kMaxFile) + " bytes");
    }
    text.resize(size);
    return text;
}

}  // namespace

Credentials::Credentials(Credentials&& other) noexcept {
    *this = std::move(other);
}

Credentials& Credentials::operator=(Credentials&& other) noexcept {
    // Moved strings may leave their bytes behind: a short one lies within its object.
    for (auto [to, from] : {std::pair(&user_, &other.user_), std::pair(&password_, &other.password_)}) {
        if (to != from) {
            Clear(*to);
            *to = *from;
            Clear(*from);
        }
    }
    return *this;
}

Credentials::~Credentials() {
    Clear(user_);
    Clear(password_);
}

Result<Credentials> ParseCredentials(std::string_view text) {
    std::optional<std::string_view> user;
    std::optional<std::string_view> password;
    for (int line = 1; !text.empty(); ++line) {
        const std::size_t end = text.find('\n');
        const std::string_view content = Trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (content.empty() || content[0] == '#') {
            continue;
        }
        const std::size_t sign = content.find('=');
        const std::string_view key = Trimmed(content.substr(0, sign));
        std::optional<std::string_view>* value = key == "user" ? &user : key == "password" ? &password : nullptr;
        if (sign == std::string_view::npos || value == nullptr || *value) {
            return WrongUse("line " + std::to_string(line) +
                            ": neither the one 'user = ...' nor the one 'password = ...'");
        }
        *value = Trimmed(content.substr(sign + 1));
        if ((*value)->empty() || (*value)->find('\0') != std::string_view::npos) {
            return WrongUse("line " + std::to_string(line) + ": an empty value, or a NUL byte in it");
        }
    }
    if (!user || !password) {
        return WrongUse("needs both 'user = ...' and 'password = ...'");
    }
    return Credentials(*user, *password);
}

Result<Credentials> LoadCredentials(const std::string& path) {
    const auto inFile = [&path](const Error& error) {
        return WrongUse(ominspect::text::Escaped(path) + ": " + error.text);
    };
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        return inFile(errno == ELOOP ? WrongUse("a link; name the file itself") : SystemError());
    }
    if (const auto error = RefuseRights(status)) {
        return inFile(*error);
    }
    auto text = ReadSecret(file.Get());
    if (!text) {
        return inFile(text.Failure());
    }
    auto credentials = ParseCredentials(*text);
    Clear(*text);
    return credentials ? std::move(credentials) : inFile(credentials.Failure());
}

}  // namespace room
