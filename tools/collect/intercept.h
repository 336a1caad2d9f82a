// Sees what libominspect.so logs and copies. Its loader and its copy functions report only to the operations log, so a
// program that must tell its user defines three platform functions itself. The shared object calls them through the
// dynamic symbols, and the program's definitions come before the platform's. They forward to the platform's.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace ominspect {

// While it lives, the lines of the operations log go to `sink` and nowhere else. One at a time; made and destroyed
// while no other thread logs.
class LogCapture {
public:
    using Sink = std::function<void(unsigned level, const std::string& text)>;

    explicit LogCapture(Sink sink);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void Take(unsigned level, const std::string& text) const { sink_(level, text); }

private:
    Sink sink_;
};

// While it lives, `admit` is asked about every path that is to be read; a file or folder for which it returns false
// counts as one that cannot be opened (ELOOP). `copied` is called for every admitted file; `error` is 0, or the
// errno(3) number that tells why it could not be copied. One at a time; made and destroyed while no other thread
// copies.
class CopyWatch {
public:
    using Admit = std::function<bool(const char* path)>;
    using Copied = std::function<void(const char* src, const char* dst, std::uint32_t error)>;

    CopyWatch(Admit admit, Copied copied);
    ~CopyWatch();
    CopyWatch(const CopyWatch&) = delete;
    CopyWatch& operator=(const CopyWatch&) = delete;

    bool Admits(const char* path) const { return admit_(path); }
    void Take(const char* src, const char* dst, std::uint32_t error) const { copied_(src, dst, error); }

private:
    Admit admit_;
    Copied copied_;
};

}  // namespace ominspect
