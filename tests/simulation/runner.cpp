// A run that crashes or hangs is one that went wrong, too.
#include "runner.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "world/journal.h"

namespace sim {

namespace {

// A run takes milliseconds, rarely seconds.
constexpr unsigned kHangs = 120;

}  // namespace

Runner::Runner(WorldImages images, size_t sideBySide) : images_(images), slots_(sideBySide) {
    for (Slot& slot : slots_) {
        void* const page = mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) {
            std::abort();
        }
        slot.outcome = static_cast<Outcome*>(page);
    }
}

Runner::~Runner() {
    for (const Slot& slot : slots_) {
        munmap(slot.outcome, sizeof(Outcome));
    }
}

void Runner::Start(Slot& slot, Choices& choices, const std::string& journal) {
    std::memset(static_cast<void*>(slot.outcome), 0, offsetof(Outcome, made));
    slot.pid = fork();
    if (slot.pid != 0) {
        return;
    }
    alarm(kHangs);
    UseOutcome(slot.outcome);
    UseChoices(&choices);
    if (!journal.empty()) {
        OpenJournal(std::fopen(journal.c_str(), "w"));
    }
    Live(images_);
    FinishOutcome();
    CloseJournal();
    _exit(0);
}

void Runner::Collect(Slot& slot, int status) {
    slot.pid = 0;
    if (slot.outcome->finished) {
        return;
    }
    slot.outcome->violated = true;
    const std::string text = !WIFSIGNALED(status)          ? "the run ended early"
                             : WTERMSIG(status) == SIGALRM ? "the run does not end"
                                                           : std::string("crash: ") + strsignal(WTERMSIG(status));
    (void)std::snprintf(slot.outcome->text, sizeof slot.outcome->text, "%s", text.c_str());
}

void Runner::Run(const Next& next, const Ended& ended) {
    uint64_t number = 0;
    size_t running = 0;
    bool more = true;
    for (;;) {
        for (Slot& slot : slots_) {
            if (!more || slot.pid != 0) {
                continue;
            }
            const auto choices = next(number);
            more = choices != nullptr;
            if (more) {
                slot.number = number++;
                Start(slot, *choices, {});
                ++running;
            }
        }
        if (running == 0) {
            return;
        }
        int status = 0;
        const int pid = wait(&status);
        for (Slot& slot : slots_) {
            if (slot.pid == pid) {
                Collect(slot, status);
                --running;
                more = ended(slot.number, *slot.outcome) && more;
            }
        }
    }
}

const Outcome& Runner::RunOne(Choices choices, const std::string& journal) {
    Slot& slot = slots_.front();
    Start(slot, choices, journal);
    int status = 0;
    waitpid(slot.pid, &status, 0);
    Collect(slot, status);
    return *slot.outcome;
}

}  // namespace sim
