// Options that several commands of ominspectctl have.
#include "commands.h"

namespace ominspect::ctl {
namespace {

constexpr int kMaxSeconds = 86400;

}  // namespace

void AddLimit(CLI::App& command, std::chrono::seconds& limit, const std::string& text) {
    command
        .add_option_function<int>(
            "--timeout", [&limit](int seconds) { limit = std::chrono::seconds(seconds); }, text)
        ->type_name("SECONDS")
        ->check(CLI::Range(1, kMaxSeconds));
}

void AddJson(CLI::App& command, bool& json, const std::string& text) {
    command.add_flag("--json", json, text);
}

}  // namespace ominspect::ctl
