// The message layer's own log lines.
#include <cstdio>

#include "fake/journal.h"
#include "fake/msg.h"

using namespace kivo::fake;

void kivo::fake::LogLine(Lock& lock, const Process& process, uint32_t level, const std::string& text) {
    if (level > process.logLevel) {
        return;
    }
    auto* const log = process.log;
    lock.unlock();
    if (log != nullptr) {
        log(text.c_str());
    } else {
        (void)std::fprintf(stderr, "%s\n", text.c_str());
    }
    lock.lock();
}

void OsMsgSetLogLevel(uint32_t level) {
    const Lock lock = Hold();
    RecordCall(lock, "OsMsgSetLogLevel(" + std::to_string(level) + ")");
    CurrentProcess().logLevel = level;
}

void OsMsgRegLogFunc(void (*log)(const char* text)) {
    const Lock lock = Hold();
    RecordCall(lock, "OsMsgRegLogFunc");
    CurrentProcess().log = log;
}
