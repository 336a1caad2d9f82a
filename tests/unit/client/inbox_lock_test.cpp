// Every function of the inbox takes its lock: any thread may call any of them.
//
// The program is linked so that each pthread_mutex_lock passes through here.
#include "inbox.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace ominspect::client;

namespace {

// The locks inside this object are counted; one thread only.
const Inbox* g_watched = nullptr;
int g_taken = 0;

}  // namespace

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t* mutex);  // NOLINT: the linker makes the names
extern "C" [[gnu::visibility("default")]] int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {  // NOLINT
    const auto* begin = reinterpret_cast<const char*>(g_watched);
    const auto* at = reinterpret_cast<const char*>(mutex);
    if (g_watched != nullptr && at >= begin && at < begin + sizeof(Inbox)) {
        ++g_taken;
    }
    return __real_pthread_mutex_lock(mutex);
}

namespace {

TEST(InboxLock, IsTakenByEveryFunction) {
    Inbox inbox;
    const Address address{0, "item"};
    const Limit limit = std::chrono::seconds(60);
    const std::vector<std::pair<std::string, std::function<void()>>> calls{
        {"Expect", [&] { EXPECT_EQ(inbox.Expect("item", RequestKind::kRun), 0U); }},
        {"RunBegan", [&] { inbox.RunBegan(address); }},
        {"Origin", [&] { EXPECT_EQ(inbox.Origin(address), RunOrigin::kOwn); }},
        {"Put, of a result",
         [&] {
             inbox.Put(address, ItemResult{"item", "success", ""});
         }},
        {"TakeResult", [&] { EXPECT_TRUE(inbox.TakeResult(address, 0, limit, limit.Deadline())); }},
        {"Put, of a record",
         [&] {
             inbox.Put(17, GroupRecord{17, {}});
         }},
        {"TakeRecord", [&] { EXPECT_TRUE(inbox.TakeRecord(17, 0, limit, limit.Deadline())); }},
        {"Forget", [&] { inbox.Forget(address); }},
        {"Withdraw", [&] { inbox.Withdraw(address); }},
        {"ServerRestarted", [&] { inbox.ServerRestarted(); }},
        {"ServerLife", [&] { EXPECT_EQ(inbox.ServerLife(), 1U); }},
        {"BusLost", [&] { inbox.BusLost(); }},
    };
    for (const auto& [name, call] : calls) {
        g_taken = 0;
        g_watched = &inbox;
        call();
        g_watched = nullptr;
        EXPECT_GE(g_taken, 1) << name;
    }
}

}  // namespace
