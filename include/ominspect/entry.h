/*
 * What libominspect.so exports to the program that loads it, beside `main` (the server as a process of its own).
 */
#ifndef OMINSPECT_ENTRY_H
#define OMINSPECT_ENTRY_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/* Runs the server inside the calling host process, which must not be on the bus yet: blocks SIGCHLD and SIGUSR1
 * in the calling thread and its later ones, starts the timer manager, prints the message layer's lines to
 * standard output, and serves task "iom_srv_task" of process "ominspect". Returns 0 once the process has left
 * the bus, or at once when it cannot join it. */
uint32_t KivoInspectTaskMain(void);

/* Kept for programs that link them; without effect. */
void JsonSetValue(void);
void JsonAddValue(void);
void JsonDelValue(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
