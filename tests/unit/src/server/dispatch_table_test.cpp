// The dispatch table: ids, handlers, order.
#include <gtest/gtest.h>

#include "handlers/handlers.h"
#include "inside/inside_inspection.h"
#include "server/dispatch.h"

namespace {

void ExpectRow(std::size_t row, uint32_t msgId, InspectHandler handler) {
    EXPECT_EQ(kDispatchTable.at(row).msgId, msgId) << "row " << row + 1;
    EXPECT_EQ(kDispatchTable.at(row).handler, handler) << "row " << row + 1;
}

}  // namespace

TEST(DispatchTableTest, HasItsEighteenRowsInOrder) {
    ASSERT_EQ(kDispatchTable.size(), 18U);
    ExpectRow(0, 2, Inspect::ASyncDealReg);
    ExpectRow(1, 3, Inspect::ASyncDealUnReg);
    ExpectRow(2, 0, Inspect::SyncDealSingle);
    ExpectRow(3, 18, Inspect::ASyncDealSingle);
    ExpectRow(4, 5, Inspect::ASyncDealSendResult);
    ExpectRow(5, 1, Inspect::SyncDealGroup);
    ExpectRow(6, 19, Inspect::ASyncDealGroup);
    ExpectRow(7, 6, Inspect::SyncDealStopGroup);
    ExpectRow(8, 7, Inspect::SyncDealGetState);
    ExpectRow(9, 10, InspectSlaveProcess);
    ExpectRow(10, 11, InspectTransCreateFile);
    ExpectRow(11, 12, InspectTransWriteFile);
    ExpectRow(12, 13, InspectTransCloseFile);
    ExpectRow(13, 1000, InspectSlaveReadVersion);
    ExpectRow(14, 37, Inspect::GetGroupListLenHandle);
    ExpectRow(15, 38, Inspect::GetGroupListHandle);
    ExpectRow(16, 14, Inspect::SetInspectDotReportInfo);
    ExpectRow(17, 16, Inspect::NotifyInspectDotPackage);
}
