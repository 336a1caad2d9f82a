// Whether the server's own task is at work. Its thread may outlast static objects when the server runs inside a host
// process that calls exit(3): such an object looks here before it lets itself be destroyed.
#pragma once

#include <atomic>

/// Lives from the entry of the server's task to its end.
class Serving {
public:
    Serving() noexcept { ++m_count; }
    ~Serving() { --m_count; }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
    Serving(Serving&&) = delete;
    Serving& operator=(Serving&&) = delete;

    /// Any thread, until the process has ended.
    static bool IsUnderWay() noexcept { return m_count > 0; }

private:
    static constinit inline std::atomic<int> m_count{0};
};
