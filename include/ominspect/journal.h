/*
 * Lines on standard error that the service manager's journal keeps with their level (sd-daemon(3)). Elsewhere, on a
 * terminal for instance, they stay as they are.
 */
#ifndef OMINSPECT_JOURNAL_H
#define OMINSPECT_JOURNAL_H

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

/* Whether standard error leads to the journal: it says which socket is its own. Any thread. */
static inline int OmJournalListens(void) {
    const char* stream = getenv("JOURNAL_STREAM");
    unsigned long long device = 0;
    unsigned long long inode = 0;
    struct stat error;
    return stream != NULL && sscanf(stream, "%llu:%llu", &device, &inode) == 2 && fstat(STDERR_FILENO, &error) == 0 &&
           error.st_dev == device && error.st_ino == inode;
}

#define OM_JOURNAL_ERROR 3
#define OM_JOURNAL_WARNING 4
#define OM_JOURNAL_INFO 6

/* What stands in front of a line of this level: "<3>", or nothing when the journal does not listen. Never null. */
static inline const char* OmJournalPrefix(int level) {
    static const char* const kPrefixes[] = {"<0>", "<1>", "<2>", "<3>", "<4>", "<5>", "<6>", "<7>"};
    return level >= 0 && level <= 7 && OmJournalListens() ? kPrefixes[level] : "";
}

#endif
