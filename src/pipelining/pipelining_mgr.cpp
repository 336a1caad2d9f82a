// An owner is asked without the lock, so that a slow one does not block registration.
#include "pipelining/pipelining_mgr.h"

#include <cstring>
#include <memory>
#include <new>

#include "base/field_text.h"
#include "base/log.h"
#include "base/message_block.h"
#include "kivo/os_bounds.h"
#include "ominspect/messages.h"

// How long an owner may take to answer, in ms. Only the build that tests silent owners sets another limit.
#ifndef INSPECT_OWNER_TIMEOUT_MS
#define INSPECT_OWNER_TIMEOUT_MS 300000
#endif

namespace {

constexpr LogUnit kLogUnit{"PipeliningMgr", 17};
constexpr unsigned int kNoReply = 10;
constexpr unsigned int kNotRegistered = 12;
constexpr unsigned int kCopyFailed = 13;
constexpr unsigned int kNoBuffer = 14;
constexpr uint32_t kOwnerTimeoutMs = INSPECT_OWNER_TIMEOUT_MS;
constexpr uint32_t kSendFailedCode = 0x80020001;  // the code of the failed start in the log line

/// Holds the registry lock for reading or for writing.
class RegistryHold {
public:
    using Take = uint32_t (*)(OsRwLock*);

    RegistryHold(OsRwLock& lock, Take take) : m_lock(lock), m_held(take(&lock) == 0) {}
    ~RegistryHold() {
        if (m_held) {
            (void)OsRwLockUnLock(&m_lock);
        }
    }
    RegistryHold(const RegistryHold&) = delete;
    RegistryHold& operator=(const RegistryHold&) = delete;

private:
    OsRwLock& m_lock;
    bool m_held;
};

}  // namespace

PipeliningMgr::PipeliningMgr() {
    (void)OsRwLockInit(&registryLock, 0);
}

PipeliningMgr::~PipeliningMgr() {
    (void)OsRwLockDestroy(&registryLock);
}

unsigned int PipeliningMgr::RegInspectItem(const std::string& name, const InspectClientMsg& owner) {
    INSPECT_ERROR("add inspection in pipeline: [%s] from [%s:%s] ", name.c_str(), owner.procName.c_str(),
                  owner.taskName.c_str());
    const RegistryHold hold(registryLock, OsRwLockWrLock);
    itemRegistry.insert({name, owner});
    return 0;
}

unsigned int PipeliningMgr::UnRegInspectItem(const std::string& name) {
    INSPECT_ERROR("del inspection in pipeline: [%s] ", name.c_str());
    const RegistryHold hold(registryLock, OsRwLockWrLock);
    itemRegistry.erase(name);
    return 0;
}

unsigned int PipeliningMgr::StartInspectPipeLining() {
    return 0;
}

unsigned int PipeliningMgr::StopInspectPipeLining() {
    return 0;
}

bool PipeliningMgr::FindOwner(const std::string& name, InspectClientMsg& owner) {
    const RegistryHold hold(registryLock, OsRwLockRdLock);
    const auto found = itemRegistry.find(name);
    if (found == itemRegistry.end()) {
        INSPECT_ERROR("[%s]not found inspect : %s ", "GetInspectResult", name.c_str());
        return false;
    }
    owner = found->second;
    return true;
}

unsigned int PipeliningMgr::GetInspectResult(tagKivoOmInspectionRequestMsg& request,
                                             tagKivoOmInspectionResult& result) {
    const FieldText name(request.name);
    InspectClientMsg owner;
    try {
        if (!FindOwner(name.c_str(), owner)) {
            return kNotRegistered;
        }
    } catch (const std::bad_alloc&) {
        INSPECT_ERROR("malloc error when run inspect %s %s %s", name.c_str(), "", "");
        return kNoBuffer;
    }

    // The payload: head, request text, NUL.
    tagKivoOmInspectionRunHead head{};
    const std::size_t size = sizeof(head) + request.len + 1;
    const std::unique_ptr<unsigned char[]> payload(new (std::nothrow) unsigned char[size]());
    if (payload == nullptr) {
        INSPECT_ERROR("malloc error when run inspect %s %s %s", name.c_str(), owner.procName.c_str(),
                      owner.taskName.c_str());
        return kNoBuffer;
    }
    TagMsgBlock block{};
    errno_t error = strcpy_s(head.name, sizeof(head.name), name.c_str());
    head.len = request.len;
    std::memcpy(payload.get(), &head, sizeof(head));
    char* const text = reinterpret_cast<char*>(payload.get()) + sizeof(head);
    error |= strncpy_s(text, std::size_t{request.len} + 1, request.data, request.len);
    block.msgId = OM_INSPECT_MSG_OWNER_RUN;
    block.dataLen = static_cast<uint32_t>(size);
    block.data = payload.get();
    error |= strcpy_s(block.dstProcName, sizeof(block.dstProcName), owner.procName.c_str());
    error |= strcpy_s(block.dstTaskName, sizeof(block.dstTaskName), owner.taskName.c_str());
    if (error != 0) {
        INSPECT_ERROR("cpy_s error when run inspect %s %s %s", name.c_str(), owner.procName.c_str(),
                      owner.taskName.c_str());
        return kCopyFailed;
    }

    TagMsgBlock* response = nullptr;
    if (const uint32_t sent = OsMsgSynSend(&block, &response, kOwnerTimeoutMs); sent != OS_MSG_OK) {
        INSPECT_ERROR("OsMsgSynSend fail, start %x, ret = %x ", kSendFailedCode, sent);
        return kNoReply;
    }
    // A run whose owner answered counts as done, whatever the answer: its code is not looked at.
    (void)TransMsgBlockAndFree(response, reinterpret_cast<unsigned char*>(&result), sizeof(result));
    if (strcpy_s(result.name, sizeof(result.name), name.c_str()) != 0) {
        INSPECT_ERROR("strcpy_s fail.");
        return kNoReply;
    }
    return 0;
}
