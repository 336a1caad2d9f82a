// Every token is compared in full, so that the time taken reveals nothing.
#include "http/access.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include <sys/random.h>

#include "common/fd.h"
#include "common/text.h"
#include "secret_file.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMaxFile = 64UL * 1024UL;
constexpr std::size_t kLeastSecret = 20;
constexpr std::size_t kMostSecret = 128;
constexpr std::size_t kMostSessions = 64;
constexpr std::size_t kMostSources = 1024;
constexpr std::chrono::hours kSessionLife{12};
constexpr std::chrono::minutes kFailureLife{10};
constexpr unsigned kFreeFailures = 5;
constexpr std::chrono::seconds kLongestPenalty{60};

bool IsSame(std::string_view a, std::string_view b) {
    std::array<unsigned char, kMostSecret + 1> one{};
    std::array<unsigned char, kMostSecret + 1> other{};
    std::memcpy(one.data(), a.data(), std::min(a.size(), one.size()));
    std::memcpy(other.data(), b.data(), std::min(b.size(), other.size()));
    unsigned char difference = 0;
    for (std::size_t i = 0; i < one.size(); ++i) {
        difference = static_cast<unsigned char>(difference | (one[i] ^ other[i]));
    }
    return difference == 0;
}

std::string RandomName() {
    std::array<unsigned char, 32> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        return {};
    }
    std::string name;
    for (const unsigned char byte : bytes) {
        constexpr const char* kDigits = "0123456789abcdef";
        name += kDigits[byte >> 4U];
        name += kDigits[byte & 15U];
    }
    return name;
}

Error MistakeIn(int line, const std::string& text) {
    return WrongUse("line " + std::to_string(line) + ": " + text);
}

}  // namespace

Result<std::vector<Token>> ParseTokens(std::string_view content) {
    std::vector<Token> tokens;
    std::istringstream lines{std::string(content)};
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        std::istringstream words(line);
        std::string role;
        Token token;
        std::string more;
        if (!(words >> role) || role[0] == '#') {
            continue;
        }
        if (!(words >> token.name >> token.secret) || (words >> more)) {
            return MistakeIn(number, "a token is \"ROLE NAME SECRET\"");
        }
        if (role != "look" && role != "act") {
            return MistakeIn(number, "the role '" + text::Escaped(role) + R"(' is neither "look" nor "act")");
        }
        token.role = role == "act" ? Role::kAct : Role::kLook;
        if (token.secret.size() < kLeastSecret || token.secret.size() > kMostSecret || !text::IsPlain(token.name)) {
            return MistakeIn(number, "the secret must have " + std::to_string(kLeastSecret) + " to " +
                                         std::to_string(kMostSecret) + " characters, and the name must be plain");
        }
        tokens.push_back(std::move(token));
    }
    return tokens;
}

Result<std::vector<Token>> LoadTokens(const std::string& path) {
    const auto inFile = [&path](const Error& error) { return WrongUse(text::Escaped(path) + ": " + error.text); };
    if (const auto error = CheckSecret(path)) {
        return inFile(*error);
    }
    const auto content = ReadSmallFile(path, kMaxFile);
    if (!content) {
        return content.Failure().number == ENOENT ? Result<std::vector<Token>>(std::vector<Token>())
                                                  : inFile(content.Failure());
    }
    auto tokens = ParseTokens(*content);
    return tokens ? std::move(tokens) : inFile(tokens.Failure());
}

const Token* Access::Find(std::string_view secret) const {
    const Token* found = nullptr;
    for (const Token& token : tokens_) {
        if (IsSame(token.secret, secret)) {
            found = &token;
        }
    }
    return secret.size() <= kMostSecret ? found : nullptr;
}

Access::Grant Access::Try(std::string_view secret, const std::string& source, Clock::time_point now) {
    Forget(now);
    auto& failures = failures_[source];
    if (now < failures.until) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(failures.until - now);
        return {Role::kNone, "", "", left};
    }
    if (const Token* token = Find(secret)) {
        failures_.erase(source);
        return {token->role, token->name, "", {}};
    }
    failures.last = now;
    if (++failures.count >= kFreeFailures) {
        const unsigned doublings = std::min(failures.count - kFreeFailures, 6U);
        failures.until = now + std::min(std::chrono::seconds(1U << doublings), kLongestPenalty);
    }
    return {};
}

Access::Grant Access::Check(const std::string& authorization, const std::string& session, const std::string& source,
                            Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    constexpr std::string_view kBearer = "Bearer ";
    if (authorization.starts_with(kBearer)) {
        return Try(std::string_view(authorization).substr(kBearer.size()), source, now);
    }
    Forget(now);
    const auto found = sessions_.find(session);
    if (found == sessions_.end()) {
        return {};
    }
    found->second.used = now;
    return {found->second.role, found->second.who, session, {}};
}

Access::Grant Access::LogIn(const std::string& secret, const std::string& source, Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    Grant grant = Try(secret, source, now);
    if (grant.role == Role::kNone) {
        return grant;
    }
    grant.session = RandomName();
    if (grant.session.empty()) {
        return {};
    }
    if (sessions_.size() >= kMostSessions) {
        sessions_.erase(std::min_element(sessions_.begin(), sessions_.end(), [](const auto& one, const auto& other) {
            return one.second.used < other.second.used;
        }));
    }
    sessions_[grant.session] = {grant.role, grant.who, now};
    return grant;
}

void Access::LogOut(const std::string& session) {
    const std::lock_guard lock(mutex_);
    sessions_.erase(session);
}

void Access::Forget(Clock::time_point now) {
    std::erase_if(sessions_, [now](const auto& one) { return now - one.second.used > kSessionLife; });
    std::erase_if(failures_, [now](const auto& one) { return now - one.second.last > kFailureLife; });
    if (failures_.size() > kMostSources) {
        failures_.clear();  // somebody has that many addresses: slowing down by address is of no use
    }
}

}  // namespace ominspect::gateway
