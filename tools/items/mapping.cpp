// The texts are cut to their fields here, and nowhere else.
#include "items/mapping.h"

#include <cstring>
#include <string_view>

#include "common/error.h"
#include "common/text.h"

namespace ominspect::items {
namespace {

// Fills a field with a text that is cut to leave room for the NUL, and with zeros after it.
template <std::size_t size>
void SetField(char (&field)[size], std::string_view text) {
    const std::string_view kept = text::Cut(text, size - 1);
    std::memset(field, 0, size);
    std::memcpy(field, kept.data(), kept.size());
}

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// The first line that says something, without its performance data.
std::string_view FirstLine(std::string_view output) {
    while (!output.empty()) {
        const std::string_view line = output.substr(0, output.find('\n'));
        output.remove_prefix(std::min(line.size() + 1, output.size()));
        if (!Trimmed(line).empty()) {
            return Trimmed(line.substr(0, line.find('|')));
        }
    }
    return {};
}

std::string ExitText(const CommandOutcome& outcome) {
    for (const std::string& stream : {outcome.output.out, outcome.output.err}) {
        const std::string_view line = FirstLine(stream);
        if (!line.empty()) {
            return text::OneLine(line);
        }
    }
    return "no output, exit status " + std::to_string(outcome.code);
}

const char* ExitWord(int status) {
    switch (status) {
        case 0:
            return "success";
        case 1:
            return "warn";
        case 2:
            return "fail";
        default:
            return "unknown";
    }
}

std::string SignalText(int signal) {
    const char* text = sigdescr_np(signal);
    return text == nullptr ? "unknown" : text;
}

}  // namespace

void SetResult(tagKivoOmInspectionResult& result, std::string_view status, std::string_view text) {
    SetField(result.status, status);
    SetField(result.text, text);
}

tagKivoOmInspectionResult MakeResult(const std::string& item, const std::string& program, std::chrono::seconds limit,
                                     const CommandOutcome& outcome) {
    const std::string late = "time limit of " + std::to_string(limit.count()) + " s passed";
    tagKivoOmInspectionResult result{};
    SetField(result.name, item);
    switch (outcome.end) {
        case CommandOutcome::End::kExited:
            SetResult(result, ExitWord(outcome.code), ExitText(outcome));
            break;
        case CommandOutcome::End::kSignalled:
            SetResult(result, "unknown",
                      "ended by signal " + std::to_string(outcome.code) + " (" + SignalText(outcome.code) + ")");
            break;
        case CommandOutcome::End::kNotStarted:
            SetResult(result, "unknown", "cannot run " + text::OneLine(program) + ": " + SystemText(outcome.code));
            break;
        case CommandOutcome::End::kTimeLimit:
            SetResult(result, "fail", late);
            break;
        case CommandOutcome::End::kNeverStarted:
            SetResult(result, "fail", late + " while waiting for a free place");
            break;
        case CommandOutcome::End::kStopped:
            SetResult(result, "fail", "stopped");
            break;
    }
    return result;
}

}  // namespace ominspect::items
