// All patterns are one expression, so that a text is searched once, in time linear to its size, whatever they are.
#include "redaction.h"

#include <algorithm>
#include <array>
#include <utility>

#include <re2/re2.h>

#include "common/fd.h"

namespace ominspect::collect {
namespace {

constexpr std::size_t kWindow = std::size_t{1} << 20U;
constexpr std::size_t kLongestSecret = std::size_t{64} << 10U;
constexpr std::size_t kLooked = 8192;                        // bytes that tell a text
constexpr std::size_t kLongestFile = std::size_t{1} << 20U;  // of patterns

// Names of what is secret.
#define SECRET_NAME \
    R"((?:pass(?:word|wd|phrase|code)|pwd|secret|token|api[_-]?key|access[_-]?key|private[_-]?key|credential)s?\d*)"

constexpr std::array kBuiltIn{
    // Private keys.
    R"(-----BEGIN [A-Z0-9 ]*PRIVATE KEY(?: BLOCK)?-----((?s:.*?))(?:-----END |\z))",
    // Headers, in HTTP, as settings and in JSON.
    R"(authorization\\?["']?[ \t]*[:=][ \t]*\\?["']?digest[ \t]+([^\r\n]+))",
    R"(authorization\\?["']?[ \t]*[:=][ \t]*\\?["']?(?:[a-z]+[ \t]+)?([^\s"'\\]+))",
    R"(\bcookie2?[ \t]*:[ \t]*([^\r\n]+))",
    R"(\bbearer[ \t]+([a-z0-9._~+/=-]{8,}))",
    // JSON in a text of JSON; JSON, settings, attributes and URLs.
    SECRET_NAME R"(\\"[ \t]*:[ \t]*\\"((?:[^"\\\n]|\\[^"\n])*))",
    SECRET_NAME
    R"(["']?[ \t]*[=:][ \t]*(?:"((?:[^"\\\n]|\\.)*)|'((?:[^'\\\n]|\\.)*)|(?:(?:bearer|basic)[ \t]+)?([^\s"'&<>]+)))",
    R"(\b[a-z][a-z0-9+.-]*://[^\s/:@"'<>]*:([^\s/@"'<>]+)@)",
    // XML: elements, and elements or attributes whose name is an attribute's value.
    "<[a-z0-9_:.-]*" SECRET_NAME R"((?:\s[^<>]*)?>([^<]+)<)",
    R"(["'])"
    "[a-z0-9_:.-]*" SECRET_NAME R"(["'][^<>]*?\svalue[ \t]*=[ \t]*(?:"([^"<]*)|'([^'<]*)))",
    R"(["'])"
    "[a-z0-9_:.-]*" SECRET_NAME R"(["'][^<>=\n]*>([^<]+)<)",
    // Tokens that show what they are.
    R"(\b(eyJ[a-z0-9_-]{8,}\.[a-z0-9_-]+\.[a-z0-9_-]*))",
};

#undef SECRET_NAME

re2::RE2::Options Bytes() {
    re2::RE2::Options options(re2::RE2::Latin1);  // logs hold any bytes
    options.set_log_errors(false);
    return options;
}

// An alternative of the whole expression.
std::string Alternative(const std::string& pattern, int groups) {
    return groups == 0 ? '(' + pattern + ')' : "(?:" + pattern + ')';
}

std::optional<Error> AddFile(const std::string& path, std::string& all) {
    const auto text = ReadSmallFile(path, kLongestFile);
    if (!text) {
        return WrongUse(path + ": " + text.Failure().text);
    }
    std::size_t number = 0;
    for (std::size_t begin = 0; begin < text->size();) {
        const std::size_t end = std::min(text->find('\n', begin), text->size());
        std::string line = text->substr(begin, end - begin);
        begin = end + 1;
        ++number;
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        const re2::RE2 pattern(line, Bytes());
        if (!pattern.ok()) {
            return WrongUse(path + ", line " + std::to_string(number) + ": " + pattern.error());
        }
        all += '|' + Alternative(line, pattern.NumberOfCapturingGroups());
    }
    return std::nullopt;
}

// Archives and compressed files, which may have no NUL where one looks.
bool IsCompressed(std::string_view text) {
    constexpr std::array<std::string_view, 5> kMagic{"\x1f\x8b", "\x28\xb5\x2f\xfd",
                                                     "\xfd"
                                                     "7zXZ",
                                                     "BZh", "PK\x03\x04"};
    return std::any_of(kMagic.begin(), kMagic.end(), [&](std::string_view magic) { return text.starts_with(magic); });
}

}  // namespace

Redaction::Redaction(std::unique_ptr<re2::RE2> expression) : expression_(std::move(expression)) {}

Redaction::~Redaction() = default;

Result<std::unique_ptr<Redaction>> Redaction::Make(const std::vector<std::string>& files) {
    std::string all;
    for (const char* pattern : kBuiltIn) {
        all.append(all.empty() ? "" : "|").append("(?i:").append(pattern).append(")");
    }
    for (const std::string& file : files) {
        if (const auto error = AddFile(file, all)) {
            return *error;
        }
    }
    auto expression = std::make_unique<re2::RE2>(all, Bytes());
    if (!expression->ok()) {
        return WrongUse("the patterns together: " + expression->error());
    }
    return std::unique_ptr<Redaction>(new Redaction(std::move(expression)));
}

std::optional<Error> Redactor::Add(std::string_view data, const Sink& sink) {
    if (!std::exchange(begun_, true)) {
        binary_ = data.substr(0, kLooked).find('\0') != std::string_view::npos || IsCompressed(data);
    }
    if (binary_) {
        return sink(data);
    }
    buffer_.append(data);
    // What begins in the last bytes may end in the next ones.
    return buffer_.size() < kWindow ? std::nullopt : Pass(Mask(buffer_.size() - kLongestSecret), sink);
}

std::optional<Error> Redactor::End(const Sink& sink) {
    return buffer_.empty() ? std::nullopt : Pass(Mask(buffer_.size()), sink);
}

// Masks what begins before `limit`. Up to where the buffer is ready then.
std::size_t Redactor::Mask(std::size_t limit) {
    const re2::RE2& expression = redaction_.Expression();
    std::vector<re2::StringPiece> parts(static_cast<std::size_t>(expression.NumberOfCapturingGroups()) + 1);
    const re2::StringPiece text(buffer_);
    std::size_t begin = 0;
    while (begin < limit && expression.Match(text, begin, text.size(), re2::RE2::UNANCHORED, parts.data(),
                                             static_cast<int>(parts.size()))) {
        const auto offset = [&](const re2::StringPiece& part) {
            return static_cast<std::size_t>(part.data() - text.data());
        };
        if (offset(parts[0]) >= limit) {
            break;
        }
        bool masked = false;
        for (std::size_t i = 1; i < parts.size(); ++i) {
            if (!parts[i].empty()) {
                std::fill_n(buffer_.begin() + static_cast<std::ptrdiff_t>(offset(parts[i])), parts[i].size(), '*');
                masked = true;
            }
        }
        count_ += masked ? 1 : 0;
        begin = offset(parts[0]) + std::max<std::size_t>(parts[0].size(), 1);
    }
    return std::max(begin, limit);
}

std::optional<Error> Redactor::Pass(std::size_t size, const Sink& sink) {
    auto error = sink(std::string_view(buffer_).substr(0, size));
    buffer_.erase(0, size);
    return error;
}

}  // namespace ominspect::collect
