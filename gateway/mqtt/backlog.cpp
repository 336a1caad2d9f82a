// Each event comes from memory where it is there: so a terminal whose history is off, or fails, still tells what
// happens.
#include "mqtt/backlog.h"

#include <algorithm>

namespace ominspect::gateway::mqtt {
namespace {

constexpr std::size_t kMostRecent = 128;

}  // namespace

void Backlog::Tell(const Event& event) {
    const auto kind = StoredKind(event.kind);
    if (!kind) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (recent_.empty() && before_ == 0) {
        before_ = event.seq - 1;
    }
    recent_.push_back(
        {event.seq, event.time, *kind, event.item, event.status, event.text, event.begin, event.duration, event.cause});
    if (recent_.size() > kMostRecent) {
        before_ = recent_.front().seq;
        recent_.pop_front();
    }
}

std::vector<history::Row> Backlog::Recent(std::uint64_t seq, std::size_t limit) {
    std::vector<history::Row> rows;
    for (const history::Row& row : recent_) {
        if (row.seq > seq && rows.size() < limit) {
            rows.push_back(row);
        }
    }
    return rows;
}

std::vector<history::Row> Backlog::Kept(std::uint64_t seq, std::size_t limit) {
    if (path_.empty()) {
        return {};
    }
    if (!reader_) {
        auto reader = history::Reader::Open(path_);
        if (!reader) {
            return {};  // the part "history" tells why
        }
        reader_ = std::move(*reader);
    }
    history::Filter filter;
    filter.after = seq;
    filter.isOldestFirst = true;
    filter.limit = limit;
    auto rows = reader_->Find(filter);
    if (!rows || rows->size() < limit) {
        reader_.reset();
    }
    return rows ? std::move(*rows) : std::vector<history::Row>();
}

std::vector<history::Row> Backlog::After(std::uint64_t seq, std::size_t limit) {
    {
        const std::lock_guard lock(mutex_);
        if (before_ > 0 && seq >= before_) {
            return Recent(seq, limit);
        }
    }
    auto rows = Kept(seq, limit);
    // What could not be kept may be in memory all the same.
    std::vector<history::Row> recent;
    {
        const std::lock_guard lock(mutex_);
        recent = Recent(seq, limit);
    }
    const bool isMore = rows.size() == limit;
    for (history::Row& row : recent) {
        const auto at =
            std::lower_bound(rows.begin(), rows.end(), row.seq,
                             [](const history::Row& one, std::uint64_t number) { return one.seq < number; });
        if (at == rows.end() ? !isMore : at->seq != row.seq) {
            rows.insert(at, std::move(row));
        }
    }
    rows.resize(std::min(rows.size(), limit));
    return rows;
}

}  // namespace ominspect::gateway::mqtt
