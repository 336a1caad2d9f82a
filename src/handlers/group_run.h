// Group runs: one background job runs all items of a request.
#pragma once

#include <string>
#include <vector>

#include "base/records.h"

struct TaskData;

namespace Inspect {

/// What the job of a group run needs.
struct GroupRequest {
    std::vector<std::string> texts;  // one request text per item
    InspectClientMsg client;         // gets the group record
    std::string groupName;
};

/// Body of the job: runs the items, sends the group record, waits up to 120 s to be stopped, and returns the group
/// and its items to rest.
void RunGroup(GroupRequest request, TaskData& task);

/// Asks the owner of an item to stop it.
void StopItem(const std::string& name);

}  // namespace Inspect
