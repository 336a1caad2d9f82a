// The payload of a block lies in accounted memory: the platform can tell how much the server holds.
#include "base/message_block.h"

#include "base/field_text.h"
#include "base/log.h"
#include "kivo/os_bounds.h"
#include "kivo/os_mem.h"

namespace {

constexpr LogUnit kLogUnit{"InspectMsg", 14};
constexpr unsigned int kNoReply = 10;
constexpr unsigned int kEmptyReply = 11;
constexpr unsigned int kCopyFailed = 13;

unsigned char* AllocatePayload(unsigned int len) {
    return static_cast<unsigned char*>(OsMemMallocSetCharMon(len, 0, kLogUnit.name, __LINE__));
}

}  // namespace

InspectMsgBlock::InspectMsgBlock(const TagMsgBlock& msg) {
    CreatMsgData(msg);
}

// NOLINTBEGIN(modernize-pass-by-value): the class's users are given references
InspectMsgBlock::InspectMsgBlock(const unsigned int& id, const std::string& srcProc, const std::string& srcTask,
                                 const std::string& dstProc, const std::string& dstTask, const unsigned int& len,
                                 const unsigned char* src)
    : msgId(id), srcProcName(srcProc), srcTaskName(srcTask), dstProcName(dstProc), dstTaskName(dstTask), dataLen(len) {
    RefreshData(len, src);
}
// NOLINTEND(modernize-pass-by-value)

InspectMsgBlock::~InspectMsgBlock() {
    FreeMsgData();
}

void InspectMsgBlock::CreatMsgData(const TagMsgBlock& msg) {
    msgId = msg.msgId;
    srcProcName = FieldText(msg.srcProcName).View();
    srcTaskName = FieldText(msg.srcTaskName).View();
    dstProcName = FieldText(msg.dstProcName).View();
    dstTaskName = FieldText(msg.dstTaskName).View();
    dataLen = msg.dataLen;

    FreeMsgData();
    data = AllocatePayload(dataLen);
    if (data == nullptr) {
        INSPECT_ERROR("CreatMsgData OsMemMallocSetNull fail, data is null");
        return;
    }
    // Fails only when there is nothing to copy from; the payload is then all zero.
    (void)memcpy_s(data, dataLen, msg.data, msg.dataLen);
}

void InspectMsgBlock::RefreshData(const unsigned int& len, const unsigned char* src) {
    FreeMsgData();
    data = AllocatePayload(len);
    if (data == nullptr) {
        INSPECT_ERROR("RefreshData OsMemMallocSetNull fail, data is null");
        return;
    }
    (void)memcpy_s(data, len, src, len);  // as above
}

void InspectMsgBlock::FreeMsgData() {
    if (data != nullptr) {
        OSMemTypeFreeMon(data, kLogUnit.name, __LINE__);
        data = nullptr;
    }
}

unsigned int CreateMsgBlock(const InspectMsgBlock& block, TagMsgBlock& msg) {
    msg.reserved1 = 0;
    msg.reserved2 = 0;
    msg.msgId = block.msgId;
    const errno_t sum = strcpy_s(msg.srcProcName, sizeof(msg.srcProcName), block.srcProcName.c_str()) +
                        strcpy_s(msg.srcTaskName, sizeof(msg.srcTaskName), block.srcTaskName.c_str()) +
                        strcpy_s(msg.dstProcName, sizeof(msg.dstProcName), block.dstProcName.c_str()) +
                        strcpy_s(msg.dstTaskName, sizeof(msg.dstTaskName), block.dstTaskName.c_str());
    if (sum != 0) {
        INSPECT_ERROR("memcpy_s fail, errno = %d", sum);
        return kCopyFailed;
    }
    msg.data = block.data;
    msg.dataLen = block.dataLen;
    return 0;
}

unsigned int TransMsgBlockAndFree(TagMsgBlock* resp, unsigned char* out, unsigned int outSize) {
    if (resp == nullptr) {
        INSPECT_ERROR("[%s]: resp is null", "TransMsgBlockAndFree");
        return kNoReply;
    }
    unsigned int result = 0;
    if (resp->dataLen == 0 || resp->data == nullptr) {
        INSPECT_ERROR("[%s]: resp data is null", "TransMsgBlockAndFree");
        result = kEmptyReply;
    } else if (const errno_t error = memcpy_s(out, outSize, resp->data, resp->dataLen); error != 0) {
        INSPECT_ERROR("memcpy_s fail, errno = %d", error);
        result = kCopyFailed;
    }
    OsMsgSynRespFree(resp);
    return result;
}
