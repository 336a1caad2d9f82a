// Collections by a configuration file, and the product's own part of them.
#include <unistd.h>

#include "program.h"

namespace support {
namespace {

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
    EXPECT_EQ(TextAt(manifest, "configuration"), "c.xml");
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

TEST_F(CollectProgram, TakesTheDevicesConfigurationByItself) {
    EXPECT_EQ(Run({"--area", "area", "--output", "p.tar.zst"}), 1);  // this machine has none, or it names another area
    const json::Value document = Manifest(ReadArchive("p.tar.zst"), "p");
    const json::View manifest = document.Read();
    EXPECT_EQ(TextAt(manifest, "configuration"), "the device's configuration file");
    EXPECT_EQ(TextAt(manifest, "area"), work_ / "area");
    if (!std::filesystem::exists("/zq_product/etc/config/om/inspect_config.xml")) {
        EXPECT_TRUE(Holds(Contents("err"), "use default config InspectItemList.")) << Contents("err");
    }
}

// Needs root's rights, or a name space of one's own: what is installed here stays as it is.
TEST_F(CollectProgram, TakesAnInstallationsConfigurationAndItsPatternsOfSecrets) {
    WriteFile("logs/a", "PIN 1234 password=abc");
    WriteFile("installed/inspect_config.xml",
              "<c><LogCollect><Log srcPath='logs' dstPath='/data/inspect/diag/log/l' timeout='5' isFolder='true'/>"
              "</LogCollect></c>");
    WriteFile("installed/redaction.patterns", "PIN (\\d+)\n");
    WriteFile("collect", R"(set -e
folder="$1"
while [ ! -d "$folder" ]; do folder=$(dirname "$folder"); done
mount -t tmpfs none "$folder"
mkdir -p "$1"
cp installed/* "$1"
shift
exec "$@"
)");
    const std::string nameSpace = geteuid() == 0 ? "unshare --mount" : "unshare --map-root-user --mount";
    const std::string before = "exec " + nameSpace + R"( sh collect )" CONFIG_FOLDER R"( "$0" "$@" >out 2>err;)";
    EXPECT_EQ(Run({"--area", "area", "--output", "p.tar.zst"}, before), 0) << Contents("err");
    const auto members = ReadArchive("p.tar.zst");
    EXPECT_EQ(MemberOf(members, "p/files/l/a").content, "PIN **** password=***");
    EXPECT_EQ(TextAt(Manifest(members, "p").Read(), "configuration"), CONFIG_FOLDER "/inspect_config.xml");
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
}  // namespace support
