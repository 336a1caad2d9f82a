// An owner process for tests and benchmarks that speaks the wire format itself, so that it can also break it.
//
//     raw_owner PROCESS ITEM[:LIMIT_MS][@BEHAVIOUR]...
//
// What an item does when it is run is its behaviour, or else in its name:
//     ok*      answers "success"           warn*   answers "warn"
//     later*   answers "running"; the result is reported on message 100, whose payload is the 192-byte record
//     early*   reports "success", which the server has handled before the owner answers "running"
//     never*   does not answer             die*    is gone before it answers
//     until*   prints "asked" and answers "running"; reports "fail", "stopped" when it is asked to stop
//     size_N   answers with N bytes, all 'x' but for the two NULs that end name and status
// An item called as*PROCESS registers and answers under an envelope that claims to come from PROCESS.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kivo/os_msg.h"
#include "ominspect/messages.h"
#include "ominspect/records.h"

namespace {

constexpr const char* kTask = "raw_owner";
constexpr uint32_t kReportNow = 100;
std::string g_process;
std::vector<std::string> g_items;
std::map<std::string, std::string> g_behaviours;

template <size_t size>
void Put(char (&field)[size], const std::string& text) {
    std::snprintf(field, size, "%s", text.c_str());
}

bool StartsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

uint32_t SendToServer(uint32_t id, uint32_t param, const void* data, size_t size, const std::string& claimed = "") {
    TagMsgBlock block{};
    block.uid = 4711;
    Put(block.srcProcName, claimed);
    Put(block.dstProcName, "ominspect");
    Put(block.dstTaskName, "iom_srv_task");
    block.msgId = id;
    block.param = param;
    block.data = static_cast<unsigned char*>(const_cast<void*>(data));
    block.dataLen = static_cast<uint32_t>(size);
    return OsMsgAsynSend(&block);
}

void Register(std::string argument) {
    const size_t at = argument.find('@');
    const std::string behaviour = at == std::string::npos ? "" : argument.substr(at + 1);
    argument.resize(std::min(at, argument.size()));
    const size_t colon = argument.find(':');
    const std::string item = argument.substr(0, colon);
    const auto limit = colon == std::string::npos ? 0u : static_cast<uint32_t>(std::stoul(argument.substr(colon + 1)));
    if (!behaviour.empty()) {
        g_behaviours[item] = behaviour;
    }
    const size_t star = item.find('*');
    SendToServer(2, limit, item.c_str(), item.size() + 1, star == std::string::npos ? "" : item.substr(star + 1));
}

uint32_t Answer(const TagMsgBlock& msg, const std::string& item, const char* status) {
    tagKivoOmInspectionResult result{};
    Put(result.name, item);
    Put(result.status, status);
    Put(result.text, "answered by " + g_process);
    return OsMsgSynSendResp(&msg, &result, sizeof result);
}

uint32_t AnswerBytes(const TagMsgBlock& msg, size_t size) {
    std::vector<unsigned char> bytes(size, 'x');
    if (size > 31) {
        bytes[31] = '\0';
    }
    if (size > 63) {
        bytes[63] = '\0';
    }
    return OsMsgSynSendResp(&msg, bytes.data(), static_cast<uint32_t>(size));
}

uint32_t Report(const std::string& item, const char* status, const char* text) {
    tagKivoOmInspectionResult result{};
    Put(result.name, item);
    Put(result.status, status);
    Put(result.text, text);
    return SendToServer(5, 0, &result, sizeof result);
}

// The server serves the messages of one sender in order: its answer to a last one says that the others are done.
void AwaitServer() {
    TagMsgBlock block{};
    Put(block.dstProcName, "ominspect");
    Put(block.dstTaskName, "iom_srv_task");
    block.msgId = 7;
    TagMsgBlock* resp = nullptr;
    OsMsgSynSend(&block, &resp, 60000);
    OsMsgSynRespFree(resp);
}

void PrintNow(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

uint32_t Behave(const TagMsgBlock& msg, const std::string& item, const std::string& behaviour, bool stop) {
    if (StartsWith(behaviour, "ok") || StartsWith(behaviour, "as*")) {
        return Answer(msg, item, "success");
    }
    if (StartsWith(behaviour, "warn")) {
        return Answer(msg, item, "warn");
    }
    if (StartsWith(behaviour, "until")) {
        if (stop) {
            Answer(msg, item, "success");
            return Report(item, "fail", "stopped");
        }
        PrintNow("asked");
        return Answer(msg, item, "running");
    }
    if (StartsWith(behaviour, "early")) {
        Report(item, "success", "too early");
        AwaitServer();
        return Answer(msg, item, "running");
    }
    if (StartsWith(behaviour, "later")) {
        return Answer(msg, item, "running");
    }
    if (StartsWith(behaviour, "die")) {
        return static_cast<uint32_t>(raise(SIGKILL));
    }
    if (StartsWith(behaviour, "size_")) {
        return AnswerBytes(msg, std::stoul(behaviour.substr(5)));
    }
    return 0;
}

uint32_t Handle(TagMsgBlock* msg) {
    if (msg->msgId == kReportNow) {
        return SendToServer(5, 0, msg->data, msg->dataLen);
    }
    if (msg->msgId != 4 || msg->dataLen < 37) {
        return 1;
    }
    const std::string item(reinterpret_cast<const char*>(msg->data));
    const std::string request(reinterpret_cast<const char*>(msg->data) + 36, msg->dataLen - 36);
    const bool stop =
        request.find(R"("cmd":"stop")") != std::string::npos || request.find(R"("cmd": "stop")") != std::string::npos;
    const auto named = g_behaviours.find(item);
    return Behave(*msg, item, named == g_behaviours.end() ? item : named->second, stop);
}

uint32_t Entry() {
    for (const std::string& item : g_items) {
        Register(item);
    }
    AwaitServer();
    PrintNow("registered");
    return OsMsgTaskRoutineByName(kTask);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return 2;
    }
    g_process = argv[1];
    g_items.assign(argv + 2, argv + argc);
    OsTaskDescriptor task{};
    std::snprintf(task.name, sizeof task.name, "%s", kTask);
    task.queueDepth = 64;
    task.handler = Handle;
    task.entry = Entry;
    return OsTaskRun(g_process.c_str(), &task, 1) == OS_MSG_OK ? 0 : 1;
}
