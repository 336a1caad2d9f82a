// The time limit of a collection, in real time, with the shipped shared object.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/temp_folder.h"

namespace support {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStopped = "collection stopped by timer, [";

class CollectLimit : public testing::Test {
protected:
    // Folders of a thousand files each. One file takes a process for its time stamps, so a few hundred are copied in
    // a second.
    void MakeTree(int folders) const {
        const auto old = fs::file_time_type::clock::now() - std::chrono::hours(100);
        for (int folder = 0; folder < folders; ++folder) {
            const fs::path path = Source() / ("folder" + std::to_string(folder));
            fs::create_directories(path);
            for (int file = 0; file < 1000; ++file) {
                const fs::path name = path / ("file" + std::to_string(file));
                std::ofstream(name) << Contents(name.filename());
                fs::last_write_time(name, old);
            }
        }
    }

    [[nodiscard]] Outcome Collect(const std::string& seconds) const {
        return support::Run({COLLECTOR_PROGRAM, "dir", Source(), Destination(), seconds});
    }

    // How many files arrived. Each must be whole, with its time.
    [[nodiscard]] int CountWholeFiles() const {
        int count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(Destination())) {
            if (entry.is_directory()) {
                continue;
            }
            ++count;
            std::ostringstream text;
            text << std::ifstream(entry.path()).rdbuf();
            EXPECT_EQ(text.str(), Contents(entry.path().filename())) << entry.path();
            EXPECT_EQ(entry.last_write_time(),
                      fs::last_write_time(Source() / fs::relative(entry.path(), Destination())))
                << entry.path();
        }
        return count;
    }

    // The folder that was being read and the one around it say so, and nothing else is said.
    static void ExpectStopped(const Outcome& outcome) {
        EXPECT_EQ(outcome.exitCode, 0);
        int stopped = 0;
        std::istringstream lines(outcome.output);
        for (std::string line; std::getline(lines, line);) {
            const bool saysSo = line.find(kStopped) != std::string::npos;
            stopped += saysSo ? 1 : 0;
            EXPECT_TRUE(saysSo || line == "running 0") << line;
        }
        EXPECT_GE(stopped, 1);
        EXPECT_LE(stopped, 2);
    }

    [[nodiscard]] fs::path Source() const { return dir_.Path() / "source"; }
    [[nodiscard]] fs::path Destination() const { return dir_.Path() / "destination"; }

private:
    // What a file of this name holds: some thousand bytes, in no other file.
    static std::string Contents(const std::string& name) {
        std::string text;
        while (text.size() < 3000) {
            text += name + '\n';
        }
        return text;
    }

    support::TempFolder dir_;
};

TEST_F(CollectLimit, OfOneSecondEndsALargeCollectionBetweenTwoFiles) {
    MakeTree(20);
    ExpectStopped(Collect("1"));
    const int count = CountWholeFiles();
    EXPECT_GT(count, 0);
    EXPECT_LT(count, 20000);
}

TEST_F(CollectLimit, OfZeroEndsACollectionNearItsBeginning) {
    MakeTree(2);
    ExpectStopped(Collect("0"));
    EXPECT_LT(CountWholeFiles(), 2000);
}

TEST_F(CollectLimit, ThatIsNotReachedChangesNothing) {
    MakeTree(1);
    const Outcome outcome = Collect("60");
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output, "running 0\n");
    EXPECT_EQ(CountWholeFiles(), 1000);
}

}  // namespace
}  // namespace support
