// Where the server's configuration, the diagnosis area and the log are on this machine.
#pragma once

#include <string>

namespace ominspect::collect {

// As the configuration names it; on an ordinary Linux the service maps it to a folder of its own.
inline constexpr const char* kDeviceArea = "/data/inspect/diag/log";

// Further patterns of secrets; need not exist.
inline constexpr const char* kPatternsFile = OMINSPECT_CONFIG_DIR "/redaction.patterns";

struct Places {
    std::string config;  // what the server reads
    std::string area;
    std::string log;  // the folder of the operations log
    bool isDevice;
};

// The device's places, if its configuration is there; else those of the installed service, if that is. KIVO_LOG_DIR
// names another folder of the log.
Places ThePlaces();

}  // namespace ominspect::collect
