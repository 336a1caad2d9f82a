// Sends asynchronous results to the clients that asked for them.
#pragma once

#include "base/records.h"

/// Sends `len` bytes of `data` (copied during the call) to a client as message `msgId`. Any thread. A name of
/// more than 15 bytes or a refused send is logged; nothing is sent again.
void SendASyncResult(unsigned int msgId, const InspectClientMsg& to, const unsigned char* data, unsigned int len);
