// ominspect-room: serves the room's items. It stays small: whatever looks at something is another process.
#include <chrono>
#include <cstdio>
#include <exception>
#include <optional>
#include <sstream>
#include <string>

#include <unistd.h>

#include "common/program_path.h"
#include "common/text.h"
#include "items/config.h"
#include "items/jobs.h"
#include "items/mapping.h"
#include "items/service.h"
#include "ominspect/journal.h"
#include "options.h"

namespace {

using namespace room;
using ominspect::items::CommandOutcome;

constexpr std::chrono::seconds kListLimit{30};
constexpr unsigned kMaxParallel = 8;

// What the checking program prints, on this thread.
CommandOutcome RunToEnd(std::vector<std::string> argv) {
    std::optional<CommandOutcome> outcome;
    ominspect::items::Jobs jobs({});
    jobs.Add(
        0, {.argv = std::move(argv), .item = "", .argument = "", .limit = kListLimit},
        [&outcome](const CommandOutcome& told) { outcome = told; }, ominspect::items::Jobs::Clock::now());
    for (;;) {
        jobs.Step();
        if (outcome) {
            return *outcome;
        }
        jobs.Wait(-1);
    }
}

// The items as the checking program lists them: one line each, with its name, its limit in seconds, and "sync" or
// "async". The exit code; the reason was said for any but kPassed.
int ListItems(const std::string& program, const Options& options, ominspect::items::OwnerConfig& config) {
    std::vector<std::string> command{program};
    if (!options.config.empty()) {
        command.insert(command.end(), {"--config", options.config});
    }
    std::vector<std::string> list = command;
    list.emplace_back("--list");
    const CommandOutcome outcome = RunToEnd(list);
    if (outcome.end == CommandOutcome::End::kExited && outcome.code == kWrongUse) {
        // The checking program does not know that its complaints end in the journal.
        (void)std::fprintf(stderr, "%s%s", OmJournalPrefix(OM_JOURNAL_ERROR), outcome.output.err.c_str());
        return kWrongUse;
    }
    if (outcome.end != CommandOutcome::End::kExited || outcome.code != kPassed) {
        // Nobody has made a mistake: another start may succeed.
        const auto result = ominspect::items::MakeResult("list", program, kListLimit, outcome);
        Complain("cannot list the items: " + std::string(result.text));
        return kUnreachable;
    }
    std::istringstream lines(outcome.output.out);
    lines.exceptions(std::ios::badbit);  // or the list would end where memory does
    std::string name;
    std::string kind;
    for (unsigned limit = 0; lines >> name >> limit >> kind;) {
        std::vector<std::string> answer = command;
        answer.insert(answer.end(), {"--answer", name});
        config.items.push_back({name, std::chrono::seconds(limit), kind == "sync", std::move(answer)});
    }
    return kPassed;
}

int Main(int argc, char** argv) {
    Options options;
    if (const auto code = ReadOptions(argc, argv, options)) {
        return *code;
    }
    const auto program = ominspect::ProgramBeside(OMINSPECT_ROOM_CHECK);
    if (!program) {
        Complain("cannot find its own folder: " + program.Failure().text);
        return kUnreachable;
    }
    const bool serves = options.check.empty() && !options.isOnce && !options.describe;
    if (!serves) {
        (void)execv(program->c_str(), argv);
    }
    if (!serves || access(program->c_str(), X_OK) != 0) {
        Complain("cannot run " + ominspect::text::Escaped(*program) + ": " + ominspect::SystemText(errno));
        return kUnreachable;
    }
    ominspect::items::OwnerConfig config{"room", kMaxParallel, {}};
    if (const int code = ListItems(*program, options, config); code != kPassed) {
        return code;
    }
    if (const auto error = ominspect::items::Serve(kProgram, config)) {
        Complain(error->text);
        return kUnreachable;
    }
    return kPassed;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        room::Complain(error.what());
        return room::kUnreachable;
    }
}
