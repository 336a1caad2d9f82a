// The performance data of monitoring plugins, by their convention:
//
//   TEXT | 'label'=value[UOM];[warn];[crit];[min];[max] ...
//   LONG TEXT
//   LONG TEXT | more of it, up to the end
//
// Pairs stand between blanks. A label is in quotes when it holds a blank, "=" or a quote, which is doubled then. A pair
// that is not so, or has no number ("U"), is passed over, as is one with a label of more than 63 bytes or with control
// characters in it. A range that is none, or has more than 31 bytes, is left out.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "items/command.h"
#include "ominspect/client/types.h"

namespace ominspect::items {

// What an output says behind its bars, in one piece. When the output was cut, without what may have been cut with it.
std::string PerfDataOf(std::string_view output);

// The pairs in their order, at most 64.
std::vector<client::PerfValue> ParsePerfData(std::string_view data);

// What a run has measured: nothing unless it ended by itself.
std::vector<client::PerfValue> MeasuredBy(const CommandOutcome& outcome);

// As the event of include/ominspect/perfdata.h.
std::string EncodePerfData(const std::string& item, const std::vector<client::PerfValue>& values);

}  // namespace ominspect::items
