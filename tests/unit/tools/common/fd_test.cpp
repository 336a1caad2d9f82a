// Descriptors: pipes, whole writes, small files, the names in a folder.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

#include "common/fd.h"
#include "support/temp_folder.h"

using namespace ominspect;
using support::WriteFile;

namespace {

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(UniqueFdTest, ClosesWhatItOwns) {
    const int number = open("/dev/null", O_RDONLY);
    {
        UniqueFd fd(number);
        EXPECT_TRUE(fd);
        EXPECT_EQ(fd.Get(), number);
        UniqueFd other(std::move(fd));
        EXPECT_EQ(other.Get(), number);
        EXPECT_TRUE(IsOpen(number));
    }
    EXPECT_FALSE(IsOpen(number));
}

TEST(UniqueFdTest, ClosesItsFormerOneWhenItGetsAnother) {
    const int first = open("/dev/null", O_RDONLY);
    const int second = open("/dev/null", O_RDONLY);
    UniqueFd fd(first);
    fd = UniqueFd(second);
    EXPECT_FALSE(IsOpen(first));
    EXPECT_TRUE(IsOpen(second));
    EXPECT_EQ(fd.Release(), second);
    EXPECT_FALSE(fd);
    EXPECT_EQ(fd.Get(), -1);
    EXPECT_TRUE(IsOpen(second));
    (void)close(second);
}

TEST(PipeTest, NeverBlocksItsReaderAndIsNotInherited) {
    const auto pipe = MakePipe();
    ASSERT_TRUE(pipe);
    char byte = 0;
    EXPECT_EQ(read(pipe->read.Get(), &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(fcntl(pipe->write.Get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(pipe->read.Get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(pipe->write.Get(), F_GETFD), FD_CLOEXEC);
}

TEST(WriteAllTest, WritesMoreThanAPipeHolds) {
    auto pipe = MakePipe();
    ASSERT_TRUE(pipe);
    ASSERT_EQ(fcntl(pipe->read.Get(), F_SETFL, 0), 0);
    const std::string data(1000000, 'x');
    std::optional<Error> error;
    std::thread writer([&] {
        error = WriteAll(pipe->write.Get(), data);
        pipe->write.Reset();
    });
    std::string got;
    std::array<char, 4096> block{};
    for (ssize_t size = 0; (size = read(pipe->read.Get(), block.data(), block.size())) > 0;) {
        got.append(block.data(), static_cast<std::size_t>(size));
    }
    writer.join();
    EXPECT_FALSE(error);
    EXPECT_EQ(got, data);
}

TEST(WriteAllTest, SaysWhyItCannot) {
    const UniqueFd full(open("/dev/full", O_WRONLY));
    const auto error = WriteAll(full.Get(), "x");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, ENOSPC);
    EXPECT_EQ(error->text, "No space left on device");
    EXPECT_FALSE(WriteAll(full.Get(), "")) << "nothing is always written";
}

class ReadSmallFileTest : public testing::Test {
protected:
    std::string ErrorOf(std::size_t maxSize) const {
        const auto content = ReadSmallFile(path_, maxSize);
        return content ? "none" : content.Failure().text;
    }

    const support::TempFolder folder_;
    const std::string path_ = folder_ / "file";
};

TEST_F(ReadSmallFileTest, GivesTheWholeFileUpToItsLimit) {
    const std::string text(40000, 'x');
    WriteFile(path_, text);
    const auto content = ReadSmallFile(path_, text.size());
    ASSERT_TRUE(content);
    EXPECT_EQ(*content, text);
    EXPECT_EQ(ErrorOf(text.size() - 1), "larger than 39999 bytes");
}

// Nothing is mapped at the address 0 of a process.
TEST_F(ReadSmallFileTest, TellsWhyAReadFailed) {
    const auto content = ReadSmallFile("/proc/self/mem", 100);
    ASSERT_FALSE(content);
    EXPECT_EQ(content.Failure().number, EIO);
}

TEST_F(ReadSmallFileTest, TakesRegularFilesOnlyAndWaitsForNoWriter) {
    EXPECT_EQ(ErrorOf(10), "No such file or directory");
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(ErrorOf(10), "not a regular file");
}

TEST(SortedNamesTest, GivesAllNamesButTheTwoOfEveryFolder) {
    const support::TempFolder folder;
    for (const char* name : {"b", "a", ".hidden", "c/inside"}) {
        WriteFile(folder / name, "");
    }
    std::vector<std::string> names;
    EXPECT_FALSE(SortedNames(AT_FDCWD, folder.Path().c_str(), names));
    EXPECT_EQ(names, (std::vector<std::string>{".hidden", "a", "b", "c"}));
    names.clear();
    const UniqueFd base(open(folder.Path().c_str(), O_RDONLY | O_DIRECTORY));
    EXPECT_FALSE(SortedNames(base.Get(), "c", names));
    EXPECT_EQ(names, (std::vector<std::string>{"inside"}));
    const auto error = SortedNames(base.Get(), "a", names);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->number, ENOTDIR);
}

TEST(SystemErrorTest, HasTheNumberAndTheSystemsWords) {
    const Error error = SystemError(EACCES);
    EXPECT_EQ(error.code, ErrorCode::kInternal);
    EXPECT_EQ(error.number, EACCES);
    EXPECT_EQ(error.text, "Permission denied");
    EXPECT_EQ(SystemText(99999), "Unknown error 99999");
}

}  // namespace
