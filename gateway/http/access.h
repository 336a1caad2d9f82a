// Who may do what: tokens with roles, sessions of the page, and the slowing down of those who guess.
#pragma once

#include <array>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "common/error.h"
#include "http/message.h"

namespace ominspect::gateway {

struct Token {
    Role role;
    std::string name;
    std::string secret;
};

// One token in each line, "ROLE NAME SECRET", where ROLE is "look" or "act" and SECRET has 20 to 128 characters; empty
// lines and those that begin with # count for nothing. The error of a mistake is "line N: what is wrong".
Result<std::vector<Token>> ParseTokens(std::string_view content);

// The same for a file that only its owner and group can read. A file that is not there holds no tokens.
Result<std::vector<Token>> LoadTokens(const std::string& path);

// Any thread.
class Access {
public:
    using Clock = std::chrono::steady_clock;

    explicit Access(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

    struct Grant {
        Role role = Role::kNone;
        std::string who;
        std::string session;
        std::chrono::seconds retryAfter{0};  // positive: too many wrong tokens came from this source
    };

    // By the token of an Authorization header, or the session of a cookie. Both may be empty.
    Grant Check(const std::string& authorization, const std::string& session, const std::string& source,
                Clock::time_point now);

    // By a token that somebody typed in: a grant has a new session.
    Grant LogIn(const std::string& secret, const std::string& source, Clock::time_point now);
    void LogOut(const std::string& session);

private:
    struct Session {
        Role role;
        std::string who;
        Clock::time_point used;
    };
    struct Failures {
        unsigned count = 0;
        Clock::time_point until;  // until then all attempts are refused
        Clock::time_point last;
    };

    // With mutex_ held.
    Grant Try(std::string_view secret, const std::string& source, Clock::time_point now);
    const Token* Find(std::string_view secret) const;
    void Forget(Clock::time_point now);

    const std::vector<Token> tokens_;
    std::mutex mutex_;  // guards everything below
    std::map<std::string, Session> sessions_;
    std::map<std::string, Failures> failures_;  // by source
};

}  // namespace ominspect::gateway
