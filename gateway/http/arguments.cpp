#include "http/arguments.h"

#include <charconv>
#include <chrono>
#include <system_error>

#include "common/times.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMostRows = 1000;
constexpr unsigned kMostSeconds = 86400;

std::optional<Error> ReadTime(const Request& request, const char* name, std::optional<TimePoint>& time) {
    if (const auto text = request.Query(name)) {
        time = ParseTime(*text, std::chrono::system_clock::now());
        if (!time) {
            return WrongUse(std::string(name) + " must be a time such as 2026-01-31T12:34:56Z, or an age such as 2h");
        }
    }
    return std::nullopt;
}

std::optional<Error> ReadNumber(const Request& request, const char* name, std::optional<std::uint64_t>& number) {
    if (const auto text = request.Query(name)) {
        number = NumberOf(*text);
        if (!number) {
            return WrongUse(std::string(name) + " must be a number");
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> NumberOf(const std::string& text) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

std::optional<Error> DecodeQuery(Request& request) {
    for (auto& [name, value] : request.query) {
        auto decoded = Decoded(value);
        if (!decoded) {
            return WrongUse("the query is not well-formed");
        }
        value = std::move(*decoded);
    }
    return std::nullopt;
}

Result<history::Filter> FilterOf(const Request& request) {
    history::Filter filter;
    std::optional<std::uint64_t> limit;
    for (const auto& error : {ReadTime(request, "since", filter.since), ReadTime(request, "until", filter.until),
                              ReadNumber(request, "before", filter.before), ReadNumber(request, "after", filter.after),
                              ReadNumber(request, "limit", limit)}) {
        if (error) {
            return *error;
        }
    }
    if (limit && (*limit < 1 || *limit > kMostRows)) {
        return WrongUse("limit must be from 1 to " + std::to_string(kMostRows));
    }
    filter.limit = static_cast<std::size_t>(limit.value_or(filter.limit));
    filter.item = request.Query("item");
    filter.status = request.Query("status");
    filter.isOldestFirst = filter.after.has_value();
    return filter;
}

Result<json::Value> ContentOf(const Request& request) {
    auto content = request.body.empty() ? Result<json::Value>(json::Value::Object()) : json::Value::Parse(request.body);
    if (!content || !content->Read().IsObject()) {
        return WrongUse("the content is no JSON object");
    }
    return content;
}

std::optional<Error> ReadRun(json::View content, Order& order) {
    if (const auto argument = content["argument"]) {
        const auto text = argument.Text();
        if (!text) {
            return WrongUse("argument must be a text");
        }
        order.argument = *text;
    }
    if (const auto seconds = content["timeoutSeconds"]) {
        const auto number = seconds.Number();
        if (!number || *number < 1 || *number > kMostSeconds) {
            return WrongUse("timeoutSeconds must be a number from 1 to " + std::to_string(kMostSeconds));
        }
        order.limit = std::chrono::seconds(static_cast<std::int64_t>(*number));
    }
    return std::nullopt;
}

}  // namespace ominspect::gateway
