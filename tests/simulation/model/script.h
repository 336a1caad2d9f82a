// A script: what one thread of the server must do next, written as a coroutine. It waits for one action of the thread
// after the other; an action other than the one that it waits for is a violation.
#pragma once

#include <coroutine>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "world/process.h"

namespace sim::model {

/// What a thread does at the platform.
struct Action {
    enum class Kind {
        kLog,
        kLockTable,
        kUnlockTable,
        kLockJobs,
        kUnlockJobs,
        kHoldRead,
        kHoldWrite,
        kRelease,
        kTime,
        kEvent,
        kSend,
        kAsk,
        kAnswer,
        kReply,
        kSleep,
        kCreate,
        kTimer,
        kSubscribe,
        kHandled,
        kEnd,
    };

    Kind kind{};
    uint32_t number{};   // log: level; event, send, ask: id; sleep: seconds; create: the argument; timer: the period;
                         // subscribe: the event; handled: the result
    uint32_t module{};   // log: module; ask: time limit
    const char* unit{};  // log
    std::string text{};  // log: text; send, ask: process and task
    Bytes data{};        // of event, send, ask, reply

    std::string Describe() const;
};

/// An action that has happened, and what it gave. The texts and bytes are there until the script's next wait.
struct Seen {
    Action::Kind kind{};
    uint32_t number{};
    uint32_t module{};
    const char* unit{};
    std::string_view text{};
    BytesView data{};
    uint32_t result{};
    uint64_t time{};
    BytesView reply{};

    bool Is(const Action& expected) const;
    Action AsAction() const;
};

/// Where a script stands.
struct Cursor {
    const Action* expected{};  // null: the script has ended
    Seen seen;                 // the last action that came
    std::coroutine_handle<> waiting;
};

/// A coroutine that waits for the actions of one thread, directly or through others that it awaits.
template <typename T>
class [[nodiscard]] Script;

namespace detail {

struct PromiseBase {
    std::coroutine_handle<> caller;

    static std::suspend_always initial_suspend() noexcept { return {}; }

    struct Final {
        static bool await_ready() noexcept { return false; }
        template <typename Promise>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> me) noexcept {
            auto caller = me.promise().caller;
            return caller ? caller : std::noop_coroutine();
        }
        void await_resume() noexcept {}
    };
    static Final final_suspend() noexcept { return {}; }
    [[noreturn]] static void unhandled_exception() { std::terminate(); }
};

template <typename T>
struct Promise : PromiseBase {
    std::optional<T> value;

    Script<T> get_return_object();
    void return_value(T given) { value = std::move(given); }
    T Take() { return std::move(*value); }
};

template <>
struct Promise<void> : PromiseBase {
    Script<void> get_return_object();
    void return_void() {}
    void Take() {}
};

}  // namespace detail

template <typename T>
class [[nodiscard]] Script {
public:
    using promise_type = detail::Promise<T>;

    explicit Script(std::coroutine_handle<promise_type> handle) : handle_(handle) {}
    Script(Script&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Script& operator=(Script&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Script() {
        if (handle_) {
            handle_.destroy();
        }
    }

    void Start() { handle_.resume(); }

    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> caller) noexcept {
        handle_.promise().caller = caller;
        return handle_;
    }
    T await_resume() { return handle_.promise().Take(); }

private:
    std::coroutine_handle<promise_type> handle_;
};

namespace detail {

template <typename T>
Script<T> Promise<T>::get_return_object() {
    return Script<T>(std::coroutine_handle<Promise<T>>::from_promise(*this));
}

inline Script<void> Promise<void>::get_return_object() {
    return Script<void>(std::coroutine_handle<Promise<void>>::from_promise(*this));
}

}  // namespace detail

/// Waits for one action; gives what was seen.
class Expect {
public:
    Expect(Cursor& cursor, Action action) : cursor_(cursor), action_(std::move(action)) {}

    static bool await_ready() noexcept { return false; }
    void await_suspend(std::coroutine_handle<> caller) {
        cursor_.expected = &action_;
        cursor_.waiting = caller;
    }
    const Seen& await_resume() const { return cursor_.seen; }

private:
    Cursor& cursor_;
    Action action_;
};

}  // namespace sim::model
