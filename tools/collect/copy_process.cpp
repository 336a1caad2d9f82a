// The process reports failures and lines of the log through a pipe, as records of three texts that each end with a NUL:
// kind, first, second.
#include "copy_process.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "area.h"
#include "copy_guard.h"
#include "intercept.h"
#include "kivo/om_log_client.h"

namespace ominspect::collect {
namespace {

constexpr const char* kFailureKind = "failure";
constexpr const char* kMessageKind = "message";
constexpr int kNoMemory = 3;
constexpr std::size_t kLongestLine = 1000;
constexpr std::chrono::seconds kReapTime{2};
constexpr useconds_t kReapPeriod = 1000;

// How the copy functions' line begins when they found `running` cleared.
constexpr std::string_view kEndedEarly = "collection stopped by timer,";

void Tell(int fd, const char* kind, std::string_view first, std::string_view second) {
    std::string record = kind;
    record.append(1, '\0').append(first).append(1, '\0').append(second).append(1, '\0');
    if (WriteAll(fd, record)) {
        _exit(kNoMemory);  // whoever should read it is gone
    }
}

// Whether a line says that a copy's times could not be set: the copy functions refuse to give some names to touch(1).
// FileCalls has set the times.
bool IsAboutTimes(std::string_view line) {
    return line == "file path contains danger char, skip!" ||
           (line.starts_with("change file [") && line.ends_with("] time fail")) ||
           (line.starts_with("Change file [") && line.ends_with("] stat fail"));
}

}  // namespace

// Two processes use it at the same time.
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<std::uint64_t>::is_always_lock_free);

struct CopyProcess::Shared {
    CollectConfig config;
    CopyCounts counts;
    std::atomic<int> hookResult{0};
};

void CopyProcess::Unmap::operator()(Shared* shared) const {
    shared->~Shared();
    (void)munmap(shared, sizeof(Shared));
}

CopyProcess::CopyProcess(std::unique_ptr<Shared, Unmap> shared, pid_t pid, UniqueFd records, UniqueFd errors)
    : shared_(std::move(shared)), pid_(pid), records_(std::move(records)), errors_(std::move(errors)) {}

Result<std::unique_ptr<CopyProcess>> CopyProcess::Start(const Entry& entry, const CopyRules& rules) {
    return Start([&](Shared& shared, int records) {
        // Without the copy functions' own timer, for whose last second each copy would wait: see Stop.
        shared.config.timeout = entry.limit;
        if (entry.limit == 0) {
            shared.config.running = false;
        }
        const std::string destination = AbsolutePath(entry.destination);
        CopyGuard guard(
            entry.source, destination, rules, shared.counts,
            [&](const std::string& path, const std::string& reason) { Tell(records, kFailureKind, path, reason); });
        if (MirrorsFolder(entry)) {
            guard.Clear();
        }
        entry.copy(entry.source.c_str(), destination.c_str(), shared.config);
    });
}

Result<std::unique_ptr<CopyProcess>> CopyProcess::StartVendorHook() {
    return Start([](Shared& shared, int /*records*/) { shared.hookResult = InspectCollectVendorLog(); });
}

Result<std::unique_ptr<CopyProcess>> CopyProcess::Start(const Body& body) {
    void* page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return SystemError();
    }
    std::unique_ptr<Shared, Unmap> shared(new (page) Shared);
    shared->config.running = true;

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
        Run(body, *shared, records->write.Get());
    }
    (void)setpgid(pid, pid);  // whichever of the two comes first
    return std::unique_ptr<CopyProcess>(
        new CopyProcess(std::move(shared), pid, std::move(records->read), std::move(errors->read)));
}

void CopyProcess::Run(const Body& body, Shared& shared, int records) {
    try {
        const LogCapture log([&](unsigned level, const std::string& text) {
            if (level <= KIVO_OM_LOG_WARNING && !IsAboutTimes(text)) {
                Tell(records, kMessageKind, text, {});
            }
        });
        body(shared, records);
    } catch (const std::exception&) {
        _exit(kNoMemory);
    }
    _exit(EXIT_SUCCESS);
}

CopyProcess::~CopyProcess() {
    Kill();
    // One that hangs in the kernel, at a dead disk, cannot be waited for: it ends when that answers.
    const auto end = std::chrono::steady_clock::now() + kReapTime;
    while (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0 && std::chrono::steady_clock::now() < end) {
        (void)usleep(kReapPeriod);
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

void CopyProcess::Stop() {
    shared_->config.running = false;
}

void CopyProcess::Kill() const {
    if (pid_ > 0) {
        (void)kill(-pid_, SIGKILL);
    }
}

std::uint64_t CopyProcess::Files() const {
    return shared_->counts.files;
}

std::uint64_t CopyProcess::Bytes() const {
    return shared_->counts.bytes;
}

int CopyProcess::HookResult() const {
    return shared_->hookResult;
}

std::string CopyProcess::Current() const {
    return shared_->counts.current.data();
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
