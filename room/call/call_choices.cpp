// A value that cannot be read, or that means nothing, is told as unknown: nothing is guessed.
#include "call/call_choices.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "common/fd.h"
#include "common/text.h"
#include "trimmed.h"

namespace room {
namespace {

using ominspect::OtherError;
using ominspect::Result;

constexpr std::size_t kMaxFile = 256UL * 1024UL;
// What is shown of a value from outside.
constexpr std::size_t kMaxShown = 24;

std::string_view WithoutQuotes(std::string_view text) {
    const bool quoted =
        text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.front() == text.back();
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string Shown(std::string_view value) {
    return "'" + std::string(ominspect::text::Cut(value, kMaxShown)) + "'";
}

// The setting's value, from wherever it is kept.
Result<std::string> ValueOf(const Choice& choice) {
    if (choice.file.empty()) {
        return choice.value;
    }
    const auto text = ominspect::ReadSmallFile(choice.file, kMaxFile);
    if (!text) {
        return OtherError(choice.file + ": " + text.Failure().text);
    }
    KeyValue found = FindKey(*text, choice.key);
    switch (found.state) {
        case KeyState::Found:
            return std::move(found.value);
        case KeyState::Absent:
            return OtherError(choice.file + " has no " + Shown(choice.key));
        case KeyState::Twice:
            break;
    }
    return OtherError(choice.file + " has " + Shown(choice.key) + " twice");
}

std::optional<bool> AsSwitch(std::string value) {
    std::transform(value.begin(), value.end(), value.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    static constexpr std::array<std::string_view, 5> kOn{"true", "on", "yes", "1", "enabled"};
    static constexpr std::array<std::string_view, 5> kOff{"false", "off", "no", "0", "disabled"};
    if (std::find(kOn.begin(), kOn.end(), value) != kOn.end()) {
        return true;
    }
    if (std::find(kOff.begin(), kOff.end(), value) != kOff.end()) {
        return false;
    }
    return std::nullopt;
}

std::optional<unsigned> AsNumber(std::string_view value) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    return error == std::errc() && end == value.data() + value.size() ? std::optional(number) : std::nullopt;
}

// The switch's finding when it is off, and `bad` when it is on.
Finding JudgeSwitch(const std::optional<Choice>& choice, std::string_view element, std::string_view good,
                    const Finding& bad) {
    if (!choice) {
        return Unknown("not known: name Call/" + std::string(element) + " in the room's file");
    }
    const auto value = ValueOf(*choice);
    if (!value) {
        return Unknown(value.Failure().text);
    }
    const auto on = AsSwitch(*value);
    if (!on) {
        return Unknown(Shown(*value) + " of " + std::string(element) + " is neither on nor off");
    }
    return *on ? bad : Success(good);
}

Result<unsigned> ReadKbps(const std::optional<Bandwidth>& bandwidth, std::string_view element) {
    if (!bandwidth) {
        return OtherError("not known: name Call/" + std::string(element) + " in the room's file");
    }
    const auto value = ValueOf(bandwidth->kbps);
    if (!value) {
        return value.Failure();
    }
    const auto number = AsNumber(*value);
    if (!number) {
        return OtherError(Shown(*value) + " of " + std::string(element) + " is no number of kbit/s");
    }
    return *number;
}

std::string Kbps(unsigned number) {
    return std::to_string(number) + " kbit/s";
}

}  // namespace

KeyValue FindKey(std::string_view text, std::string_view key) {
    KeyValue out{KeyState::Absent, {}};
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view line = Trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line[0] == '#' || line[0] == ';' || line[0] == '[') {
            continue;
        }
        const std::size_t sign = line.find_first_of("=:");
        if (sign == std::string_view::npos || Trimmed(line.substr(0, sign)) != key) {
            continue;
        }
        if (out.state == KeyState::Found) {
            return {KeyState::Twice, {}};
        }
        out = {KeyState::Found, std::string(WithoutQuotes(Trimmed(line.substr(sign + 1))))};
    }
    return out;
}

Finding CheckDoNotDisturb(const CallSettings& settings) {
    return JudgeSwitch(settings.doNotDisturb, "DoNotDisturb", "do not disturb is off",
                       Fail("do not disturb is on: calls do not ring; switch it off"));
}

Finding CheckAutoAnswerMuted(const CallSettings& settings) {
    return JudgeSwitch(settings.autoAnswerMuted, "AutoAnswer", "calls are not answered muted",
                       Warn("calls are answered with the microphones muted; nobody is heard until they are unmuted"));
}

Finding CheckDefaultBandwidth(const CallSettings& settings) {
    const auto kbps = ReadKbps(settings.defaultBandwidth, "DefaultBandwidth");
    if (!kbps) {
        return Unknown(kbps.Failure().text);
    }
    if (*kbps < settings.defaultBandwidth->min) {
        return Warn("calls are made with " + Kbps(*kbps) + ", less than " + Kbps(settings.defaultBandwidth->min) +
                    "; raise the default call bandwidth");
    }
    return Success("calls are made with " + Kbps(*kbps));
}

Finding CheckMaxIncomingBandwidth(const CallSettings& settings) {
    const auto kbps = ReadKbps(settings.maxIncomingBandwidth, "MaxIncomingBandwidth");
    if (!kbps) {
        return Unknown(kbps.Failure().text);
    }
    const std::string text = "incoming calls get at most " + Kbps(*kbps);
    if (*kbps < settings.maxIncomingBandwidth->min) {
        return Warn(text + ", less than " + Kbps(settings.maxIncomingBandwidth->min) + "; raise it");
    }
    // If the other setting is known: a room whose own calls may use more than it accepts is set up wrongly.
    const auto own = settings.defaultBandwidth ? ReadKbps(settings.defaultBandwidth, "") : Result<unsigned>(0U);
    if (own && *kbps < *own) {
        return Warn(text + ", less than this room's own calls (" + Kbps(*own) + "); raise it");
    }
    return Success(text);
}

}  // namespace room
