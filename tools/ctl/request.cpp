// The commands that ask once: state, reset and stop.
#include <string>

#include "commands.h"
#include "common/text.h"
#include "ominspect/client/session.h"
#include "output.h"
#include "report.h"

namespace ominspect::ctl {
namespace {

// Asks for an item's state, and looks for its owner where the server's answer leaves that open.
client::Result<ShownState> Ask(client::Session& session, const std::string& item, const client::Limit& limit) {
    const auto state = session.State(item, limit);
    if (!state) {
        return state.Failure();
    }
    if (*state == client::ItemState::kNotIdle) {
        return ShownState::kNotIdle;
    }
    const auto owned = HasOwner(session, item, limit);
    if (!owned) {
        return owned.Failure();
    }
    return StateOf(*state, *owned);
}

// Prints the state, and complains about an item that is unknown.
ExitCode Show(const ItemOptions& options, ShownState state, const std::string& line) {
    PrintLine(options.json ? StateJson(options.item, state) : line);
    if (state == ShownState::kUnknown) {
        Complain(text::Escaped(UnseenItemText(options.item)));
        return kFailed;
    }
    return kPassed;
}

ExitCode AnswerState(client::Session& session, const ItemOptions& options, const client::Limit& limit) {
    const auto state = Ask(session, options.item, limit);
    if (!state) {
        return Fail(options.item, state.Failure(), options.json);
    }
    return Show(options, *state, StateTable(options.item, *state));
}

ExitCode SendReset(client::Session& session, const ItemOptions& options, const client::Limit& limit) {
    const auto before = Ask(session, options.item, limit);
    if (!before) {
        return Fail(options.item, before.Failure(), options.json);
    }
    // Also an item that seems to be unknown: its owner may be one that does not show its items.
    if (const auto error = session.Reset(options.item, limit)) {
        return Fail(options.item, *error, options.json);
    }
    const ShownState after = *before == ShownState::kUnknown ? ShownState::kUnknown : ShownState::kIdle;
    return Show(options, after,
                text::Escaped(options.item) + (after == ShownState::kIdle ? " is idle" : " is idle or unknown"));
}

using ItemCommand = ExitCode (*)(client::Session&, const ItemOptions&, const client::Limit&);

ExitCode OnItem(const ItemOptions& options, ItemCommand command) {
    if (const auto error = client::CheckItemName(options.item)) {
        return Fail(options.item, *error, options.json);
    }
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(options.item, session.Failure(), options.json);
    }
    return command(**session, options, options.limit);
}

}  // namespace

ExitCode Stop(const StopOptions& options) {
    const auto session = client::Session::Open();
    if (!session) {
        return Fail(session.Failure(), options.json);
    }
    const auto known = (*session)->StopTask(options.taskId, options.limit);
    if (!known) {
        return Fail(known.Failure(), options.json);
    }
    if (options.json) {
        PrintLine(json::Value::Object().Number("taskId", options.taskId).Flag("known", *known).Print());
    } else {
        PrintLine("task " + std::to_string(options.taskId) +
                  (*known ? " was asked to stop" : ": the server knows no such task, or it has ended"));
    }
    return *known ? kPassed : kFailed;
}

ExitCode Reset(const ItemOptions& options) {
    return OnItem(options, SendReset);
}

ExitCode ShowState(const ItemOptions& options) {
    return OnItem(options, AnswerState);
}

}  // namespace ominspect::ctl
