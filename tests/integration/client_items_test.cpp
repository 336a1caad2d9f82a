// The items of a system: configured ones, owned ones, and who owns them.
#include <csignal>
#include <string>
#include <vector>

#include "client_fixture.h"

namespace support {
namespace {

class ClientItems : public Client {
protected:
    Result<Inventory> Items() { return TheSession().Items(kEnough); }

    // "name configuration owner:limit [unregistered] ...", or nothing for an item that is not listed.
    std::string Shown(const std::string& name) {
        const auto inventory = Items();
        if (!inventory) {
            return inventory.Failure().text;
        }
        std::string shown;
        for (const Item& item : inventory->items) {
            if (item.name != name) {
                continue;
            }
            shown += name + " " + (item.configuration ? item.configuration->level : "unconfigured");
            for (const ItemOwner& owner : item.owners) {
                shown += " " + owner.process + ":" + std::to_string(owner.timeLimit.count());
                shown += owner.isRegistered ? "" : " unregistered";
            }
        }
        return shown;
    }

    bool EventuallyShown(const std::string& name, const std::string& expected) {
        std::string shown;
        const bool equal = Eventually([&] {
            shown = Shown(name);
            return shown == expected;
        });
        EXPECT_EQ(shown, expected);
        return equal;
    }

    static Child StartEngineOwner(const std::string& process, std::vector<std::string> items) {
        items.insert(items.begin(), {ENGINE_OWNER_PROGRAM, process});
        return Child(items);
    }
};

TEST_F(ClientItems, AreThoseOfTheConfigurationAndThoseOfTheOwners) {
    const Child server = StartServer();
    EXPECT_EQ(Items()->items.size(), 26U);
    const Child owner = StartEngineOwner("board", {"bsp_mainboard_ft", "zz_last:1500", "aa_first"});
    EXPECT_TRUE(EventuallyShown("aa_first", "aa_first unconfigured board:0"));
    const auto inventory = Items();
    ASSERT_TRUE(inventory);
    EXPECT_EQ(inventory->configured, 25U);
    ASSERT_EQ(inventory->items.size(), 28U);
    EXPECT_EQ(inventory->items[0].name, "bsp_mainboard_ft");
    EXPECT_EQ(inventory->items[24].name, "conf_ldapserver_ft");
    EXPECT_EQ(inventory->items[25].name, "aa_first");
    EXPECT_EQ(inventory->items[27].name, "zz_last");
    EXPECT_TRUE(inventory->silent.empty());
    EXPECT_EQ(Shown("bsp_mainboard_ft"), "bsp_mainboard_ft error board:0");
    EXPECT_EQ(Shown("zz_last"), "zz_last unconfigured board:1500");
    EXPECT_EQ(Shown("conf_sip_ft"), "conf_sip_ft error");
    EXPECT_EQ(Shown("kivo_om_get_log_dir"), "kivo_om_get_log_dir unconfigured ominspect:1000");
}

TEST_F(ClientItems, FollowTheirOwners) {
    const Child server = StartServer();
    Child first = StartEngineOwner("first", {"item"});
    EXPECT_TRUE(EventuallyShown("item", "item unconfigured first:0"));
    const Child second = StartEngineOwner("second", {"item:10"});
    EXPECT_TRUE(EventuallyShown("item", "item unconfigured first:0 second:10"));
    first.Kill();
    EXPECT_TRUE(EventuallyShown("item", "item unconfigured second:10"));
}

// The owner is busy when the server comes back: it shows its items, but has not registered them again.
TEST_F(ClientItems, AreWaitedForUntilTheirOwnerHasRegisteredThemWithTheNewServer) {
    const auto wait = [] { return support::Run({OMINSPECTCTL_PROGRAM, "wait", "item", "--timeout", "1"}).exitCode; };
    Child server = StartServer();
    const Child owner = StartEngineOwner("owner", {"hold", "item:10"});
    EXPECT_TRUE(EventuallyShown("item", "item unconfigured owner:10"));
    EXPECT_EQ(wait(), 0);
    ASSERT_TRUE(TheSession().Start({"hold", ""}, kEnough));
    ASSERT_TRUE(owner.EventuallyWrote("holds"));
    server.Kill();
    server = StartServer();
    EXPECT_EQ(Shown("item"), "item unconfigured owner:10 unregistered");
    EXPECT_EQ(wait(), 4);
    owner.Signal(SIGUSR1);
    EXPECT_TRUE(EventuallyShown("item", "item unconfigured owner:10"));
    EXPECT_EQ(wait(), 0);
    const auto run = TheSession().Run({"item", ""}, kEnough);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->result.status, "success");
}

TEST_F(ClientItems, OfAnOwnerWithoutTheEngineClientHaveNoOwner) {
    const Child server = StartServer();
    const Child owner = StartOwner({"conf_sip_ft", "ok"});
    EXPECT_EQ(Shown("conf_sip_ft"), "conf_sip_ft error");
    EXPECT_EQ(Shown("ok"), "");
    EXPECT_TRUE(Items()->silent.empty());
}

TEST_F(ClientItems, NameTheProcessThatDoesNotAnswer) {
    const Child server = StartServer();
    const Child owner = StartEngineOwner("owner", {"item"});
    const Child hung = StartEngineOwner("hung", {"other"});
    EXPECT_TRUE(EventuallyShown("other", "other unconfigured hung:0"));
    hung.Signal(SIGSTOP);
    const auto inventory = Items();
    ASSERT_TRUE(inventory);
    EXPECT_EQ(inventory->silent, std::vector<std::string>{"hung"});
    EXPECT_TRUE(EventuallyShown("item", "item unconfigured owner:0"));

    std::stop_source source;
    source.request_stop();
    EXPECT_EQ(TheSession().Items({kEnough, source.get_token()}).Failure().code, ErrorCode::kCancelled);
    hung.Signal(SIGCONT);
}

TEST_F(ClientItems, CannotBeListedWithoutTheServer) {
    EXPECT_EQ(Items().Failure().code, ErrorCode::kServerAbsent);
}

}  // namespace
}  // namespace support
