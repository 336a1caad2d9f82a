// The file is the validator's standard input, so no name of it is taken for an option or an address.
#include "common/schema.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

#include "common/fd.h"
#include "common/text.h"

namespace ominspect {
namespace {

constexpr std::size_t kMostOutput = 65536;
constexpr const char* kValidator = "xmllint";

// As xmllint(1) has them.
constexpr int kValid = 0;
constexpr int kUnparsable = 1;
constexpr int kInvalid = 3;

class SpawnActions {
public:
    SpawnActions() { (void)posix_spawn_file_actions_init(&actions_); }
    ~SpawnActions() { (void)posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    posix_spawn_file_actions_t* Get() { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

// All of what is written until the other end closes, up to a bound.
std::string ReadAll(int fd) {
    std::string out;
    std::array<char, 4096> part{};
    for (pollfd wait{fd, POLLIN, 0}; poll(&wait, 1, -1) >= 0 || errno == EINTR;) {
        const ssize_t count = read(fd, part.data(), part.size());
        if (count > 0 && out.size() < kMostOutput) {
            out.append(part.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
            break;
        }
    }
    return out;
}

// "-:3: element Foo: Schemas validity error : Element 'Foo': ..." becomes "line 3: Element 'Foo': ..."
std::vector<std::string> Complaints(std::string_view output) {
    constexpr std::string_view kHead = "-:";
    constexpr std::string_view kKind = " error : ";
    std::vector<std::string> complaints;
    while (!output.empty()) {
        const std::string_view line = output.substr(0, output.find('\n'));
        output.remove_prefix(std::min(line.size() + 1, output.size()));
        const std::size_t kind = line.find(kKind);
        if (line.starts_with(kHead) && kind != std::string_view::npos) {
            const std::string_view number = line.substr(kHead.size(), line.find(':', kHead.size()) - kHead.size());
            complaints.push_back("line " + std::string(number) + ": " + text::ToUtf8(line.substr(kind + kKind.size())));
        }
    }
    return complaints;
}

}  // namespace

Result<std::vector<std::string>> SchemaErrors(const std::string& schema, const std::string& file) {
    const auto failed = [](const std::string& what, int number) {
        return Error{ErrorCode::kInternal, what + ": " + SystemText(number), number};
    };
    if (access(schema.c_str(), R_OK) != 0) {
        return failed(schema, errno);
    }
    const UniqueFd input(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!input) {
        return failed(file, errno);
    }
    auto pipe = MakePipe();
    if (!pipe) {
        return pipe.Failure();
    }
    SpawnActions actions;
    (void)posix_spawn_file_actions_adddup2(actions.Get(), input.Get(), STDIN_FILENO);
    (void)posix_spawn_file_actions_adddup2(actions.Get(), pipe->write.Get(), STDERR_FILENO);
    (void)posix_spawn_file_actions_addopen(actions.Get(), STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    std::array<std::string, 6> words{kValidator, "--nonet", "--noout", "--schema", schema, "-"};
    std::array<char*, words.size() + 1> argv{};
    for (std::size_t i = 0; i < words.size(); ++i) {
        argv[i] = words[i].data();
    }
    pid_t child = 0;
    if (const int error = posix_spawnp(&child, kValidator, actions.Get(), nullptr, argv.data(), environ)) {
        return failed(kValidator, error);
    }
    pipe->write.Reset();
    const std::string output = ReadAll(pipe->read.Get());
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code != kValid && code != kInvalid && code != kUnparsable) {
        return OtherError(std::string(kValidator) + " cannot check it: " + text::OneLine(output));
    }
    std::vector<std::string> complaints = Complaints(output);
    if (code != kValid && complaints.empty()) {
        return OtherError(std::string(kValidator) + ": " + text::OneLine(output));
    }
    return complaints;
}

}  // namespace ominspect
