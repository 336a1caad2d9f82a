// What is said of bus, rights, policy, server and items.
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "doctor/bus_findings.h"

using namespace ominspect::doctor;
namespace client = ominspect::client;

namespace {

constexpr const char* kAdvice = "bring the policy";

const Person kStranger{"alice"};
const Person kListed{"alice", false, true, false};
const Person kMember{"alice", false, true, true};
const Person kRoot{"root", true};

BusFacts Working() {
    BusFacts facts{"unix:path=/bus", true};
    facts.server = ServerFacts{17, "ominspect", "1.2", true};
    return facts;
}

BusFacts NotJoined(client::ErrorCode code) {
    BusFacts facts{"unix:path=/bus", true};
    facts.joinFailure = client::Error{code, "the cause"};
    return facts;
}

client::Item Item(const std::string& name, bool configured, const std::vector<std::string>& owners,
                  bool registered = true) {
    client::Item item{name, std::nullopt, {}};
    if (configured) {
        item.configuration = client::ConfiguredItem{name, "warn", true};
    }
    for (const std::string& owner : owners) {
        item.owners.push_back({owner, std::chrono::milliseconds(0), registered});
    }
    return item;
}

// The catalogue of the file: the configured ones among these items.
client::Catalogue FileWith(const std::vector<client::Item>& items) {
    client::Catalogue catalogue{{}, 0};
    for (const client::Item& item : items) {
        if (item.configuration) {
            catalogue.items.push_back(*item.configuration);
            ++catalogue.total;
        }
    }
    return catalogue;
}

BusFacts With(std::vector<client::Item> items) {
    BusFacts facts = Working();
    facts.inventory.configured = FileWith(items).total;
    facts.inventory.items = std::move(items);
    return facts;
}

std::string TextOf(const std::vector<Finding>& findings) {
    return FindingsText(findings, false);
}

std::string ItemsText(const BusFacts& facts) {
    return TextOf(JudgeItems(facts, FileWith(facts.inventory.items)));
}

TEST(BusFindings, AllIsGoodForAMemberOnTheSystemBus) {
    EXPECT_EQ(TextOf(JudgeBus(Working(), kMember, kAdvice)),
              "ok       bus     the system bus at unix:path=/bus\n"
              "ok       rights  user alice may ask; owning items takes the group ominspect-owner\n"
              "ok       policy  in force\n");
}

TEST(BusFindings, TheOwnersGroupMayOwnItemsAsRootMay) {
    Person owner = kMember;
    owner.isOwner = true;
    EXPECT_EQ(JudgeBus(Working(), owner, kAdvice)[1].text, "user alice may ask and own items");
    EXPECT_EQ(JudgeBus(Working(), kRoot, kAdvice)[1].text, "user root may ask and own items");
}

TEST(BusFindings, EverybodyMayOwnItemsUnlessAPolicyIsKnownToForbidIt) {
    BusFacts facts = Working();
    const auto rights = [&] { return JudgeBus(facts, kMember, kAdvice)[1].text; };
    facts.server->isGuarded = false;
    EXPECT_EQ(rights(), "user alice may ask and own items");
    facts.server->isGuarded.reset();
    EXPECT_EQ(rights(), "user alice may ask and own items");
    facts.server.reset();
    EXPECT_EQ(rights(), "user alice may ask and own items");
}

TEST(BusFindings, AnotherBusIsNamedByItsAddress) {
    BusFacts facts = Working();
    facts.isSystemBus = false;
    facts.server->isGuarded = false;
    EXPECT_EQ(TextOf(JudgeBus(facts, kRoot, kAdvice)),
              "ok       bus     unix:path=/bus\n"
              "ok       rights  user root may ask and own items\n"
              "warning  policy  none: whoever reaches this bus may be the server, or an owner\n"
              "                 -> right for a trial on a bus of one's own; else use the system bus\n");
}

TEST(BusFindings, ABusThatCannotBeReachedIsAFailure) {
    BusFacts facts = NotJoined(client::ErrorCode::kBusUnreachable);
    EXPECT_EQ(TextOf(JudgeBus(facts, kMember, kAdvice)),
              "failure  bus     the cause\n"
              "                 -> systemctl start dbus\n"
              "unknown  rights  not known without the bus\n"
              "unknown  policy  not known without an answer of the server\n");
    facts.isSystemBus = false;
    EXPECT_TRUE(JudgeBus(facts, kMember, kAdvice)[0].advice.starts_with("KIVO_BUS_ADDRESS names this bus"));
}

TEST(BusFindings, WhoIsRefusedLearnsWhatIsMissing) {
    const BusFacts facts = NotJoined(client::ErrorCode::kDenied);
    const auto rights = [&](const Person& person) { return TextOf({JudgeBus(facts, person, kAdvice)[1]}); };
    EXPECT_EQ(rights(kStranger),
              "failure  rights  user alice is not in the group ominspect\n"
              "                 -> usermod -aG ominspect alice, then log in again\n");
    EXPECT_EQ(rights(kListed),
              "failure  rights  user alice is in the group ominspect, but this login is older\n"
              "                 -> log in again\n");
    const std::string nobody =
        "failure  rights  the bus lets nobody ask: it does not have the inspection system's policy\n"
        "                 -> ";
    EXPECT_EQ(rights(kMember), nobody + "bring the policy\n");
    EXPECT_EQ(rights(kRoot), nobody + "bring the policy\n");
    EXPECT_EQ(JudgeBus(facts, kStranger, kAdvice)[0].verdict, Verdict::kGood) << "the bus itself is there";
}

TEST(BusFindings, ThePolicyIsNotKnownWithoutTheServersAnswer) {
    BusFacts facts = Working();
    facts.server->isGuarded.reset();
    EXPECT_EQ(JudgeBus(facts, kMember, kAdvice)[2].verdict, Verdict::kUnknown);
    facts.server.reset();
    EXPECT_EQ(JudgeBus(facts, kMember, kAdvice)[2].verdict, Verdict::kUnknown);
}

TEST(ServerFindings, NameVersionProcessAndUser) {
    BusFacts facts = Working();
    EXPECT_EQ(TextOf(JudgeServer(facts, "1.2")), "ok       server  ominspect 1.2, process 17, user ominspect\n");
    EXPECT_EQ(TextOf(JudgeServer(facts, "1.3")),
              "warning  server  ominspect 1.2, process 17, user ominspect; this is ominspectctl 1.3\n"
              "                 -> restart it after an upgrade: systemctl restart ominspect\n");
    facts.server->version.reset();
    EXPECT_EQ(TextOf(JudgeServer(facts, "1.2")),
              "ok       server  ominspect of an unknown version, process 17, user ominspect\n");
}

TEST(ServerFindings, AServerThatDoesNotAnswerIsAWarningAndOneThatRefusesAFailure) {
    BusFacts facts = Working();
    facts.listError = client::Error{client::ErrorCode::kTimeLimit, "late"};
    EXPECT_EQ(JudgeServer(facts, "1.2")[0].verdict, Verdict::kWarning);
    EXPECT_TRUE(JudgeServer(facts, "1.2")[0].text.ends_with(", does not answer"));
    facts.listError = client::Error{client::ErrorCode::kRefused, "full"};
    EXPECT_EQ(JudgeServer(facts, "1.2")[0].verdict, Verdict::kFailure);
    EXPECT_TRUE(JudgeServer(facts, "1.2")[0].text.ends_with(": full"));
}

TEST(ServerFindings, AnAbsentServerIsAFailureAndUnknownWithoutTheBus) {
    BusFacts facts = Working();
    facts.server.reset();
    EXPECT_EQ(JudgeServer(facts, "1.2")[0].verdict, Verdict::kFailure);
    EXPECT_EQ(JudgeServer(facts, "1.2")[0].advice, "systemctl start ominspect; why it ended: journalctl -u ominspect");
    facts.isSystemBus = false;
    EXPECT_EQ(JudgeServer(facts, "1.2")[0].advice, "start ominspect with the same KIVO_BUS_ADDRESS");
    EXPECT_EQ(TextOf(JudgeServer(NotJoined(client::ErrorCode::kBusUnreachable), "1.2")),
              "unknown  server  not known without the bus\n");
}

TEST(ItemFindings, OwnersAreNamedWithTheNumberOfTheirItems) {
    EXPECT_EQ(ItemsText(With({Item("a", true, {"one"}), Item("b", true, {"two"}), Item("c", true, {"two"})})),
              "ok       owners  one (1 item), two (2 items)\n");
}

TEST(ItemFindings, TheServersOwnItemIsNoOwner) {
    EXPECT_EQ(ItemsText(With({Item("a", true, {"ominspect"})})),
              "warning  owners  no process owns an item: none can be run\n"
              "                 -> start an owner: systemctl start ominspect-owner@NAME, or ominspect-owner FILE\n");
}

TEST(ItemFindings, AnOwnerThatDoesNotAnswerIsAWarning) {
    BusFacts facts = With({Item("a", true, {"one"})});
    facts.inventory.silent = {"two"};
    EXPECT_EQ(ItemsText(facts),
              "warning  owners  no answer from two\n"
              "                 -> look at these processes: they hang\n");
}

TEST(ItemFindings, ItemsWithoutAnOwnerAreAWarningWithTheFirstSixNames) {
    std::vector<client::Item> items{Item("z", true, {"one"})};
    for (const char* name : {"a", "b", "c", "d", "e", "f"}) {
        items.push_back(Item(name, true, {}));
    }
    EXPECT_EQ(ItemsText(With(items)),
              "ok       owners  one (1 item)\n"
              "warning  items   without an owner (6): a, b, c, d, e, f\n"
              "                 -> start their owners (the package ominspect-room has one for the built-in items), or "
              "unlist them\n");
    items.push_back(Item("g", true, {}));
    EXPECT_NE(ItemsText(With(items)).find("(7): a, b, c, d, e, f and 1 more\n"), std::string::npos);
}

TEST(ItemFindings, ItemsThatAreNotConfiguredAreTold) {
    EXPECT_EQ(ItemsText(With({Item("a", false, {"one"})})),
              "ok       owners  one (1 item)\n"
              "ok       items   owned but not configured (1): a; they run by name, not in group --all\n");
}

TEST(ItemFindings, SeveralOwnersOfAnItemAreAWarning) {
    EXPECT_EQ(ItemsText(With({Item("a", true, {"one", "two"})})),
              "ok       owners  one (1 item), two (1 item)\n"
              "warning  items   with several owners: a\n"
              "                 -> the server asks the one that registered first: stop the others\n");
}

TEST(ItemFindings, AnItemThatTheServerDoesNotKnowYetIsAWarning) {
    BusFacts facts = With({Item("a", true, {"one"}, false)});
    EXPECT_EQ(ItemsText(facts),
              "ok       owners  one (1 item)\n"
              "warning  items   not registered with the server: a\n"
              "                 -> owners register again within moments of a restart; restart one that does not\n");
    facts.server.reset();
    EXPECT_EQ(ItemsText(facts), "ok       owners  one (1 item)\n")
        << "without a server there is nothing to register with";
}

TEST(ItemFindings, AServerWithOtherItemsThanTheFileIsAWarning) {
    const BusFacts facts = With({Item("a", true, {"one"}), Item("b", true, {"one"})});
    const client::Catalogue same = FileWith(facts.inventory.items);
    const auto verdict = [&](const client::Catalogue& file) { return JudgeItems(facts, file)[0].subject; };
    EXPECT_EQ(verdict(same), "owners");
    for (const auto& change : std::vector<std::function<void(client::Catalogue&)>>{
             [](auto& file) { file.total = 3; },
             [](auto& file) { file.items[1].name = "c"; },
             [](auto& file) { file.items[1].level = "error"; },
             [](auto& file) { file.items[0].isSync = false; },
             [](auto& file) { file.items.pop_back(); },
             [](auto& file) { std::swap(file.items[0], file.items[1]); },
         }) {
        client::Catalogue other = same;
        change(other);
        EXPECT_EQ(verdict(other), "items");
    }
    const Finding found = JudgeItems(facts, {{}, 0})[0];
    EXPECT_EQ(found.verdict, Verdict::kWarning);
    EXPECT_EQ(found.text, "the server's items are not those of the configuration file");
}

TEST(ItemFindings, AnItemThatTheFileNamesTwiceIsTheSame) {
    BusFacts facts = With({Item("a", true, {"one"}), Item("a", true, {"one"}), Item("", true, {"one"})});
    EXPECT_EQ(JudgeItems(facts, {{{"a", "warn", true}}, 3})[0].subject, "owners");
}

TEST(ItemFindings, OfMoreThan256TheFirstOnesCount) {
    std::vector<client::Item> items;
    for (int i = 0; i < 257; ++i) {
        items.push_back(Item("i" + std::to_string(i), true, {"one"}));
    }
    BusFacts facts = With(items);
    facts.inventory.items.resize(256);
    EXPECT_EQ(JudgeItems(facts, FileWith(items))[0].subject, "owners");
    items.resize(256);
    client::Catalogue file = FileWith(items);
    EXPECT_EQ(JudgeItems(With(items), file)[0].subject, "owners");
    file.items.pop_back();  // its last name is that of another
    EXPECT_EQ(JudgeItems(With(items), file)[0].subject, "items") << "the server tells all of 256";
}

TEST(ItemFindings, WhatTheServerDidNotTellIsNotCompared) {
    BusFacts facts = With({Item("a", true, {"one"})});
    facts.listError = client::Error{client::ErrorCode::kTimeLimit, "late"};
    EXPECT_EQ(JudgeItems(facts, {{}, 0})[0].subject, "owners");
    EXPECT_EQ(TextOf(JudgeItems(NotJoined(client::ErrorCode::kDenied), {{}, 0})),
              "unknown  owners  not known without the bus\n");
}

}  // namespace
