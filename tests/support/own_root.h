// Root's rights over name spaces of one's own, for tests that mount file systems or lay cables.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace support {

// Anybody but root runs the test program again, by unshare(1), as the root of a user, mount and network name space; so
// it is to be called before anything was done. Where that is not allowed the test fails, with the reason.
inline void BecomeOwnRoot() {
    if (geteuid() == 0) {
        return;
    }
    std::vector<std::string> words{"unshare", "--map-root-user", "--mount", "--net"};
    std::ifstream file("/proc/self/cmdline");
    for (std::string word; std::getline(file, word, '\0');) {
        words.push_back(word);
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    (void)std::fflush(stdout);
    (void)execvp(arguments[0], arguments.data());
}

}  // namespace support
