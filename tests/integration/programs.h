// The programs as people use them: ominspectctl against a running server, and the owner program with test items.
#pragma once

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "support/eventually.h"
#include "system.h"

namespace support {

class Programs : public System {
protected:
    using System::System;

    static std::vector<std::string> CommandLine(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), OMINSPECTCTL_PROGRAM);
        return arguments;
    }

    static Outcome Ctl(const std::vector<std::string>& arguments) { return support::Run(CommandLine(arguments)); }

    static Child StartCtl(const std::vector<std::string>& arguments) { return Child(CommandLine(arguments)); }

    // The items of owner.xml, once they are registered.
    Child StartShippedOwner() const {
        Child owner({OMINSPECT_OWNER_PROGRAM, OWNER_FILE}, {"PID_FILE=" + PidFile()});
        EXPECT_TRUE(EventuallyText("always_ok", "fine")) << owner.Output();
        TakeEvents();
        return owner;
    }

    // The process of the item long_run, once it runs.
    pid_t AwaitCommand() const {
        pid_t command = 0;
        EXPECT_TRUE(Eventually([&] { return static_cast<bool>(std::ifstream(PidFile()) >> command); }));
        return command;
    }

    static bool Holds(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

    static size_t CountOf(const std::string& text, const std::string& part) {
        size_t count = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++count;
        }
        return count;
    }

    // Whether the program comes to have written this.
    static bool EventuallySays(const Child& program, const std::string& part) {
        const bool said = program.EventuallyWrote(part);
        EXPECT_TRUE(said) << part << "\n" << program.Output();
        return said;
    }

private:
    std::string PidFile() const { return Folder() + "/long_run.pid"; }
};

}  // namespace support
