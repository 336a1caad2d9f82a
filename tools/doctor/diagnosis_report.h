// A diagnosis as text and as JSON.
#pragma once

#include <string>

#include "common/json.h"
#include "doctor/diagnosis.h"

namespace ominspect::doctor {

// One line per fact, each with its line end: "line 7: DiagnoseItem "x": ...". A line about the whole file begins with
// its path.
std::string ReportText(const std::string& path, const Diagnosis& diagnosis);

// One document.
json::Value ReportJson(const std::string& path, const Diagnosis& diagnosis);

}  // namespace ominspect::doctor
