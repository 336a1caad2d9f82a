// posix_spawn(3) starts the command, a pidfd tells its end; no shell has a part in it.
#include "items/child.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ominspect::items {
namespace {

// The C library's wrapper lacks C linkage in the header of some of its versions.
UniqueFd OpenPidFd(pid_t pid) {
    return UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

// The owner's environment with the command's two variables, kept alive for the call.
class Environment {
public:
    explicit Environment(const CommandSpec& spec)
        : item_("INSPECT_ITEM=" + spec.item), cmd_("INSPECT_CMD=" + spec.argument) {
        for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
            const std::string_view text(*entry);
            if (!text.starts_with("INSPECT_ITEM=") && !text.starts_with("INSPECT_CMD=")) {
                entries_.push_back(*entry);
            }
        }
        entries_.insert(entries_.end(), {item_.data(), cmd_.data(), nullptr});
    }
    char* const* Get() const { return entries_.data(); }

private:
    std::string item_;
    std::string cmd_;
    std::vector<char*> entries_;
};

// The descriptors and signal settings of the command. `Error` is that of the first call that failed.
class SpawnSettings {
public:
    SpawnSettings(int out, int err) {
        (void)posix_spawn_file_actions_init(&actions_);
        (void)posix_spawnattr_init(&attributes_);
        Check(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        Check(posix_spawn_file_actions_adddup2(&actions_, out, STDOUT_FILENO));
        Check(posix_spawn_file_actions_adddup2(&actions_, err, STDERR_FILENO));
        // The owner's own are close-on-exec; those that it inherited itself need not be.
        Check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
        sigset_t none{};
        sigset_t all{};
        (void)sigemptyset(&none);
        (void)sigfillset(&all);
        Check(posix_spawnattr_setsigmask(&attributes_, &none));
        Check(posix_spawnattr_setsigdefault(&attributes_, &all));
        Check(posix_spawnattr_setpgroup(&attributes_, 0));
        Check(posix_spawnattr_setflags(&attributes_,
                                       POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP));
    }
    ~SpawnSettings() {
        (void)posix_spawn_file_actions_destroy(&actions_);
        (void)posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    int Error() const { return error_; }
    const posix_spawn_file_actions_t* Actions() const { return &actions_; }
    const posix_spawnattr_t* Attributes() const { return &attributes_; }

private:
    void Check(int result) {
        if (error_ == 0) {
            error_ = result;
        }
    }

    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    int error_ = 0;
};

int Spawn(const CommandSpec& spec, int out, int err, pid_t& pid) {
    const Environment environment(spec);
    std::vector<std::string> words = spec.argv;
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const SpawnSettings settings(out, err);
    if (settings.Error() != 0) {
        return settings.Error();
    }
    return posix_spawn(&pid, argv[0], settings.Actions(), settings.Attributes(), argv.data(), environment.Get());
}

}  // namespace

Child::Child(pid_t pid, UniqueFd exitFd, Stream out, Stream err)
    : pid_(pid), exit_(std::move(exitFd)), out_(std::move(out)), err_(std::move(err)) {}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, 0)),
      exit_(std::move(other.exit_)),
      out_(std::move(other.out_)),
      err_(std::move(other.err_)) {}

Child::~Child() {
    // Not waited for: it may hang in the kernel, and who gives a command up is about to end itself.
    if (pid_ != 0) {
        SignalGroup(SIGKILL);
    }
}

Result<Child> Child::Start(const CommandSpec& spec) {
    auto out = MakePipe();
    if (!out) {
        return out.Failure();
    }
    auto err = MakePipe();
    if (!err) {
        return err.Failure();
    }
    Stream outStream{std::move(out->read), {}};
    Stream errStream{std::move(err->read), {}};
    outStream.text.reserve(CommandOutput::kMaxOutput);
    errStream.text.reserve(CommandOutput::kMaxOutput);
    pid_t pid = 0;
    if (const int number = Spawn(spec, out->write.Get(), err->write.Get(), pid); number != 0) {
        return SystemError(number);
    }
    UniqueFd exitFd = OpenPidFd(pid);
    if (!exitFd) {
        const Error error = SystemError();
        (void)kill(-pid, SIGKILL);
        (void)waitpid(pid, nullptr, 0);
        return error;
    }
    return Child(pid, std::move(exitFd), std::move(outStream), std::move(errStream));
}

bool Child::ReadSome(Stream& stream) {
    if (!stream.fd) {
        return false;
    }
    std::array<char, 4096> buffer{};
    const ssize_t got = read(stream.fd.Get(), buffer.data(), buffer.size());
    if (got < 0) {
        return errno == EINTR;
    }
    if (got == 0) {
        stream.fd.Reset();
        return false;
    }
    const std::size_t room = CommandOutput::kMaxOutput - stream.text.size();
    stream.text.append(buffer.data(), std::min(room, static_cast<std::size_t>(got)));
    return true;
}

void Child::ReadOutput() {
    (void)ReadSome(out_);
    (void)ReadSome(err_);
}

void Child::SignalGroup(int signal) const {
    (void)kill(-pid_, signal);
}

std::optional<CommandOutcome> Child::Reap() {
    siginfo_t info{};
    const auto id = static_cast<id_t>(pid_);
    if (waitid(P_PID, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0) {
        return std::nullopt;
    }
    for (Stream* stream : {&out_, &err_}) {
        // Bounded: a process that the command left behind may go on writing.
        while (stream->text.size() < CommandOutput::kMaxOutput && ReadSome(*stream)) {
        }
    }
    SignalGroup(SIGKILL);
    (void)waitid(P_PID, id, &info, WEXITED);
    pid_ = 0;
    const auto end = info.si_code == CLD_EXITED ? CommandOutcome::End::kExited : CommandOutcome::End::kSignalled;
    return CommandOutcome{end, info.si_status, {std::move(out_.text), std::move(err_.text)}};
}

}  // namespace ominspect::items
