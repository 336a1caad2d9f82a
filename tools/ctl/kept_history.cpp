// Opened for each command: the file may come and go with the gateway.
#include "kept_history.h"

#include <cstdlib>
#include <utility>

#include "common/text.h"

namespace ominspect::ctl {

std::string PathOfKeptHistory() {
    const char* path = std::getenv("OMINSPECT_HISTORY");
    return path == nullptr || *path == '\0' ? history::kDefaultPath : path;
}

KeptHistory::KeptHistory() {
    auto reader = history::Reader::Open(PathOfKeptHistory());
    const auto bus = reader ? (*reader)->Bus() : reader.Failure();
    if (bus && *bus == history::BusName(std::getenv("KIVO_BUS_ADDRESS"))) {
        reader_ = std::move(*reader);
    }
}

std::optional<LastResult> KeptHistory::Find(const std::string& item) const {
    const auto row = reader_ ? reader_->LastResult(text::ToUtf8(item)) : std::optional<history::Row>();
    if (!row || !*row) {
        return std::nullopt;
    }
    return LastResult{(*row)->status, (*row)->text, (*row)->time};
}

}  // namespace ominspect::ctl
