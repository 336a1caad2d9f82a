// The verdict's word is what counts; its colour says the same.
#include "doctor/finding.h"

#include <algorithm>
#include <cstddef>

#include "common/table.h"
#include "common/text.h"

namespace ominspect::doctor {
namespace {

struct VerdictForm {
    const char* word;
    const char* colour;  // a control sequence for the terminal
};

VerdictForm FormOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::kGood:
            return {"ok", "\033[32m"};
        case Verdict::kUnknown:
            return {"unknown", "\033[2m"};
        case Verdict::kWarning:
            return {"warning", "\033[33m"};
        case Verdict::kFailure:
            break;
    }
    return {"failure", "\033[31m"};
}

constexpr std::size_t kVerdictWidth = 9;

}  // namespace

std::string FindingsText(const std::vector<Finding>& findings, bool colours) {
    std::size_t subjectWidth = 0;
    for (const Finding& one : findings) {
        subjectWidth = std::max(subjectWidth, text::WidthOf(one.subject));
    }
    std::string out;
    for (const Finding& one : findings) {
        const VerdictForm form = FormOf(one.verdict);
        const std::string verdict = text::Padded(form.word, kVerdictWidth);
        out += colours ? form.colour + verdict + "\033[0m" : verdict;
        out += text::Padded(one.subject, subjectWidth + 2) + text::Escaped(one.text) + '\n';
        if (!one.advice.empty()) {
            out += std::string(kVerdictWidth + subjectWidth + 2, ' ') + "-> " + text::Escaped(one.advice) + '\n';
        }
    }
    return out;
}

json::Value FindingsJson(const std::vector<Finding>& findings) {
    auto list = json::Value::Array();
    for (const Finding& one : findings) {
        auto finding = json::Value::Object();
        finding.Text("subject", one.subject).Text("verdict", FormOf(one.verdict).word);
        list.Add(std::move(finding.Text("text", one.text).Text("advice", one.advice)));
    }
    auto document = json::Value::Object();
    document.Put("findings", std::move(list));
    return document;
}

bool IsAnythingWrong(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& one) {
        return one.verdict == Verdict::kWarning || one.verdict == Verdict::kFailure;
    });
}

}  // namespace ominspect::doctor
