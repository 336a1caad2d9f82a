// collect and doctor are carried out by a program of their own, which takes this one's place: it loads the server's
// library and others that no other command needs.
#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "commands.h"
#include "common/error.h"
#include "common/program_path.h"
#include "common/text.h"

namespace ominspect::ctl {

// The options that may stand before the command have no values.
bool IsForCollectProgram(int argc, char** argv) {
    const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
    const auto command = std::find_if(words.begin(), words.end(), [](auto word) { return !word.starts_with('-'); });
    return command != words.end() && (*command == kCollectCommand || *command == kDoctorCommand);
}

ExitCode RunCollectProgram(char** argv) {
    const auto program = ProgramBeside(OMINSPECT_COLLECT_PROGRAM);
    int reason = 0;
    if (program) {
        (void)execv(program->c_str(), argv);
        reason = errno;
    } else {
        reason = program.Failure().number;
    }
    Complain("cannot run " + text::Escaped(program ? *program : OMINSPECT_COLLECT_PROGRAM) +
             ", which carries out collect and doctor: " + SystemText(reason));
    return kUnreachable;
}

}  // namespace ominspect::ctl
