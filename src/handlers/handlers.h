// The message handlers, one per message id; all have the signature that server/dispatch.h describes and run on
// the server task's thread, one message at a time.
//
// A message that lacks the payload its handler needs is answered with an empty reply, that of id 7 with 2; nothing is
// logged.
#pragma once

#include <memory>

#include "kivo/os_msg.h"

class InspectConfigMgr;

/// The configuration; null before Inspect::Init.
extern InspectConfigMgr* g_inspectConfigMgr;

namespace Inspect {

/// Does nothing: usage reports are ignored.
void InitDot();

/// Id 0: runs, stops or resets one item; replies with its 192-byte result. Holds the server task, polling once a
/// second, while an item that answered "running" is waited for.
void SyncDealSingle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 1: replies with an empty group record to a payload of more than two bytes; runs nothing.
void SyncDealGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 2: registers the item named by the payload for the sender; `param` is its time limit in ms. No reply.
void ASyncDealReg(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 3: removes the item named by the payload. No reply.
void ASyncDealUnReg(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 5: takes an owner's 192-byte result and forwards it to the item's requesters while it says "running".
/// No reply.
void ASyncDealSendResult(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 6: stops the group job whose id is `param`; replies u32 0 when the request was recorded, else 1.
void SyncDealStopGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 7: replies u32 1 when the item named by the payload is idle or unknown, 0 when not, 2 without a payload.
void SyncDealGetState(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 18: starts one item on a job; sends its result, and for an item that runs its final result later, as
/// messages 0. No reply.
void ASyncDealSingle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 19: starts a group of request texts on a job; replies u32 the job's id, 14 when there is no worker, 16 when
/// the group runs already. Its record is sent as message 1.
void ASyncDealGroup(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 37: replies u32 the number of configured items.
void GetGroupListLenHandle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 38: replies with the list of configured items, at most 256.
void GetGroupListHandle(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 14: accepted and ignored; the reply stays empty.
void SetInspectDotReportInfo(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Id 16: accepted and ignored; the reply stays empty.
void NotifyInspectDotPackage(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

}  // namespace Inspect
