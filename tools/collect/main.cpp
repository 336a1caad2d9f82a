// ominspect-collect: carries out the commands collect and doctor of ominspectctl, which runs it in its own place.
#include <memory>

#include <CLI/CLI.hpp>

#include "collect_command.h"
#include "common/command_line.h"
#include "doctor/doctor_command.h"
#include "kivo/os_msg.h"

namespace {

using namespace ominspect;
using namespace ominspect::collect;

void AddCollect(CLI::App& app, Chosen& chosen) {
    constexpr int kLongestLimit = 60;
    constexpr int kLongestTotal = 86400;
    const auto options = std::make_shared<CollectOptions>();
    CLI::App* command = app.add_subcommand(kCollectCommand, kCollectText);
    command->add_option("SOURCE", options->sources,
                        "Files and folders to collect instead of the configured entries; each in its own folder");
    command->add_option("--config", options->config, "Take the entries of another configuration file")
        ->type_name("FILE")
        ->excludes("SOURCE");
    command->add_option("--area", options->area, "Folder to copy into, and to pack; it is kept")->type_name("DIR");
    command->add_option("--output", options->output, "The package (default: ominspect-HOST-TIME.tar.zst)")
        ->type_name("FILE");
    command->add_flag("--force", options->force, "Replace a package that exists");
    command->add_option("--timeout", options->limit, "Time limit of each SOURCE (default: 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kLongestLimit))
        ->needs("SOURCE");
    command->add_option("--total-timeout", options->totalLimit, "Time limit of all entries together")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kLongestTotal));
    command->add_option("--max-size", options->maxSize, "Copy no more than this, in bytes or with K, M or G")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false));
    command->add_option("--exclude", options->exclude, "Leave out paths or names that match; may be repeated")
        ->type_name("PATTERN")
        ->take_all()
        ->allow_extra_args(false);
    command->add_flag_callback(
        "--no-redact", [options] { options->redact = false; }, "Leave secrets as they are");
    command->add_option("--redact-patterns", options->patterns, "Further patterns of secrets; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command->add_flag("--dry-run", options->dryRun, "Say what would be copied, and change nothing");
    AddJson(*command, options->json, "Print the package's manifest");
    command->callback([options, &chosen] { chosen = [options] { return RunCollect(*options); }; });
}

void AddDoctor(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<doctor::DoctorOptions>();
    CLI::App* command = app.add_subcommand(kDoctorCommand, kDoctorText);
    command
        ->add_option(
            "--config", options->config,
            "Look at this configuration file alone: what the server makes of each line, and who owns its items")
        ->type_name("FILE");
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return doctor::RunDoctor(*options); }; });
}

}  // namespace

int main(int argc, char** argv) {
    OsMsgSetLogLevel(0);  // the commands tell by themselves what the message layer would
    return RunCommandLine(argc, argv, [](CLI::App& app, Chosen& chosen) {
        AddCollect(app, chosen);
        AddDoctor(app, chosen);
    });
}
