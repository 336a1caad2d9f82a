// Runs one of the server's roads again and again, for valgrind to count its instructions (scripts/guard.sh).
//
//     road_run         the names of the roads
//     road_run NAME    runs one; prints how many passes were counted
//
// Only what runs inside CountedPass counts, and there only what the fake platform does not do: callgrind is told to
// begin, or to stop, wherever one of certain functions is entered, until it is left. It would also begin in those of
// the platform outside CountedPass, so it looks at batches only.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "bench.h"
#include "client_roads.h"
#include "fake/fake.h"
#include "server_log.h"
#include "server_roads.h"
#include "support/temp_folder.h"

namespace {

using bench::Road;

constexpr std::size_t kItems = 256;
constexpr std::size_t kFewItems = 32;
constexpr std::size_t kManyItems = 10000;
constexpr std::size_t kBatches = 8;

struct Entry {
    std::string name;
    std::function<Road()> make;
};

// One of a list, by the words that its name begins with.
Road Pick(const std::vector<Road>& roads, const std::string& words) {
    for (const Road& road : roads) {
        if (road.name.rfind(words, 0) == 0) {
            return road;
        }
    }
    bench::Check(false, words.c_str());
    return {};
}

Entry MessageEntry(const std::string& id) {
    return {"message-" + id, [id] {
                bench::StartServer(kItems);
                return Pick(bench::MessageRoads(), id + ' ');
            }};
}

// The job belongs to the road: it ends before the next pass.
Entry JobEntry() {
    Entry entry = MessageEntry("18");
    entry.make = [make = entry.make] {
        Road road = make();
        road.pass = [pass = road.pass](std::size_t i) {
            pass(i);
            kivo::fake::Settle();
        };
        return road;
    };
    return entry;
}

Entry TableEntry(const char* name, const char* words, std::size_t items) {
    return {std::string(name) + '-' + std::to_string(items), [words, items] {
                bench::StartServer(items);
                return Pick(bench::TableRoads(items), words);
            }};
}

Entry ListEntry(const char* name, std::vector<Road> (*roads)(), const char* words) {
    return {name, [roads, words] { return Pick(roads(), words); }};
}

// One line, from the server's text to the file.
Road LogRoad() {
    bench::OpenServerLog(".");
    Road road;
    road.pass = [](std::size_t /*i*/) {
        constexpr LogUnit kLogUnit{"inspect_server", 18};
        INSPECT_INFO("inspect server recv msg id %u from [%s:%s]", 7U, "ominspectctl_1", "main_task");
    };
    return road;
}

std::vector<Entry> Entries() {
    std::vector<Entry> entries;
    for (const char* id : {"0", "2", "3", "5", "7", "10", "19", "38"}) {
        entries.push_back(MessageEntry(id));
    }
    entries.push_back(JobEntry());
    entries.push_back(TableEntry("table-read", "read", kFewItems));
    entries.push_back(TableEntry("table-read", "read", kItems));
    entries.push_back(TableEntry("table-read", "read", kManyItems));
    entries.push_back(TableEntry("table-set", "set", kItems));
    entries.push_back(ListEntry("json-short", bench::JsonRoads, "a short"));
    entries.push_back(ListEntry("json-members", bench::JsonRoads, "64"));
    entries.push_back({"log-line", LogRoad});
    entries.push_back(ListEntry("wire-encode", bench::ClientRoads, "encode"));
    entries.push_back(ListEntry("wire-decode", bench::ClientRoads, "decode"));
    return entries;
}

}  // namespace

// Its name is what callgrind is told.
extern "C" [[gnu::noinline]] void CountedPass(const Road& road, std::size_t i) {
    road.pass(i);
    asm volatile("" ::: "memory");  // no jump in the place of the call: it would end this function early
}

namespace {

// Batches: one that is not counted, for what is set up at first use, and then those that are. How many passes.
std::size_t RunCounted(const Road& road) {
    road.before();
    for (std::size_t i = 0; i < road.batch; ++i) {
        road.pass(i);
    }
    road.after();
    for (std::size_t batch = 0; batch < kBatches; ++batch) {
        road.before();
        CALLGRIND_START_INSTRUMENTATION;
        for (std::size_t i = 0; i < road.batch; ++i) {
            CountedPass(road, i);
        }
        CALLGRIND_STOP_INSTRUMENTATION;
        road.after();
    }
    return kBatches * road.batch;
}

int Run(int argc, char** argv) {
    const std::vector<Entry> entries = Entries();
    if (argc == 1) {
        for (const Entry& entry : entries) {
            std::puts(entry.name.c_str());
        }
        return 0;
    }
    const support::WorkingFolder work;  // the server looks for its files there
    for (const Entry& entry : entries) {
        if (entry.name == argv[1]) {
            std::printf("%zu\n", RunCounted(entry.make()));
            return 0;
        }
    }
    bench::Check(false, "finding the road");
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::RunMain(Run, argc, argv);
}
