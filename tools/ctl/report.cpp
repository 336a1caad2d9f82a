// Every line goes out at once: whoever reads a pipe sees each result as it comes.
#include "report.h"

#include <algorithm>
#include <cstdio>

#include "common/text.h"
#include "output.h"

namespace ominspect::ctl {

void PrintLine(const std::string& line) {
    (void)std::printf("%s\n", line.c_str());
    (void)std::fflush(stdout);
}

void Complain(std::string_view item, const client::Error& error) {
    Complain(text::Escaped(item) + ": " + error.text);
}

void SaveHistory(History& history) {
    if (const auto error = history.Save()) {
        Complain("the results are not remembered for 'list': " + error->text);
    }
}

client::Result<bool> HasOwner(client::Session& session, std::string_view item, const client::Limit& limit) {
    const auto inventory = session.Items(limit);
    if (!inventory) {
        return inventory.Failure();
    }
    return std::any_of(inventory->items.begin(), inventory->items.end(),
                       [item](const client::Item& one) { return one.name == item && !one.owners.empty(); });
}

ExitCode Fail(std::string_view item, const client::Error& error, bool json) {
    if (json) {
        PrintLine(ErrorJson(item, error).Print());
    }
    Complain(item, error);
    return ExitCodeOf(error);
}

ExitCode Fail(const client::Error& error, bool json) {
    if (json) {
        PrintLine(json::Value::Object().Put("error", ErrorJson(error)).Print());
    }
    Complain(error.text);
    return ExitCodeOf(error);
}

}  // namespace ominspect::ctl
