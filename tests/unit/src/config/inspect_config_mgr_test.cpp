// The configuration file and its loader.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "config/default_config.h"
#include "config_text.h"
#include "ominspect/config.h"
#include "support/alloc_failure.h"
#include "support/device_folder.h"

using support::AllocFailure;
using support::kDefaultEntries;
using support::kDefaultItems;
using support::Lines;
using support::LogLines;

/// Takes the one instance away, and looks at the lists themselves.
class InspectConfigMgrPeer {
public:
    static void Forget() { InspectConfigMgr::m_configMgr = nullptr; }
    static bool ListsAreFull(const InspectConfigMgr& config) {
        return config.inspectItemList.capacity() == config.inspectItemList.size() &&
               config.logCollectList.capacity() == config.logCollectList.size();
    }
};

namespace {

constexpr const char* kFile = "device/zq_product/etc/config/om/inspect_config.xml";

class InspectConfigMgrTest : public support::DeviceTest {
protected:
    void Load(const std::string& xml) {
        Write(kFile, xml);
        m_config.InitInspectConfig();
    }

    Lines Items() { return support::Text(m_config.GetInspectItemList()); }
    Lines Entries() { return support::Text(m_config.GetLogCollectList()); }

    InspectConfigMgr m_config;
};

}  // namespace

TEST_F(InspectConfigMgrTest, AFileGivesItsItemsAndEntriesInOrder) {
    Load(R"(<?xml version="1.0"?><AnyName>
        <DiagnoseList>
            <DiagnoseItem name="conf_sip_ft" level="error" isSync="true"/>
            <DiagnoseItem name="conf_ldapserver_ft" level="warn" isSync="false"/>
        </DiagnoseList>
        <LogCollect>
            <Log srcPath="/data/log/wylogs" dstPath="/d/wylogs" timeout="5"/>
            <Log srcPath="/data/applog" dstPath="/d/applog" timeout="6" isFolder="true"/>
            <Log srcPath="/data/a.db" dstPath="/d/a.db" timeout="1" isFolder="false"/>
        </LogCollect></AnyName>)");
    EXPECT_EQ(Items(), (Lines{"conf_sip_ft error 1", "conf_ldapserver_ft warn 0"}));
    EXPECT_EQ(Entries(), (Lines{"/data/log/wylogs /d/wylogs 5 wylogs", "/data/applog /d/applog 6 dir",
                                "/data/a.db /d/a.db 1 file"}));
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectConfigMgrTest, AMissingFileGivesTheDefaultItemsAndNoCollection) {
    m_config.InitInspectConfig();
    EXPECT_EQ(Items().size(), 25U);
    EXPECT_EQ(Entries(), Lines{});
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: xml read err, error code : 3. use default config.",
                                 "2 InspectConfigMgr 20: use default config InspectItemList."}));
}

TEST_F(InspectConfigMgrTest, AFileThatIsNoXmlCountsAsUnreadable) {
    Load("this is <not XML");
    EXPECT_EQ(Items().size(), 25U);
    EXPECT_EQ(Entries(), Lines{});
    EXPECT_EQ(LogLines().back(), "2 InspectConfigMgr 20: use default config InspectItemList.");
}

TEST_F(InspectConfigMgrTest, AFileWithoutADocumentElementGivesBothDefaults) {
    Load("<?xml version=\"1.0\"?><!-- nothing else -->");
    EXPECT_EQ(Items().size(), 25U);
    EXPECT_EQ(Entries().size(), 20U);
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: xmlDocGetRootElement fail",
                                 "2 InspectConfigMgr 20: use default config InspectItemList.",
                                 "2 InspectConfigMgr 20: use default config logCollectList."}));
}

TEST_F(InspectConfigMgrTest, TheDefaultsAreExchangedForWhatTheListsHeld) {
    Load(
        "<r><DiagnoseList><DiagnoseItem name='a' level='warn' isSync='true'/></DiagnoseList>"
        "<LogCollect><Log srcPath='/s' dstPath='/d' timeout='1' isFolder='true'/></LogCollect></r>");
    Load("<!-- no document element -->");
    EXPECT_EQ(Items(), kDefaultItems);
    EXPECT_EQ(Entries(), kDefaultEntries);
    EXPECT_EQ(support::Text(InspectDefaultConfig::g_supportInspectList), Lines{"a warn 1"});
    EXPECT_EQ(support::Text(InspectDefaultConfig::g_defaultLogCollectList), Lines{"/s /d 1 dir"});
}

TEST_F(InspectConfigMgrTest, ADocumentWithoutItsListsGivesNone) {
    Load("<root/>");
    EXPECT_EQ(Items(), Lines{});
    EXPECT_EQ(Entries(), Lines{});
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: there is no [DiagnoseList] in config.",
                                 "1 InspectConfigMgr 20: there is no [LogCollect] in config."}));
}

TEST_F(InspectConfigMgrTest, WithoutADiagnoseListTheCollectionIsReadAllTheSame) {
    Load("<r><LogCollect><Log srcPath='/s' dstPath='/d' timeout='1' isFolder='true'/></LogCollect></r>");
    EXPECT_EQ(Items(), Lines{});
    EXPECT_EQ(Entries(), Lines{"/s /d 1 dir"});
}

TEST_F(InspectConfigMgrTest, AnItemWithoutIsSyncIsAsynchronous) {
    Load("<r><DiagnoseList><DiagnoseItem name='a' level='warn'/></DiagnoseList><LogCollect/></r>");
    EXPECT_EQ(Items(), Lines{"a warn 0"});
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: config file value [isSync] get err."});
}

TEST_F(InspectConfigMgrTest, AnItemWhoseTextsAreTooLongIsKeptWithoutThem) {
    const std::string name(31, 'n');
    Load("<r><DiagnoseList><DiagnoseItem name='" + name + "' level='seven77' isSync='true'/><DiagnoseItem name='" +
         name + "n' level='eight888' isSync='true'/></DiagnoseList><LogCollect/></r>");
    EXPECT_EQ(Items(), (Lines{name + " seven77 1", "  1"}));
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: config file value [name] strcpy_s err, ret 34.",
                                 "1 InspectConfigMgr 20: config file value [level] strcpy_s err, ret 34."}));
}

TEST_F(InspectConfigMgrTest, SiblingsOfOtherNamesAreReadTooFromTheFirstItemOn) {
    Load(R"(<r><DiagnoseList><Before name="x" level="warn" isSync="true"/>
            <DiagnoseItem name="a" level="warn" isSync="true"/><Other name="b" level="warn" isSync="true"/>
            </DiagnoseList>
            <LogCollect><Before/><Log srcPath="/1" dstPath="/1" timeout="1" isFolder="true"/>
            <Other srcPath="/2" dstPath="/2" timeout="2" isFolder="false"/></LogCollect></r>)");
    EXPECT_EQ(Items(), (Lines{"a warn 1", "b warn 1"}));
    EXPECT_EQ(Entries(), (Lines{"/1 /1 1 dir", "/2 /2 2 file"}));
}

TEST_F(InspectConfigMgrTest, TheSystemLogIsKnownByItsExactPath) {
    Load(R"(<r><DiagnoseList/><LogCollect>
            <Log srcPath="/data/log/wylogs" dstPath="/d" timeout="1" isFolder="true"/>
            <Log srcPath="/data/log/wylogs/" dstPath="/d" timeout="1" isFolder="true"/></LogCollect></r>)");
    EXPECT_EQ(Entries(), (Lines{"/data/log/wylogs /d 1 wylogs", "/data/log/wylogs/ /d 1 dir"}));
}

TEST_F(InspectConfigMgrTest, TheSystemLogWithASlashAtItsEndIsWhatIsFolderSays) {
    Load(R"(<r><DiagnoseList/><LogCollect>
            <Log srcPath="/data/log/wylogs/" dstPath="/d" timeout="1" isFolder="false"/>
            <Log srcPath="/data/log/wylogs/" dstPath="/d" timeout="1"/></LogCollect></r>)");
    EXPECT_EQ(Entries(), (Lines{"/data/log/wylogs/ /d 1 file", "/data/log/wylogs/ /d 1 file"}));
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: config file value [isFolder] get err."});
}

TEST_F(InspectConfigMgrTest, AnEntryWhosePathsAreTooLongIsKeptWithoutThem) {
    const std::string src(79, 's');
    const std::string dst(79, 'd');
    Load("<r><DiagnoseList/><LogCollect><Log srcPath='" + src + "' dstPath='" + dst +
         "' timeout='1' isFolder='true'/><Log srcPath='" + src + "s' dstPath='" + dst +
         "d' timeout='1' isFolder='true'/></LogCollect></r>");
    EXPECT_EQ(Entries(), (Lines{src + " " + dst + " 1 dir", "  1 dir"}));
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: config file value [srcPath] strcpy_s err, ret 34.",
                                 "1 InspectConfigMgr 20: config file value [dstPath] strcpy_s err, ret 34."}));
}

TEST_F(InspectConfigMgrTest, AnEntryWithBadAttributesIsKept) {
    Load("<r><DiagnoseList/><LogCollect><Log srcPath='" + std::string(80, 's') + "'/></LogCollect></r>");
    EXPECT_EQ(Entries(), Lines{"  0 file"});
}

TEST_F(InspectConfigMgrTest, LoadingAgainAppends) {
    Load(
        "<r><DiagnoseList><DiagnoseItem name='a' level='warn' isSync='true'/></DiagnoseList>"
        "<LogCollect><Log srcPath='/a' dstPath='/a' timeout='1' isFolder='true'/></LogCollect></r>");
    Load(
        "<r><DiagnoseList><DiagnoseItem name='b' level='warn' isSync='true'/></DiagnoseList>"
        "<LogCollect><Log srcPath='/b' dstPath='/b' timeout='2' isFolder='true'/></LogCollect></r>");
    EXPECT_EQ(Items(), (Lines{"a warn 1", "b warn 1"}));
    EXPECT_EQ(Entries(), (Lines{"/a /a 1 dir", "/b /b 2 dir"}));
}

TEST_F(InspectConfigMgrTest, TheListsTakeNoMoreRoomThanTheirElements) {
    const std::string item = "<DiagnoseItem name='a' level='warn' isSync='true'/>";
    const std::string entry = "<Log srcPath='/s' dstPath='/d' timeout='1' isFolder='true'/>";
    Load("<r><DiagnoseList>" + item + item + item + "</DiagnoseList><LogCollect>" + entry + entry + entry +
         "</LogCollect></r>");
    EXPECT_EQ(Items().size(), 3U);
    EXPECT_EQ(Entries().size(), 3U);
    EXPECT_TRUE(InspectConfigMgrPeer::ListsAreFull(m_config));
}

TEST_F(InspectConfigMgrTest, DeepNestingIsRefusedAndManyItemsAreNot) {
    std::string deep;
    for (int i = 0; i < 100000; ++i) {
        deep += "<a>";
    }
    Load(deep);
    EXPECT_EQ(Items().size(), 25U);
    InspectConfigMgr other;
    std::string many = "<r><DiagnoseList>";
    for (int i = 0; i < 300; ++i) {
        many += "<DiagnoseItem name='n' level='warn' isSync='true'/>";
    }
    Write(kFile, many + "</DiagnoseList><LogCollect/></r>");
    other.InitInspectConfig();
    EXPECT_EQ(other.GetInspectItemList().size(), 300U);
}

TEST_F(InspectConfigMgrTest, TheOneInstanceIsThereFromTheStart) {
    EXPECT_NE(InspectConfigMgr::GetInstance(), nullptr);
    EXPECT_EQ(InspectConfigMgr::GetInstance(), InspectConfigMgr::GetInstance());
}

TEST_F(InspectConfigMgrTest, AnInstanceThatIsMissingIsMadeOrSaidToBeMissing) {
    InspectConfigMgr* const first = InspectConfigMgr::GetInstance();
    InspectConfigMgrPeer::Forget();
    {
        const AllocFailure failure(AllocFailure::Kind::kNothrow, sizeof(InspectConfigMgr));
        EXPECT_EQ(InspectConfigMgr::GetInstance(), nullptr);
        EXPECT_TRUE(failure.Happened());
    }
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: m_configMgr instance creat err !"});
    InspectConfigMgr* const second = InspectConfigMgr::GetInstance();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(InspectConfigMgr::GetInstance(), second);
    EXPECT_TRUE(second->GetInspectItemList().empty());
    EXPECT_EQ(LogLines().size(), 1U);
    delete first;
}

TEST_F(InspectConfigMgrTest, AnotherFileIsReadAsTheDevicesIs) {
    Write("other.xml",
          R"(<c><LogCollect><Log srcPath="/a" dstPath="/b" timeout="7" isFolder="true"/></LogCollect></c>)");
    m_config.InitInspectConfigFrom("other.xml");
    EXPECT_EQ(Items(), Lines{});
    EXPECT_EQ(Entries(), (Lines{"/a /b 7 dir"}));
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: there is no [DiagnoseList] in config."}));
}

// None of them is waited for: nobody writes into the pipe.
class InspectConfigMgrFileTest : public InspectConfigMgrTest {
protected:
    void SetUp() override {
        InspectConfigMgrTest::SetUp();
        std::filesystem::create_directories(std::filesystem::path(kFile).parent_path());
    }

    void ExpectUnreadable() {
        m_config.InitInspectConfig();
        EXPECT_EQ(Items(), kDefaultItems);
        EXPECT_EQ(Entries(), Lines{});
        EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: xml read err, error code : 5. use default config.",
                                     "2 InspectConfigMgr 20: use default config InspectItemList."}));
    }
};

TEST_F(InspectConfigMgrFileTest, APipeCountsAsUnreadable) {
    ASSERT_EQ(mkfifo(kFile, 0600), 0);
    ExpectUnreadable();
}

TEST_F(InspectConfigMgrFileTest, AFolderCountsAsUnreadable) {
    ASSERT_EQ(mkdir(kFile, 0700), 0);
    ExpectUnreadable();
}

TEST_F(InspectConfigMgrFileTest, ADeviceCountsAsUnreadable) {
    ASSERT_EQ(symlink("/dev/zero", kFile), 0);
    ExpectUnreadable();
}
