// Errors of the client library: values, never exceptions.
#pragma once

#include <string>
#include <utility>
#include <variant>

#pragma GCC visibility push(default)

namespace ominspect::client {

enum class ErrorCode {
    kInvalidArgument,  // the call itself is wrong; nothing was sent
    kAlreadyOpen,      // this process is on the bus already
    kBusUnreachable,   // no bus, or it was lost
    kServerAbsent,     // the server is not on the bus, or left it while it was asked
    kTimeLimit,        // no reply within the given time
    kRefused,          // the server is there and did not take the request
    kGroupBusy,        // the server runs a group of this name already
    kCancelled,        // the caller ended the call early
    kDenied,           // the bus's policy does not let this process speak to the server
    kMalformedReply,   // a reply that is no such record
    kInternal          // anything else, such as no memory
};

// The error's stable word for scripts, such as "server-absent"; never null.
const char* ErrorWord(ErrorCode code);

struct Error {
    ErrorCode code;
    std::string text;  // one English sentence part for people
    int number = 0;    // errno(3), when it is a system call that failed
};

// The connection to the bus is gone; the text names the bus's address.
Error BusLostError();

// A value, or the error that stands in its place. Either converts to it.
template <typename T>
class Result {
public:
    Result(T value) : content_(std::move(value)) {}
    Result(Error error) : content_(std::move(error)) {}

    explicit operator bool() const { return std::holds_alternative<T>(content_); }

    // Only of a result that holds a value.
    T& operator*() { return *std::get_if<T>(&content_); }
    const T& operator*() const { return *std::get_if<T>(&content_); }
    T* operator->() { return std::get_if<T>(&content_); }
    const T* operator->() const { return std::get_if<T>(&content_); }

    // Only of a result that holds none.
    const Error& Failure() const { return *std::get_if<Error>(&content_); }

private:
    std::variant<T, Error> content_;
};

}  // namespace ominspect::client

#pragma GCC visibility pop
