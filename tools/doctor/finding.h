// What a look at the machine has found, and how it is shown.
#pragma once

#include <string>
#include <vector>

#include "common/json.h"

namespace ominspect::doctor {

enum class Verdict {
    kGood,
    kUnknown,  // it could not be looked at, because of something that has a finding of its own
    kWarning,  // something does not work as it should
    kFailure   // the system cannot be used, or not by this user
};

// One line. Texts from outside are not escaped yet.
struct Finding {
    Verdict verdict;
    std::string subject;
    std::string text;
    std::string advice = {};  // what to do; empty when there is nothing to be done
};

// A line each, with the advice in a line of its own.
std::string FindingsText(const std::vector<Finding>& findings, bool colours);

json::Value FindingsJson(const std::vector<Finding>& findings);

// Whether any finding is a warning or a failure.
bool IsAnythingWrong(const std::vector<Finding>& findings);

}  // namespace ominspect::doctor
