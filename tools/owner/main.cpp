// ominspect-owner: makes any executable an inspection item. This file parses the command line.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

#include "common/program_path.h"
#include "common/schema.h"
#include "common/text.h"
#include "config.h"
#include "describe.h"
#include "items/service.h"
#include "ominspect/journal.h"

namespace {

using namespace ominspect;
using namespace ominspect::owner;

constexpr int kWrongUse = 2;
constexpr int kCannotServe = 3;

constexpr const char* kFooter =
    "The file maps items to commands:\n"
    "  <Owner process=\"sysowner\" maxParallel=\"16\">\n"
    "      <Item name=\"load\" timeout=\"10\" isSync=\"true\">\n"
    "          <Command>/usr/lib/nagios/plugins/check_load</Command>\n"
    "          <Arg>-w</Arg>\n"
    "          <Arg>5,4,3</Arg>\n"
    "      </Item>\n"
    "  </Owner>\n"
    "A command is run without a shell, in a process group of its own that is ended with it; INSPECT_ITEM and\n"
    "INSPECT_CMD hold the item's name and the request's argument. Its exit status 0, 1, 2 or another gives the\n"
    "status \"success\", \"warn\", \"fail\" or \"unknown\", the first line of its output the text. The limit of an\n"
    "asynchronous item counts from the request, the time it waits for a free place included. Synchronous items run\n"
    "beside each other, too; each holds up the owner's other requests for some 20 ms at most.\n"
    "\n"
    "Exit code: 0 ended as asked, 2 wrong use or a mistake in the file, 3 the message bus is not reachable, the\n"
    "process name is taken, or this user may not own items.";

// The file was read without a mistake. The schema says the same by other means, and is what editors know.
int Check(const std::string& path, const OwnerConfig& config) {
    (void)std::fputs(Describe(config).c_str(), stdout);
    (void)std::fflush(stdout);
    const auto schema = ProgramBeside(OMINSPECT_SCHEMAS "/ominspect-owner.xsd");
    const auto errors = schema ? SchemaErrors(*schema, path) : schema.Failure();
    if (!errors) {
        (void)std::fprintf(stderr, "ominspect-owner: not checked against the schema: %s\n",
                           text::Escaped(errors.Failure().text).c_str());
        return EXIT_SUCCESS;
    }
    for (const std::string& error : *errors) {
        (void)std::fprintf(stderr, "ominspect-owner: %s: %s\n", text::Escaped(path).c_str(),
                           text::Escaped(error).c_str());
    }
    return errors->empty() ? EXIT_SUCCESS : kWrongUse;
}

int Main(int argc, char** argv) {
    CLI::App app("Makes any executable an inspection item.", "ominspect-owner");
    app.set_version_flag("--version", "ominspect-owner " OMINSPECT_VERSION);
    app.footer(kFooter);
    std::string path;
    bool checkOnly = false;
    app.add_option("FILE", path, "The file that maps items to commands")->required();
    app.add_flag("--check", checkOnly, "Check the file, print what would be done, and end");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kWrongUse;
    }

    const auto config = LoadConfig(path);
    if (!config) {
        (void)std::fprintf(stderr, "%sominspect-owner: %s\n", OmJournalPrefix(OM_JOURNAL_ERROR),
                           config.Failure().text.c_str());
        return kWrongUse;
    }
    if (checkOnly) {
        return Check(path, *config);
    }
    if (const auto error = ominspect::items::Serve("ominspect-owner", *config)) {
        (void)std::fprintf(stderr, "%sominspect-owner: %s\n", OmJournalPrefix(OM_JOURNAL_ERROR), error->text.c_str());
        return kCannotServe;
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%sominspect-owner: %s\n", OmJournalPrefix(OM_JOURNAL_ERROR), error.what());
        return kCannotServe;
    }
}
