// ominspectctl: asks the inspection server, for people and scripts.
#include "commands.h"
#include "kivo/os_msg.h"

namespace {

using namespace ominspect;

void AddCommands(CLI::App& app, Chosen& chosen) {
    ctl::AddList(app, chosen);
    ctl::AddRun(app, chosen);
    ctl::AddCheck(app, chosen);
    ctl::AddGroup(app, chosen);
    ctl::AddStop(app, chosen);
    ctl::AddReset(app, chosen);
    ctl::AddState(app, chosen);
    ctl::AddWait(app, chosen);
    ctl::AddWatch(app, chosen);
    ctl::AddHistory(app, chosen);
    ctl::AddCollectProgram(app);
}

}  // namespace

int main(int argc, char** argv) {
    if (ctl::IsForCollectProgram(argc, argv)) {
        return ctl::RunCollectProgram(argv);
    }
    OsMsgSetLogLevel(0);  // the commands tell by themselves what the message layer would
    return RunCommandLine(argc, argv, AddCommands);
}
