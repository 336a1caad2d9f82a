// Sees what libominspect.so says and copies. Its loader and copy functions report only to the operations log, so a
// program that must tell its user takes the place of three platform functions: the shared object calls them through the
// dynamic symbol, and the program's definitions come before the platform's. They do what the platform's do while nobody
// looks.
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

// While it lives, every path that is to be read needs `admit`: a file or folder that it answers with false counts as
// one that cannot be opened (ELOOP). `copied` is told of every file that was admitted: `error` is 0 or why it could not
// be copied, as errno(3). One at a time; made and destroyed while no other thread copies.
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
