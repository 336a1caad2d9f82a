// The device's absolute paths, each named once. The tests' build of these sources puts a folder of its own before them.
#pragma once

#ifndef INSPECT_PATH_PREFIX
#define INSPECT_PATH_PREFIX ""
#endif

inline constexpr const char* kConfigPath = INSPECT_PATH_PREFIX "/zq_product/etc/config/om/inspect_config.xml";
inline constexpr const char* kSystemLogDir = INSPECT_PATH_PREFIX "/data/log/wylogs";
inline constexpr const char* kSystemLogBackupDir = INSPECT_PATH_PREFIX "/data/inspect/diag/log/wylogs";
