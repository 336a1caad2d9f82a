// The command collect as people run it.
#include <algorithm>
#include <array>
#include <csignal>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/json.h"
#include "support/archive_reader.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/process_state.h"
#include "support/temp_folder.h"

using support::Child;
using support::Contents;
using support::Listing;
using support::Member;
using support::MemberOf;
using support::ReadArchive;
using support::WriteFile;
using Lines = std::vector<std::string>;

namespace {

namespace json = ominspect::json;

std::string TextAt(json::View object, const char* name) {
    return object[name].Text().value_or("(none)");
}

std::uint64_t NumberAt(json::View object, const char* name) {
    return static_cast<std::uint64_t>(object[name].Number().value_or(-1));
}

std::string Sha256(const std::string& data) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> sum{};
    (void)SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), sum.data());
    std::string hex;
    for (const unsigned byte : sum) {
        hex += "0123456789abcdef"[byte / 16];
        hex += "0123456789abcdef"[byte % 16];
    }
    return hex;
}

class CollectProgram : public testing::Test {
protected:
    // Its output goes to the files "out" and "err".
    static Child Start(const Lines& arguments, const std::string& before = "") {
        Lines command{"/bin/sh", "-c", before + R"( exec "$0" "$@" >out 2>err)", PROGRAM_CTL, "collect"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return Child(command);
    }

    static int Run(const Lines& arguments, const std::string& before = "") {
        return Start(arguments, before).Wait().value_or(-1);
    }

    // The clock of the file system ticks a few hundred times a second: until what is written has another time.
    static void AwaitNextTick(const std::string& name) {
        const auto changed = [](const std::string& file) {
            struct stat status {};
            EXPECT_EQ(stat(file.c_str(), &status), 0);
            return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
        };
        EXPECT_TRUE(support::Eventually([&] {
            WriteFile("tick", "");
            return changed("tick") != changed(name);
        }));
    }

    static json::Value Manifest(const std::vector<Member>& members, const std::string& name) {
        const Member member = MemberOf(members, name + "/manifest.json");
        auto manifest = json::Value::Parse(member.content);
        EXPECT_TRUE(manifest) << member.content;
        return manifest ? std::move(*manifest) : json::Value::Object();
    }

    // Whether the manifest names exactly the files of the package, with their sizes and sums.
    static void CheckSums(const std::vector<Member>& members, json::View manifest, const std::string& name) {
        std::map<std::string, std::string> sums;
        for (const auto& [none, file] : manifest["files"].Members()) {
            sums[TextAt(file, "path")] = TextAt(file, "sha256") + ' ' + std::to_string(NumberAt(file, "bytes"));
        }
        std::map<std::string, std::string> found;
        const std::string folder = name + "/files/";
        for (const Member& member : members) {
            if (member.type != '-' || !member.name.starts_with(folder)) {
                continue;
            }
            found[member.name.substr(folder.size())] =
                Sha256(member.content) + ' ' + std::to_string(member.content.size());
        }
        EXPECT_EQ(sums, found);
    }

    // "source below the work folder: outcome", in order
    Lines Outcomes(json::View manifest) const {
        Lines lines;
        for (const auto& [none, entry] : manifest["entries"].Members()) {
            lines.push_back(TextAt(entry, "source").substr(work_.Path().string().size() + 1) + ": " +
                            TextAt(entry, "outcome"));
        }
        return lines;
    }

    // What is in the work folder, sorted.
    Lines Names() const {
        Lines names;
        for (const auto& entry : std::filesystem::directory_iterator(work_.Path())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static void WriteMany(const std::string& folder, int count) {
        for (int i = 0; i < count; ++i) {
            WriteFile(folder + '/' + std::to_string(i), "content " + std::to_string(i));
        }
    }

    const support::WorkingFolder work_;
};

// Shell code. The address sanitizer does not mind a library before its own then.
std::string Preloaded(const std::string& library) {
    return "ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS LD_PRELOAD=" + library +
           "; export ASAN_OPTIONS LD_PRELOAD;";
}

const std::string kSlowDisk = Preloaded(SLOW_DISK);

bool Holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(CollectProgram, PacksNamedSourcesWithTheirManifest) {
    WriteFile("logs/a.log", "first");
    WriteFile("logs/sub/b.log", "second");
    WriteFile("one.log", "third");
    EXPECT_EQ(Run({"logs", "one.log", "--output", "p.tar.zst"}), 0) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(Listing(members),
              (Lines{"d p/", "d p/files/", "d p/files/logs/", "- p/files/logs/a.log", "d p/files/logs/sub/",
                     "- p/files/logs/sub/b.log", "- p/files/one.log", "- p/manifest.json"}));
    EXPECT_EQ(MemberOf(members, "p/files/logs/sub/b.log").content, "second");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(NumberAt(manifest, "format"), 1U);
    EXPECT_EQ(TextAt(manifest, "tool"), "ominspectctl");
    EXPECT_EQ(TextAt(manifest, "version"), "0.1.0");
    EXPECT_EQ(TextAt(manifest, "file"), "p.tar.zst");
    EXPECT_EQ(TextAt(manifest, "started").size(), std::string("2026-11-21T01:02:03Z").size());
    EXPECT_EQ(manifest["complete"].Flag(), true);
    EXPECT_EQ(manifest["interrupted"].Flag(), false);
    EXPECT_EQ(Outcomes(manifest), (Lines{"logs: complete", "one.log: complete"}));
    const json::View first = manifest["entries"].At(0);
    EXPECT_EQ(TextAt(first, "kind"), "folder");
    EXPECT_EQ(NumberAt(first, "files"), 2U);
    EXPECT_EQ(NumberAt(first, "bytes"), 11U);
    EXPECT_EQ(NumberAt(first, "timeLimitSeconds"), 5U);
    struct stat status {};
    ASSERT_EQ(stat("p.tar.zst", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_TRUE(Holds(Contents("out"), "complete\npackage: p.tar.zst, ")) << Contents("out");
    EXPECT_TRUE(Holds(Contents("err"), "[1/2] " + work_ / "logs" + ": 2 files, 11 B, ")) << Contents("err");
}

TEST_F(CollectProgram, AnotherToolUnpacksWhatTheManifestSays) {
    WriteFile("logs/a.log", "first");
    WriteFile("logs/bad\xff", "second");
    ASSERT_EQ(Run({"logs", "--output", "p.tar.zst"}), 0);
    ASSERT_EQ(support::Run({"bsdtar", "-xf", "p.tar.zst"}).exitCode, 0);
    EXPECT_EQ(Contents("p/files/logs/a.log"), "first");
    EXPECT_EQ(Contents("p/files/logs/bad\xff"), "second");
    EXPECT_TRUE(Holds(Contents("p/manifest.json"), R"("path":	"logs/bad\\xff")"));
}

TEST_F(CollectProgram, JsonPrintsTheManifestThatIsInThePackage) {
    WriteFile("one", "x");
    ASSERT_EQ(Run({"one", "--output", "p.tar.zst", "--json"}), 0);
    EXPECT_EQ(Contents("out"), MemberOf(ReadArchive("p.tar.zst"), "p/manifest.json").content);
    EXPECT_TRUE(Holds(Contents("err"), "package: p.tar.zst, "));
}

TEST_F(CollectProgram, NamesThePackageByHostAndTime) {
    WriteFile("one", "x");
    ASSERT_EQ(Run({"one"}), 0);
    const Lines names = Names();
    ASSERT_EQ(names.size(), 4U);  // err, ominspect-..., one, out
    EXPECT_TRUE(names[1].starts_with("ominspect-") && names[1].ends_with("Z.tar.zst")) << names[1];
}

TEST_F(CollectProgram, ReportsAMissingSourceAndPacksTheOthers) {
    WriteFile("logs/a", "x");
    EXPECT_EQ(Run({"nowhere", "logs", "--output", "p.tar.zst"}), 1);
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/logs/a").content, "x");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    EXPECT_EQ(Outcomes(manifest), (Lines{"nowhere: missing", "logs: complete"}));
    EXPECT_EQ(manifest["complete"].Flag(), false);
    EXPECT_TRUE(Holds(Contents("out"), "missing: the source does not exist"));
}

TEST_F(CollectProgram, TakesTheEntriesOfAConfigurationFile) {
    WriteFile("logs/a", "x");
    WriteFile("precious/file", "x");
    WriteFile("c.xml", "<c><LogCollect><Log srcPath='logs' dstPath='" + work_ / "area/l" +
                           "' timeout='5' isFolder='true'/><Log srcPath='logs' dstPath='" + work_ / "precious" +
                           "' timeout='5' isFolder='true'/></LogCollect></c>");
    WriteFile("area/from-before", "old");
    AwaitNextTick("area/from-before");
    EXPECT_EQ(Run({"--config", "c.xml", "--area", "area", "--output", "p.tar.zst"}), 1);
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(Listing(members), (Lines{"d p/", "d p/files/", "- p/files/from-before", "d p/files/l/", "- p/files/l/a",
                                       "- p/manifest.json"}));
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    const json::View refused = manifest["entries"].At(1);
    EXPECT_EQ(TextAt(refused, "outcome"), "refused");
    EXPECT_EQ(TextAt(refused, "remark"),
              "the destination " + work_ / "precious" + " is outside the area " + work_ / "area");
    EXPECT_EQ(Contents("precious/file"), "x");
    EXPECT_EQ(manifest["files"].At(0)["fromBefore"].Flag(), true);
    EXPECT_FALSE(manifest["files"].At(1)["fromBefore"]);
}

TEST_F(CollectProgram, WithoutEntriesSaysSoAndStillPacksTheArea) {
    WriteFile("c.xml", "<c/>");
    EXPECT_EQ(Run({"--config", "c.xml", "--area", "area", "--output", "p.tar.zst"}), 1);
    EXPECT_EQ(Contents("err"),
              "ominspectctl: no entries are configured\nominspectctl: there is no [LogCollect] in config.\n");
    EXPECT_EQ(Listing(ReadArchive("p.tar.zst")), (Lines{"d p/", "d p/files/", "- p/manifest.json"}));
}

TEST_F(CollectProgram, AnswersWrongUseWithTwoAndWritesNothing) {
    WriteFile("one", "x");
    WriteFile("broken.xml", "<c>");
    WriteFile("empty.xml", "<!-- nothing -->");
    const Lines before = Names();
    const std::vector<std::pair<Lines, std::string>> cases{
        {{"--config", "missing.xml"}, "XML_ERROR_FILE_NOT_FOUND"},
        {{"--config", "broken.xml"}, "XML_ERROR"},
        {{"--config", "empty.xml"}, "empty.xml: there is no document element"},
        {{"--config", "/dev/zero"}, "/dev/zero: not a regular file"},
        {{"--config", "broken.xml", "one"}, ""},
        {{"one", "--timeout", "0"}, ""},
        {{"one", "--timeout", "61"}, ""},
        {{"--timeout", "5"}, ""},
        {{'/' + std::string(255, 'x')}, "the path is longer than 255 bytes: /xxx"},
        {{"one", "--output", "one"}, "ominspectctl: one exists; --force replaces it\n"},
        {{"one", "--output", work_.Path(), "--force"}, "Is a directory"},
    };
    for (const auto& [arguments, message] : cases) {
        EXPECT_EQ(Run(arguments), 2) << arguments.front();
        EXPECT_TRUE(Holds(Contents("err"), message)) << Contents("err");
        Lines after = Names();
        std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
        EXPECT_EQ(after, before);
    }
    EXPECT_EQ(Contents("one"), "x");
}

TEST_F(CollectProgram, ReplacesAPackageWhenAsked) {
    WriteFile("one", "x");
    WriteFile("p.tar.zst", "old");
    EXPECT_EQ(Run({"one", "--output", "p.tar.zst", "--force"}), 0);
    EXPECT_EQ(MemberOf(ReadArchive("p.tar.zst"), "p/files/one").content, "x");
}

TEST_F(CollectProgram, SaysWhereItCannotWrite) {
    WriteFile("one", "x");
    EXPECT_EQ(Run({"one", "--output", "missing/p.tar.zst"}), 1);
    EXPECT_EQ(Contents("err"), "ominspectctl: cannot write the package missing/p.tar.zst: No such file or directory\n");
    EXPECT_EQ(Run({"one", "--output", "/proc/p.tar.zst"}), 1);
    EXPECT_TRUE(Holds(Contents("err"), "cannot write the package /proc/p.tar.zst: "));
}

// Bytes that do not compress.
std::string Noise(std::size_t size) {
    std::string noise;
    for (unsigned number = 1; noise.size() < size;) {
        number = number * 1664525U + 1013904223U;
        noise += static_cast<char>(number >> 24U);
    }
    return noise;
}

// A limit on the size of files stands in for the full disk.
TEST_F(CollectProgram, AFullDiskLeavesNoHalfPackage) {
    const std::string noise = Noise(900000);
    WriteFile("logs/a", noise.substr(0, 450000));
    WriteFile("logs/b", noise.substr(450000));
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    const Lines before = Names();
    EXPECT_EQ(Run({"logs", "--output", "p.tar.zst"}, "TMPDIR=tmp; export TMPDIR; ulimit -f 1000;"), 1);
    EXPECT_TRUE(Holds(Contents("err"), "ominspectctl: cannot write the package p.tar.zst: File too large\n"))
        << Contents("err");
    Lines after = Names();
    std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
    EXPECT_EQ(after, before);
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(CollectProgram, CtrlCStopsAndStillLeavesAValidPackage) {
    WriteFile("first/a", "x");
    for (int i = 0; i < 1000; ++i) {
        WriteFile("second/slow" + std::to_string(i), "x");
    }
    WriteFile("third/c", "x");
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    Child child = Start({"first", "second", "third", "--timeout", "60", "--output", "p.tar.zst"},
                        "TMPDIR=" + work_ / "tmp" + "; export TMPDIR;" + kSlowDisk);
    const auto copying = [this] {
        std::error_code error;
        for (const auto& area : std::filesystem::directory_iterator(work_ / "tmp", error)) {
            if (std::filesystem::exists(area.path() / "second", error)) {
                return true;
            }
        }
        return false;
    };
    ASSERT_TRUE(support::Eventually(copying));
    child.Signal(SIGINT);
    EXPECT_EQ(child.Wait(), 1) << Contents("err");
    EXPECT_TRUE(Holds(Contents("err"), "[1/3] ")) << Contents("err");
    EXPECT_TRUE(Holds(Contents("err"), "interrupted; packing what is there")) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(Outcomes(manifest), (Lines{"first: complete", "second: interrupted", "third: not started"}));
    EXPECT_EQ(manifest["interrupted"].Flag(), true);
    EXPECT_EQ(manifest["complete"].Flag(), false);
    EXPECT_TRUE(std::filesystem::is_empty("tmp"));
}

TEST_F(CollectProgram, ASecondCtrlCGivesUpPackingAndLeavesNothing) {
    // Something that reaches the disk, then something that takes forever to pack.
    WriteFile("area/a", Noise(1000000));
    WriteFile("area/huge", "");
    std::filesystem::resize_file("area/huge", std::uintmax_t{1} << 42U);
    WriteFile("c.xml", "<c><LogCollect/></c>");
    const Lines before = Names();
    Child child = Start({"--config", "c.xml", "--area", "area", "--output", "p.tar.zst"});
    const auto packing = [this] {
        return std::ranges::any_of(std::filesystem::directory_iterator(work_.Path()), [](const auto& entry) {
            return entry.path().filename().string().starts_with("p.tar.zst.part-") && entry.file_size() > 0;
        });
    };
    ASSERT_TRUE(support::Eventually(packing));
    child.Signal(SIGINT);
    ASSERT_TRUE(support::Eventually([] { return Holds(Contents("err"), "Ctrl-C again gives up"); }));
    child.Signal(SIGINT);
    EXPECT_EQ(child.Wait(), 1);
    EXPECT_TRUE(Holds(Contents("err"), "cannot write the package p.tar.zst: given up"));
    Lines after = Names();
    std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
    EXPECT_EQ(after, before);
}

TEST_F(CollectProgram, TakesTheDevicesConfigurationByItself) {
    EXPECT_EQ(Run({"--area", "area", "--output", "p.tar.zst"}), 1);  // this machine has none, or it names another area
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    const json::View manifest = document.Read();
    EXPECT_EQ(TextAt(manifest, "configuration"), "the device's configuration file");
    EXPECT_EQ(TextAt(manifest, "area"), work_ / "area");
}

TEST_F(CollectProgram, ACopyThatHangsIsEndedAndTheRestGoesOn) {
    WriteMany("logs", 20);
    WriteFile("logs/hang", "never");
    WriteFile("later/a", "x");
    EXPECT_EQ(Run({"logs", "later", "--timeout", "1", "--output", "p.tar.zst"}, kSlowDisk), 1);
    const auto members = ReadArchive("p.tar.zst");
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(Outcomes(manifest), (Lines{"logs: cut short", "later: complete"}));
    const json::View entry = manifest["entries"].At(0);
    EXPECT_EQ(entry["cutShort"].Flag(), true);
    EXPECT_EQ(TextAt(entry, "remark"), "the time limit of 1 s ended it");
    EXPECT_EQ(NumberAt(entry, "timeLimitSeconds"), 1U);
    EXPECT_EQ(TextAt(entry["failures"].At(0), "path"), work_ / "logs/hang");
    EXPECT_EQ(TextAt(entry["failures"].At(0), "reason"), "its copy was ended in the middle");
    EXPECT_TRUE(Holds(Contents("out"), "cut short: the time limit of 1 s ended it"));
}

TEST_F(CollectProgram, TheTimeForAllEntriesEndsTheSlowOneAndLeavesTheOthersOut) {
    for (int i = 0; i < 1000; ++i) {
        WriteFile("logs/slow" + std::to_string(i), "x");
    }
    WriteFile("later/a", "x");
    EXPECT_EQ(Run({"logs", "later", "--timeout", "60", "--total-timeout", "1", "--output", "p.tar.zst"}, kSlowDisk), 1);
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    const json::View manifest = document.Read();
    EXPECT_EQ(Outcomes(manifest), (Lines{"logs: cut short", "later: not started"}));
    const json::View entry = manifest["entries"].At(0);
    EXPECT_EQ(TextAt(entry, "remark"), "the time limit for all entries of 1 s ended it");
    EXPECT_EQ(NumberAt(entry, "timeLimitSeconds"), 1U);
    EXPECT_LT(NumberAt(entry, "files"), 1000U);
}

TEST_F(CollectProgram, TakesWhatFitsAndWhatIsNotExcluded) {
    WriteFile("logs/a.log", std::string(900, 'x'));
    WriteFile("logs/sub/b.log", std::string(900, 'x'));
    WriteFile("logs/c.gz", "x");
    EXPECT_EQ(Run({"logs", "--max-size", "1K", "--exclude", "*.gz", "--exclude", "nothing", "--output", "p.tar.zst"}),
              1);
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    const json::View entry = document.Read()["entries"].At(0);
    EXPECT_EQ(NumberAt(entry, "files"), 1U);
    EXPECT_EQ(NumberAt(entry, "failureCount"), 1U);
    EXPECT_EQ(TextAt(entry["failures"].At(0), "reason"), "beyond the size limit");
    EXPECT_EQ(Run({"logs", "--exclude", "*", "--output", "q.tar.zst"}), 0);
    EXPECT_EQ(Run({"logs", "--max-size", "much"}), 2);
}

TEST_F(CollectProgram, ADryRunSaysWhatItWouldTakeAndWritesNothing) {
    WriteFile("logs/a", "12345");
    WriteFile("one", "x");
    const Lines before = Names();
    EXPECT_EQ(Run({"logs", "one", "--dry-run"}), 0) << Contents("err");
    EXPECT_TRUE(Holds(Contents("out"), "\nnothing was copied: 6 B in all, ")) << Contents("out");
    EXPECT_EQ(Run({"logs", "--dry-run", "--json"}), 0);
    const auto manifest = json::Value::Parse(Contents("out"));
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->Read()["dryRun"].Flag(), true);
    EXPECT_EQ(NumberAt(manifest->Read()["entries"].At(0), "bytes"), 5U);
    Lines after = Names();
    std::erase_if(after, [](const std::string& name) { return name == "out" || name == "err"; });
    EXPECT_EQ(after, before);
}

TEST_F(CollectProgram, LooksForRoomBeforeItCopies) {
    WriteFile("logs/huge", "");
    std::filesystem::resize_file("logs/huge", std::uintmax_t{1} << 43U);
    EXPECT_EQ(Run({"logs", "--area", "area", "--output", "p.tar.zst"}), 1);
    EXPECT_TRUE(
        Contents("err").starts_with("ominspectctl: not enough room in " + work_ / "area" + ": 8.0 TiB are needed"))
        << Contents("err");
    EXPECT_EQ(Names(), (Lines{"err", "logs", "out"}));
    EXPECT_EQ(Run({"logs", "--area", "area", "--output", "p.tar.zst", "--max-size", "1M"}), 1);
    EXPECT_EQ(MemberOf(ReadArchive("p.tar.zst"), "p/manifest.json").type, '-');
}

TEST_F(CollectProgram, ThePackageDoesNotGoIntoItself) {
    WriteFile("a", "x");
    ASSERT_EQ(mkdir("tmp", 0700), 0);
    std::filesystem::create_directory("work");
    std::filesystem::rename("a", "work/a");
    const std::string inWork = "TMPDIR=" + work_ / "tmp" + R"(; export TMPDIR; cd work;)";
    EXPECT_EQ(Run({".", "--output", "p.tar.zst"}, inWork), 0) << Contents("work/err");
    const auto listing = Listing(ReadArchive("work/p.tar.zst"));
    EXPECT_EQ(std::ranges::count_if(listing, [](const auto& name) { return Holds(name, "p.tar.zst"); }), 0);
    EXPECT_EQ(std::ranges::count(listing, "- p/files/work/a"), 1);
}

TEST_F(CollectProgram, MasksSecretsInTextsAndCountsThem) {
    WriteFile("logs/text", "password=abc\ntoken: def\nPIN 1234\n");
    WriteFile("logs/binary", std::string("password=abc\0", 13));
    WriteFile("patterns", "PIN (\\d+)\n");
    EXPECT_EQ(Run({"logs", "--redact-patterns", "patterns", "--output", "p.tar.zst"}), 0) << Contents("err");
    EXPECT_TRUE(Holds(Contents("err"), "ominspectctl: 3 secrets are masked\n")) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/logs/text").content, "password=***\ntoken: ***\nPIN ****\n");
    EXPECT_EQ(MemberOf(members, "p/files/logs/binary").content, std::string("password=abc\0", 13));
    const json::Value document = Manifest(members, "p");
    const json::View manifest = document.Read();
    CheckSums(members, manifest, "p");
    EXPECT_EQ(manifest["redacted"].Flag(), true);
    EXPECT_EQ(manifest["files"].At(0)["binary"].Flag(), true);
    EXPECT_FALSE(manifest["files"].At(0)["masked"]);
    EXPECT_EQ(NumberAt(manifest["files"].At(1), "masked"), 3U);
    EXPECT_EQ(Contents("logs/text"), "password=abc\ntoken: def\nPIN 1234\n");
    WriteFile("patterns", "(");
    EXPECT_EQ(Run({"logs", "--redact-patterns", "patterns", "--output", "q.tar.zst"}), 2);
    EXPECT_TRUE(Holds(Contents("err"), "patterns, line 1: ")) << Contents("err");
}

TEST_F(CollectProgram, LeavesSecretsAloneWhenAsked) {
    WriteFile("one", "password=abc");
    EXPECT_EQ(Run({"one", "--no-redact", "--output", "p.tar.zst"}), 0);
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/one").content, "password=abc");
    const json::Value document = Manifest(members, "p");
    EXPECT_EQ(document.Read()["redacted"].Flag(), false);
    EXPECT_FALSE(document.Read()["files"].At(0)["masked"]);
}

TEST_F(CollectProgram, CallsTheProductsHookBeforeTheEntries) {
    WriteFile("logs/a", "x");
    EXPECT_EQ(Run({"logs", "--output", "p.tar.zst"}, Preloaded(VENDOR_HOOK)), 1);
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/logs/of the product").content, "x");
    const json::Value document = Manifest(members, "p");
    const json::View vendor = document.Read()["vendor"];
    EXPECT_EQ(TextAt(vendor, "result"), "7");
    EXPECT_EQ(vendor["messages"].At(0).Text(), "said by the product");
    EXPECT_EQ(document.Read()["complete"].Flag(), false);
    EXPECT_TRUE(Holds(Contents("err"), "ominspectctl: the product's own collection failed: result 7\n"));
}

TEST_F(CollectProgram, ConfiguredEntriesGoToAnotherArea) {
    WriteFile("logs/a", "x");
    WriteFile("c.xml",
              "<c><LogCollect><Log srcPath='logs' dstPath='/data/inspect/diag/log/deep/l' timeout='5' "
              "isFolder='true'/></LogCollect></c>");
    EXPECT_EQ(Run({"--config", "c.xml", "--area", "area", "--output", "p.tar.zst"}), 0) << Contents("err");
    EXPECT_EQ(Contents("area/deep/l/a"), "x");
    EXPECT_EQ(MemberOf(ReadArchive("p.tar.zst"), "p/files/deep/l/a").content, "x");
}

}  // namespace
