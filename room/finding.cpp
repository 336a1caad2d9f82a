// Texts are made fit for a result here, and nowhere else.
#include "finding.h"

#include <algorithm>

#include "common/text.h"

namespace room {
namespace {

Finding Make(Status status, std::string_view text) {
    std::string line = ominspect::text::OneLine(text);
    // What follows a '|' would be taken for performance data.
    std::replace(line.begin(), line.end(), '|', '/');
    return {status, std::string(ominspect::text::Cut(line, Finding::kMaxText))};
}

int Rank(Status status) {
    switch (status) {
        case Status::Success:
            return 0;
        case Status::Unknown:
            return 1;
        case Status::Warn:
            return 2;
        case Status::Fail:
            break;
    }
    return 3;
}

}  // namespace

Finding Success(std::string_view text) {
    return Make(Status::Success, text);
}

Finding Warn(std::string_view text) {
    return Make(Status::Warn, text);
}

Finding Fail(std::string_view text) {
    return Make(Status::Fail, text);
}

Finding Unknown(std::string_view text) {
    return Make(Status::Unknown, text);
}

std::string_view StatusWord(Status status) {
    switch (status) {
        case Status::Success:
            return "success";
        case Status::Warn:
            return "warn";
        case Status::Fail:
            return "fail";
        case Status::Unknown:
            break;
    }
    return "unknown";
}

bool IsWorse(Status status, Status than) {
    return Rank(status) > Rank(than);
}

}  // namespace room
