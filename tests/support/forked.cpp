#include "support/forked.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <sstream>
#include <string>

namespace support {

namespace {

constexpr uid_t kNobody = 65534;

[[noreturn]] void RunBody(int output, const std::function<std::vector<std::string>()>& body) {
    std::string text;
    for (const std::string& line : body()) {
        text += line + '\0';
    }
    const bool written = write(output, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(written ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace

std::vector<std::string> InForkedChild(const std::function<std::vector<std::string>()>& body) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        ADD_FAILURE() << "no pipe";
        return {};
    }
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        RunBody(ends[1], body);
    }
    close(ends[1]);
    std::string text;
    std::array<char, 65536> buffer;
    for (ssize_t got = 0; (got = read(ends[0], buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the child did not end well";
    std::vector<std::string> lines;
    std::istringstream all(text);
    for (std::string line; std::getline(all, line, '\0');) {
        lines.push_back(line);
    }
    return lines;
}

void BecomeNobody() {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
        _exit(EXIT_FAILURE);
    }
}

void BecomeNobodyWith(const std::filesystem::path& folder) {
    if (geteuid() == 0 && chown(folder.c_str(), kNobody, kNobody) != 0) {
        _exit(EXIT_FAILURE);
    }
    BecomeNobody();
}

}  // namespace support
