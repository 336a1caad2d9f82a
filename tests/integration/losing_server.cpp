// Stands in for a server that loses requests, as one with a full queue does.
//
//     losing_server N
//
// loses the first N runs in the background. It answers each later one with "success" and the number of the request, and
// each stop with "success" and "idle".
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kivo/os_msg.h"
#include "ominspect/records.h"

namespace {

unsigned long g_left = 0;
unsigned long g_number = 0;

std::string NameIn(const std::string& request) {
    const std::string before = R"({"name":")";
    return request.substr(before.size(), request.find('"', before.size()) - before.size());
}

uint32_t SendResult(const TagMsgBlock& request, const std::string& item, const std::string& text) {
    tagKivoOmInspectionResult result{};
    std::snprintf(result.name, sizeof result.name, "%s", item.c_str());
    std::snprintf(result.status, sizeof result.status, "success");
    std::snprintf(result.text, sizeof result.text, "%s", text.c_str());
    TagMsgBlock block{};
    std::memcpy(block.dstProcName, request.srcProcName, sizeof block.dstProcName);
    std::memcpy(block.dstTaskName, request.replyTaskName, sizeof block.dstTaskName);
    block.data = reinterpret_cast<unsigned char*>(&result);
    block.dataLen = sizeof result;
    return OsMsgAsynSend(&block);
}

uint32_t Handle(TagMsgBlock* msg) {
    if (msg->msgId == 7) {
        const uint32_t noName = 2;
        return OsMsgSynSendResp(msg, &noName, sizeof noName);
    }
    if (msg->msgId != 18) {
        return 1;
    }
    const std::string request(reinterpret_cast<const char*>(msg->data), msg->dataLen);
    if (request.find(R"("cmd":"stop")") != std::string::npos) {
        return SendResult(*msg, NameIn(request), "idle");
    }
    ++g_number;
    if (g_left > 0) {
        --g_left;
        return 0;
    }
    return SendResult(*msg, NameIn(request), std::to_string(g_number));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    g_left = std::strtoul(argv[1], nullptr, 10);
    OsTaskDescriptor task{};
    std::snprintf(task.name, sizeof task.name, "iom_srv_task");
    task.queueDepth = 64;
    task.handler = Handle;
    return OsTaskRun("ominspect", &task, 1) == OS_MSG_OK ? 0 : 1;
}
