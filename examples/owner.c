/* An owner in C: the free space of a file system, answered at once. `ominspectctl run disk_space --cmd /var` asks for
 * another file system than that of "/". */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <kivo/om_inspect_engine_client.h>
#include <kivo/os_msg.h>

/* Runs on the library's thread, one request after the other. What it writes into the record is the answer. */
static uint32_t disk_space(const char* item, const char* request, struct tagKivoOmInspectionResult* result) {
    char argument[OM_INSPECT_TEXT_SIZE];
    (void)item;
    /* A stop reaches the owner like any other request, though there is nothing to stop here. */
    if (InspectGetArgument(request, argument, sizeof argument) != OS_MSG_OK || argument[0] != '/') {
        strcpy(argument, "/");
    }
    struct statvfs disk;
    if (statvfs(argument, &disk) != 0 || disk.f_blocks == 0) {
        strcpy(result->status, "unknown");
        snprintf(result->text, sizeof result->text, "no size of this file system: %s", strerror(errno));
        return 0;
    }
    const double free_gib = (double)disk.f_bavail * (double)disk.f_frsize / (1024.0 * 1024.0 * 1024.0);
    const double free_percent = 100.0 * (double)disk.f_bavail / (double)disk.f_blocks;
    strcpy(result->status, free_percent < 2 ? "fail" : free_percent < 10 ? "warn" : "success");
    snprintf(result->text, sizeof result->text, "%.1f GiB free (%.0f %%)", free_gib, free_percent);
    return 0;
}

static uint32_t no_message(struct TagMsgBlock* msg) {
    (void)msg;
    return OS_MSG_OK;
}

/* A task without messages: its loop returns when the process leaves the bus, or has lost it. */
static uint32_t watch_bus(void) {
    OsMsgTaskRoutineByName("bus_watch");
    return (uint32_t)kill(getpid(), SIGTERM);
}

int main(void) {
    /* Blocked before the library starts its threads, which inherit that: main waits for them. */
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, NULL);

    const struct OsTaskDescriptor watch = {
        .name = "bus_watch", .queueDepth = 1, .handler = no_message, .entry = watch_bus};
    const struct InspectHandlerRecord item = {.name = "disk_space", .handler = disk_space};
    uint32_t result = OsProcAttach("example-c");
    if (result == OS_MSG_OK) {
        result = OsTaskCreate(&watch);
    }
    /* From here on the library registers the items again by itself whenever the server restarts. */
    if (result == OS_MSG_OK) {
        result = InspectClientInit("items");
    }
    if (result == OS_MSG_OK) {
        result = InspectRegHandler(&item, 1);
    }
    if (result != OS_MSG_OK) {
        fprintf(stderr, "owner: %s\n", OsMsgResultText(result));
        return 1;
    }
    int number = 0;
    sigwait(&ends, &number);
    const int lost = InspectUnRegHandler(item.name) != OS_MSG_OK;
    OsProcDetach();
    return lost;
}
