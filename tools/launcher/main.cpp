// ominspect: loads the server's shared object and runs it as a process of its own, or as a host process does.
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include <dlfcn.h>
#include <getopt.h>
#include <unistd.h>

#include "kivo/os_msg.h"
#include "ominspect/journal.h"

namespace {

constexpr int kWrongUse = 2;
constexpr int kCannotRun = 3;
constexpr int kDidNotEnd = 4;

// One request a second. The service manager waits twice as long before it kills the process (TimeoutStopSec).
constexpr int kMostRequests = 10;

constexpr const char* kHelp =
    "Usage: ominspect [--hosted] [--library PATH]\n"
    "Runs the inspection server until SIGTERM or SIGINT.\n"
    "\n"
    "  --hosted        run the server as a host process does: without heartbeat and log backup\n"
    "  --library PATH  the server's shared object (default: the installed libominspect.so)\n"
    "  --version       print the version and end\n"
    "  --help          print this text and end\n"
    "\n"
    "The message bus is the one at KIVO_BUS_ADDRESS, else the system bus.\n"
    "Exit code: 0 ended as asked, 2 wrong use, 3 the server cannot be loaded or run, 4 the server\n"
    "went on for ten seconds after it was asked to end and was ended where it was.\n";

struct Options {
    bool hosted = false;
    const char* serverPath = "libominspect.so";
};

// With the level that the journal takes away; elsewhere from the fourth byte on.
constexpr char kEnded[] = "<3>ominspect: the server does not end; it is ended where it is\n";
constexpr std::size_t kLevel = 3;
volatile std::sig_atomic_t g_journalListens = 0;

volatile std::sig_atomic_t g_endAsked = 0;  // how often

// Asks the server's tasks to end, and asks again every second, since a request that comes before the server has joined
// the bus is not heard. A task that never looks again, such as one that waits for a result without a limit, is not
// waited for.
void AskToEnd(int /*signal*/) {
    const int savedErrno = errno;
    if (g_endAsked == kMostRequests) {
        const std::size_t skipped = g_journalListens != 0 ? 0 : kLevel;
        (void)!write(STDERR_FILENO, kEnded + skipped, sizeof kEnded - 1 - skipped);
        _exit(kDidNotEnd);
    }
    g_endAsked = g_endAsked + 1;
    OsProcRequestDetach();
    (void)alarm(1);
    errno = savedErrno;
}

void InstallHandlers() {
    struct sigaction action {};
    action.sa_handler = AskToEnd;
    action.sa_flags = SA_RESTART;
    (void)sigemptyset(&action.sa_mask);
    for (const int signal : {SIGTERM, SIGINT, SIGALRM}) {
        (void)sigaddset(&action.sa_mask, signal);
    }
    for (const int signal : {SIGTERM, SIGINT, SIGALRM}) {
        (void)sigaction(signal, &action, nullptr);
    }
    // The server goes on when nobody reads what it prints. A handler and not SIG_IGN, which the commands that the
    // server starts would inherit.
    action.sa_handler = [](int /*signal*/) {};
    (void)sigaction(SIGPIPE, &action, nullptr);
}

// A line for the journal that a person at a terminal does not miss.
void TellJournal(const char* text) {
    if (g_journalListens != 0) {
        (void)std::fprintf(stderr, "%sominspect %s\n", OmJournalPrefix(OM_JOURNAL_INFO), text);
    }
}

const char* ErrorLevel() {
    return OmJournalPrefix(OM_JOURNAL_ERROR);
}

// Returns the exit code when there is nothing to run.
std::optional<int> ParseOptions(int argc, char** argv, Options& options) {
    constexpr option kLongOptions[] = {{"hosted", no_argument, nullptr, 'o'},
                                       {"library", required_argument, nullptr, 'l'},
                                       {"version", no_argument, nullptr, 'v'},
                                       {"help", no_argument, nullptr, 'h'},
                                       {nullptr, 0, nullptr, 0}};
    for (int found = 0; (found = getopt_long(argc, argv, "", kLongOptions, nullptr)) != -1;) {
        switch (found) {
            case 'o':
                options.hosted = true;
                break;
            case 'l':
                options.serverPath = optarg;
                break;
            case 'v':
                (void)std::puts("ominspect " OMINSPECT_VERSION);
                return EXIT_SUCCESS;
            case 'h':
                (void)std::fputs(kHelp, stdout);
                return EXIT_SUCCESS;
            default:
                (void)std::fputs("Try 'ominspect --help'.\n", stderr);
                return kWrongUse;
        }
    }
    if (optind < argc) {
        (void)std::fprintf(stderr, "ominspect: unexpected argument '%s'\nTry 'ominspect --help'.\n", argv[optind]);
        return kWrongUse;
    }
    return std::nullopt;
}

// The server's `main`, called as a function; it answers with the result code of the task runner.
int RunAsProcess(void* symbol) {
    const int result = reinterpret_cast<int (*)()>(symbol)();
    if (result == 0) {
        TellJournal("ended as asked");
        return EXIT_SUCCESS;
    }
    const auto code = static_cast<std::uint32_t>(result);
    (void)std::fprintf(stderr, "%sominspect: the server ended: %s (0x%x)\n", ErrorLevel(), OsMsgResultText(code), code);
    return kCannotRun;
}

// The hosted entry answers 0 whatever happened, so an end that nobody asked for is a failure.
int RunHosted(void* symbol) {
    (void)reinterpret_cast<std::uint32_t (*)()>(symbol)();
    if (g_endAsked != 0) {
        return EXIT_SUCCESS;
    }
    (void)std::fprintf(stderr, "%sominspect: the hosted server ended by itself; is the message bus reachable?\n",
                       ErrorLevel());
    return kCannotRun;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (const auto code = ParseOptions(argc, argv, options)) {
        return *code;
    }

    g_journalListens = OmJournalListens();
    InstallHandlers();
    TellJournal(OMINSPECT_VERSION " starts");
    OsProcSetVersion(OMINSPECT_VERSION);
    void* library = dlopen(options.serverPath, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        (void)std::fprintf(stderr, "%sominspect: cannot load the server: %s\n", ErrorLevel(), dlerror());
        return kCannotRun;
    }
    const char* name = options.hosted ? "KivoInspectTaskMain" : "main";
    void* symbol = dlsym(library, name);
    if (symbol == nullptr) {
        (void)std::fprintf(stderr, "%sominspect: '%s' has no function %s\n", ErrorLevel(), options.serverPath, name);
        return kCannotRun;
    }

    if (g_endAsked != 0) {
        return EXIT_SUCCESS;
    }
    // The library is not closed: the server's detached threads live as long as the process.
    return options.hosted ? RunHosted(symbol) : RunAsProcess(symbol);
}
