// ominspect-gateway: shows the inspection server to browsers and programs. This file parses the command line.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

#include "common/program_path.h"
#include "common/schema.h"
#include "common/text.h"
#include "gateway.h"
#include "kivo/os_msg.h"
#include "ominspect/journal.h"

namespace {

using namespace ominspect;
using namespace ominspect::gateway;

constexpr int kFailed = 1;  // what is no mistake of anybody's, and may be over at the next start
constexpr int kWrongUse = 2;
constexpr int kCannotServe = 3;
constexpr const char* kDefaultConfig = OMINSPECT_CONFIG_DIR "/gateway.xml";

constexpr const char* kFooter =
    "Without --config, " OMINSPECT_CONFIG_DIR
    "/gateway.xml counts if it is there, else the built-in settings.\n"
    "\n"
    "Exit code: 0 ended as asked, 1 no memory or no thread at its start, 2 wrong use or a mistake in the file,\n"
    "3 it must not, or cannot, listen where it is told to.";

void Complain(const std::string& text) {
    (void)std::fprintf(stderr, "%sominspect-gateway: %s\n", OmJournalPrefix(OM_JOURNAL_ERROR), text.c_str());
}

// The file was read without a mistake. The schema states the rules that the reader enforces; editors use it.
int Check(const std::string& path) {
    const auto schema = ProgramBeside(OMINSPECT_SCHEMAS "/gateway.xsd");
    const auto errors = schema ? SchemaErrors(*schema, path) : schema.Failure();
    if (!errors) {
        Complain("not checked against the schema: " + text::Escaped(errors.Failure().text));
        return EXIT_SUCCESS;
    }
    for (const std::string& error : *errors) {
        Complain(text::Escaped(path) + ": " + text::Escaped(error));
    }
    return errors->empty() ? EXIT_SUCCESS : kWrongUse;
}

int Main(int argc, char** argv) {
    CLI::App app("Shows the inspection server to browsers and programs, and remembers what happened.",
                 "ominspect-gateway");
    app.set_version_flag("--version", "ominspect-gateway " OMINSPECT_VERSION);
    app.footer(kFooter);
    std::string path;
    bool checkOnly = false;
    app.add_option("--config", path, "The configuration file");
    app.add_flag("--check", checkOnly, "Check the file and end");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kWrongUse;
    }

    std::error_code ignored;
    if (path.empty() && std::filesystem::exists(kDefaultConfig, ignored)) {
        path = kDefaultConfig;
    }
    const auto settings = path.empty() ? Result<Settings>(Settings()) : LoadSettings(path);
    if (!settings) {
        Complain(settings.Failure().text);
        return kWrongUse;
    }
    if (checkOnly) {
        return path.empty() ? EXIT_SUCCESS : Check(path);
    }
    OsMsgSetLogLevel(0);  // the parts tell by themselves what the message layer would
    if (const auto error = Serve(*settings)) {
        Complain(error->text);
        return kCannotServe;
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        Complain(error.what());
        return kFailed;
    }
}
