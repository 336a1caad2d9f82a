// The definitions at the end of the file are the ones that libominspect.so calls.
#include "intercept.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <utility>

#include <dlfcn.h>

#include "kivo/om_log_client.h"
#include "kivo/os_file.h"

namespace ominspect {
namespace {

std::atomic<const LogCapture*> g_log{nullptr};
std::atomic<const CopyWatch*> g_copies{nullptr};

// The platform's function of this name, whose definition comes after the program's own.
template <typename Function>
Function* Platforms(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The platform's callers do not expect exceptions.
template <typename Body>
void Guarded(const Body& body) noexcept {
    try {
        body();
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "a line or a path was lost: %s\n", error.what());
    }
}

bool IsAdmitted(const char* path) {
    const CopyWatch* watch = g_copies;
    bool admitted = watch == nullptr;
    if (watch != nullptr) {
        Guarded([&] { admitted = watch->Admits(path); });
    }
    return admitted;
}

}  // namespace

LogCapture::LogCapture(Sink sink) : sink_(std::move(sink)) {
    g_log = this;
}

LogCapture::~LogCapture() {
    g_log = nullptr;
}

CopyWatch::CopyWatch(Admit admit, Copied copied) : admit_(std::move(admit)), copied_(std::move(copied)) {
    g_copies = this;
}

CopyWatch::~CopyWatch() {
    g_copies = nullptr;
}

}  // namespace ominspect

uint32_t OsCopyFile(const char* src, const char* dst) {
    static const auto platforms = ominspect::Platforms<uint32_t(const char*, const char*)>("OsCopyFile");
    if (!ominspect::IsAdmitted(src)) {
        return ELOOP;
    }
    const uint32_t error = platforms == nullptr ? ENOSYS : platforms(src, dst);
    if (const ominspect::CopyWatch* watch = ominspect::g_copies; watch != nullptr) {
        ominspect::Guarded([&] { watch->Take(src, dst, error); });
    }
    return error;
}

OsDir* OsOpenDir(const char* path) {
    static const auto platforms = ominspect::Platforms<OsDir*(const char*)>("OsOpenDir");
    if (platforms == nullptr || !ominspect::IsAdmitted(path)) {
        errno = ELOOP;
        return nullptr;
    }
    return platforms(path);
}

void KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint8_t module, uint32_t line,
                              const char* format, ...) {
    using Record = void(uint8_t, KivoOmLogHandle, const char*, uint8_t, uint32_t, const char*, ...);
    static const auto platforms = ominspect::Platforms<Record>("KivoOmLogModuleLogRecord");
    std::array<char, 512> text{};  // the server's lines have at most 399 characters
    va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the checker misses va_start after a static's initialisation
    (void)std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    if (const ominspect::LogCapture* capture = ominspect::g_log; capture != nullptr) {
        ominspect::Guarded([&] { capture->Take(level, text.data()); });
    } else if (platforms != nullptr) {
        platforms(level, handle, unit, module, line, "%s", text.data());
    }
}
