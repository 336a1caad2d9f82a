// The whole system for one test: a bus of its own, the server, owners, and this program as a client.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kivo/os_msg.h"
#include "ominspect/records.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/temp_folder.h"

namespace support {

// One message that reached this program's task.
struct Received {
    uint32_t id;
    std::string process;
    std::vector<unsigned char> data;
};

// The answer to a synchronous message.
struct Reply {
    uint32_t code;
    std::vector<unsigned char> data;

    // The 192-byte result that it must be.
    [[nodiscard]] tagKivoOmInspectionResult Result() const;
};

class System : public testing::Test {
protected:
    // The bus is one for private use, unless there is a configuration for another one.
    explicit System(const std::optional<std::string>& busConfig = std::nullopt);
    ~System() override;

    // Starts the server and waits until it serves messages. With `shortLimits` the build that waits two seconds for an
    // owner's reply, and three rounds for the stop of a group.
    Child StartServer(bool shortLimits = false, const std::vector<std::string>& extraEnvironment = {});

    // Whether the server comes to rest: its last event says idle, and no job is left, each of which has a thread of its
    // own. Gives all events that it has seen.
    bool EventuallyAtRest(const Child& server, std::vector<std::string>* events = nullptr) const;

    // How many threads the server has beyond those it has at rest.
    [[nodiscard]] size_t Jobs(const Child& server) const;

    // What the operations log holds.
    [[nodiscard]] std::string ServerLog() const;

    // A folder of the test's own, with the operations log in it.
    [[nodiscard]] std::string Folder() const { return folder_.Path(); }

    // Starts raw_owner and waits until the server knows its items.
    Child StartOwner(const std::string& process, const std::vector<std::string>& items);

    static Reply Send(uint32_t id, const std::string& payload, uint32_t param = 0,
                      const std::string& process = "ominspect", const std::string& task = "iom_srv_task");
    static void Post(uint32_t id, const std::string& payload, const std::string& process, const std::string& task);

    // Message 0 for an item.
    static tagKivoOmInspectionResult RunItem(const std::string& item, const std::string& cmd = "run");

    // Runs the item until its result has this text.
    static bool EventuallyText(const std::string& item, const std::string& text);

    // What events 8 and 9 told since the last call, one word each: "busy", "idle", or "item status/text".
    static std::vector<std::string> TakeEvents();
    static bool EventuallyEvents(const std::vector<std::string>& expected);

    // The next message of this id to this program: its payload, or its sender's process name.
    static std::vector<unsigned char> AwaitMessage(uint32_t id);
    static std::string AwaitSender(uint32_t id);

    PrivateBus bus_;

private:
    TempFolder folder_;
};

std::string Text(const tagKivoOmInspectionResult& result);  // "name status/text"

}  // namespace support
