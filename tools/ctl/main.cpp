// ominspectctl: asks the inspection server, for people and scripts.
#include "arguments.h"
#include "commands.h"
#include "kivo/os_msg.h"

int main(int argc, char** argv) {
    using namespace ominspect;
    if (ctl::IsForCollectProgram(argc, argv)) {
        return ctl::RunCollectProgram(argv);
    }
    OsMsgSetLogLevel(0);  // the commands tell by themselves what the message layer would
    return RunCommandLine(argc, argv, ctl::AddCommands);
}
