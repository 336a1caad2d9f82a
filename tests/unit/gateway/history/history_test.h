// What the tests of the history share: events, and a file of its own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/history_file.h"
#include "history/store.h"
#include "support/own_root.h"
#include "support/small_disk.h"
#include "support/temp_folder.h"

namespace support {

inline ominspect::gateway::Event ResultOf(std::uint64_t seq, const std::string& item, const std::string& status,
                                          const std::string& text = "") {
    ominspect::gateway::Event event;
    event.kind = ominspect::gateway::EventKind::kResult;
    event.seq = seq;
    event.time = ominspect::TimePoint(std::chrono::seconds(1000000 + seq));
    event.item = item;
    event.status = status;
    event.text = text;
    return event;
}

inline std::unique_ptr<ominspect::gateway::Store> OpenStore(const std::string& path) {
    bool setAside = false;
    auto store = ominspect::gateway::Store::Open(path, "system", setAside);
    EXPECT_TRUE(store) << store.Failure().text;
    EXPECT_FALSE(setAside);
    return store ? std::move(*store) : nullptr;
}

inline std::vector<ominspect::history::Row> RowsOf(const std::string& path,
                                                   const ominspect::history::Filter& filter = {}) {
    auto reader = ominspect::history::Reader::Open(path);
    EXPECT_TRUE(reader) << reader.Failure().text;
    auto rows = reader ? (*reader)->Find(filter) : reader.Failure();
    EXPECT_TRUE(rows) << rows.Failure().text;
    return rows ? *rows : std::vector<ominspect::history::Row>();
}

inline std::vector<std::uint64_t> SeqsOf(const std::string& path, const ominspect::history::Filter& filter = {}) {
    std::vector<std::uint64_t> seqs;
    for (const auto& row : RowsOf(path, filter)) {
        seqs.push_back(row.seq);
    }
    return seqs;
}

}  // namespace support
