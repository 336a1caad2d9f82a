// Handlers of messages that are not served yet: they leave the reply empty.
#include "handlers/handlers.h"

// No item is configured yet that could be counted.
void Inspect::GetGroupListLenHandle(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                                    unsigned int& /*replyLen*/) {}

// No item is configured yet that could be listed.
void Inspect::GetGroupListHandle(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                                 unsigned int& /*replyLen*/) {}
