// collect and doctor are carried out by a program of their own, which takes this one's place: it loads the server's
// library and others that no other command needs.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

#include "commands.h"
#include "common/error.h"
#include "common/text.h"

namespace ominspect::ctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kCollect = "collect";
constexpr const char* kDoctor = "doctor";

}  // namespace

// The options that may stand before the command have no values.
bool IsForCollectProgram(int argc, char** argv) {
    const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
    const auto command = std::find_if(words.begin(), words.end(), [](auto word) { return !word.starts_with('-'); });
    return command != words.end() && (*command == kCollect || *command == kDoctor);
}

void AddCollectProgram(CLI::App& app) {
    for (const auto& [word, text] : {std::pair(kCollect, kCollectText), std::pair(kDoctor, kDoctorText)}) {
        app.add_subcommand(word, text);
    }
}

ExitCode RunCollectProgram(char** argv) {
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error);
    const fs::path program = (own.parent_path() / OMINSPECT_COLLECT_PROGRAM).lexically_normal();
    if (!error) {
        (void)execv(program.c_str(), argv);
        error.assign(errno, std::generic_category());
    }
    Complain("cannot run " + text::Escaped(program.string()) +
             ", which carries out collect and doctor: " + SystemText(error.value()));
    return kUnreachable;
}

}  // namespace ominspect::ctl
