// The device's absolute paths, each named once. The tests' builds of these sources put a folder of their own before
// them.
#pragma once

extern const char* const kConfigPath;
extern const char* const kSystemLogDir;
extern const char* const kSystemLogBackupDir;
