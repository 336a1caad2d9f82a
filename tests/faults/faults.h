// A system with an owner that is well beside what fails: whether others notice, and what stays.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/process_state.h"
#include "system.h"

namespace support {

inline constexpr const char* kServer = "ominspect";
inline constexpr const char* kServerTask = "iom_srv_task";

inline std::string RequestText(const std::string& item, const std::string& cmd = "go") {
    return R"({"name":")" + item + R"(","cmd":")" + cmd + R"("})";
}

class Faults : public System {
protected:
    using System::System;

    // With an owner whose item "ok" answers at once.
    void StartAll(bool shortLimits = false, const std::vector<std::string>& extraEnvironment = {}) {
        server_ = std::make_unique<Child>(StartServer(shortLimits, extraEnvironment));
        well_ = std::make_unique<Child>(StartOwner("well", {"ok"}));
        ExpectServing();
        EXPECT_TRUE(EventuallyAtRest(*server_));
        descriptors_ = Descriptors(Pid());
        memory_ = PrivateMemory(Pid());
    }

    [[nodiscard]] Child& Server() const { return *server_; }
    [[nodiscard]] pid_t Pid() const { return server_->Pid(); }

    // Has a run in the background; its results come as messages 0.
    static void Start(const std::string& item, const std::string& cmd = "go") {
        Post(18, RequestText(item, cmd), kServer, kServerTask);
    }

    // The next result that the server sends to this program.
    static std::string AwaitResult() { return Text(Reply{0, AwaitMessage(0)}.Result()); }

    // Whether the server still answers, and asks owners.
    static void ExpectServing() { EXPECT_EQ(Text(RunItem("ok")), "ok success/answered by well"); }

    // Whether it serves and nothing stays: no job, no descriptor, and of memory no more than this.
    void ExpectNothingStays(long kilobytes = 1024) {
        ExpectServing();
        EXPECT_TRUE(EventuallyAtRest(*server_));
        EXPECT_TRUE(Eventually([this] { return Descriptors(Pid()) <= descriptors_; }))
            << Descriptors(Pid()) << " descriptors, " << descriptors_ << " before";
        EXPECT_LE(PrivateMemory(Pid()), memory_ + kilobytes);
    }

private:
    std::unique_ptr<Child> server_;
    std::unique_ptr<Child> well_;
    size_t descriptors_ = 0;
    long memory_ = 0;
};

}  // namespace support
