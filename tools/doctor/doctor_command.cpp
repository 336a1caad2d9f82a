// Neither form needs the server or the bus: without them it says so.
#include "doctor/doctor_command.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "collect/places.h"
#include "common/client_answers.h"
#include "common/live_lines.h"
#include "common/program_path.h"
#include "common/schema.h"
#include "common/text.h"
#include "doctor/bus_facts.h"
#include "doctor/bus_findings.h"
#include "doctor/diagnosis_report.h"
#include "doctor/ownership.h"
#include "doctor/person.h"
#include "doctor/place_findings.h"

namespace ominspect::doctor {
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

void Print(const json::Value& document) {
    (void)std::printf("%s\n", document.Print().c_str());
}

Result<std::vector<std::string>> AskSchema(const std::string& config) {
    const auto schema = ProgramBeside(OMINSPECT_SCHEMAS "/inspect_config.xsd");
    return schema ? SchemaErrors(*schema, config) : schema.Failure();
}

std::string SchemaText(const Result<std::vector<std::string>>& errors) {
    if (!errors) {
        return "not checked against the schema: " + text::Escaped(errors.Failure().text) + '\n';
    }
    std::string out;
    for (const std::string& error : *errors) {
        out += "schema: " + text::Escaped(error) + '\n';
    }
    return out;
}

json::Value SchemaJson(const Result<std::vector<std::string>>& errors) {
    auto list = json::Value::Array();
    for (const std::string& error : errors ? *errors : std::vector{errors.Failure().text}) {
        list.AddText(text::Escaped(error));
    }
    auto schema = json::Value::Object();
    schema.Flag("checked", static_cast<bool>(errors)).Put("errors", std::move(list));
    return schema;
}

// The exit code is about what the server makes of the file, and nothing else.
ExitCode LookAtFile(const std::string& config, bool json) {
    const Diagnosis diagnosis = Diagnose(config);
    const auto schema = AskSchema(config);
    const auto owners = FindOwners(diagnosis);
    if (json) {
        auto document = ReportJson(config, diagnosis);
        document.Put("schema", SchemaJson(schema));
        Print(document.Put("ownership", OwnershipJson(owners)));
    } else {
        (void)std::fputs(diagnosis.unreadable ? "" : SchemaText(schema).c_str(), stdout);
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

// True when it cannot be checked.
bool IsAsSchemaHasIt(const std::string& config) {
    const auto errors = AskSchema(config);
    return !errors || errors->empty();
}

std::vector<Finding> LookAtInstallation() {
    constexpr unsigned long long kLogRoom = 16ULL << 20U;    // two files of 2 MiB, and some to spare
    constexpr unsigned long long kAreaRoom = 256ULL << 20U;  // a collection of logs, and its package
    const collect::Places places = collect::ThePlaces();
    const Diagnosis diagnosis = Diagnose(places.config);
    const client::Catalogue configured = CatalogueOf(diagnosis.items);
    const BusFacts bus = LookAtBus(configured);
    const std::string user = bus.server ? bus.server->user : "";

    // The system bus reads these two folders only, whatever the prefix is.
    const std::string policyAdvice =
        PolicyAdvice({"/usr/share/dbus-1/system.d", "/etc/dbus-1/system.d"}, OMINSPECT_POLICY_DIR);
    std::vector<Finding> findings = JudgeBus(bus, ThisPerson(), policyAdvice);
    const auto append = [&findings](std::vector<Finding> more) {
        findings.insert(findings.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    };
    append(JudgeServer(bus, OMINSPECT_VERSION));
    append(JudgeItems(bus, configured));
    findings.push_back(JudgeConfiguration(places.config, diagnosis, IsAsSchemaHasIt(places.config)));
    findings.push_back(JudgeFolder("log", places.log, user, kLogRoom));
    findings.push_back(JudgeFolder("diagnosis", places.isDevice ? places.area : OMINSPECT_STATE_DIR "/diag",
                                   places.isDevice ? "" : user, kAreaRoom));
    findings.push_back(JudgeClock(std::time(nullptr), IsClockSynchronised()));
    return findings;
}

}  // namespace

ExitCode RunDoctor(const DoctorOptions& options) {
    if (!options.config.empty()) {
        return LookAtFile(options.config, options.json);
    }
    const std::vector<Finding> findings = LookAtInstallation();
    if (options.json) {
        Print(FindingsJson(findings));
    } else {
        (void)std::fputs(FindingsText(findings, WantsColours(stdout)).c_str(), stdout);
    }
    return IsAnythingWrong(findings) ? kFailed : kPassed;
}

}  // namespace ominspect::doctor
