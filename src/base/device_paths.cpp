// A file of their own, so that a shared object holds each as a text that can be looked for.
#include "base/device_paths.h"

#ifndef INSPECT_PATH_PREFIX
#define INSPECT_PATH_PREFIX ""
#endif

const char* const kConfigPath = INSPECT_PATH_PREFIX "/zq_product/etc/config/om/inspect_config.xml";
const char* const kSystemLogDir = INSPECT_PATH_PREFIX "/data/log/wylogs";
const char* const kSystemLogBackupDir = INSPECT_PATH_PREFIX "/data/inspect/diag/log/wylogs";
