// Masks secrets in texts: each byte of a secret becomes an asterisk, so that sizes stay and a file can be masked while
// it streams by.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/error.h"

namespace re2 {
class RE2;
}

namespace ominspect::collect {

// What counts as a secret: the built-in patterns, and those of files, one of RE2's expressions in a line. A pattern's
// groups are masked, or the whole match where it has none. Empty lines and those that begin with # do not count.
class Redaction {
public:
    // A file that cannot be read, or a pattern that is none, is WrongUse.
    static Result<std::unique_ptr<Redaction>> Make(const std::vector<std::string>& files);
    ~Redaction();
    Redaction(const Redaction&) = delete;
    Redaction& operator=(const Redaction&) = delete;

    const re2::RE2& Expression() const { return *expression_; }

private:
    explicit Redaction(std::unique_ptr<re2::RE2> expression);

    const std::unique_ptr<re2::RE2> expression_;  // all of them; for bytes, not characters
};

// Masks one file. It holds at most about a megabyte; a secret of more than 64 KiB may be masked in part only.
class Redactor {
public:
    // Takes bytes that are ready. An error ends the work and is returned.
    using Sink = std::function<std::optional<Error>(std::string_view data)>;

    explicit Redactor(const Redaction& redaction) : redaction_(redaction) {}

    // The first bytes of the file decide whether it is a text. One that is not passes as it is.
    std::optional<Error> Add(std::string_view data, const Sink& sink);
    std::optional<Error> End(const Sink& sink);

    bool IsBinary() const { return binary_; }
    std::uint64_t Count() const { return count_; }  // secrets that were masked

private:
    std::size_t Mask(std::size_t limit);
    std::optional<Error> Pass(std::size_t size, const Sink& sink);

    const Redaction& redaction_;
    std::string buffer_;
    bool begun_ = false;
    bool binary_ = false;
    std::uint64_t count_ = 0;
};

}  // namespace ominspect::collect
