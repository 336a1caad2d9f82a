// Collections: what a failure on the way leaves, without memory and without threads.
#include "actions/collection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include <pthread.h>
#include <sys/wait.h>

#include "support/eventually.h"
#include "support/nth_allocation.h"
#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::gateway;
using support::Eventually;
using support::NthAllocation;
using support::TempFolder;
using support::Uncounted;

namespace {

// As the collection program, but for the content.
constexpr const char* kProgram =
    "#!/bin/sh\necho '{\"entry\": \"one of the entries that are collected\"}' >&2\necho x > \"$3\"\n";

// While it lives, no thread can be made: there is no room for its stack.
class NoThreads {
public:
    NoThreads() {
        (void)pthread_getattr_default_np(&before_);
        pthread_attr_t huge;
        (void)pthread_getattr_default_np(&huge);
        EXPECT_EQ(pthread_attr_setstacksize(&huge, SIZE_MAX / 4 * 3), 0);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        (void)pthread_attr_destroy(&huge);
    }
    ~NoThreads() {
        EXPECT_EQ(pthread_setattr_default_np(&before_), 0);
        (void)pthread_attr_destroy(&before_);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t before_{};
};

class CollectionTest : public testing::Test {
protected:
    CollectionTest() {
        std::ofstream(program) << kProgram;
        std::filesystem::permissions(program, std::filesystem::perms(0755));
    }

    std::string StateNow() const {
        const Uncounted own;
        return collection.Document().Read()["state"].Text().value_or("");
    }

    // How often a state is told, once all that was posted is.
    int Told(const std::string& state) {
        int count = 0;
        feed.Subscribe([&](const Event& event) {
            count += event.document.find("\"" + state + "\"") != std::string::npos ? 1 : 0;
        });
        feed.Start();
        feed.Stop();
        return count;
    }

    static bool HasChild() { return waitpid(-1, nullptr, WNOHANG) == 0 || errno != ECHILD; }

    const TempFolder folder;
    const std::string program = folder / "collector with a name that no short text holds";
    Feed feed{nullptr, 1};
    Collection collection{program, folder / "collection", "", feed};
};

TEST_F(CollectionTest, EndsWithAPackage) {
    ASSERT_FALSE(collection.Begin("page"));
    EXPECT_TRUE(Eventually([&] { return StateNow() == "done"; }));
    EXPECT_FALSE(HasChild());
    EXPECT_TRUE(std::filesystem::exists(collection.Package()));
    collection.Delete();
    EXPECT_EQ(StateNow(), "none");
    EXPECT_EQ(collection.Package(), "");
    EXPECT_FALSE(std::filesystem::exists(folder / "collection/logs.tar.zst"));
    EXPECT_EQ(Told("done"), 1);
}

TEST_F(CollectionTest, OneAtATime) {
    std::ofstream(program) << "#!/bin/sh\nexec sleep 1000\n";
    ASSERT_FALSE(collection.Begin("page"));
    const auto error = collection.Begin("page");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, ErrorCode::kRefused);
    collection.Delete();
    EXPECT_FALSE(HasChild());
}

TEST_F(CollectionTest, AProgramThatIsNotThereIsAFailure) {
    std::filesystem::remove(program);
    ASSERT_FALSE(collection.Begin("page"));
    EXPECT_EQ(StateNow(), "failed");
    EXPECT_EQ(collection.Document().Read()["progress"].Text(), "cannot run " + program + ": No such file or directory");
}

TEST_F(CollectionTest, WithoutAThreadNothingIsStartedAndThePackageStays) {
    ASSERT_FALSE(collection.Begin("page"));
    EXPECT_TRUE(Eventually([&] { return StateNow() == "done"; }));
    {
        const NoThreads shortage;
        const auto error = collection.Begin("page");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, ErrorCode::kInternal);
    }
    EXPECT_EQ(StateNow(), "done");
    EXPECT_TRUE(std::filesystem::exists(collection.Package()));
    EXPECT_FALSE(HasChild());
    EXPECT_FALSE(collection.Begin("page"));
    EXPECT_TRUE(Eventually([&] { return StateNow() == "done"; }));
}

TEST_F(CollectionTest, WithoutMemoryItGoesOnToItsEndOrIsNotBegun) {
    int begun = 0;
    bool happened = true;
    for (unsigned number = 0; happened && number < 300; ++number) {
        const NthAllocation shortage(number);
        try {
            ASSERT_FALSE(collection.Begin("a page with a name that no short text holds")) << number;
            ++begun;
        } catch (const std::bad_alloc&) {
            ASSERT_NE(StateNow(), "going-on") << number;
        }
        const Uncounted own;
        ASSERT_TRUE(Eventually([&] { return StateNow() != "going-on"; })) << number;
        ASSERT_FALSE(HasChild()) << number;
        happened = shortage.Happened();
    }
    EXPECT_FALSE(happened);
    EXPECT_EQ(StateNow(), "done");
    EXPECT_GT(begun, 5);
    EXPECT_GE(Told("done"), begun) << "a short one has ended when its begin is told";
}

}  // namespace
