// Reading and writing the result table without starting a run.
#include "result/result_mgr.h"

#include "kivo/os_bounds.h"
#include "server/log.h"

namespace {

constexpr LogUnit kLogUnit{"ResultMgr", 13};

}  // namespace

uint32_t ResultMgr::UnLockResult(const std::string& name, tagKivoOmInspectionDataItem& out) {
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        out.result = MakeResult(name.c_str(), "fail", "no support");
        INSPECT_ERROR("find name err [%s] ", name.c_str());
        return 1;
    }
    out = MakeDataItem(*data);
    if (HasStatus(out.result, "running")) {
        return 0;
    }
    StopInspect(*data, false);
    return 1;
}

void ResultMgr::GetResultStatic(const std::string& name, tagKivoOmInspectionDataItem& out) {
    const std::lock_guard lock(m_tableLock);
    if (const ResultData* data = Find(name)) {
        out = MakeDataItem(*data);
    }
}

void ResultMgr::SetResultStatic(const std::string& name, const std::string& status) {
    const std::lock_guard lock(m_tableLock);
    ResultData* data = Find(name);
    if (data == nullptr) {
        return;
    }
    char(&field)[OM_INSPECT_STATUS_SIZE] = data->result.status;
    (void)memset_s(field, sizeof(field), 0, sizeof(field));
    const errno_t error = strcpy_s(field, sizeof(field), status.c_str());
    INSPECT_INFO("SetResultStatic %s to %s", name.c_str(), status.c_str());
    if (error != 0) {
        INSPECT_INFO("SetResultStatic %s err, ret : %d", name.c_str(), error);
    }
}
