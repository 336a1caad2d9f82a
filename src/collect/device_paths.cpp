// The device's absolute paths.
#include "collect/device_paths.h"

#ifndef INSPECT_PATH_PREFIX
#define INSPECT_PATH_PREFIX ""
#endif

const char* const kConfigPath = INSPECT_PATH_PREFIX "/zq_product/etc/config/om/inspect_config.xml";
const char* const kSystemLogDir = INSPECT_PATH_PREFIX "/data/log/wylogs";
const char* const kSystemLogBackupDir = INSPECT_PATH_PREFIX "/data/inspect/diag/log/wylogs";
