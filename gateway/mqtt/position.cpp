// One line of JSON, renamed into its place. It is not forced to the disk: what a loss of power sets back is sent once
// more.
#include "mqtt/position.h"

#include <cmath>
#include <cstdio>

#include <fcntl.h>

#include "common/fd.h"
#include "common/json.h"
#include "common/text.h"

namespace ominspect::gateway::mqtt {
namespace {

constexpr std::size_t kMaxFile = 4096;
constexpr double kMaxExact = 9007199254740991.0;

}  // namespace

std::uint64_t PositionFile::Load() const {
    const auto content = ReadSmallFile(path_, kMaxFile);
    const auto document = content ? json::Value::Parse(*content) : content.Failure();
    if (!document || (*document).Read()["terminal"].Text() != text::ToUtf8(terminal_)) {
        return 0;
    }
    const auto number = (*document).Read()["position"].Number();
    return number && *number >= 0 && *number <= kMaxExact && std::floor(*number) == *number
               ? static_cast<std::uint64_t>(*number)
               : 0;
}

std::optional<Error> PositionFile::Save(std::uint64_t position) const {
    auto document = json::Value::Object();
    document.Text("terminal", terminal_).Number("position", position);
    const std::string next = path_ + ".new";
    const UniqueFd fd(open(next.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0640));
    if (!fd) {
        return SystemError();
    }
    if (auto error = WriteAll(fd.Get(), document.Print() + "\n")) {
        return error;
    }
    return std::rename(next.c_str(), path_.c_str()) == 0 ? std::nullopt : std::optional(SystemError());
}

}  // namespace ominspect::gateway::mqtt
