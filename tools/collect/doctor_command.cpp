// The diagnosis needs no bus; without one, only the owners are missing.
#include "doctor_command.h"

#include <cstdio>

#include "common/client_answers.h"
#include "common/text.h"
#include "diagnosis_report.h"
#include "ownership.h"
#include "places.h"

namespace ominspect::collect {
namespace {

// Says why owners are not shown.
void ComplainOf(const Result<client::Inventory>& owners) {
    if (!owners) {
        Complain(text::Escaped(owners.Failure().text));
        return;
    }
    for (const std::string& process : owners->silent) {
        Complain(SilenceText(process));
    }
}

}  // namespace

ExitCode RunDoctor(const DoctorOptions& options) {
    const std::string config = options.config.empty() ? ThePlaces().config : options.config;
    const Diagnosis diagnosis = Diagnose(config);
    const auto owners = FindOwners(diagnosis);
    if (options.json) {
        auto document = ReportJson(config, diagnosis);
        (void)std::printf("%s\n", document.Put("ownership", OwnershipJson(owners)).Print().c_str());
    } else {
        (void)std::fputs(ReportText(config, diagnosis).c_str(), stdout);
        (void)std::fputs(owners ? OwnershipText(*owners).c_str() : "", stdout);
    }
    (void)std::fflush(stdout);
    ComplainOf(owners);
    if (diagnosis.unreadable) {
        return kWrongUse;
    }
    return diagnosis.FallsBack() ? kFailed : kPassed;
}

}  // namespace ominspect::collect
