// The result table: state and last result of every inspection item and group, and the runs on it.
//
// An item goes from "idle" to "running" (GetResult), from there to the owner's final status (answered at once, or
// reported through SetResult) or to "fail" (time limit, no wait timer). Each GetResult that found or made the item
// "running" holds the run once; UnLockResult, called until it returns 1, releases the hold, and the last release
// ends the run: event 8, event 9 if no other run is active, requesters forgotten.
//
// Any thread may call everything but Init and AddGroup, which belong to the start. Unknown names are ignored
// unless an operation says otherwise.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "base/records.h"
#include "pipelining/pipelining_mgr.h"
#include "result/result_data.h"

struct TaskData;

class ResultMgr {
public:
    // ---- the table, and reading it without a run (result_mgr.cpp) ----

    /// Sets the count of active runs to 0.
    void Init();

    /// Adds an item of `owner` as "idle", with a time limit of one run in ms (0 none). An item that is known gets
    /// a fresh result and time limit, but keeps its runs, wait timer and requesters, and its first owner.
    void AddItem(const std::string& name, unsigned int timeout, const InspectClientMsg& owner);

    /// Ends the item's run, if any, and forgets the item and its owner.
    void DelItem(const std::string& name);

    /// Adds groups as "success"; takes no lock.
    void AddGroup(const std::vector<std::string>& names);

    /// Appends a client to those that are told of the item's result.
    void AddRequesterMsg(const std::string& name, const InspectClientMsg& client);

    /// Removes the last requester of the item, whichever `client` is.
    void DelRequesterMsg(const std::string& name, const InspectClientMsg& client);

    /// Copies the item's requesters to `out`, which stays as it is for an unknown name.
    void GetRequesterMsg(const std::string& name, std::vector<InspectClientMsg>& out);

    /// 0: still "running". 1: `out` is final and one hold on the run was released, or the name is unknown and
    /// `out` is (name, "fail", "no support").
    uint32_t UnLockResult(const std::string& name, tagKivoOmInspectionDataItem& out);

    /// Copies the entry to `out`, which stays as it is for an unknown name.
    void GetResultStatic(const std::string& name, tagKivoOmInspectionDataItem& out);

    /// Overwrites the status text, and nothing else. A text of more than 31 bytes leaves it empty.
    void SetResultStatic(const std::string& name, const std::string& status);

    // ---- runs (result_run.cpp) ----

    /// Starts a group; how many of its runs are then in progress, 0 for an unknown group.
    uint32_t StartGroup(const std::string& name);

    /// Ends one run of a group.
    void StopGroup(const std::string& name);

    /// Runs an item, or joins its run in progress, and fills `out` with what is known then; (name, "fail",
    /// "no support") for an unknown item. Blocks for as long as the owner takes to answer, without the lock.
    void GetResult(tagKivoOmInspectionRequestMsg& request, tagKivoOmInspectionDataItem& out);

    /// Hands the request to the item's owner, past the table; ("fail", "run err") if there is no answer.
    void RunResult(tagKivoOmInspectionRequestMsg& request, tagKivoOmInspectionResult& result);

    /// Takes what an owner reports. The run stays held until UnLockResult.
    void SetResult(tagKivoOmInspectionResult& result);

private:
    friend class ResultMgrPeer;  // lets the unit tests start and stop runs on an entry of their own

    // All of these need the table lock.
    ResultData* Find(const std::string& name);
    void StartInspect(ResultData& data);
    void StartInspect(ResultData& data, const std::string& result);
    void StopInspect(ResultData& data, bool force);
    void StopInspect(ResultData& data, const std::string& result, bool force);
    void WaitResult(ResultData& data);

    // Bodies of the two forms above; `text`, unless null, becomes the result text.
    void BeginRun(ResultData& data, const std::string* text);
    void EndRun(ResultData& data, const std::string* text, bool force);

    // Starts a wait timer job; its identifier, 0 when there is no thread or no memory for it. Needs the table lock.
    uint32_t StartWait(const char* name, uint32_t timeout);

    // Body of the wait timer job; takes the table lock when the time limit is reached.
    void AwaitTimeLimit(const std::string& name, uint32_t timeout, TaskData& task);

    std::mutex m_tableLock;     // guards runningCount, m_results and every entry in it
    uint32_t runningCount = 0;  // entries whose run is in progress
    std::map<std::string, ResultData> m_results;
    PipeliningMgr m_pipelining;  // has a lock of its own; called without m_tableLock
};

/// The one instance, made during static initialisation. It is destroyed when the process exits, unless a background job
/// still runs then, or the server's task inside a host process: both may use it until the process has ended.
extern ResultMgr& g_resultMgr;
