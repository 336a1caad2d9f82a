// Messages are made once: the server reads their envelopes only.
#include "server_roads.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "bench.h"
#include "fake/fake.h"
#include "handlers/json.h"
#include "result/result_mgr.h"
#include "server/dispatch.h"
#include "server/start.h"
#include "support/envelope.h"
#include "support/owner.h"
#include "support/records.h"
#include "task/inspacet_task.h"

namespace bench {

namespace {

using support::Envelope;

std::vector<std::string> g_items;  // that the server knows

std::string NameOf(const char* kind, std::size_t number) {
    std::string digits = std::to_string(number);
    return std::string(kind) + '_' + std::string(6 - digits.size(), '0') + digits;
}

const std::string& MiddleItem() {
    return g_items.at(g_items.size() / 2);
}

// Jobs have ended, and nothing is remembered of the batch.
void ClearUp() {
    Check(kivo::fake::Finish(), "ending the jobs");
    kivo::fake::ClearJournal();
}

Road MessageRoad(std::string name, const std::shared_ptr<Envelope>& message) {
    Road road;
    road.name = std::move(name);
    road.pass = [message](std::size_t /*i*/) { InspectMsgProcess(message->Get()); };
    road.after = ClearUp;
    return road;
}

template <typename... Payload>
std::shared_ptr<Envelope> Message(uint32_t id, Payload&&... payload) {
    return std::make_shared<Envelope>(id, std::forward<Payload>(payload)...);
}

std::shared_ptr<Envelope> Asynchronous(const std::shared_ptr<Envelope>& message) {
    message->Asynchronous();
    return message;
}

// ---- registration: of new items each time ----

std::string NewItem(std::size_t number) {
    return NameOf("new", number);
}

void AddNewItems(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        g_resultMgr.AddItem(NewItem(i), 0, support::Owner());
    }
}

void DeleteNewItems(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        g_resultMgr.DelItem(NewItem(i));
    }
}

Road RegistrationRoad(std::string name, uint32_t id) {
    Road road;
    std::vector<std::shared_ptr<Envelope>> messages;
    for (std::size_t i = 0; i < road.batch; ++i) {
        messages.push_back(Asynchronous(Message(id, NewItem(i))));
    }
    road.name = std::move(name);
    road.pass = [messages = std::move(messages)](std::size_t i) { InspectMsgProcess(messages[i]->Get()); };
    return road;
}

Road Register() {
    Road road = RegistrationRoad("2 register", 2);
    road.after = [batch = road.batch] {
        DeleteNewItems(batch);
        ClearUp();
    };
    return road;
}

Road Unregister() {
    Road road = RegistrationRoad("3 unregister", 3);
    road.before = [batch = road.batch] { AddNewItems(batch); };
    road.after = ClearUp;
    return road;
}

// ---- groups: one at a time ----

std::shared_ptr<Envelope> GroupMessage(uint32_t id) {
    std::string payload;
    for (std::size_t i = 0; i < 4; ++i) {
        payload += support::Request(g_items.at(i), "run") + '\0';
    }
    return Message(id, payload);
}

// The job that the last message started.
uint32_t GroupJob() {
    const std::vector<kivo::fake::Entry> journal = kivo::fake::Journal();
    const auto reply = std::find_if(journal.rbegin(), journal.rend(),
                                    [](const auto& entry) { return entry.kind == kivo::fake::Kind::kReply; });
    uint32_t job = 0;
    Check(reply != journal.rend() && reply->data.size() == sizeof(job), "starting a group");
    std::memcpy(&job, reply->data.data(), sizeof(job));
    return job;
}

Road StartGroup() {
    Road road = MessageRoad("19 start a group of 4 items", GroupMessage(19));
    road.batch = 1;
    road.after = [] {
        Check(InspacetTask::StopTask(GroupJob(), false) == 0, "stopping a group");
        ClearUp();
    };
    return road;
}

Road StopGroup() {
    const auto message = Message(6);
    Road road = MessageRoad("6 stop a group", message);
    road.before = [start = GroupMessage(19), message] {
        InspectMsgProcess(start->Get());
        message->Param(GroupJob());
    };
    return road;
}

}  // namespace

void StartServer(std::size_t items) {
    kivo::fake::Reset();
    support::OwnerAnswers("success", "all well");
    if (g_items.empty()) {
        Inspect::Init();
    }
    for (const std::string& item : std::exchange(g_items, {})) {
        g_resultMgr.DelItem(item);
    }
    for (std::size_t i = 0; i < items; ++i) {
        g_items.push_back(NameOf("item", i));
        g_resultMgr.AddItem(g_items.back(), 0, support::Owner());
    }
    ClearUp();
}

std::vector<Road> MessageRoads() {
    const std::string& item = MiddleItem();
    const std::string run = support::Request(item, "run");
    const support::Bytes report = support::BytesOf(support::Result(item, "success", "all well"));
    return {
        MessageRoad("0 run one item, its owner asked", Message(0, run)),
        MessageRoad("1 group record, empty", GroupMessage(1)),
        Register(),
        Unregister(),
        MessageRoad("5 report of a result", Asynchronous(Message(5, report))),
        StopGroup(),
        MessageRoad("7 state of an item", Message(7, item)),
        MessageRoad("10 accepted and ignored", Message(10)),
        MessageRoad("11 accepted and ignored", Message(11)),
        MessageRoad("12 accepted and ignored", Message(12)),
        MessageRoad("13 accepted and ignored", Message(13)),
        MessageRoad("14 accepted and ignored", Message(14)),
        MessageRoad("16 accepted and ignored", Message(16)),
        MessageRoad("18 start one item, a thread each", Asynchronous(Message(18, run))),
        StartGroup(),
        MessageRoad("37 number of configured items", Message(37)),
        MessageRoad("38 list of configured items", Message(38)),
        MessageRoad("1000 accepted and ignored", Message(1000)),
    };
}

std::vector<Road> TableRoads(std::size_t items) {
    Check(g_items.size() == items, "a server of that many items");
    // Neighbours in time are none in the table.
    auto at = [items, next = std::size_t{0}]() mutable -> const std::string& {
        next = (next + 7919) % items;
        return g_items[next];
    };
    std::vector<Road> roads(4);
    for (Road& road : roads) {
        road.after = ClearUp;
    }
    roads[0].name = "read an entry";
    roads[0].pass = [at](std::size_t /*i*/) mutable {
        tagKivoOmInspectionDataItem item;
        g_resultMgr.GetResultStatic(at(), item);
    };
    roads[1].name = "set a status";
    roads[1].pass = [at](std::size_t /*i*/) mutable { g_resultMgr.SetResultStatic(at(), "idle"); };
    roads[2].name = "run, its owner asked";
    roads[2].pass = [at](std::size_t /*i*/) mutable {
        tagKivoOmInspectionRequestMsg request{"", 3, 0, "{}"};
        at().copy(static_cast<char*>(request.name), sizeof(request.name) - 1);
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResult(request, item);
    };
    roads[3].name = "add and delete an item";
    roads[3].pass = [at, owner = support::Owner()](std::size_t /*i*/) mutable {
        const std::string name = at() + "_more";
        g_resultMgr.AddItem(name, 0, owner);
        g_resultMgr.DelItem(name);
    };
    return roads;
}

std::vector<Road> JsonRoads() {
    std::string members;
    for (int i = 0; i < 64; ++i) {
        members += "\"member" + std::to_string(i) + R"(":[1,true,"a text"],)";
    }
    const std::vector<std::pair<std::string, std::string>> texts{
        {"a short request", support::Request("item_000017", "run")},
        {"an argument of 127 bytes", support::Request("item_000017", std::string(127, 'x'))},
        {"64 other members", "{" + members + R"("name":"item_000017"})"},
        {"no JSON", "item_000017"},
    };
    std::vector<Road> roads;
    for (const auto& [name, text] : texts) {
        Road road;
        road.name = name + ", " + std::to_string(text.size()) + " bytes";
        road.pass = [text = text](std::size_t /*i*/) {
            const JsonText json{text.c_str(), static_cast<uint32_t>(text.size())};
            char out[OM_INSPECT_NAME_SIZE];
            JsonGetValue(&json, "name", static_cast<char*>(out), sizeof(out));
        };
        roads.push_back(std::move(road));
    }
    return roads;
}

std::vector<Road> PlatformRoads() {
    std::vector<Road> roads(3);
    const auto message = Message(10);
    const auto payload = std::make_shared<support::Bytes>(192);
    roads[0].name = "a reply of 192 bytes";
    roads[0].pass = [message, payload](std::size_t /*i*/) {
        OsMsgSynSendResp(message->Get(), payload->data(), static_cast<uint32_t>(payload->size()));
    };
    roads[1].name = "an event of 192 bytes";
    roads[1].pass = [payload](std::size_t /*i*/) {
        const OsMsgEvent event{"iom_srv_task", 8, static_cast<uint32_t>(payload->size()), payload->data()};
        OsMsgBroadcastEvent(&event, 1);
    };
    roads[2].name = "a question to the scripted owner";
    roads[2].pass = [payload](std::size_t /*i*/) {
        TagMsgBlock block{};
        block.msgId = 4;
        std::strcpy(static_cast<char*>(block.dstProcName), "owner");
        std::strcpy(static_cast<char*>(block.dstTaskName), "own_task");
        block.dataLen = 64;
        block.data = payload->data();
        TagMsgBlock* response = nullptr;
        Check(OsMsgSynSend(&block, &response, 1000) == OS_MSG_OK, "asking the owner");
        OsMsgSynRespFree(response);
    };
    for (Road& road : roads) {
        road.after = ClearUp;
    }
    return roads;
}

}  // namespace bench
