// Configuration files good, broken and hostile, each with the lists that result, in bounded memory.
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <string>

#include "config_text.h"
#include "ominspect/config.h"
#include "support/device_folder.h"
#include "support/forked.h"
#include "support/journal_text.h"

using support::kDefaultEntries;
using support::kDefaultItems;
using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

constexpr const char* kFile = "device/zq_product/etc/config/om/inspect_config.xml";

// What the loader may take beside what it had before, in KiB. A sanitizer keeps books of every byte, and freed memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kMostMemory = 1'048'576;
#else
constexpr long kMostMemory = 131'072;
#endif

constexpr const char* kGood =
    "<config><DiagnoseList><DiagnoseItem name='a' level='warn' isSync='true'/></DiagnoseList>"
    "<LogCollect><Log srcPath='/s' dstPath='/d' timeout='7' isFolder='true'/></LogCollect></config>";

// What a file holds, and what comes of it.
struct Case {
    const char* name;
    std::string text;
    Lines items;
    Lines entries;
    Lines log;
};

// The most memory that this process had at once, in KiB.
long PeakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

std::string Repeat(const std::string& text, int times) {
    std::string repeated;
    for (int i = 0; i < times; ++i) {
        repeated += text;
    }
    return repeated;
}

// Little-endian, with its mark at the beginning.
std::string Utf16(const std::string& text) {
    std::string wide("\xff\xfe");
    for (const char byte : text) {
        wide += byte;
        wide += '\0';
    }
    return wide;
}

// A document whose one item has this name.
std::string WithName(const std::string& name) {
    return "<config><DiagnoseList><DiagnoseItem name='" + name +
           "' level='warn' isSync='true'/></DiagnoseList><LogCollect/></config>";
}

class InspectConfigMgrTableTest : public support::DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        fs::create_directories("device/zq_product/etc/config/om");
    }

    static void ExpectCase(const Case& expected) {
        SCOPED_TRACE(expected.name);
        std::ofstream(kFile, std::ios::binary) << expected.text;
        ExpectLoaded(expected.items, expected.entries, expected.log);
    }

    // Loads the file in a process of its own: a load may use up the built-in tables.
    static void ExpectLoaded(const Lines& items, const Lines& entries, const Lines& log) {
        const Lines loaded = support::InForkedChild([] {
            const long before = PeakMemory();
            InspectConfigMgr config;
            config.InitInspectConfig();
            const long grown = PeakMemory() - before;
            return Outcome(before > 0 && grown < kMostMemory ? "memory bounded" : std::to_string(grown) + " KiB",
                           support::Text(config.GetInspectItemList()), support::Text(config.GetLogCollectList()),
                           LogLines());
        });
        EXPECT_EQ(loaded, Outcome("memory bounded", items, entries, log));
    }

    // The log of a file that cannot be read: the number is the XML library's.
    static Lines Unreadable(int code) {
        return {"1 InspectConfigMgr 20: xml read err, error code : " + std::to_string(code) + ". use default config.",
                "2 InspectConfigMgr 20: use default config InspectItemList."};
    }

private:
    static Lines Outcome(const std::string& memory, const Lines& items, const Lines& entries, const Lines& log) {
        Lines lines{memory, "items:"};
        lines.insert(lines.end(), items.begin(), items.end());
        lines.emplace_back("entries:");
        lines.insert(lines.end(), entries.begin(), entries.end());
        lines.emplace_back("log:");
        lines.insert(lines.end(), log.begin(), log.end());
        return lines;
    }
};

}  // namespace

TEST_F(InspectConfigMgrTableTest, WithoutAFileOrWithAFolderInItsPlaceTheDefaultItemsAreTaken) {
    ExpectLoaded(kDefaultItems, {}, Unreadable(3));
    fs::create_directory(kFile);
    ExpectLoaded(kDefaultItems, {}, Unreadable(5));
}

TEST_F(InspectConfigMgrTableTest, AFileThatIsNoXmlGivesTheDefaultItemsAndNoCollection) {
    const std::string good(kGood);
    for (const Case& broken : {
             Case{"empty", "", kDefaultItems, {}, Unreadable(13)},
             Case{"blank", " \n\t \r\n", kDefaultItems, {}, Unreadable(13)},
             Case{"not XML", "no XML", kDefaultItems, {}, Unreadable(8)},
             Case{"JSON", R"({"DiagnoseList": [{"name": "a"}]})", kDefaultItems, {}, Unreadable(8)},
             Case{"cut behind a list", good.substr(0, 88), kDefaultItems, {}, Unreadable(15)},
             Case{"cut in a tag", good.substr(0, 90), kDefaultItems, {}, Unreadable(6)},
             Case{"cut in an attribute", good.substr(0, 50), kDefaultItems, {}, Unreadable(7)},
             Case{"garbage behind it", good + "garbage", kDefaultItems, {}, Unreadable(8)},
             Case{"the same attribute twice", WithName("a' name='b"), kDefaultItems, {}, Unreadable(7)},
             Case{"UTF-16", Utf16(good), kDefaultItems, {}, Unreadable(15)},
             Case{"NUL at the beginning", '\0' + good, kDefaultItems, {}, Unreadable(13)},
             Case{"NUL in the middle", std::string(good).insert(60, 1, '\0'), kDefaultItems, {}, Unreadable(7)},
         }) {
        ExpectCase(broken);
    }
}

TEST_F(InspectConfigMgrTableTest, AReadableFileGivesWhatStandsInIt) {
    const Lines item{"a warn 1"};
    const Lines entry{"/s /d 7 dir"};
    const std::string good(kGood);
    for (const Case& readable : {
             Case{"good", good, item, entry, {}},
             Case{"UTF-8 with its mark", "\xef\xbb\xbf" + good, item, entry, {}},
             Case{"NUL behind it", good + '\0' + "<garbage", item, entry, {}},
             Case{"two document elements", good + "<config/>", item, entry, {}},
             Case{"unknown document element",
                  "<unknown>" + good.substr(8, good.size() - 17) + "</unknown>",
                  item,
                  entry,
                  {}},
             Case{"Latin-1",
                  "<?xml version='1.0' encoding='ISO-8859-1'?>" + WithName("caf\xe9"),
                  {"caf\xe9 warn 1"},
                  {},
                  {}},
             Case{"UTF-8", WithName("caf\xc3\xa9"), {"caf\xc3\xa9 warn 1"}, {}, {}},
             Case{"entities", WithName("&lt;&#65;&amp;"), {"<A& warn 1"}, {}, {}},
             Case{"unknown entity", WithName("&unknown;"), {"&unknown; warn 1"}, {}, {}},
             Case{"only the first list counts", "<config><DiagnoseList/>" + WithName("a").substr(8), {}, {}, {}},
             Case{"other case",
                  "<config><diagnoselist/><LOGCOLLECT/></config>",
                  {},
                  {},
                  {"1 InspectConfigMgr 20: there is no [DiagnoseList] in config.",
                   "1 InspectConfigMgr 20: there is no [LogCollect] in config."}},
             Case{"no document element",
                  "<!-- nothing -->",
                  kDefaultItems,
                  kDefaultEntries,
                  {"1 InspectConfigMgr 20: xmlDocGetRootElement fail",
                   "2 InspectConfigMgr 20: use default config InspectItemList.",
                   "2 InspectConfigMgr 20: use default config logCollectList."}},
         }) {
        ExpectCase(readable);
    }
}

TEST_F(InspectConfigMgrTableTest, EntitiesOfTheFilesOwnAreNotExpanded) {
    std::string bomb = "<!DOCTYPE config [<!ENTITY e0 'boom'>";
    for (int i = 1; i <= 30; ++i) {  // 10 to the power of 30 times, once expanded
        bomb += "<!ENTITY e" + std::to_string(i) + " '" + Repeat("&e" + std::to_string(i - 1) + ";", 10) + "'>";
    }
    ExpectCase({"bomb", bomb + "]>" + WithName("&e30;"), {"&e30; warn 1"}, {}, {}});
}

TEST_F(InspectConfigMgrTableTest, DeepNestingIsRefused) {
    const std::string deep = Repeat("<a>", 10000) + Repeat("</a>", 10000);
    ExpectCase({"deep", deep, kDefaultItems, {}, Unreadable(18)});
    ExpectCase({"deep in a list",
                "<config><DiagnoseList>" + deep + "</DiagnoseList></config>",
                kDefaultItems,
                {},
                Unreadable(18)});
}

TEST_F(InspectConfigMgrTableTest, AHundredThousandItemsAreAllTaken) {
    std::string text = "<config><DiagnoseList>";
    Lines items;
    for (int i = 0; i < 100000; ++i) {
        const std::string name = "item" + std::to_string(i);
        text += "<DiagnoseItem name='" + name + "' level='warn' isSync='false'/>";
        items.push_back(name + " warn 0");
    }
    ExpectCase({"many", text + "</DiagnoseList><LogCollect/></config>", items, {}, {}});
}

TEST_F(InspectConfigMgrTableTest, AnAttributeOfTenMebibytesLeavesItsFieldEmpty) {
    ExpectCase({"long name",
                WithName(std::string(10 << 20, 'n')),
                {" warn 1"},
                {},
                {"1 InspectConfigMgr 20: config file value [name] strcpy_s err, ret 34."}});
}
