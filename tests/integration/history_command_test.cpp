// The command history, and the list beside it: what the gateway has kept, here by its own writer, but without it.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "history/store.h"
#include "programs.h"

namespace support {
namespace {

using ominspect::TimePoint;
using ominspect::gateway::Event;
using ominspect::gateway::EventKind;
using ominspect::gateway::Store;

class HistoryCommand : public Programs {
protected:
    // 2001-09-09 01:46:40 UTC
    static constexpr TimePoint kTime{std::chrono::seconds(1000000000)};

    static Event Result(const char* item, const char* status, const char* text, TimePoint time) {
        Event event;
        event.kind = EventKind::kResult;
        event.item = item;
        event.status = status;
        event.text = text;
        event.time = time;
        return event;
    }

    static Event Change(EventKind kind, const char* status, TimePoint time) {
        Event event;
        event.kind = kind;
        event.status = status;
        event.time = time;
        return event;
    }

    // One event of each kind, a minute apart.
    static std::vector<Event> OneOfEach() {
        using std::chrono::minutes;
        Event load = Result("load", "success", "LOAD\nOK", kTime + minutes(1));
        load.begin = kTime;
        load.duration = std::chrono::milliseconds(1500);
        load.cause = "help\ndesk";
        Event gap = Change(EventKind::kGap, "", kTime + minutes(4));
        gap.begin = kTime + minutes(3);
        gap.text = "the gateway did not run";
        return {Change(EventKind::kServer, "up", kTime), load, Change(EventKind::kBusy, "busy", kTime + minutes(2)),
                gap, Result("disk", "fail", "no support", kTime + minutes(5))};
    }

    // The events are numbered from 1.
    void Keep(std::vector<Event> events, const std::string& bus) const {
        bool isSetAside = false;
        const auto store = Store::Open(File(), bus, isSetAside);
        ASSERT_TRUE(store) << store.Failure().text;
        for (std::uint64_t seq = 0; Event & event : events) {
            event.seq = ++seq;
        }
        const auto error = (*store)->Write(events, kTime);
        ASSERT_FALSE(error) << error->text;
    }

    // With the file as the gateway's, in the time zone of UTC.
    Outcome Ask(const std::vector<std::string>& arguments) const {
        return support::Run(CommandLine(arguments), {"OMINSPECT_HISTORY=" + File(), "TZ=UTC0"});
    }

    std::string File() const { return Folder() + "/history.db"; }
};

TEST_F(HistoryCommand, ShowsEveryKindOfEventNewestFirst) {
    Keep(OneOfEach(), "any bus");
    const Outcome all = Ask({"history"});
    EXPECT_EQ(all.exitCode, 0);
    EXPECT_EQ(
        all.output,
        "TIME              ITEM  STATUS   TIME TAKEN  TEXT\n"
        "2001-09-09 01:51  disk  fail     -           no support\n"
        "2001-09-09 01:50  -     gap      -           not observed from 2001-09-09 01:49: the gateway did not run\n"
        "2001-09-09 01:48  -     busy     -           \n"
        "2001-09-09 01:47  load  success  1500 ms     LOAD\\nOK (help\\ndesk)\n"
        "2001-09-09 01:46  -     up       -           the server\n");
    EXPECT_EQ(Ask({"history", "--json", "--limit", "2"}).output,
              R"({"events":[{"seq":5,"time":"2001-09-09T01:51:40.000Z","kind":"result","item":"disk",)"
              R"("status":"fail","text":"no support"},{"seq":4,"time":"2001-09-09T01:50:40.000Z","kind":"gap",)"
              R"("text":"the gateway did not run","begin":"2001-09-09T01:49:40.000Z"}]})"
              "\n");
}

TEST_F(HistoryCommand, ShowsOnlyWhatIsAskedFor) {
    Keep(OneOfEach(), "any bus");
    const std::string heads = "TIME              ITEM  STATUS   TIME TAKEN  TEXT\n";
    const std::string load = "2001-09-09 01:47  load  success  1500 ms     LOAD\\nOK (help\\ndesk)\n";
    EXPECT_EQ(Ask({"history", "--status", "success"}).output, heads + load);
    EXPECT_EQ(Ask({"history", "--since", "2001-09-09 01:47", "--until", "2001-09-09 01:48"}).output, heads + load);
    EXPECT_EQ(Ask({"history", "--since", "2001-09-09 01:51"}).output,
              "TIME              ITEM  STATUS  TIME TAKEN  TEXT\n"
              "2001-09-09 01:51  disk  fail    -           no support\n");
    EXPECT_EQ(Ask({"history", "--since", "1h"}).output, "TIME  ITEM  STATUS  TIME TAKEN  TEXT\n");
    // One item's runs, and what concerns all items: gaps and the server.
    const std::string ofLoad = Ask({"history", "load"}).output;
    EXPECT_EQ(CountOf(ofLoad, "\n"), 4U) << ofLoad;
    EXPECT_TRUE(Holds(ofLoad, "  gap  ") && Holds(ofLoad, load) && Holds(ofLoad, "  the server\n")) << ofLoad;
}

TEST_F(HistoryCommand, SaysWhatIsWrong) {
    const Outcome none = Ask({"history", "--json"});
    EXPECT_EQ(none.exitCode, 3);
    EXPECT_TRUE(none.output.starts_with(R"({"error":{"code":)")) << none.output;
    EXPECT_TRUE(Holds(none.output, "\nominspectctl: cannot read the history " + File() + ": ")) << none.output;
    EXPECT_TRUE(none.output.ends_with("; ominspect-gateway keeps it, and the group ominspect may read it\n"));

    Keep(OneOfEach(), "any bus");
    for (const char* option : {"--since", "--until"}) {
        const Outcome soon = Ask({"history", option, "soon"});
        EXPECT_EQ(soon.exitCode, 2) << option;
        EXPECT_EQ(
            soon.output,
            "ominspectctl: a time is an age such as \"2h\", or \"2026-01-31 12:34\", or \"2026-01-31T12:34:56Z\"\n");
    }
    EXPECT_EQ(Ask({"history", "--limit", "0"}).exitCode, 2);
    const Outcome unset = support::Run(CommandLine({"history"}), {"OMINSPECT_HISTORY="});
    EXPECT_FALSE(Holds(unset.output, "cannot read the history : ")) << unset.output;
    // Another file than the one that the environment names.
    EXPECT_EQ(Ask({"history", "--file", Folder() + "/other.db"}).exitCode, 3);
    EXPECT_EQ(Ctl({"history", "--file", File()}).exitCode, 0);
}

// What this user's commands have seen, and what the gateway has: the newer one of both.
TEST_F(HistoryCommand, TheListShowsTheNewestResultThatAnybodySaw) {
    const Child server = StartServer();
    const Child owner = StartShippedOwner();
    ASSERT_EQ(Ctl({"run", "always_ok", "say_argument", "--cmd", "mine"}).exitCode, 0);
    const TimePoint hence = std::chrono::system_clock::now() + std::chrono::hours(1);
    const std::vector<Event> kept{Result("always_ok", "fail", "kept before", kTime),
                                  Result("say_argument", "warn", "kept since", hence),
                                  Result("long_run", "fail", "kept only", kTime)};
    Keep(kept, bus_.Address());
    const std::string list = Ask({"list"}).output;
    EXPECT_TRUE(Holds(list, " s ago: fine\n")) << list;
    EXPECT_TRUE(Holds(list, "  warn, 0 s ago: kept since\n")) << list;
    EXPECT_TRUE(Holds(list, " d ago: kept only\n")) << list;
    EXPECT_FALSE(Holds(list, "kept before")) << list;

    Keep(kept, "unix:path=/another");
    const std::string other = Ask({"list"}).output;
    EXPECT_TRUE(Holds(other, " s ago: mine\n")) << other;
    EXPECT_FALSE(Holds(other, "kept")) << "what was seen on another bus\n" << other;
}

}  // namespace
}  // namespace support
