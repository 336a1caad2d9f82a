// Usage reports ("dots"): accepted from clients that send them, and ignored.
#include "handlers/handlers.h"
#include "handlers/init.h"

void Inspect::InitDot() {}

void Inspect::SetInspectDotReportInfo(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                                      unsigned int& /*replyLen*/) {}

void Inspect::NotifyInspectDotPackage(TagMsgBlock* /*msg*/, std::unique_ptr<unsigned char[]>& /*reply*/,
                                      unsigned int& /*replyLen*/) {}
