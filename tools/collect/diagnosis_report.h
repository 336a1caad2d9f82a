// A diagnosis as text and as JSON.
#pragma once

#include <string>

#include "diagnosis.h"

namespace ominspect::collect {

// One line per fact, each with its line end: "line 7: DiagnoseItem "x": ...", and what concerns the file as a whole
// begins with its path. Texts from the file are escaped.
std::string ReportText(const std::string& path, const Diagnosis& diagnosis);

// One document, without a line end.
std::string ReportJson(const std::string& path, const Diagnosis& diagnosis);

}  // namespace ominspect::collect
