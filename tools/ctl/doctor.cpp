// The command doctor: what the server would make of a configuration file.
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "doctor/diagnosis.h"
#include "doctor/report.h"

namespace ominspect::ctl {
namespace {

struct DoctorOptions {
    std::string config;
    bool json = false;
};

ExitCode Doctor(const DoctorOptions& options) {
    const doctor::Diagnosis diagnosis = doctor::Diagnose(options.config);
    if (options.json) {
        (void)std::printf("%s\n", doctor::ReportJson(options.config, diagnosis).c_str());
    } else {
        (void)std::fputs(doctor::ReportText(options.config, diagnosis).c_str(), stdout);
    }
    if (diagnosis.unreadable) {
        return kWrongUse;
    }
    return diagnosis.FallsBack() ? kFailed : kPassed;
}

}  // namespace

void AddDoctor(CLI::App& app, Chosen& chosen) {
    const auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand("doctor", "Says what the server would make of a configuration file");
    command->add_option("--config", options->config, "The configuration file")->type_name("FILE")->required();
    AddJson(*command, options->json);
    command->callback([options, &chosen] { chosen = [options] { return Doctor(*options); }; });
}

}  // namespace ominspect::ctl
