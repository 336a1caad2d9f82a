// The worked example of docs/wire-format.md, byte by byte, with a real server: this program is the owner and the
// requester.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "system.h"

namespace support {
namespace {

// The payloads of the example by their headings.
std::map<std::string, std::string> ReadExample() {
    std::ifstream file(WIRE_FORMAT_DOCUMENT);
    std::map<std::string, std::string> payloads;
    std::string heading;
    bool repeats = false;
    bool begun = false;
    for (std::string line; std::getline(file, line);) {
        begun = begun || line == "## A worked example";
        if (!begun || line.empty()) {
            continue;
        }
        if (line == "*") {
            repeats = true;
            continue;
        }
        std::string& payload = payloads[heading];
        if (line.size() < 6 || line.substr(4, 2) != ": ") {
            heading = line;
            continue;
        }
        const size_t offset = std::stoul(line.substr(0, 4), nullptr, 16);
        while (repeats && payload.size() < offset) {
            payload += payload.substr(payload.size() - 16);
        }
        repeats = false;
        EXPECT_EQ(payload.size(), offset) << heading;
        std::istringstream bytes(line.substr(6, 47));
        for (std::string byte; bytes >> byte;) {
            payload += static_cast<char>(std::stoul(byte, nullptr, 16));
        }
    }
    return payloads;
}

// What the owner's task was asked, and what it answers.
std::mutex g_lock;  // guards both
std::vector<std::string> g_asked;
std::string g_answer;

uint32_t AnswerAsOwner(TagMsgBlock* msg) {
    const std::lock_guard lock(g_lock);
    g_asked.emplace_back(reinterpret_cast<const char*>(msg->data), msg->dataLen);
    EXPECT_EQ(msg->msgId, 4U);
    return OsMsgSynSendResp(msg, g_answer.data(), static_cast<uint32_t>(g_answer.size()));
}

template <size_t size>
void Put(char (&field)[size], const char* name) {
    std::snprintf(field, size, "%s", name);
}

class WireExample : public System {
protected:
    WireExample() : example_(ReadExample()) {
        const std::lock_guard lock(g_lock);
        g_asked.clear();
        g_answer = Example("reply to id 4: the owner will report later");
    }

    const std::string& Example(const std::string& heading) {
        EXPECT_TRUE(example_.contains(heading)) << heading;
        return example_[heading];
    }

    static void StartOwnerTask(OsTaskEntry entry = nullptr) {
        OsTaskDescriptor task{};
        Put(task.name, "owner");
        task.queueDepth = 8;
        task.handler = AnswerAsOwner;
        task.entry = entry;
        EXPECT_EQ(OsTaskCreate(&task), 0U);
    }

    static uint32_t Register(const char* replyTask, const std::string& payload, uint32_t param = 0) {
        TagMsgBlock block{};
        block.msgId = 2;
        block.param = param;
        Put(block.dstProcName, "ominspect");
        Put(block.dstTaskName, "iom_srv_task");
        Put(block.replyTaskName, replyTask);
        block.data = reinterpret_cast<unsigned char*>(const_cast<char*>(payload.data()));
        block.dataLen = static_cast<uint32_t>(payload.size());
        return OsMsgAsynSend(&block);
    }

    static std::string AwaitAsked(size_t index) {
        EXPECT_TRUE(Eventually([index] {
            const std::lock_guard lock(g_lock);
            return g_asked.size() > index;
        }));
        const std::lock_guard lock(g_lock);
        return index < g_asked.size() ? g_asked[index] : "";
    }

    static std::string AwaitResult() {
        const auto data = AwaitMessage(0);
        return {data.begin(), data.end()};
    }

private:
    std::map<std::string, std::string> example_;
};

TEST_F(WireExample, HoldsForARun) {
    const Child server = StartServer();
    StartOwnerTask();
    EXPECT_EQ(Register("owner", Example("id 2, param 5000, to ominspect: the owner registers the item"), 5000), 0U);
    Post(18, Example("id 18, to ominspect: a requester starts it"), "ominspect", "iom_srv_task");
    EXPECT_EQ(AwaitAsked(0), Example("id 4, to the owner: the server asks for a run"));
    EXPECT_EQ(AwaitResult(), Example("reply to id 4: the owner will report later"));
    Post(5, Example("id 5, to ominspect: the owner reports"), "ominspect", "iom_srv_task");
    EXPECT_EQ(AwaitResult(), Example("id 5, to ominspect: the owner reports"));
}

TEST_F(WireExample, HoldsForTheStopOfAGroup) {
    const Child server = StartServer();
    StartOwnerTask();
    EXPECT_EQ(Register("owner", Example("id 2, param 5000, to ominspect: the owner registers the item"), 5000), 0U);
    const Reply started = Send(19, Example("id 19, to ominspect: a requester starts a group of one item"));
    ASSERT_EQ(started.data.size(), 4U);
    uint32_t task = 0;
    std::memcpy(&task, started.data.data(), sizeof task);
    EXPECT_EQ(AwaitAsked(0), Example("id 4, to the owner: the server asks for a run"));
    EXPECT_EQ(Send(6, "", task).data, (std::vector<unsigned char>{0, 0, 0, 0}));
    EXPECT_EQ(AwaitAsked(1), Example("id 4, to the owner: the group is stopped while the item runs"));
    Post(5, Example("id 5, to ominspect: the owner reports"), "ominspect", "iom_srv_task");
    EXPECT_EQ(AwaitMessage(1).size(), 6688U);
}

// The stop of a requester is a request like any other: L counts its NUL.
TEST_F(WireExample, ARequestersStopCountsItsNul) {
    const Child server = StartServer();
    StartOwnerTask();
    EXPECT_EQ(Register("owner", "load"), 0U);
    const std::string stop = R"({"name":"load","cmd":"stop"})";
    Post(18, stop, "ominspect", "iom_srv_task");
    const std::string asked = AwaitAsked(0);
    ASSERT_EQ(asked.size(), 36 + stop.size() + 2);
    EXPECT_EQ(asked[32], static_cast<char>(stop.size() + 1));
    EXPECT_EQ(asked.substr(36), stop + std::string(2, '\0'));
    EXPECT_EQ(AwaitResult(), Example("reply to id 4: the owner will report later"));
}

// A registration without a reply task, from the thread of the task itself.
uint32_t RegisterAndServe() {
    TagMsgBlock block{};
    block.msgId = 2;
    Put(block.dstProcName, "ominspect");
    Put(block.dstTaskName, "iom_srv_task");
    unsigned char name[] = "load";
    block.data = name;
    block.dataLen = sizeof name;
    OsMsgAsynSend(&block);
    return OsMsgTaskRoutineByName("owner");
}

TEST_F(WireExample, AnOwnerThatNamesNoReplyTaskIsAskedByTheTaskThatRegistered) {
    const Child server = StartServer();
    StartOwnerTask(RegisterAndServe);
    EXPECT_TRUE(Eventually([this] {
        Post(18, Example("id 18, to ominspect: a requester starts it"), "ominspect", "iom_srv_task");
        const auto data = AwaitMessage(0);
        return std::string(data.begin(), data.end()) == Example("reply to id 4: the owner will report later");
    }));
}

}  // namespace
}  // namespace support
