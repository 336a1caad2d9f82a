// The programs as people run them, without a message bus.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/temp_folder.h"

namespace programs {

struct Outcome {
    int code;
    std::string out;
    std::string err;
};

inline Outcome RunProgram(const std::vector<std::string>& argv) {
    const support::TempFolder folder;
    const std::string out = folder / "out";
    const std::string err = folder / "err";
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$0\" \"$@\" >'" + out + "' 2>'" + err + "'"};
    command.insert(command.end(), argv.begin(), argv.end());
    const int code = support::Run(command).exitCode;
    return {code, support::Contents(out), support::Contents(err)};
}

inline bool Holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class WithoutBus : public testing::Test {
protected:
    void SetUp() override { (void)setenv("KIVO_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1); }
};

}  // namespace programs
