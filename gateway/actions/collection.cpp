// The program's lines on standard error are its progress: one for each entry that is done.
#include "actions/collection.h"

#include <csignal>
#include <filesystem>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "actions/telling.h"
#include "common/text.h"

namespace ominspect::gateway {
namespace {

namespace fs = std::filesystem;

constexpr int kPartly = 1;  // the package is there, but not everything is in it
constexpr std::size_t kMostLine = 512;

}  // namespace

Collection::Collection(std::string program, std::string folder, std::string config, Feed& feed)
    : program_(std::move(program)),
      folder_(std::move(folder)),
      config_(std::move(config)),
      area_(folder_ + "/area"),
      package_(folder_ + "/logs.tar.zst"),
      feed_(feed) {
    std::error_code none;
    size_ = fs::file_size(package_, none);
    if (none) {
        size_ = 0;
    } else {
        state_ = State::kDone;
        end_ = beginTime_ = std::chrono::system_clock::now();
    }
}

Collection::~Collection() {
    {
        const std::lock_guard lock(mutex_);
        if (child_ > 0) {
            (void)kill(child_, SIGTERM);
        }
    }
    Join();
}

void Collection::Join() {
    std::thread ended;
    {
        const std::lock_guard lock(mutex_);
        ended.swap(follower_);
    }
    if (ended.joinable()) {
        ended.join();
    }
}

std::vector<std::string> Collection::Words() const {
    std::vector<std::string> words{program_, "collect", "--output", package_, "--force", "--json", "--area", area_};
    if (!config_.empty()) {
        words.insert(words.end(), {"--config", config_});
    }
    return words;
}

// Nothing that the program was started for is thrown away: after the start it takes no memory.
Result<pid_t> Collection::Spawn(std::vector<std::string> words, UniqueFd& output) const {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    auto pipe = MakePipe();
    if (!pipe) {
        return pipe.Failure();
    }
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    (void)posix_spawn_file_actions_init(&actions);
    (void)posix_spawnattr_init(&attributes);
    (void)posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    (void)posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    (void)posix_spawn_file_actions_adddup2(&actions, pipe->write.Get(), 2);
    // It ends by the signals that this program blocks.
    sigset_t none{};
    (void)sigemptyset(&none);
    (void)posix_spawnattr_setsigmask(&attributes, &none);
    (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t child = 0;
    const int error = posix_spawn(&child, program_.c_str(), &actions, &attributes, arguments.data(), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    (void)posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        return SystemError(error);
    }
    output = std::move(pipe->read);
    return child;
}

// What may fail comes before anything is changed, but for the start of the program itself.
std::optional<Error> Collection::Begin(const std::string& who) {
    const std::lock_guard begin(begin_);
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::kGoingOn) {
            return Error{ErrorCode::kRefused, "a collection goes on already"};
        }
    }
    Join();
    {
        const std::lock_guard lock(mutex_);
        auto words = Words();
        std::string name = who;
        std::error_code ignored;
        (void)fs::create_directories(folder_, ignored);
        (void)fs::create_directories(area_, ignored);
        try {
            follower_ = std::thread([this] { Follow(); });
        } catch (const std::system_error&) {
            return Error{ErrorCode::kInternal, "there is no thread for a collection"};
        }
        state_ = State::kNone;
        size_ = 0;
        (void)unlink(package_.c_str());
        const auto child = Spawn(std::move(words), output_);
        who_.swap(name);
        line_.clear();
        exitCode_ = 0;
        beginTime_ = std::chrono::system_clock::now();
        end_.reset();
        if (child) {
            child_ = *child;
            state_ = State::kGoingOn;
        } else {
            state_ = State::kFailed;
            end_ = beginTime_;
            line_ = "cannot run " + program_ + ": " + child.Failure().text;
        }
    }
    if (!Tell()) {
        feed_.Lose();
    }
    return std::nullopt;
}

// It waits for the lock until the program was started, or was not.
void Collection::Follow() {
    pid_t child = 0;
    UniqueFd output;
    {
        const std::lock_guard lock(mutex_);
        child = child_;
        output = std::move(output_);
    }
    if (child == 0) {
        return;
    }
    (void)fcntl(output.Get(), F_SETFL, 0);  // this thread may wait
    std::string text;
    char bytes[512];
    for (ssize_t size = 0; (size = read(output.Get(), bytes, sizeof bytes)) > 0;) {
        try {
            text.append(bytes, static_cast<std::size_t>(size));
            for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
                TakeLine(text.substr(0, std::min(end, kMostLine)));
                text.erase(0, end + 1);
            }
        } catch (const std::bad_alloc&) {
            text.clear();  // the next line says how far it is, too
        }
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    try {
        std::error_code none;
        (void)fs::remove_all(area_, none);
    } catch (const std::bad_alloc&) {
        // The next collection uses it anew.
    }
    {
        const std::lock_guard lock(mutex_);
        child_ = 0;
        struct stat package {};
        const bool isThere = stat(package_.c_str(), &package) == 0;
        exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        size_ = isThere ? static_cast<std::uint64_t>(package.st_size) : 0;
        state_ = isThere && exitCode_ <= kPartly ? State::kDone : State::kFailed;
        end_ = std::chrono::system_clock::now();
    }
    TellInAnyCase(feed_, EventKind::kCollection, [this] { return Document().Print(); });
}

void Collection::TakeLine(std::string line) {
    {
        const std::lock_guard lock(mutex_);
        line_.swap(line);
    }
    (void)Tell();
}

bool Collection::Tell() {
    return TryToTell(feed_, EventKind::kCollection, [this] { return Document().Print(); });
}

void Collection::Delete() {
    const std::lock_guard begin(begin_);
    {
        const std::lock_guard lock(mutex_);
        if (child_ > 0) {
            (void)kill(child_, SIGTERM);
        }
    }
    Join();
    {
        const std::lock_guard lock(mutex_);
        (void)unlink(package_.c_str());
        state_ = State::kNone;
        size_ = 0;
    }
    if (!Tell()) {
        feed_.Lose();
    }
}

std::string Collection::Package() const {
    const std::lock_guard lock(mutex_);
    return state_ == State::kDone ? package_ : "";
}

json::Value Collection::Document() const {
    const std::lock_guard lock(mutex_);
    constexpr const char* kWords[] = {"none", "going-on", "done", "failed"};
    auto json = json::Value::Object();
    json.Text("state", kWords[static_cast<int>(state_)]);
    if (state_ == State::kNone) {
        return json;
    }
    json.Text("begin", UtcTime(beginTime_)).Text("who", who_).Text("progress", line_);
    if (end_) {
        json.Text("end", UtcTime(*end_));
    }
    if (state_ == State::kDone) {
        json.Number("bytes", size_).Flag("isWhole", exitCode_ == 0).Text("package", "/api/v1/collection/package");
    }
    return json;
}

}  // namespace ominspect::gateway
