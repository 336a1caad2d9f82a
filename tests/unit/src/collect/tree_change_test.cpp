// Copying of trees that change meanwhile: every file that arrives is some whole state of its source.
#include <atomic>
#include <thread>

#include "tree_test.h"

using support::Lines;
using support::LogLines;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t kFileSize = 20000;
constexpr int kEnoughChanges = 200;
constexpr int kEnoughCopies = 20;

class InspectCopyChangeTest : public support::TreeTest {
protected:
    // Copies src to dst, and looks at what arrived, while `change` runs over and over on another thread, until there
    // were enough of both.
    template <typename ChangeOnce, typename Check>
    void CopyWhile(const ChangeOnce& change, const Check& check) {
        std::atomic<int> changes{0};
        std::atomic<bool> stop{false};
        std::thread changer([&] {
            while (!stop) {
                change(changes.load());
                ++changes;
            }
        });
        for (int copies = 0; copies < kEnoughCopies || changes < kEnoughChanges; ++copies) {
            Copy("src", "dst");
            check();
        }
        stop = true;
        changer.join();
    }

    // A file that is never seen half-written: `number` decides what is in it.
    static void Replace(const std::string& path, int number) {
        Write("staged", std::string(kFileSize, static_cast<char>('a' + number % 26)));
        fs::rename("staged", path);
    }

    // Every file of a folder is one whole state of a file that Replace wrote.
    static void CheckWhole(const std::string& folder) {
        for (const std::string& name : Below(folder)) {
            const std::string text = Read(folder + "/" + name);
            ASSERT_EQ(text.size(), kFileSize) << name;
            ASSERT_EQ(text.find_first_not_of(text[0]), std::string::npos) << name;
        }
    }

    // Files that go away between two steps of their copy are said to have failed, and nothing else.
    static void CheckLog() {
        for (const std::string& line : LogLines()) {
            EXPECT_TRUE(line.starts_with("1 InspectFile 15: copy file [") ||
                        line.starts_with("1 InspectFile 15: change file ["))
                << line;
        }
    }
};

}  // namespace

TEST_F(InspectCopyChangeTest, AFileThatGrowsArrivesAsItsOwnBeginning) {
    Write("src/still", "still");
    std::string whole(100000 + 5000 * 2000, '\0');  // 10 MB at most
    for (std::size_t i = 0; i < whole.size(); ++i) {
        whole[i] = static_cast<char>(i % 251);
    }
    std::ofstream log("src/log", std::ios::binary);
    log.write(whole.data(), 100000).flush();
    const auto grow = [&](int changes) {
        if (changes < 5000) {
            log.write(whole.data() + log.tellp(), 2000).flush();
        }
    };
    CopyWhile(grow, [&] {
        EXPECT_EQ(Below("dst"), (Lines{"log", "still"}));
        const std::string copy = Read("dst/log");
        EXPECT_GE(copy.size(), 100000U);
        EXPECT_TRUE(whole.starts_with(copy));
    });
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(InspectCopyChangeTest, FilesThatComeAndGoArriveWholeOrNotAtAll) {
    fs::create_directories("src");
    Replace("src/stays", 0);
    const auto comeAndGo = [](int changes) {
        const std::string path = "src/file" + std::to_string(changes % 20);
        if (changes % 3 == 0) {
            fs::remove(path);
        } else {
            Replace(path, changes);
        }
    };
    CopyWhile(comeAndGo, [] {
        CheckWhole("dst");
        EXPECT_TRUE(fs::exists("dst/stays"));
    });
    CheckLog();
}

TEST_F(InspectCopyChangeTest, ATreeThatIsRotatedArrivesInWholeFiles) {
    fs::create_directories("src/logs");
    const auto rotate = [](int changes) {
        for (int number = 8; number > 0; --number) {
            const std::string older = "src/logs/log." + std::to_string(number);
            const std::string newer = "src/logs/log." + std::to_string(number - 1);
            if (fs::exists(newer)) {
                fs::rename(newer, older);
            }
        }
        Replace("src/logs/log.0", changes);
    };
    rotate(0);
    CopyWhile(rotate, [] { CheckWhole("dst/logs"); });
    CheckLog();
}
