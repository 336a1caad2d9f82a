/*
 * Operations-log client (libkivo_om_log_client): named, size-bounded, rotating log files.
 *
 * Results are 0 or an errno(3) number. Any thread may log; lines are written whole and in the order of the
 * calls. Init, UnInit and CreateLog may run while other threads log.
 */
#ifndef KIVO_OM_LOG_CLIENT_H
#define KIVO_OM_LOG_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Levels of a line. */
#define KIVO_OM_LOG_ERROR 1u
#define KIVO_OM_LOG_WARNING 2u
#define KIVO_OM_LOG_INFO 3u

/* Describes a log file; copied. 76 bytes. */
struct KivoOmLogCreation {
    uint32_t lineSize;  /*  0: bytes of one line at most, its head and line end included; a longer one is cut */
    uint32_t fileCount; /*  4: files kept, the current one included; 1 to 1000 */
    uint32_t fileSize;  /*  8: bytes of one file at most */
    char fileName[64];  /* 12: NUL-padded, without a directory */
};

/* Names a created log; 0 is none. */
typedef uint16_t KivoOmLogHandle;

/* Begins logging under a client name of `length` bytes. There is one client per process: one that is open already, as a
 * host process may have opened it, stays as it is, name included, and that is no failure. EINVAL: null, empty, or
 * longer than 31 bytes. */
uint32_t KivoOmLogClientInit(const char* clientName, size_t length);

/* Creates or continues a log file in the directory that KIVO_LOG_DIR names (default /var/log/kivo) and
 * writes its handle. A log that this process has already created under the file name is shared, with the same handle.
 * EINVAL: a bad record; EPERM: the client is not initialised; else why the file cannot be written. */
uint32_t KivoOmLogCreateLog(const struct KivoOmLogCreation* creation, KivoOmLogHandle* handle);

/* Writes one line with time, level, client, unit, module, source line, process and thread. Line ends and
 * other control characters inside the text are written escaped, trailing line ends are dropped. If the handle is 0,
 * unknown or closed, the line goes to standard error, so that nothing is lost. */
void KivoOmLogModuleLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint8_t module, uint32_t line,
                              const char* format, ...) __attribute__((format(printf, 6, 7)));

/* The same without a module number. */
void KivoOmLogGeneralLogRecord(uint8_t level, KivoOmLogHandle handle, const char* unit, uint32_t line,
                               const char* format, ...) __attribute__((format(printf, 5, 6)));

/* Flushes and closes all logs of the process, whoever opened the client. EPERM: not initialised. */
uint32_t KivoOmLogClientUnInit(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
