// Texts are made fit for a result here, and nowhere else.
#include "finding.h"

#include <algorithm>
#include <utility>

#include "common/text.h"

namespace room {
namespace {

Finding Make(Status status, std::string_view text) {
    std::string line = ominspect::text::OneLine(text);
    // What follows a '|' would be taken for performance data.
    std::replace(line.begin(), line.end(), '|', '/');
    return {status, std::string(ominspect::text::Cut(line, Finding::kMaxText))};
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

void Findings::Add(Finding finding) {
    all_.push_back(std::move(finding));
}

Finding Findings::Sum(std::string_view otherwise) const {
    for (const Status status : {Status::Fail, Status::Warn, Status::Success, Status::Unknown}) {
        std::string text;
        for (const Finding& finding : all_) {
            const std::string_view separator = text.empty() ? "" : "; ";
            // The first text is always there; a further one only as a whole.
            if (finding.status == status &&
                (text.empty() || text.size() + separator.size() + finding.text.size() <= Finding::kMaxText)) {
                text += separator;
                text += finding.text;
            }
        }
        if (!text.empty()) {
            return Make(status, text);
        }
    }
    return Unknown(otherwise);
}

}  // namespace room
