// The process reports failures and lines of the log through a pipe, as records of three texts that each end with a NUL:
// kind, first, second.
#include "copy_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "area.h"
#include "intercept.h"
#include "kivo/om_log_client.h"

namespace ominspect::collect {
namespace {

constexpr const char* kFailureKind = "failure";
constexpr const char* kMessageKind = "message";
constexpr int kNoMemory = 3;
constexpr std::size_t kLongestLine = 1000;

// How the copy functions' line begins when they found `running` cleared.
constexpr std::string_view kEndedEarly = "collection stopped by timer,";

// Keeps a copy inside its source: the copy functions follow every link.
class LinkGuard {
public:
    // For the copy of `source` to `destination`; the source may itself be a link.
    LinkGuard(const std::string& source, const std::string& destination)
        : source_(ResolvedPath(source)), destination_(ResolvedPath(destination)) {}

    // Why this path must not be read: it leads out of both trees, or to a folder that holds the path, which would go on
    // without end. Empty when it may be read.
    std::string Objection(const std::string& path) const {
        std::error_code error;
        const std::string real = std::filesystem::canonical(path, error).string();
        if (error) {
            return {};  // whoever opens it finds out
        }
        if (IsInside(real, destination_)) {
            return {};  // what an earlier collection left
        }
        if (!IsInside(real, source_)) {
            return "a link that leads out of the source";
        }
        const std::string parent = ResolvedPath(std::filesystem::absolute(path).parent_path().string());
        return IsInside(parent, real) ? "a link to a folder that it lies in" : "";
    }

private:
    std::string source_;  // links followed
    std::string destination_;
};

void Tell(int fd, const char* kind, std::string_view first, std::string_view second) {
    std::string record = kind;
    record.append(1, '\0').append(first).append(1, '\0').append(second).append(1, '\0');
    if (WriteAll(fd, record)) {
        _exit(kNoMemory);  // whoever should read it is gone
    }
}

// The platform refuses everything but regular files with the same number. This says more.
std::string Reason(const char* src, std::uint32_t error) {
    struct stat status {};
    if (error == EINVAL && stat(src, &status) == 0 && !S_ISREG(status.st_mode)) {
        return "not a regular file";
    }
    return SystemText(static_cast<int>(error));
}

}  // namespace

// Two processes use it at the same time.
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<std::uint64_t>::is_always_lock_free);

struct CopyProcess::Shared {
    CollectConfig config;
    std::atomic<std::uint64_t> files{0};
    std::atomic<std::uint64_t> bytes{0};
};

void CopyProcess::Unmap::operator()(Shared* shared) const {
    shared->~Shared();
    (void)munmap(shared, sizeof(Shared));
}

CopyProcess::CopyProcess(std::unique_ptr<Shared, Unmap> shared, pid_t pid, UniqueFd records, UniqueFd errors)
    : shared_(std::move(shared)), pid_(pid), records_(std::move(records)), errors_(std::move(errors)) {}

Result<std::unique_ptr<CopyProcess>> CopyProcess::Start(const Entry& entry) {
    void* page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return SystemError();
    }
    std::unique_ptr<Shared, Unmap> shared(new (page) Shared);
    shared->config.startTimer = true;
    shared->config.running = true;
    shared->config.timeout = entry.limit;

    auto records = MakePipe();
    if (!records) {
        return records.Failure();
    }
    auto errors = MakePipe();
    if (!errors) {
        return errors.Failure();
    }
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        return SystemError();
    }
    if (pid == 0) {
        (void)setpgid(0, 0);  // with the tools that it starts, to be killed together
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent || dup2(errors->write.Get(), STDERR_FILENO) < 0) {
            _exit(kNoMemory);
        }
        Run(entry, *shared, records->write.Get());
    }
    (void)setpgid(pid, pid);  // whichever of the two comes first
    return std::unique_ptr<CopyProcess>(
        new CopyProcess(std::move(shared), pid, std::move(records->read), std::move(errors->read)));
}

void CopyProcess::Run(const Entry& entry, Shared& shared, int records) {
    try {
        const LogCapture log([&](unsigned level, const std::string& text) {
            if (level <= KIVO_OM_LOG_WARNING) {
                Tell(records, kMessageKind, text, {});
            }
        });
        const LinkGuard guard(entry.source, entry.destination);
        const auto admit = [&](const char* path) {
            const std::string objection = guard.Objection(path);
            if (!objection.empty()) {
                Tell(records, kFailureKind, path, objection);
            }
            return objection.empty();
        };
        const CopyWatch copies(admit, [&](const char* src, const char* dst, std::uint32_t error) {
            if (error != 0) {
                Tell(records, kFailureKind, src, Reason(src, error));
                return;
            }
            struct stat status {};
            if (stat(dst, &status) == 0) {
                shared.bytes += static_cast<std::uint64_t>(status.st_size);
            }
            ++shared.files;
        });
        entry.copy(entry.source.c_str(), entry.destination.c_str(), shared.config);
    } catch (const std::exception&) {
        _exit(kNoMemory);
    }
    _exit(EXIT_SUCCESS);
}

CopyProcess::~CopyProcess() {
    if (pid_ > 0) {
        (void)kill(-pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
}

bool CopyProcess::Watch(int otherFd, int milliseconds) {
    std::array<pollfd, 3> fds{{{records_.Get(), POLLIN, 0}, {errors_.Get(), POLLIN, 0}, {otherFd, POLLIN, 0}}};
    (void)poll(fds.data(), fds.size(), milliseconds);
    ReadErrors(false);
    if (ReadRecords()) {
        return true;
    }
    ReadErrors(true);
    return false;
}

bool CopyProcess::Stop() {
    return shared_->config.running.exchange(false);
}

std::uint64_t CopyProcess::Files() const {
    return shared_->files;
}

std::uint64_t CopyProcess::Bytes() const {
    return shared_->bytes;
}

std::string CopyProcess::Death() {
    int status = 0;
    if (waitpid(std::exchange(pid_, -1), &status, 0) < 0) {
        return "its process was lost";
    }
    if (WIFSIGNALED(status)) {
        return std::string("its process was ended by ") + strsignal(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == EXIT_SUCCESS ? "" : "its process ran out of memory";
}

// False at the end.
bool CopyProcess::ReadRecords() {
    std::array<char, 65536> buffer;
    const ssize_t got = read(records_.Get(), buffer.data(), buffer.size());
    if (got == 0) {
        return false;
    }
    if (got < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    unread_.append(buffer.data(), static_cast<std::size_t>(got));
    std::size_t begin = 0;
    for (;;) {
        const std::size_t first = unread_.find('\0', begin);
        const std::size_t second = first == std::string::npos ? first : unread_.find('\0', first + 1);
        const std::size_t end = second == std::string::npos ? second : unread_.find('\0', second + 1);
        if (end == std::string::npos) {
            break;
        }
        TakeIn(unread_.substr(begin, first - begin), unread_.substr(first + 1, second - first - 1),
               unread_.substr(second + 1, end - second - 1));
        begin = end + 1;
    }
    unread_.erase(0, begin);
    return true;
}

void CopyProcess::TakeIn(const std::string& kind, const std::string& first, const std::string& second) {
    if (kind == kFailureKind) {
        failures_.Add({first, second});
        return;
    }
    endedEarly_ = endedEarly_ || first.starts_with(kEndedEarly);
    messages_.Add(first);
}

// What the started tools printed, line by line.
void CopyProcess::ReadErrors(bool toTheEnd) {
    std::array<char, 4096> buffer;
    ssize_t got = 0;
    while ((got = read(errors_.Get(), buffer.data(), buffer.size())) > 0) {
        for (const char byte : std::string_view(buffer.data(), static_cast<std::size_t>(got))) {
            if (byte != '\n' && unreadError_.size() < kLongestLine) {
                unreadError_ += byte;
            } else if (byte == '\n') {
                messages_.Add(std::exchange(unreadError_, {}));
            }
        }
    }
    if (got == 0) {
        errors_.Reset();  // poll(2) would not wait any more
    }
    if (toTheEnd && !unreadError_.empty()) {
        messages_.Add(std::exchange(unreadError_, {}));
    }
}

}  // namespace ominspect::collect
