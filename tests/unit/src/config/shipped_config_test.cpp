// The configuration file that is shipped.
#include <filesystem>

#include "config/default_config.h"
#include "config_text.h"
#include "ominspect/config.h"
#include "support/device_folder.h"

using support::Lines;
using support::LogLines;
using support::Text;
namespace fs = std::filesystem;

namespace {

class ShippedConfigTest : public support::DeviceTest {};

}  // namespace

TEST_F(ShippedConfigTest, HoldsTheBuiltInTablesAndLoadsWithoutALogLine) {
    fs::create_directories("device/zq_product/etc/config/om");
    fs::copy_file(SHIPPED_CONFIG, "device/zq_product/etc/config/om/inspect_config.xml");
    InspectConfigMgr config;
    config.InitInspectConfig();
    EXPECT_EQ(config.GetInspectItemList().size(), 25U);
    EXPECT_EQ(config.GetLogCollectList().size(), 20U);
    EXPECT_EQ(Text(config.GetInspectItemList()), Text(InspectDefaultConfig::g_supportInspectList));
    EXPECT_EQ(Text(config.GetLogCollectList()), Text(InspectDefaultConfig::g_defaultLogCollectList));
    EXPECT_EQ(LogLines(), Lines{});
}
