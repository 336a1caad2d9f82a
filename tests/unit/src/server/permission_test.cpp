// Who may send messages to the server.
#include "server/dispatch.h"

#include <gtest/gtest.h>

TEST(PermissionTest, IsGrantedToEveryUser) {
    EXPECT_TRUE(InspectCheckPackagesValidByUid(0));
    EXPECT_TRUE(InspectCheckPackagesValidByUid(1000));
    EXPECT_TRUE(InspectCheckPackagesValidByUid(4294967295U));
}
