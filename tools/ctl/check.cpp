// The command check: one item, answered as the plugins of monitoring systems answer (Monitoring Plugins Development
// Guidelines): one line on standard output, performance data behind a bar, and the state as exit code.
#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "common/end_signals.h"
#include "common/text.h"
#include "history.h"
#include "measured.h"
#include "ominspect/client/run.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

using Clock = std::chrono::steady_clock;

// What the guidelines call it, and its exit code.
struct State {
    const char* name;
    ExitCode code;
};

constexpr State kOk{"OK", static_cast<ExitCode>(0)};
constexpr State kWarning{"WARNING", static_cast<ExitCode>(1)};
constexpr State kCritical{"CRITICAL", static_cast<ExitCode>(2)};
constexpr State kUnknown{"UNKNOWN", kCheckUnknown};

// An item that took too long is in a critical state; what nobody could ask is unknown.
State StateOf(const client::ItemResult& result) {
    struct Row {
        std::string_view status;
        State state;
    };
    constexpr std::array<Row, 4> kRows{
        {{"success", kOk}, {"warn", kWarning}, {"fail", kCritical}, {"timeout", kCritical}}};
    if (result.status == "fail" && result.text == "no support") {
        return kUnknown;
    }
    const auto* row =
        std::find_if(kRows.begin(), kRows.end(), [&](const Row& one) { return one.status == result.status; });
    return row != kRows.end() ? row->state : kUnknown;
}

// A bar would begin performance data.
std::string PlainText(std::string_view text) {
    std::string plain = text::Escaped(text);
    std::replace(plain.begin(), plain.end(), '|', '/');
    return plain;
}

ExitCode Answer(const CheckOptions& options, State state, std::string_view text, std::string_view performance) {
    std::string line = PlainText(options.item) + ' ' + state.name;
    if (!text.empty()) {
        line += " - " + PlainText(text);
    }
    if (!performance.empty()) {
        line.append(" | ").append(performance);
    }
    PrintLine(line);
    return state.code;
}

std::string NumberText(double number) {
    std::array<char, 32> digits{};
    auto* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    return {digits.data(), end};
}

std::string NumberText(const std::optional<double>& number) {
    return number ? NumberText(*number) : std::string();
}

// A label stands in quotes, and a quote in it twice.
std::string LabelText(std::string_view label) {
    std::string text = "'";
    for (const char one : label) {
        text.append(one == '\'' ? 2 : 1, one);
    }
    return text + '\'';
}

// 'label'=value;warn;crit;min;max, and blanks between them: what the item has measured, behind the time that the answer
// took. An item that has measured a time itself tells that one.
std::string Performance(double seconds, std::chrono::seconds limit, const std::vector<client::PerfValue>& values) {
    std::array<char, 64> data{};
    if (std::none_of(values.begin(), values.end(), [](const auto& one) { return one.label == "time"; })) {
        (void)std::snprintf(data.data(), data.size(), "time=%.3fs;;;0;%lld", seconds,
                            static_cast<long long>(limit.count()));
    }
    std::string text = data.data();
    for (const client::PerfValue& value : values) {
        text += (text.empty() ? "" : " ") + LabelText(value.label) + '=' + NumberText(value.value) + value.unit + ';' +
                value.warn + ';' + value.crit + ';' + NumberText(value.min) + ';' + NumberText(value.max);
    }
    return text;
}

}  // namespace

ExitCode Check(const CheckOptions& options) {
    const client::Request request{options.item, options.cmd};
    if (const auto error = client::CheckRequest(request)) {
        return Answer(options, kUnknown, error->text, "");
    }
    const Interrupt interrupt(kUnknown.code);  // before the session, whose threads inherit the mask
    Measured measured(options.item);
    const auto session = client::Session::Open({[&](const client::ItemResult& run) { measured.HearRun(run); }, {}, {}});
    if (!session) {
        return Answer(options, kUnknown, session.Failure().text, "");
    }
    measured.Listen(**session, interrupt.Token());
    const auto begin = Clock::now();
    const auto outcome = client::RunItem(**session, request, {}, {options.limit, interrupt.Token()});
    if (!outcome) {
        const bool late = outcome.Failure().code == client::ErrorCode::kTimeLimit;
        return Answer(options, late ? kCritical : kUnknown, outcome.Failure().text, "");
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    History history;
    history.Add(outcome->result, std::chrono::system_clock::now());
    SaveHistory(history);
    std::vector<client::PerfValue> values;
    if (!client::IsUnknownItem(outcome->result)) {
        values = measured.Values();
    }
    return Answer(options, StateOf(outcome->result), outcome->result.text, Performance(seconds, options.limit, values));
}

}  // namespace ominspect::ctl
