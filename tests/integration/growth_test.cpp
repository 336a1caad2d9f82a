// Many runs leave nothing behind in the server.
#include "support/eventually.h"
#include "support/process_state.h"
#include "system.h"

namespace support {
namespace {

constexpr int kBatch = 50;

class Growth : public System {
protected:
    static std::vector<std::string> Items() {
        std::vector<std::string> items;
        for (int i = 0; i < kBatch; ++i) {
            items.push_back("ok" + std::to_string(i));
        }
        return items;
    }

    static std::vector<std::string> LateItems() {
        std::vector<std::string> items;
        for (int i = 0; i < 32; ++i) {
            items.push_back("later" + std::to_string(i));
        }
        return items;
    }

    // A group of items whose results do not come, so that each has a wait timer that runs to its end.
    static void RunGroup() {
        std::string payload;
        for (const std::string& item : LateItems()) {
            payload += R"({"name":")" + item + R"("})" + '\0';
        }
        uint32_t taskId = 0;
        const Reply reply = Send(19, payload + '\0');
        ASSERT_EQ(reply.data.size(), sizeof taskId);
        std::memcpy(&taskId, reply.data.data(), sizeof taskId);
        ASSERT_GT(taskId, 16U);
        EXPECT_EQ(AwaitMessage(1).size(), 6688U);
        // Until the task is gone, and with it the group.
        EXPECT_TRUE(Eventually([&] { return Send(6, "", taskId).data == std::vector<unsigned char>{1, 0, 0, 0}; }));
    }

    // Every item once in the background, all at the same time, and once synchronously.
    static void RunAll() {
        for (const std::string& item : Items()) {
            Post(18, R"({"name":")" + item + R"("})", "ominspect", "iom_srv_task");
        }
        for (int i = 0; i < kBatch; ++i) {
            EXPECT_EQ(AwaitMessage(0).size(), 192U);
        }
        for (const std::string& item : Items()) {
            EXPECT_EQ(RunItem(item).text, std::string("answered by owner1"));
        }
        TakeEvents();
    }
};

TEST_F(Growth, TenThousandRunsLeaveNothingBehind) {
    // One heap for all threads: how the allocator spreads over several is not what is looked at.
    const Child server = StartServer(false, {"MALLOC_ARENA_MAX=1"});
    std::vector<std::string> items = Items();
    for (const std::string& item : LateItems()) {
        items.push_back(item + ":1000");
    }
    const Child owner = StartOwner("owner1", items);
    const auto settled = [&] { return Jobs(server) == 0; };
    for (int i = 0; i < 20; ++i) {
        RunAll();  // what is made once is made by now
    }
    RunGroup();
    ASSERT_TRUE(Eventually(settled)) << Jobs(server);
    const long memory = PrivateMemory(server.Pid());
    const size_t descriptors = Descriptors(server.Pid());
    for (int i = 0; i < 10000 / 2 / kBatch; ++i) {
        RunAll();
    }
    for (int i = 0; i < 2; ++i) {
        RunGroup();
    }
    EXPECT_TRUE(Eventually(settled)) << Jobs(server);
    // Half of what 100 bytes a run would come to; the heap itself settles within 350 KiB.
    EXPECT_LE(PrivateMemory(server.Pid()), memory + 512);
    EXPECT_LE(Descriptors(server.Pid()), descriptors);
}

}  // namespace
}  // namespace support
