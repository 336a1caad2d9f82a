// The manifest's text, and when a collection counts as complete.
#include <gtest/gtest.h>

#include "collect/package.h"

using namespace ominspect::collect;

namespace {

Collection OneEntry(Outcome outcome) {
    Collection collection;
    collection.version = "1.2.3";
    collection.host = "room\n1";
    collection.file = "p.tar.zst";
    collection.area = "/area";
    collection.configuration = "c.xml";
    collection.started = std::chrono::system_clock::from_time_t(0);
    collection.collected = std::chrono::system_clock::from_time_t(86399);
    EntryReport report;
    report.entry = {"/logs/\xff\\", "/area/a", 25, InspectCopyDirFile};
    report.outcome = outcome;
    report.limit = std::chrono::seconds(20);  // that held
    report.files = 2;
    report.bytes = 5000000000;
    report.duration = std::chrono::milliseconds(1500);
    collection.entries.push_back(report);
    return collection;
}

PackedFile File(const std::string& path, const std::string& note) {
    PackedFile file;
    file.path = path;
    file.bytes = 3;
    file.sha256 = "00ff";
    file.modified.tv_sec = 1;
    file.note = note;
    return file;
}

TEST(PackageTest, ManifestHoldsEverythingEscaped) {
    Collection collection = OneEntry(Outcome::kCutShort);
    collection.messages = {"a message"};
    collection.entries[0].remark = "why";
    collection.entries[0].failures.Add({"/logs/x", "Permission denied"});
    collection.entries[0].messages.Add("a line");
    PackedTree packed;
    packed.files.push_back(File("a/\xff\n", "it shrank"));
    packed.files.back().older = true;
    packed.files.back().masked = 2;
    collection.vendor.result = -3;
    collection.vendor.remark = "why not";
    collection.vendor.messages.Add("said");
    packed.links.push_back({"a/link", "/target"});
    packed.leftOut.push_back({"a/pipe", "a pipe"});
    EXPECT_EQ(ManifestText(collection, packed), R"({
	"format":	1,
	"tool":	"ominspectctl",
	"version":	"1.2.3",
	"host":	"room\\n1",
	"file":	"p.tar.zst",
	"started":	"1970-01-01T00:00:00Z",
	"collected":	"1970-01-01T23:59:59Z",
	"complete":	false,
	"interrupted":	false,
	"redacted":	false,
	"configuration":	"c.xml",
	"messages":	["a message"],
	"area":	"/area",
	"vendor":	{
		"result":	"-3",
		"remark":	"why not",
		"messageCount":	1,
		"messages":	["said"]
	},
	"entries":	[{
			"source":	"/logs/\\xff\\\\",
			"destination":	"a",
			"kind":	"folder",
			"timeLimitSeconds":	20,
			"outcome":	"cut short",
			"cutShort":	true,
			"remark":	"why",
			"files":	2,
			"bytes":	5000000000,
			"durationMs":	1500,
			"failureCount":	1,
			"failures":	[{
					"path":	"/logs/x",
					"reason":	"Permission denied"
				}],
			"messageCount":	1,
			"messages":	["a line"]
		}],
	"files":	[{
			"path":	"a/\\xff\\n",
			"bytes":	3,
			"sha256":	"00ff",
			"modified":	"1970-01-01T00:00:01Z",
			"masked":	2,
			"fromBefore":	true,
			"note":	"it shrank"
		}],
	"links":	[{
			"path":	"a/link",
			"target":	"/target"
		}],
	"leftOut":	[{
			"path":	"a/pipe",
			"reason":	"a pipe"
		}]
})");
}

TEST(PackageTest, IsCompleteOnlyWhenNothingIsMissing) {
    const PackedTree packed{{File("a", "")}, {}, {}, 0, 3};
    EXPECT_TRUE(IsComplete(OneEntry(Outcome::kComplete), packed));
    for (const Outcome outcome : {Outcome::kIncomplete, Outcome::kCutShort, Outcome::kInterrupted, Outcome::kMissing,
                                  Outcome::kRefused, Outcome::kFailed, Outcome::kNotStarted}) {
        EXPECT_FALSE(IsComplete(OneEntry(outcome), packed)) << OutcomeWord(outcome);
    }
    Collection collection = OneEntry(Outcome::kComplete);
    EXPECT_FALSE(IsComplete(collection, PackedTree{{File("a", "it grew")}, {}, {}, 0, 3}));
    EXPECT_FALSE(IsComplete(collection, PackedTree{{}, {}, {{"a", "a pipe"}}, 0, 0}));
    collection.interrupted = true;
    EXPECT_FALSE(IsComplete(collection, packed));
    collection = OneEntry(Outcome::kComplete);
    collection.entries.clear();
    EXPECT_FALSE(IsComplete(collection, packed));
}

TEST(PackageTest, ManifestKeepsTheFirstThousandFailuresAndCountsTheRest) {
    FirstOf<int> numbers;
    for (int i = 0; i < 1001; ++i) {
        numbers.Add(i);
    }
    EXPECT_EQ(numbers.list.size(), 1000U);
    EXPECT_EQ(numbers.list.back(), 999);
    EXPECT_EQ(numbers.count, 1001U);
}

}  // namespace
