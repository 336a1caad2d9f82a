// spdlog's rotating sink does the writing; it reports failures by exceptions without numbers.
#include "log_client/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include <spdlog/pattern_formatter.h>

#include "common/unique_fd.h"

namespace kivo::log {

namespace {

// Finds out, as a number, why the file cannot be written, and ends a line that an earlier failure left unfinished. A
// full file is left as it is: it is rotated before the next line.
uint32_t Prepare(const std::string& path, uint32_t fileSize) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) {
        return static_cast<uint32_t>(error.value());
    }
    const UniqueFd fd(open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666));
    struct stat status {};
    if (!fd || fstat(fd.Get(), &status) != 0) {
        return static_cast<uint32_t>(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    char last = '\n';
    if (status.st_size > 0 && status.st_size < fileSize && pread(fd.Get(), &last, 1, status.st_size - 1) == 1 &&
        last != '\n' && write(fd.Get(), "\n", 1) != 1) {
        return static_cast<uint32_t>(errno);
    }
    return 0;
}

// The server starts other programs, which must not inherit its log. The descriptor is noted.
spdlog::file_event_handlers OnOpen(std::shared_ptr<int> descriptor) {
    spdlog::file_event_handlers handlers;
    handlers.after_open = [descriptor = std::move(descriptor)](const spdlog::filename_t& /*name*/, std::FILE* file) {
        *descriptor = fileno(file);
        fcntl(*descriptor, F_SETFD, FD_CLOEXEC);
    };
    return handlers;
}

}  // namespace

LogFile::LogFile(std::string path, uint32_t fileCount, uint32_t fileSize)
    : path_(std::move(path)), fileCount_(fileCount), fileSize_(fileSize), descriptor_(std::make_shared<int>(-1)) {}

bool LogFile::IsDeleted() const {
    struct stat status {};
    return fstat(*descriptor_, &status) == 0 && status.st_nlink == 0;
}

uint32_t LogFile::Open() try {
    if (const uint32_t error = Prepare(path_, fileSize_); error != 0) {
        return error;
    }
    sink_ = std::make_unique<spdlog::sinks::rotating_file_sink_st>(path_, fileSize_, fileCount_ - 1, false,
                                                                   OnOpen(descriptor_));
    sink_->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, "\n"));
    return 0;
} catch (const std::bad_alloc&) {
    return ENOMEM;
} catch (const std::exception&) {
    return EIO;
}

std::optional<std::string> LogFile::Write(std::string_view line) try {
    if (!sink_ || IsDeleted()) {
        sink_.reset();
        if (const uint32_t error = Open(); error != 0) {
            return std::generic_category().message(static_cast<int>(error));
        }
    }
    sink_->log(spdlog::details::log_msg({}, spdlog::level::info, {line.data(), line.size()}));
    sink_->flush();
    return std::nullopt;
} catch (const std::exception& failure) {
    // The sink may be in any state now, so it is not used again.
    sink_.reset();
    return failure.what();
}

}  // namespace kivo::log
