// Shows a group run as it goes on: a redrawn table on a terminal, lines in a pipe, nothing before the end in JSON.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/live_lines.h"
#include "group_progress.h"
#include "ominspect/client/error.h"
#include "ominspect/client/group.h"

namespace ominspect::ctl {

// The functions may be called from any thread. Finish is called once, and last.
class GroupDisplay {
public:
    // `onBroken` is called, perhaps more than once, when the output cannot be written any more.
    GroupDisplay(const std::vector<std::string>& items, bool json, std::function<void()> onBroken);
    ~GroupDisplay();
    GroupDisplay(const GroupDisplay&) = delete;
    GroupDisplay& operator=(const GroupDisplay&) = delete;

    void OnStart(std::uint32_t taskId, std::size_t first, std::size_t count);
    void OnRun(const client::ItemResult& result);
    void OnRecord(const client::GroupRecord& record);

    // Says something beside the progress.
    void Say(const std::string& text);

    // Shows the end of the run, with the error that ended it early, if any. Whether all items passed.
    bool Finish(const std::optional<client::Error>& error);

private:
    enum class Mode { kTerminal, kLines, kJson };

    static Mode ModeOf(bool json);
    void RedrawWhileItRuns(const std::stop_token& over);
    void Redraw(const std::vector<std::size_t>& rows);
    void PrintAll();

    void Print(const std::string& line);
    void CheckOutput() const;

    const Mode mode_;
    const std::function<void()> onBroken_;
    std::mutex mutex_;  // guards everything below
    LiveLines screen_{stdout};
    GroupProgress progress_;
    std::string title_;  // of the group that began last; empty before the first
    bool finished_ = false;
    std::condition_variable_any over_;
    std::jthread ticker_;  // draws on a terminal
};

}  // namespace ominspect::ctl
