// Which threads belong to tasks.
#pragma once

#include <string>
#include <utility>

namespace kivo::msg {

// Marks the calling thread, while the object lives, as one that runs a task or its message loop.
class TaskThreadScope {
public:
    explicit TaskThreadScope(std::string taskName) : before_(std::exchange(Name(), std::move(taskName))) {}
    ~TaskThreadScope() { Name().swap(before_); }
    TaskThreadScope(const TaskThreadScope&) = delete;
    TaskThreadScope& operator=(const TaskThreadScope&) = delete;
    TaskThreadScope(TaskThreadScope&&) = delete;
    TaskThreadScope& operator=(TaskThreadScope&&) = delete;

    // Whether the calling thread is marked.
    static bool IsHere() { return !Name().empty(); }

    // The task that the calling thread runs; empty on other threads.
    static const std::string& TaskName() { return Name(); }

private:
    static std::string& Name() {
        thread_local std::string name;
        return name;
    }

    std::string before_;
};

}  // namespace kivo::msg
