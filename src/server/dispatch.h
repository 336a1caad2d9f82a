// Message dispatch: from an envelope to its handler and back to the sender.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "kivo/os_msg.h"

/// Serves one message on the server task's thread. `reply` is empty and `replyLength` 0 at first; what the
/// handler leaves in them answers a synchronous message. The dispatcher frees it.
using InspectHandler = void (*)(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);

/// Which handler serves a message id.
struct DispatchRow {
    uint32_t msgId;
    InspectHandler handler;
};

/// All message ids of the server, in search order (dispatch_table.cpp).
extern const std::array<DispatchRow, 18> kDispatchTable;

/// Calls the handler of the first row that has the message's id and a handler; does nothing if there is none.
void CallHandler(std::span<const DispatchRow> rows, TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply,
                 unsigned int& replyLength);

/// Whether processes of this user may use the server. Everybody may: on the device the bus's policy decides who reaches
/// the server at all. A stricter test goes into permission.cpp.
bool InspectCheckPackagesValidByUid(uint32_t uid) noexcept;

/// The message handler of task "iom_srv_task". 0: handled, unknown ids included; 1: null message or refused
/// caller, no reply; else the code of a reply that could not be sent.
uint32_t InspectMsgProcess(TagMsgBlock* msg) noexcept;
