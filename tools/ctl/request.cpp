// The commands that ask once: run and state.
#include <cstdio>
#include <string>

#include "commands.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "text/text.h"

namespace ominspect::ctl {
namespace {

void PrintLine(const std::string& line) {
    (void)std::printf("%s\n", line.c_str());
}

ExitCode Report(const std::string& item, const client::Error& error, bool json) {
    if (json) PrintLine(ErrorJson(item, error));
    (void)std::fprintf(stderr, "ominspectctl: %s: %s\n", text::Escaped(item).c_str(), error.text.c_str());
    return ExitCodeOf(error);
}

ExitCode ExitCodeOf(const client::RunReply& reply) {
    if (reply.outcome == client::RunOutcome::kPending) return kTimeLimit;
    return reply.result.status == "success" ? kPassed : kFailed;
}

}  // namespace

ExitCode Run(const RunOptions& options) {
    if (const auto error = client::CheckRequest(options.item, options.cmd)) {
        return Report(options.item, *error, options.json);
    }
    const auto session = client::Session::Open();
    if (!session) return Report(options.item, session.Failure(), options.json);
    const auto reply = (*session)->Run(options.item, options.cmd, options.limit);
    if (!reply) return Report(options.item, reply.Failure(), options.json);
    PrintLine(options.json ? RunJson(*reply) : RunTable(*reply));
    return ExitCodeOf(*reply);
}

ExitCode State(const StateOptions& options) {
    if (const auto error = client::CheckItemName(options.item)) return Report(options.item, *error, options.json);
    const auto session = client::Session::Open();
    if (!session) return Report(options.item, session.Failure(), options.json);
    const auto state = (*session)->State(options.item, options.limit);
    if (!state) return Report(options.item, state.Failure(), options.json);
    PrintLine(options.json ? StateJson(options.item, *state) : StateTable(options.item, *state));
    return kPassed;
}

}  // namespace ominspect::ctl
