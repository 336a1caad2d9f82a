// What ominspect-gateway has kept, where it runs: everybody's results, beside those that one's own commands have seen.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "common/history_file.h"
#include "history.h"

namespace ominspect::ctl {

// The file's place: OMINSPECT_HISTORY, else the gateway's own.
std::string PathOfKeptHistory();

class KeptHistory {
public:
    // Of the bus at KIVO_BUS_ADDRESS. A file that is not there, cannot be read or is of another bus counts as empty.
    KeptHistory();

    std::optional<LastResult> Find(const std::string& item) const;

private:
    std::unique_ptr<history::Reader> reader_;  // null: there is none
};

}  // namespace ominspect::ctl
