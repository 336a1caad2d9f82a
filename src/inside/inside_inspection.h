// The server's own inspection item, and the messages that are accepted and ignored.
#pragma once

#include <cstdint>
#include <memory>

#include "kivo/os_msg.h"

/// Registers item "kivo_om_get_log_dir" with the inspection engine. 0, or the code of the engine client's failing
/// call; the server serves without the item, too.
uint32_t InitInspectInside();

/// Ids 10, 11, 12, 13 and 1000: accepted and ignored; the reply stays empty.
void InspectSlaveProcess(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);
void InspectTransCreateFile(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);
void InspectTransWriteFile(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);
void InspectTransCloseFile(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);
void InspectSlaveReadVersion(TagMsgBlock* msg, std::unique_ptr<unsigned char[]>& reply, unsigned int& replyLength);
