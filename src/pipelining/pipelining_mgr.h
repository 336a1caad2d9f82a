// The registry of inspection items that other processes own, and the forwarding of a run to the owner.
//
// Result codes: 0 success, 10 no reply, 12 item not registered, 13 a copy did not fit, 14 no buffer.
#pragma once

#include <map>
#include <queue>
#include <string>

#include "base/records.h"
#include "kivo/os_lock.h"

/// Any thread may call; no lock is held while an owner is asked, so several runs may wait at once.
class PipeliningMgr {
public:
    PipeliningMgr();
    virtual ~PipeliningMgr();
    PipeliningMgr(const PipeliningMgr&) = delete;
    PipeliningMgr& operator=(const PipeliningMgr&) = delete;

    /// Makes `owner` the owner of an item; an item that has an owner keeps it. Always 0.
    virtual unsigned int RegInspectItem(const std::string& name, const InspectClientMsg& owner);

    /// Forgets an item, if registered. Always 0.
    virtual unsigned int UnRegInspectItem(const std::string& name);

    /// Both do nothing and return 0.
    virtual unsigned int StartInspectPipeLining();
    virtual unsigned int StopInspectPipeLining();

    /// Asks the item's owner to run it (message id 4) and waits at most 300000 ms. 0: `result` holds the owner's
    /// reply under the requested name; its texts are as the owner sent them and may lack their NUL. With an empty
    /// or an oversized reply only the name is set. 10, 12, 13, 14: `result` is as it was.
    virtual unsigned int GetInspectResult(tagKivoOmInspectionRequestMsg& request, tagKivoOmInspectionResult& result);

private:
    bool FindOwner(const std::string& name, InspectClientMsg& owner);

    OsRwLock registryLock{};  // guards itemRegistry; held for one lookup or change, never across a send
    std::map<std::string, InspectClientMsg> itemRegistry;
    std::queue<std::string> pendingQueue;  // unused
};
